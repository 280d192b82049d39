// The scan for services, from the folder to the channel lists.
#include <filesystem>
#include <mutex>
#include <random>

#include "antenna_test.h"

namespace {

namespace fs = std::filesystem;

std::string scan(const std::string& words = "") { return tv_control(R"(["scan")" + words + "]"); }

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Waits for the end of the scan, and returns its report.
std::string scanned() {
  std::string shown;
  EXPECT_TRUE(comes_true([&] { return !has(shown = scan(), R"("state":"running")"); })) << shown;
  return shown;
}

std::string channels() { return tv_control(R"(["channels"])"); }

struct TvScan : testing::Test {
  TvFolder folder;
  TvFolder world;
  TvScan() {
    dtv_tv_stick_root(world.path.c_str());
    dtv_tv_antenna(world.path.c_str());
    EXPECT_EQ(tv_start(folder.path), "");
  }
  ~TvScan() override {
    dtv_tv_antenna(nullptr);
    dtv_tv_stick_root(nullptr);
  }
  std::string path(const std::string& name) const { return world.path + "/" + name; }
  void make(const std::string& name, const Bytes& bytes) const { write_bytes(path(name), bytes); }
  // An air multiplex with two services, a cable one with one, and a satellite's with one.
  void make_three() const {
    TestStream air;
    add_section(air, 0x00, pat(10, {{1, 0x41}, {2, 0x42}, {3, 0x43}}));
    for (std::uint16_t service = 1; service <= 3; ++service)
      add_section(air, static_cast<std::uint16_t>(0x40 + service), pmt(service, {0x02, 0x03}));
    add_section(air, 0x11, sdt(1, 10, {{1, 0x01, "First", ""}, {2, 0x19, "Second", ""}, {3, 0x0C, "Data", ""}}));
    Bytes place = by_air(578'000'000);
    append(place, numbers({{1, 5}, {2, 3, false}}));
    add_section(air, 0x10, nit(1, {{1, 10, place}}));
    make("air.ts", air.bytes);
    TestStream cable = small_multiplex(1, 11, 0), satellite = small_multiplex(1, 12, 0);
    place = by_cable(346'000'000, 6'900'000);
    append(place, numbers({{1, 7}}));
    add_section(cable, 0x10, nit(2, {{1, 11, place}}));
    make("cable.ts", cable.bytes);
    place = by_satellite(11'727, 192, false, 22'000'000);
    append(place, numbers({{1, 9}}));
    add_section(satellite, 0x10, nit(3, {{1, 12, place}}));
    make("satellite.ts", satellite.bytes);
  }
};

std::string channel(int number, const std::string& name, const std::string& list) {
  return R"({"number":)" + std::to_string(number) + R"(,"name":")" + name + R"(","list":")" + list + '"';
}

TEST_F(TvScan, FindsTheServicesOfAllMedia) {
  make_three();
  make("bad.ts", {});
  EXPECT_TRUE(has(scan(), R"({"state":"none"})"));
  const std::string begun = scan(R"(,"all")");
  EXPECT_TRUE(has(begun, R"("state":"running","medium":"all","update":false)")) << begun;
  EXPECT_TRUE(has(begun, R"("watch":{"words":["scan"],"cancel":["scan","cancel"],)")) << begun;
  const std::string done = scanned();
  EXPECT_FALSE(has(done, "watch")) << "only the reply that begins it says how to follow it";
  EXPECT_TRUE(has(done, R"("state":"done")")) << done;
  EXPECT_TRUE(has(done, R"("percent":100,"frequencies":50,"multiplex":3,"multiplexes":3,"services":4)")) << done;
  EXPECT_TRUE(has(done, R"("messages":["bad.ts: it is empty"],"added":4,"changed":0,"removed":0)")) << done;
  const std::string found = channels();
  EXPECT_TRUE(has(found, channel(5, "First", "air"))) << found;
  EXPECT_TRUE(has(found, channel(3, "Second", "air"))) << found;
  EXPECT_TRUE(has(found, channel(7, "Stream 11", "cable"))) << found;
  EXPECT_TRUE(has(found, channel(9, "Stream 12", "satellite"))) << found;
  EXPECT_FALSE(has(found, "Data")) << found;
}

TEST_F(TvScan, SearchesTheFrequenciesOfImportedTables) {
  make_three();
  scan(R"(,"air")");
  EXPECT_TRUE(has(scanned(), R"("frequencies":28,)"));  // channels 21 to 48
  // One beyond these channels; the others would receive the same as it, and as the multiplex of the antenna.
  std::string table;
  for (const char* const frequency : {"818000000", "818166000", "578100000"})
    table += "[CHANNEL]\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = " + std::string(frequency) + "\n";
  const Bytes text(table.begin(), table.end());
  make("de-Town", text);
  EXPECT_TRUE(has(tv_control(R"(["channels","import",")" + path("de-Town") + R"("])"), R"("multiplexes":3)"));
  scan(R"(,"air")");
  const std::string done = scanned();
  EXPECT_TRUE(has(done, R"("frequencies":29,"multiplex":1,"multiplexes":1)")) << done;
}

TEST_F(TvScan, OneMediumLeavesTheOthersAlone) {
  make_three();
  scan(R"(,"cable")");
  const std::string done = scanned();
  EXPECT_TRUE(has(done, R"("medium":"cable","update":false)")) << done;
  EXPECT_TRUE(has(done, R"("multiplex":1,"multiplexes":1,"services":1)")) << done;
  EXPECT_TRUE(has(channels(), channel(7, "Stream 11", "cable")));
  EXPECT_FALSE(has(channels(), R"("list":"air")"));
  scan(R"(,"air","update")");
  EXPECT_TRUE(has(scanned(), R"("medium":"air","update":true)"));
  EXPECT_TRUE(has(channels(), channel(5, "First", "air")));
  EXPECT_TRUE(has(channels(), channel(7, "Stream 11", "cable")));
}

TEST_F(TvScan, AnUpdateKeepsWhatTheViewerChanged) {
  make_three();
  scan(R"(,"air")");
  scanned();
  EXPECT_FALSE(has(tv_control(R"(["channel","5","name","Mine"])"), "error"));
  TestStream more = small_multiplex(1, 20, 490'000'000);
  make("more.ts", more.bytes);
  scan(R"(,"air","update")");
  const std::string done = scanned();
  EXPECT_TRUE(has(done, R"("added":1,)")) << done;
  EXPECT_TRUE(has(channels(), channel(5, "Mine", "air"))) << channels();
  EXPECT_TRUE(has(channels(), channel(800, "Stream 20", "air"))) << channels();
  scan(R"(,"air")");
  scanned();
  EXPECT_TRUE(has(channels(), channel(5, "First", "air"))) << channels();
}

TEST_F(TvScan, ASecondScanIsRefusedAndStateShowsTheFirst) {
  make_three();
  bool shown = false;
  EXPECT_TRUE(comes_true([&] {
    scan(R"(,"air")");
    shown = shown || has(tv_control(R"(["state"])"), R"("scan":{"state":"running","medium":"air")");
    const std::string second = scan(R"(,"cable")");
    scanned();
    return shown && has(second, "a scan runs already; scan cancel ends it");
  }));
  EXPECT_FALSE(has(tv_control(R"(["state"])"), R"("scan")"));
}

TEST_F(TvScan, ACancelledScanChangesNothing) {
  make_three();
  EXPECT_TRUE(has(scan(R"(,"cancel")"), "no scan runs"));
  std::string ended;
  EXPECT_TRUE(comes_true([&] {
    tv_control(R"(["channels","clear"])");
    scan(R"(,"air")");
    scan(R"(,"cancel")");
    return has(ended = scanned(), R"("state":"cancelled")");
  }));
  EXPECT_FALSE(has(ended, R"("added")")) << ended;
  EXPECT_FALSE(has(channels(), "First")) << channels();
}

// What the channel list callback reported: the list, and 2 for a change or 3 for a reset.
std::mutex heard_lock;
std::vector<std::pair<UINT32, UINT32>> heard;

INT32 hear(INT32, void*, void* list, void* condition, void*, void*) {
  const auto number = [](void* word) { return static_cast<UINT32>(reinterpret_cast<std::uintptr_t>(word)); };
  const std::lock_guard guard(heard_lock);
  heard.emplace_back(number(list), number(condition));
  return 0;
}

TEST_F(TvScan, AMediumWithoutServicesHasAnEmptyList) {
  make_three();
  scan(R"(,"all")");
  scanned();
  EXPECT_FALSE(has(tv_control(R"(["channel","5","name","Mine"])"), "error"));
  for (const char* const file : {"air.ts", "cable.ts", "satellite.ts"}) fs::remove(path(file));
  scan(R"(,"air","update")");
  EXPECT_TRUE(has(scanned(), R"("added":0,"changed":0,"removed":0)"));
  EXPECT_TRUE(has(channels(), channel(5, "Mine", "air"))) << "an update keeps what it does not find";
  {
    const std::lock_guard guard(heard_lock);
    heard.clear();
  }
  ASSERT_EQ(a_vextvapi_channellist_register_callback(hear, nullptr), 0);
  scan(R"(,"air")");
  const std::string done = scanned();
  EXPECT_TRUE(has(done, R"("services":0)")) << done;
  EXPECT_TRUE(has(done, R"("messages":["no service was found"],"added":0,"changed":0,"removed":2)")) << done;
  EXPECT_FALSE(has(channels(), R"("list":"air")"));
  EXPECT_TRUE(has(channels(), channel(7, "Stream 11", "cable"))) << "it was not searched";
  const UINT32 air = a_vextvapi_channellist_get_svl_handle_by_svl_id(1);
  EXPECT_TRUE(comes_true([air] {
    const std::lock_guard guard(heard_lock);
    return heard == std::vector<std::pair<UINT32, UINT32>>{{air, VEXTVAPI_CHANNEL_LIST_RESET}};
  }));
  scan(R"(,"all")");
  EXPECT_TRUE(has(scanned(), R"("removed":2)"));
  EXPECT_TRUE(has(channels(), R"("channels":[])"));
}

TEST_F(TvScan, AFolderThatCannotBeReadLeavesTheLists) {
  make_three();
  scan(R"(,"air")");
  scanned();
  fs::rename(world.path, world.path + ".away");
  scan(R"(,"air")");
  const std::string done = scanned();
  fs::rename(world.path + ".away", world.path);
  EXPECT_TRUE(has(done, R"("state":"failed")")) << done;
  EXPECT_TRUE(has(done, "the channel lists are unchanged")) << done;
  EXPECT_TRUE(has(channels(), channel(5, "First", "air")));
}

TEST_F(TvScan, LogosBesideTheMultiplexesAreTaken) {
  make_three();
  fs::create_directory(path("logos"));
  write_bytes(path("logos/First.png"), {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'});
  write_bytes(path("logos/7.png"), {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'});
  scan(R"(,"all")");
  scanned();
  EXPECT_TRUE(fs::exists(folder.path + "/ChLogo/PreDef/First.png"));
  EXPECT_FALSE(has(tv_control(R"(["channel","5"])"), R"("logo":0)"));
  EXPECT_TRUE(has(tv_control(R"(["channel","cable:7"])"), R"("logo":7)"));
  EXPECT_TRUE(has(tv_control(R"(["channel","3"])"), R"("logo":0)"));
  EXPECT_FALSE(has(tv_control(R"(["reset"])"), "error"));
  EXPECT_TRUE(fs::is_empty(folder.path + "/ChLogo/PreDef"));
}

TEST_F(TvScan, SwitchingOffEndsAScan) {
  make_three();
  scan(R"(,"air")");
  dtv_tv_stop();
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(scan(), R"({"state":"none"})");
}

TEST_F(TvScan, WrongWordsAndNoAntenna) {
  EXPECT_TRUE(has(scan(R"(,"moon")"), "scan takes cancel, all, air, cable, satellite or update"));
  EXPECT_TRUE(has(scan(R"(,"air","twice")"), R"(not \"twice\")"));
  EXPECT_TRUE(has(scan(R"(,"cancel","now")"), "takes no other word"));
  EXPECT_TRUE(has(scan(R"(,"update","air")"), "error"));
  tv_control(R"(["antenna","none"])");
  EXPECT_TRUE(has(scan(R"(,"air")"), "the antenna is not connected"));
}

// ---- Hostile streams ----

std::uint32_t pick(std::mt19937& random, std::size_t below) { return static_cast<std::uint32_t>(random() % below); }

void flip_a_bit(std::uint8_t& byte, std::mt19937& random) {
  byte = static_cast<std::uint8_t>(byte ^ 1u << pick(random, 8));
}

// A section with some of its bytes changed. Its length stays, and so that it is read at all, its CRC is right.
Bytes mutated(Bytes section, std::mt19937& random) {
  for (std::uint32_t i = pick(random, 4); i > 0; --i) flip_a_bit(section[3 + pick(random, section.size() - 7)], random);
  section.resize(section.size() - 4);
  append(section, crc_of(section), 4);
  return section;
}

Bytes mutated_multiplex(std::uint16_t stream, std::mt19937& random) {
  TestStream made;
  Bytes place = by_air(474'000'000 + 8'000'000 * pick(random, 20));
  append(place, numbers({{1, 5}, {2, 3, false}}));
  const Bytes sound = pat(stream, {{1, 0x41}, {2, 0x42}});
  add_section(made, 0x00, pick(random, 4) == 0 ? mutated(sound, random) : sound);
  for (int round = 0; round < 4; ++round) {
    add_section(made, 0x41, mutated(pmt(1, {0x02, 0x03}), random));
    add_section(made, 0x42, mutated(pmt(2, {0x1B, 0x0F}, true), random));
    add_section(made, 0x11, mutated(sdt(1, stream, {{1, 0x01, "First", "P"}, {2, 0x19, "Second", "Q"}}), random));
    add_section(made, 0x10, mutated(nit(1, {{1, stream, place}, {1, 99, by_air(490'000'000)}}), random));
    Bytes time = tdt(pick(random, 2'000'000'000));
    flip_a_bit(time[3 + pick(random, 5)], random);
    add_section(made, 0x14, time);
  }
  for (std::uint32_t i = pick(random, 30); i > 0; --i) flip_a_bit(made.bytes[pick(random, made.bytes.size())], random);
  made.bytes.resize(made.bytes.size() - pick(random, 300));
  return made.bytes;
}

TEST_F(TvScan, MutatedMultiplexesAreScannedToTheEnd) {
  std::mt19937 random(20240607);
  for (std::uint16_t i = 0; i < 200; ++i)
    make(std::to_string(1000 + i) + ".ts", mutated_multiplex(static_cast<std::uint16_t>(100 + i), random));
  scan(R"(,"air")");
  const std::string done = scanned();
  EXPECT_TRUE(has(done, R"("state":"done")")) << done;
  const std::string shown = antenna();
  EXPECT_TRUE(has(shown, R"("multiplexes":[{)")) << shown;
  EXPECT_TRUE(has(channels(), "First")) << channels();
}

}  // namespace
