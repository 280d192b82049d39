// The commands that choose a channel: how they name it, what their replies say of the change, and too few tuners.
#include "rooms/tuner/streams_test.h"

using namespace tuner_test;

namespace {

const std::string kChanging = R"("changing":true,"result":null)";
const std::string kNoSound = R"("audio":[])";

TEST_F(TvTuner, TheReplyToAChoiceIsNotAboutTheChannelBefore) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  ASSERT_TRUE(shows(R"("changing":false,"result":"picture")"));
  for (const char* const number : {"2", "3", "1", "1"}) {
    expect_words(run({"tune", number}), {R"("channel":)" + std::string(number), kChanging, kNoSound});
    expect_words(run({"tuner"}), {R"("channel":)" + std::string(number), kChanging, kNoSound});
  }
  press("CH+");
  expect_words(run({"tuner"}), {R"("channel":2)", kChanging});
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(2, ChangeResult::kScrambled));
  EXPECT_TRUE(shows(R"("changing":false,"result":"scrambled")"));
}

TEST_F(TvTuner, NothingChangesInStandby) {
  import_channels();
  expect_done(run({"power", "standby"}));
  expect_words(run({"tune", "2"}), {R"("channel":2)", R"("changing":false,"result":null)"});
  dtv_tv_advance(5'000);
  EXPECT_TRUE(shows(R"("changing":false,"result":null)"));
  expect_done(run({"power", "on"}));
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(2, ChangeResult::kScrambled));
}

// With the machine's clock: the timer thread works on the change while the replies are read.
TEST(TvTunerInTime, AReplyHasTheResultOfItsChannelOrNone) {
  const TvFolder home, folder;
  dtv_tv_stick_root(home.path.c_str());
  ASSERT_EQ(tv_start(folder.path), "");
  std::ofstream(home.path + "/air.conf") << channel_lines(kTestChannels[0], "DVBT") +
                                                channel_lines(kTestChannels[1], "DVBT");
  write_bytes(home.path + "/10.ts", multiplex_10());
  expect_done(antenna(home.path));
  read_antenna();
  expect_done(run({"channels", "import", home.path + "/air.conf"}));
  const auto result = [](const std::string& reply, int number) {
    EXPECT_NE(reply.find(R"("channel":)" + std::to_string(number) + ","), std::string::npos) << reply;
    return reply.find(kChanging) != std::string::npos
               ? ""
               : reply.substr(reply.find(R"("result":)"), reply.find(R"(,"multiplex")") - reply.find(R"("result":)"));
  };
  const auto settled = [&](int number) {
    std::string found;
    EXPECT_TRUE(comes_true([&] { return !(found = result(run({"tuner"}), number)).empty(); }));
    return found;
  };
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(result(run({"tune", "1"}), 1), "");
    EXPECT_EQ(settled(1), R"("result":"picture")");
    EXPECT_EQ(result(run({"tune", "2"}), 2), "");
    EXPECT_EQ(settled(2), R"("result":"scrambled")");
  }
  dtv_tv_stop();
  dtv_tv_stick_root(nullptr);
}

TEST_F(TvTuner, EveryCommandNamesAChannelInTheSameWays) {
  import_channels();
  import_satellite();
  import("cable.conf", channel_lines({"Cable one", 1, 40, 401}, "DVBC/ANNEX_A"));
  const auto name = [](const std::vector<std::string>& words) {
    const std::string reply = run(words);
    const std::size_t at = reply.find(R"("name":")");
    return at == std::string::npos ? reply : reply.substr(at + 8, reply.find('"', at + 8) - at - 8);
  };
  for (const std::string command : {"tune", "channel", "guide", "favourite"}) {
    EXPECT_EQ(name({command, "1"}), "One") << command;
    EXPECT_EQ(name({command, "air:1"}), "One") << command;
    EXPECT_EQ(name({command, "1.0"}), "One") << command;
    EXPECT_EQ(name({command, "cable:1"}), "Cable one") << command;
    EXPECT_EQ(name({command, "satellite:7"}), "Orbit") << command;
  }
  const std::string forms = "a channel is a number, as 7, 7.1, air:7, cable:7 or satellite:7";
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"tune", "cable:9"},
                                             {"channel", "cable:9"},
                                             {"favourite", "cable:9"},
                                             {"guide", "cable:9"},
                                             {"guide", "event", "cable:9", "1"},
                                             {"guide", "map", "x", "cable:9"},
                                             {"record", "cable:9", "+5", "10"},
                                             {"record", "event", "cable:9", "1"},
                                             {"reminder", "cable:9", "1"},
                                             {"multiview", "channel", "cable:9"}})
    expect_words(run(words), {"error", R"(there is no channel \"cable:9\")", forms});
  expect_words(run({"record", "cable:1", "+5", "10"}), {R"("channel":"Cable one")"});
  expect_words(run({"guide", "map", "x", "satellite:7"}), {R"("x":7)"});
  expect_words(run({"guide", "event", "cable:1", "9"}), {"error", "has no event"});
  expect_done(run({"multiview", "channel", "air:3"}));
}

TEST_F(TvTuner, RecordingsCanUseAllTuners) {
  write_bytes(air + "/30.ts", multiplex(30, {{301, 0x40, {{{0x02, 0x301}, {0x03, 0x302}}}}}));
  expect_done(antenna("rescan"));
  read_antenna();
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  expect_done(run({"power", "standby"}));
  expect_done(run({"record", "1", "+0", "20"}));
  expect_done(run({"record", "3", "+0", "20"}));
  dtv_tv_advance(1'000);
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 2; }));
  expect_done(run({"power", "on"}));
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture)) << "it shares a recording's tuner";
  expect_done(run({"tune", "42"}));
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(42, ChangeResult::kNoTuner));
  EXPECT_TRUE(shows(R"("result":"no tuner")"));
  EXPECT_TRUE(shows(R"("channel":42)"));
  dtv_tv_advance(20 * 60'000);
  EXPECT_TRUE(settles([] { return shows(R"("result":"picture")"); }))
      << "the recordings have ended; " << run({"tuner"});
}

}  // namespace
