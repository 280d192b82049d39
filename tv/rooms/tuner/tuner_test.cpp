// Channel changes: their results and times, blocking, standby, tracks, and the sub picture's own reception.
#include <atomic>
#include <ctime>

#include "rooms/tuner/streams_test.h"

using namespace tuner_test;

namespace {

TEST_F(TvTuner, WithoutChannelsNothingIsReceived) {
  dtv_tv_advance(20'000);
  EXPECT_EQ(run({"tuner"}), R"({"channel":null})");
  EXPECT_EQ(tuners_in_use(), 0u);
  expect_words(run({"tune", "1"}), {"error", "the channel list is empty"});
  UINT16 list = 9;
  SVL_REC_T service{};
  TSL_REC_T stream{};
  expect_words(refusal([&] { return a_vextvapi_channellist_get_current_channel(&list, &service, &stream); }),
               {"the channel list is empty"});
  EXPECT_EQ(list, 9);
  EXPECT_EQ(heard(), 0u);
}

TEST_F(TvTuner, TheFirstChannelOfANewListIsShown) {
  dtv_tv_advance(0);  // the tuner has found none
  import_channels();
  ASSERT_TRUE(settles([] { return shows("\"audio\":[{"); }));  // its PMT is there
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, AChangeTakesLongerToAnotherMultiplex) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  expect_done(run({"tune", "3"}));
  dtv_tv_advance(0);
  ASSERT_TRUE(settles([] { return shows("\"audio\":[{"); }));  // its PMT is there
  dtv_tv_advance(899);
  EXPECT_EQ(heard(), 0u);
  EXPECT_TRUE(shows(R"("changing":true,"result":null)"));
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(3, ChangeResult::kPicture));
  EXPECT_TRUE(shows(R"("changing":false,"result":"picture")"));
  expect_done(run({"tune", "4"}));
  dtv_tv_advance(0);
  ASSERT_TRUE(settles([] { return shows("\"audio\":[{"); }));
  dtv_tv_advance(299);
  EXPECT_EQ(heard(), 0u);
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(4, ChangeResult::kAudioOnly));
}

TEST_F(TvTuner, ANewerChoiceOfTheSameMultiplexWaitsUntilTheTunerHasLocked) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  expect_done(run({"tune", "3"}));
  dtv_tv_advance(200);
  expect_done(run({"tune", "4"}));
  dtv_tv_advance(0);
  ASSERT_TRUE(settles([] { return shows("\"audio\":[{"); }));
  dtv_tv_advance(699);
  EXPECT_EQ(heard(), 0u);
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(4, ChangeResult::kAudioOnly));
}

TEST_F(TvTuner, ResultsOfAllKinds) {
  import_channels();
  EXPECT_EQ(change_to(2), of(2, ChangeResult::kScrambled));
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  expect_done(run({"tune", "42"}));  // no multiplex carries it
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(42, ChangeResult::kNoSignal));
  expect_done(run({"tune", "1234"}));  // a PMT without streams
  dtv_tv_advance(900);
  dtv_tv_advance(1'500);
  EXPECT_EQ(next_result(), of(1234, ChangeResult::kNoSignal));
}

TEST_F(TvTuner, AServiceWithoutAPmtIsWaitedFor) {
  import("late.conf", channel_lines({"Late", 9, 20, 204}, "DVBT"));
  expect_done(run({"tune", "9"}));
  dtv_tv_advance(900);
  dtv_tv_advance(1'499);
  EXPECT_EQ(heard(), 0u) << run({"tuner"}) << antenna();
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(9, ChangeResult::kNoSignal));
}

TEST_F(TvTuner, ANewerChoiceReplacesAnUnfinishedOne) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  expect_done(run({"tune", "2"}));
  dtv_tv_advance(200);
  expect_done(run({"tune", "42"}));
  dtv_tv_advance(200);
  expect_done(run({"tune", "4"}));
  dtv_tv_advance(899);
  EXPECT_EQ(heard(), 0u);
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(4, ChangeResult::kAudioOnly));
  dtv_tv_advance(20'000);
  EXPECT_EQ(heard(), 0u);
  press("PRE-CH");
  EXPECT_EQ(place(), "42 TV");  // a choice counts, finished or not
}

TEST_F(TvTuner, TheSameChannelChosenAgainHasAResultAgain) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  EXPECT_EQ(a_vextvapi_broadcast_select_channel_by_chan_id(channel_id(1), 0), 0);
  dtv_tv_advance(300);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, SelectsByIdentifierAndByRecord) {
  import_channels();
  EXPECT_EQ(a_vextvapi_broadcast_select_channel_by_chan_id(channel_id(3), 0), 0);
  UINT16 list = 0;
  SVL_REC_T service{};
  TSL_REC_T stream{};
  ASSERT_EQ(a_vextvapi_channellist_get_current_channel(&list, &service, &stream), 0);
  EXPECT_EQ(list, 1);
  EXPECT_EQ(service.t_rec_hdr.ui4_channel_id, channel_id(3));
  EXPECT_STREQ(service.t_rec_hdr.ac_name, "Three");
  EXPECT_EQ(service.t_rec_hdr.e_brdcst_type, SVL_BRDCST_TYPE_DVB);
  EXPECT_EQ(stream.brdcst_medium, TSL_BRDCST_MEDIUM_DIG_TERRESTRIAL);
  EXPECT_EQ(stream.frequency, 506'000'000u);
  const UINT16 record = service.ui2_svl_rec_id;

  EXPECT_EQ(a_vextvapi_broadcast_select_channel(1, 0, channel_id(1), 0), 0);
  EXPECT_EQ(place(), "1 TV");
  EXPECT_EQ(a_vextvapi_broadcast_select_channel(1, record, channel_id(999), 1), 0);  // it had this identifier once
  EXPECT_EQ(place(), "3 TV");

  expect_words(refusal([] { return a_vextvapi_broadcast_select_channel_by_chan_id(0, 0); }), {"identifier 0"});
  expect_words(refusal([] { return a_vextvapi_broadcast_select_channel_by_chan_id(UINT32_MAX, 0); }), {"4294967295"});
  expect_words(refusal([] { return a_vextvapi_broadcast_select_channel_by_chan_id(channel_id(1), 1); }), {"flags"});
  expect_words(refusal([] { return a_vextvapi_broadcast_select_channel(2, 65535, channel_id(1), 0); }),
               {"list 2", "65535"});
  refusal([&] { return a_vextvapi_channellist_get_current_channel(nullptr, &service, &stream); });
  refusal([&] { return a_vextvapi_channellist_get_current_channel(&list, nullptr, &stream); });
  refusal([&] { return a_vextvapi_channellist_get_current_channel(&list, &service, nullptr); });
  refusal([] { return a_vextvapi_broadcast_register_callback(nullptr, nullptr); });
  EXPECT_EQ(place(), "3 TV");
}

TEST_F(TvTuner, FineTuningIsForAnalogueChannels) {
  expect_words(refusal([] { return a_vextvapi_broadcast_ana_channel_fine_tune("main", 1, 0); }), {"list is empty"});
  import_channels();
  expect_words(refusal([] { return a_vextvapi_broadcast_ana_channel_fine_tune("main", 506'000'000, 1); }),
               {"channel 1 is digital"});
  expect_words(refusal([] { return a_vextvapi_broadcast_ana_channel_fine_tune("sub", 1, 0); }), {"\"sub\""});
  expect_words(refusal([] { return a_vextvapi_broadcast_ana_channel_fine_tune(nullptr, 1, 0); }), {"null"});
}

TEST_F(TvTuner, ABlockedChannelNeedsThePin) {
  import_channels();
  expect_done(run({"channel", "1", "block"}));
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kBlockedChannel));
  EXPECT_EQ(run({"tuner", "pin", "1111"}), R"({"error":"the PIN is wrong"})");
  EXPECT_EQ(run({"tuner", "pin", ""}), R"({"error":"the PIN is wrong"})");
  dtv_tv_advance(10'000);
  EXPECT_EQ(heard(), 0u);
  expect_done(run({"tuner", "pin", "0000"}));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  expect_words(run({"tuner", "pin", "0000"}), {"error", "nothing is blocked"});
  expect_done(run({"tune", "1"}));  // the same channel stays unlocked
  dtv_tv_advance(300);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kBlockedChannel));
  ASSERT_EQ(a_vextvapi_config_set_str_value("g_password__password", "8642"), 0);
  expect_words(run({"tuner", "pin", "0000"}), {"error", "the PIN is wrong"});
  expect_done(run({"tuner", "pin", "8642"}));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  expect_done(run({"channel", "1", "unblock"}));
}

TEST_F(TvTuner, AnEventIsBlockedByItsAgeFromItsBegin) {
  const std::int64_t now = std::time(nullptr) / 60 * 60;
  TestStream events;
  for (const Bytes& each : events_of(10, 101, {{1, now - 600, 15, 12}, {2, now + 300, 60, 18}}))
    add_section(events, 0x12, each);
  Bytes stream = multiplex_10();
  append(stream, events.bytes);
  write_bytes(air + "/10.ts", stream);
  expect_done(antenna("rescan"));
  read_antenna();
  import_channels();
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__parental_age", 16, 0), 0);
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  ASSERT_TRUE(settles([] { return run({"guide"}).find("\"events\":2") != std::string::npos; })) << run({"guide"});
  const auto left = static_cast<std::uint32_t>(now + 300 - a_vextvapi_time_get_utc_time()) * 1000;
  dtv_tv_advance(left - 2'000);
  EXPECT_EQ(heard(), 0u) << run({"tuner"});
  dtv_tv_advance(3'000);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kBlockedEvent));
  expect_done(run({"tuner", "pin", "0000"}));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kBlockedEvent));
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__parental_age", 0, 0), 0);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__parental_age", 18, 0), 0);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kBlockedEvent));
  dtv_tv_advance(60 * 60'000);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, ReceivesOnlyWhileTheSetShowsTheTuner) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 1; }));
  press("POWER");
  EXPECT_TRUE(settles([] { return tuners_in_use() == 0; }));
  dtv_tv_advance(20'000);
  EXPECT_EQ(tuners_in_use(), 0u);
  EXPECT_EQ(heard(), 0u);
  press("POWER");
  dtv_tv_advance(899);
  EXPECT_EQ(heard(), 0u);
  dtv_tv_advance(1);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  press("SOURCE");
  EXPECT_TRUE(settles([] { return tuners_in_use() == 0; }));
  EXPECT_EQ(place(), "1 HDMI 1");
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(0), 0);
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  EXPECT_EQ(a_vextvapi_inputsource_sync_stop("main", 1), 0);
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 0; }));  // the clock has not moved
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(0), 0);
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, ReceivesAgainAfterARestart) {
  import_channels();
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  restart();
  EXPECT_EQ(tuners_in_use(), 0u);
  listen();
  read_antenna();
  dtv_tv_advance(0);
  dtv_tv_advance(900);
  // The antenna may not have been read when the tuner asked for the first time.
  EXPECT_TRUE(settles([] {
    dtv_tv_advance(1'000);
    const std::lock_guard guard(lock);
    return !results.empty() && results.back() == of(4, ChangeResult::kAudioOnly);
  }));
}

TEST_F(TvTuner, ALostSignalIsReportedAndComesBack) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  std::filesystem::resize_file(air + "/10.ts", 0);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kNoSignal));
  write_bytes(air + "/10.ts", multiplex_10());
  expect_done(run({"antenna", "rescan"}));
  read_antenna();
  EXPECT_TRUE(settles([] {
    dtv_tv_advance(1'000);
    return heard() > 0;
  }));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
}

TEST_F(TvTuner, AChannelThatIsDeletedGivesWayToTheFirst) {
  import_channels();
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  expect_done(run({"channel", "4", "delete"}));
  EXPECT_EQ(place(), "1 TV");
  dtv_tv_advance(0);
  dtv_tv_advance(900);
  EXPECT_EQ(next_result(), of(1, ChangeResult::kPicture));
  expect_done(run({"channels", "clear"}));
  EXPECT_EQ(next_result(), of(1, ChangeResult::kNotFound));
  EXPECT_TRUE(settles([] { return tuners_in_use() == 0; }));
}

TEST_F(TvTuner, TracksFollowTheConfigurationAndTheViewer) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  const std::string english = R"({"number":2,"language":"eng","codec":"mp2","impaired":false,"chosen":true})";
  const std::string german = R"({"number":1,"language":"deu","codec":"mp2","impaired":false,"chosen":true})";
  const std::string described = R"({"number":3,"language":"eng","codec":"mp2","impaired":true,"chosen":true})";
  expect_words(run({"tuner"}), {english, R"("teletext":true)", R"("language":"deu","codec":"dvb_subtitle")"});
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_audio__type", 2, 0), 0);
  expect_words(run({"tuner"}), {described});
  expect_done(run({"config", "g_aud_lang__aud_language", "deu"}));
  expect_words(run({"tuner"}), {german});
  expect_words(run({"tuner", "audio", "2"}), {english});
  press("MTS/AUDIO");
  expect_words(run({"tuner"}), {described});
  press("MTS/AUDIO");
  expect_words(run({"tuner"}), {german});

  const std::string french = R"({"number":2,"language":"fra","codec":"dvb_subtitle","impaired":false,"chosen":true})";
  expect_words(run({"tuner", "subtitle", "2"}), {french});
  const std::string none = run({"tuner", "subtitle", "off"});
  EXPECT_EQ(none.find("\"chosen\":true", none.find("\"subtitles\"")), std::string::npos) << none;
  EXPECT_EQ(change_to(4), of(4, ChangeResult::kAudioOnly));
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));  // the choice was for the channel that was left
  const std::string again = run({"tuner"});
  EXPECT_NE(again.find("\"chosen\":true", again.find("\"subtitles\"")), std::string::npos) << again;
  expect_done(run({"config", "g_misc__dvb_subtitle_enabled", "off"}));
  const std::string off = run({"tuner"});
  EXPECT_EQ(off.find("\"chosen\":true", off.find("\"subtitles\"")), std::string::npos) << off;

  for (const char* wrong : {"0", "4", "x", "off"})
    expect_words(run({"tuner", "audio", wrong}), {"error", "1 to 3", wrong});
  expect_words(run({"tuner", "subtitle", "3"}), {"error", "1 to 2"});
  expect_words(run({"tuner", "audio"}), {"error", "a word is missing", "audio NUMBER"});
  expect_words(run({"tuner", "dance"}), {"error", "pin PIN", "dance"});
  expect_words(run({"tune", "dance"}), {"error", "no channel", "dance"});
  expect_words(run({"tune", "98"}), {"error", "no channel", "98"});
}

TEST_F(TvTuner, TuneCommand) {
  import_channels();
  expect_done(run({"tune", "next"}));
  EXPECT_EQ(place(), "2 TV");
  expect_done(run({"tune", "previous"}));
  expect_done(run({"tune", "previous"}));
  EXPECT_EQ(place(), "1234 TV");
  expect_done(run({"tune", "back"}));
  EXPECT_EQ(place(), "1 TV");
  expect_words(run({"tune"}), {"error", "a word is missing"});
  press("SOURCE");
  expect_done(run({"source", "TV", "block"}));
  EXPECT_EQ(run({"tune", "2"}), R"({"error":"TV is blocked"})");
}

TEST_F(TvTuner, TheSubPictureHasATunerOfItsOwn) {
  import_channels();
  EXPECT_EQ(change_to(1), of(1, ChangeResult::kPicture));
  const auto sub = [](const std::string& part) {
    const std::string shown = run({"multiview"});
    const std::size_t at = shown.find("\"sub\"");
    return at != std::string::npos && shown.find(part, at) != std::string::npos;
  };
  expect_done(run({"multiview", "channel", "3"}));
  dtv_tv_advance(0);
  dtv_tv_advance(900);
  EXPECT_TRUE(settles([&] { return sub(R"("channel":3,"result":"picture")"); })) << run({"multiview"});
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 2; }));
  expect_done(run({"channel", "3", "block"}));
  dtv_tv_advance(0);
  EXPECT_TRUE(sub(R"("result":"blocked channel")")) << run({"multiview"});
  expect_done(run({"multiview", "stop"}));
  EXPECT_TRUE(settles([] { return tuners_in_use() == 1; }));
  EXPECT_EQ(heard(), 0u);  // the callback is about the main picture
}

TEST_F(TvTuner, ManyThreadsChangeTheChannel) {
  import_channels();
  std::vector<std::thread> threads;
  std::atomic<bool> done = false;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([t] {
      const std::vector<std::vector<std::string>> commands = {
          {"tune", "1"}, {"tune", "3"},         {"key", "CH+"},    {"multiview", "pip"}, {"key", "POWER"},
          {"tuner"},     {"multiview", "swap"}, {"key", "SOURCE"}, {"key", "PRE-CH"}};
      for (int i = 0; i < 60; ++i) run(commands[static_cast<std::size_t>(i + 2 * t) % commands.size()]);
    });
  }
  std::thread clock([&done] {
    while (!done) dtv_tv_advance(50);
  });
  for (std::thread& thread : threads) thread.join();
  done = true;
  clock.join();
  run({"power", "on"});
  {
    const std::lock_guard guard(lock);
    results.clear();
  }
  EXPECT_EQ(change_to(1).id, channel_id(1));
}

}  // namespace
