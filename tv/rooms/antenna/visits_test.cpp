// The visits that collect the guide of multiplexes that nobody receives.
#include "rooms/antenna/visits.h"

#include "antenna_test.h"
#include "broadcast/sections.h"

namespace {

constexpr INT64 kNow = 1'800'000'000;

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string guide(const std::string& words = "") { return tv_control(R"(["guide")" + words + "]"); }

// Waits for the end of the round, and returns the guide's status.
std::string updated() {
  std::string shown;
  EXPECT_TRUE(comes_true([&] { return !has(shown = guide(), R"("state":"running")"); })) << shown;
  return shown;
}

// A multiplex of one service with that many events, each of an hour; event 1 runs now. Its bytes are repeated.
TestStream with_events(std::uint16_t stream, std::uint16_t events, int repetitions = 1) {
  TestStream made = small_multiplex(1, stream, 474'000'000u + stream * 8'000'000u);
  for (std::uint16_t id = 1; id <= events; ++id) {
    add_section(made, kPidEit,
                eit({1, stream, 1}, id, kNow + (id - 1) * 3600, "Event " + std::to_string(id),
                    {.number = static_cast<std::uint8_t>(id - 1), .last = static_cast<std::uint8_t>(events - 1)}));
  }
  add_time(made, 20);
  const Bytes once = made.bytes;
  for (int i = 1; i < repetitions; ++i) append(made.bytes, once);
  return made;
}

struct GuideVisits : testing::Test {
  ManualClock manual;
  TvFolder folder;
  TvFolder world;
  GuideVisits() {
    dtv_tv_stick_root(world.path.c_str());
    dtv_tv_antenna(world.path.c_str());
  }
  ~GuideVisits() override {
    dtv_tv_antenna(nullptr);
    dtv_tv_stick_root(nullptr);
  }
  GuideVisits(const GuideVisits&) = delete;
  GuideVisits& operator=(const GuideVisits&) = delete;

  void make(std::uint16_t stream, const TestStream& made) const {
    write_bytes(world.path + "/" + std::to_string(stream) + ".ts", made.bytes);
  }
  // Switches the set on and scans, so that there are channels; none is tuned.
  void start() {
    EXPECT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(a_vextvapi_time_set_utc_time(kNow), 0);
    read_antenna();
    tv_control(R"(["power","standby"])");
    tv_control(R"(["scan","all"])");
    std::string scan;
    EXPECT_TRUE(comes_true([&] { return !has(scan = tv_control(R"(["scan"])"), R"("state":"running")"); }));
    EXPECT_TRUE(has(scan, R"("state":"done")")) << scan;
  }
};

TEST_F(GuideVisits, AnUpdateCollectsTheEventsOfAllMultiplexes) {
  for (std::uint16_t stream = 10; stream <= 12; ++stream) make(stream, with_events(stream, 5));
  start();
  EXPECT_TRUE(has(guide(), R"("events":0,)"));
  const std::string begun = guide(R"(,"update")");
  EXPECT_TRUE(has(begun, R"("state":"running")")) << begun;
  EXPECT_TRUE(has(begun, R"("watch":{"words":["guide"],"member":"update","cancel":["guide","update","cancel"],)"));
  const std::string done = updated();
  EXPECT_TRUE(has(done, R"("events":15,"channels":3,"waiting":0)")) << done;
  EXPECT_TRUE(has(done, R"("update":{"state":"done","percent":100,"multiplex":3,"multiplexes":3,"events":15,)"));
  EXPECT_FALSE(has(done, "skipped")) << done;
  EXPECT_TRUE(has(tv_control(R"(["antenna"])"), R"("tuners":[{},{}])"));
}

TEST_F(GuideVisits, InStandbyTheSetVisitsByItselfAndAgainAfterAnHour) {
  make(10, with_events(10, 3));
  make(11, with_events(11, 4));
  start();
  const auto pause = [](std::chrono::minutes minutes) {
    dtv_tv_advance(static_cast<std::uint32_t>(std::chrono::milliseconds(minutes).count()));
  };
  pause(kVisitLook);
  EXPECT_TRUE(comes_true([] { return has(guide(), R"("update":{"state":"done")"); })) << guide();
  EXPECT_TRUE(has(guide(), R"("events":7,)")) << guide();
  guide(R"(,"clear")");
  pause(kVisitPauseInStandby - std::chrono::minutes(2));
  EXPECT_TRUE(has(guide(), R"({"events":0,)")) << "nothing is due yet";
  pause(std::chrono::minutes(3));
  EXPECT_TRUE(comes_true([] { return !has(guide(), R"({"events":0,)"); })) << "an hour later all are due again";
}

TEST_F(GuideVisits, WithoutAnIdleTunerOthersAreSkippedAndTheReceivedAreRead) {
  for (std::uint16_t stream = 10; stream <= 12; ++stream) make(stream, with_events(stream, 2));
  start();
  for (const char* const number : {"800", "801"})
    EXPECT_FALSE(has(tv_control(R"(["record",")" + std::string(number) + R"(","+1","60"])"), "error"));
  dtv_tv_advance(2 * 60'000);
  std::string shown;
  const auto both_record = [&] { return !has(shown = tv_control(R"(["antenna"])"), "{}"); };
  ASSERT_TRUE(comes_true(both_record)) << shown;
  updated();  // a round by itself may have begun before the recordings
  guide(R"(,"update")");
  const std::string done = updated();
  EXPECT_TRUE(has(done, R"("state":"done","percent":100,"multiplex":3,"multiplexes":3,"events":4,)")) << done;
  EXPECT_TRUE(has(done, R"("skipped":1)")) << done;
}

TEST_F(GuideVisits, AnUpdateIsCancelledAndASecondOneRefused) {
  make(10, with_events(10, 1, 300));  // 34 MB
  start();
  EXPECT_TRUE(has(guide(R"(,"update","cancel")"), "no update of the guide runs"));
  EXPECT_TRUE(has(guide(R"(,"update","now")"), "cancel"));
  guide(R"(,"update")");
  const std::string second = guide(R"(,"update")");
  EXPECT_TRUE(has(second, "guide update cancel ends it") || has(guide(), R"("state":"done")")) << second;
  const std::string cancelled = guide(R"(,"update","cancel")");
  const std::string end = updated();
  EXPECT_TRUE(has(end, R"("state":"cancelled")") || has(cancelled, "error")) << end;
  guide(R"(,"update")");
  dtv_tv_stop();  // ends it as well
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_FALSE(has(guide(), R"("update")"));
}

TEST_F(GuideVisits, WithoutAnAntennaThereIsNothingToUpdate) {
  dtv_tv_antenna(nullptr);
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_TRUE(has(guide(R"(,"update")"), "the antenna is not connected"));
}

}  // namespace
