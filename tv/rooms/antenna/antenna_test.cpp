// The command "antenna": the folder's setting, and what the set reads in it.
#include "antenna_test.h"

#include <filesystem>

namespace {

namespace fs = std::filesystem;

struct TvAntenna : testing::Test {
  TvFolder folder;
  TvFolder world;  // the stick root
  TvAntenna() {
    fs::create_directory(path());
    start();
  }
  ~TvAntenna() override {
    dtv_tv_antenna(nullptr);
    dtv_tv_stick_root(nullptr);
  }
  void start(const char* given = nullptr) const {
    dtv_tv_stop();
    dtv_tv_stick_root(world.path.c_str());
    dtv_tv_antenna(given);
    EXPECT_EQ(tv_start(folder.path), "");
  }
  std::string path(const std::string& name = "") const {
    return world.path + "/air" + (name.empty() ? "" : "/") + name;
  }
  void make(const std::string& name, std::uint16_t stream, std::uint32_t hertz) const {
    write_bytes(path(name), small_multiplex(1, stream, hertz).bytes);
  }
};

constexpr const char* kNone = R"({"folder":null,"multiplexes":[],"refused":[],"tuners":[{},{}]})";

std::string error(const std::string& answer) {
  const std::string begin = R"({"error":")";
  return answer.starts_with(begin) ? answer.substr(begin.size(), answer.size() - begin.size() - 2) : answer;
}

std::size_t count(const std::string& text, const std::string& word) {
  std::size_t found = 0;
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++found;
  return found;
}

std::string tv_state() { return tv_control(R"(["state"])"); }

TEST_F(TvAntenna, ANewSetHasNone) {
  EXPECT_EQ(antenna(), kNone);
  EXPECT_EQ(tv_state(), "{" TV_FACTORY_STATE "}");
  EXPECT_EQ(error(antenna("rescan")), "the antenna is not connected; antenna DIR connects it to a folder");
}

TEST_F(TvAntenna, TheFolderIsReadAndShown) {
  make("a.ts", 10, 482'000'000);
  make("b.ts", 11, 0);
  TestStream wide = small_multiplex(0x1234, 12, 0);
  add_section(wide, 0x10, nit(5, {{0x1234, 12, by_satellite(10'744, 192, true, 22'000'000)}}));
  write_bytes(path("c.ts"), wide.bytes);
  write_bytes(path("d.ts"), {});
  EXPECT_NE(antenna(path()).find("\"folder\":\"" + path() + '"'), std::string::npos);
  const std::string rest = R"("services":1,"strength":100,"quality":100,"shift_seconds":0})";
  EXPECT_EQ(read_antenna(), R"({"folder":")" + path() +
                                R"(","multiplexes":[{"file":"b.ts","medium":"air","mhz":474,"network":1,"stream":11,)" +
                                rest + R"(,{"file":"a.ts","medium":"air","mhz":482,"network":1,"stream":10,)" + rest +
                                R"(,{"file":"c.ts","medium":"satellite","mhz":10744,"network":4660,"stream":12,)" +
                                rest + R"(],"refused":[{"file":"d.ts","why":"it is empty"}],"tuners":[{},{}]})");
  EXPECT_NE(tv_state().find(R"("antenna":")" + path() + '"'), std::string::npos) << tv_state();
}

TEST_F(TvAntenna, TheFolderIsKeptWhenTheSetIsSwitchedOff) {
  make("a.ts", 10, 482'000'000);
  antenna(path());
  start();
  EXPECT_EQ(count(read_antenna(), R"("file":"a.ts")"), 1u);
  EXPECT_EQ(antenna("none"), kNone);
  start();
  EXPECT_EQ(antenna(), kNone);
}

TEST_F(TvAntenna, OnlyAFolderInTheStickRootIsAccepted) {
  const TvFolder elsewhere;
  fs::create_directory_symlink(elsewhere.path, path("out"));
  const std::string refused = "only a folder in " + world.path + " can become the antenna";
  for (const std::string& outside : {elsewhere.path, elsewhere.path + "/nowhere", path("out"), path("../.."),
                                     std::string("/"), std::string("/etc"), world.path + "/../nowhere"})
    EXPECT_EQ(error(antenna(outside)), refused) << outside;
  std::ofstream(path("file")) << "x";
  EXPECT_NE(error(antenna(path("file"))).find("is not a folder"), std::string::npos);
  EXPECT_NE(error(antenna(path("nowhere"))).find("cannot be found"), std::string::npos);
  EXPECT_NE(error(antenna("air")).find("antenna takes the absolute path of a folder, none or rescan"),
            std::string::npos);
  EXPECT_NE(error(antenna(path() + std::string(5000, '/') + "x")).find("File name too long"), std::string::npos);
  EXPECT_EQ(antenna(), kNone);
}

TEST_F(TvAntenna, TheFolderGivenAtTheStartMayBeAnywhereAndIsNotStored) {
  const TvFolder elsewhere;
  write_bytes(elsewhere.path + "/x.ts", small_multiplex(1, 3, 474'000'000).bytes);
  make("a.ts", 10, 482'000'000);
  antenna(path());
  start(elsewhere.path.c_str());
  EXPECT_EQ(count(read_antenna(), R"("file":"x.ts")"), 1u);
  antenna("none");
  EXPECT_EQ(antenna(), kNone);
  antenna(elsewhere.path);  // it is known
  EXPECT_EQ(count(read_antenna(), R"("file":"x.ts")"), 1u);
  antenna(path());
  EXPECT_EQ(count(read_antenna(), R"("file":"a.ts")"), 1u);
  start();
  EXPECT_EQ(count(read_antenna(), R"("file":"a.ts")"), 1u);
}

TEST_F(TvAntenna, AStoredFolderOutsideANewRootIsDisconnected) {
  antenna(path());
  dtv_tv_stop();
  const TvFolder elsewhere;
  dtv_tv_stick_root(elsewhere.path.c_str());
  testing::internal::CaptureStderr();
  EXPECT_EQ(tv_start(folder.path), "");
  expect_words(testing::internal::GetCapturedStderr(),
               {"the antenna is disconnected: only a folder in " + elsewhere.path + " can become the antenna"});
  EXPECT_EQ(antenna(), kNone);
}

TEST_F(TvAntenna, AFolderGivenAtTheStartThatCannotBeUsedLeavesTheStoredOne) {
  antenna(path());
  testing::internal::CaptureStderr();
  start((world.path + "/\xFF").c_str());
  expect_words(testing::internal::GetCapturedStderr(), {"the antenna is disconnected", "is not in UTF-8"});
  EXPECT_EQ(antenna(), kNone);
  start();
  EXPECT_TRUE(read_antenna().starts_with("{\"folder\":\"" + path() + '"'));
}

TEST_F(TvAntenna, AResetDisconnectsItUnlessTheHostHasConnectedIt) {
  antenna(path());
  tv_control(R"(["reset"])");
  EXPECT_EQ(antenna(), kNone);
  make("a.ts", 10, 482'000'000);
  start(path().c_str());
  antenna("none");
  tv_control(R"(["reset"])");
  EXPECT_EQ(count(read_antenna(), R"("file":"a.ts")"), 1u);
}

TEST_F(TvAntenna, ChangesAreNoticedWhenSomebodyAsks) {
  make("a.ts", 10, 482'000'000);
  antenna(path());
  fs::last_write_time(path(), fs::last_write_time(path()) - std::chrono::seconds(5));
  read_antenna();
  make("b.ts", 11, 490'000'000);
  EXPECT_TRUE(comes_true([] { return count(read_antenna(), R"("medium":"air")") == 2; }));
  fs::remove(path("a.ts"));
  EXPECT_TRUE(comes_true([] { return count(read_antenna(), R"("medium":"air")") == 1; }));
  EXPECT_EQ(count(antenna("rescan"), R"("reading")"), 1u);
  EXPECT_EQ(count(read_antenna(), R"("file":"b.ts")"), 1u);
}

TEST_F(TvAntenna, AFolderThatVanishesIsAProblemUntilItIsBack) {
  make("a.ts", 10, 482'000'000);
  antenna(path());
  read_antenna();
  fs::rename(path(), world.path + "/away");
  EXPECT_TRUE(comes_true([] {
    return count(read_antenna(), R"("problem":"the folder cannot be read: No such file or directory")") == 1;
  }));
  EXPECT_EQ(count(antenna(), R"("medium")"), 0u);
  fs::rename(world.path + "/away", path());
  EXPECT_TRUE(comes_true([] { return count(read_antenna(), R"("medium":"air")") == 1; }));
}

TEST_F(TvAntenna, SwitchingOffEndsTheReading) {
  const Bytes good = small_multiplex(1, 1, 0).bytes;
  for (int i = 0; i < 200; ++i) write_bytes(path(std::to_string(i) + ".ts"), good);
  for (int i = 0; i < 5; ++i) {
    antenna(path());
    start();
    antenna("rescan");
    antenna("none");
  }
  EXPECT_EQ(antenna(), kNone);
}

}  // namespace
