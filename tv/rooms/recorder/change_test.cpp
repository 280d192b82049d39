// Timers and recordings while things around them change: the list is full, a tuner is needed, a timer is modified, the
// broadcaster moves an event.
#include "rooms/recorder/recorder_test.h"
#include "rooms/tuner/streams_test.h"
#include "tests/unit/tv/store_support.h"

namespace {

using RecorderChanges = ReceivingSet;

std::string status() { return text_in(newest_recording(), "status"); }

_RmdrEventInfo_T timer_of(int channel, std::int64_t start, UINT32 duration) {
  _RmdrEventInfo_T request{};
  request.e_operation = RMDR_OP_ADD;
  request.e_rmdr_mode = RMDR_MODE_RECORD;
  request.ui4_ref_channel_id = channel_id(channel);
  request.start_time = request.ui4_rec_start_time = static_cast<UINT32>(start);
  request.duration = request.ui4_rec_duration = duration;
  return request;
}

TEST_F(RecorderChanges, AFullListHasNoRoomUntilARecordingIsDeleted) {
  dtv_tv_stop();
  // 4295622757 is the service 101 of the multiplex 10 of network 1, 2 a complete recording.
  write_sql(folder.path + "/recorder.sqlite",
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000) INSERT INTO recording "
            "SELECT i, 4295622757, 262145, 'One', -1, 1700000000 + i, 60, 'Old', 2, 0, 0, 188, 0, 0, 0, 1 FROM n");
  ASSERT_EQ(tv_start(folder.path), "");
  connect();
  EXPECT_EQ(number_in(reply_to({"recordings"}), "total"), 1000);
  const std::string error = error_of(reply_to({"record", "now"}));
  EXPECT_NE(error.find("the list of recordings is full"), std::string::npos) << error;
  _RmdrEventInfo_T timer = timer_of(1, now(), 60);
  ASSERT_EQ(read_item(timer), 0) << "a timer is accepted";
  testing::internal::CaptureStderr();
  dtv_tv_advance(61'000);
  expect_words(testing::internal::GetCapturedStderr(), {"One", "did not begin, and the list is full"});
  EXPECT_EQ(number_in(reply_to({"recordings"}), "total"), 1000);
  EXPECT_EQ(listed_timers().size(), 0u);
  expect_done(run({"recording", "7", "delete"}));
  ASSERT_EQ(error_of(reply_to({"record", "now"})), "");
  EXPECT_EQ(number_in(reply_to({"recordings"}), "total"), 1000);
  EXPECT_EQ(status(), "recording");
}

TEST_F(RecorderChanges, TheSubPictureYieldsItsTunerToARecording) {
  expect_done(run({"tune", "1"}));
  dtv_tv_advance(5'000);
  expect_done(run({"multiview", "channel", "3"}));
  EXPECT_TRUE(comes_true([] {
    dtv_tv_advance(0);
    return tuners_in_use() == 2;
  }));
  expect_done(run({"record", "42", "+0", "20"}));
  dtv_tv_advance(1'000);
  EXPECT_EQ(status(), "recording");
  EXPECT_EQ(text_in(newest_recording(), "channel"), "Nowhere");
  grows_to(188);
  EXPECT_TRUE(comes_true([] { return tuners_in_use() == 2; }));
  const boost::json::value shown = reply_to({"multiview"});
  EXPECT_EQ(text_in(shown.at("sub"), "result"), "no tuner");
  EXPECT_EQ(number_in(shown.at("main"), "channel"), 1);
  EXPECT_NE(text_in(shown.at("main"), "result"), "no tuner");
  expect_done(run({"record", "stop"}));
  expect_done(run({"multiview", "channel", "3"}));
  EXPECT_TRUE(comes_true([] {
    dtv_tv_advance(100);
    return text_in(reply_to({"multiview"}).at("sub"), "result") == "picture";
  })) << run({"multiview"});
}

TEST_F(RecorderChanges, ARunningTimerCanBeMadeLongerAndShorter) {
  const std::int64_t start = now();
  _RmdrEventInfo_T timer = timer_of(1, start, 600);
  ASSERT_EQ(read_item(timer), 0);
  dtv_tv_advance(1'000);
  ASSERT_EQ(status(), "recording");

  _RmdrEventInfo_T change = timer_of(3, start, 1800);
  change.e_operation = RMDR_OP_MODIFY;
  change.ui2_slot = timer.ui2_slot;
  expect_words(refusal([&] { return read_item(change); }), {"is being recorded on its channel"});
  EXPECT_EQ(change.op_result, RMDR_RESULT_ARGUMENT);
  change.ui4_ref_channel_id = channel_id(1);
  ASSERT_EQ(read_item(change), 0);
  dtv_tv_advance(900'000);
  EXPECT_EQ(status(), "recording") << "longer than it was planned at first";
  EXPECT_EQ(listed_recordings(), 1u);

  change.duration = change.ui4_rec_duration = 960;
  ASSERT_EQ(read_item(change), 0);
  grows_to(188);
  dtv_tv_advance(60'000);
  EXPECT_EQ(status(), "complete");
  EXPECT_EQ(listed_timers().size(), 0u);
}

// ---- An event that moves ----

std::string time_text(std::int64_t time) {
  char text[32];
  const std::time_t seconds = time;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

struct RecorderEvents : tuner_test::TvTuner {
  // Broadcasts the channel's present event and one with the identifier 2, and waits until the guide has that.
  void broadcast(std::int64_t present, std::int64_t start, int minutes, std::uint8_t version) {
    expect_done(run({"tune", "4"}));
    TestStream events;
    for (const Bytes& each : tuner_test::events_of(10, 101, {{1, present, 15, 0}, {2, start, minutes, 0}}, version))
      add_section(events, 0x12, each);
    Bytes stream = tuner_test::multiplex_10();
    append(stream, events.bytes);
    write_bytes(air + "/10.ts", stream);
    expect_done(antenna("rescan"));
    read_antenna();
    expect_done(run({"tune", "1"}));
    EXPECT_TRUE(tuner_test::settles([&] {
      return run({"guide", "event", "1", "2"}).find(time_text(start)) != std::string::npos;
    })) << run({"guide", "1"});
  }
};

TEST_F(RecorderEvents, ATimerFollowsAnEventThatTheBroadcasterMoves) {
  import_channels();
  const std::int64_t present = now() / 60 * 60 - 300, start = present + 3600;
  broadcast(present, start, 60, 0);
  const boost::json::value timer = reply_to({"record", "event", "1", "2"});
  EXPECT_EQ(text_in(timer, "from"), time_text(start - 120)) << "padded as the set is configured";
  EXPECT_EQ(text_in(timer, "to"), time_text(start + 3600 + 600));
  broadcast(present, start + 1800, 90, 1);
  dtv_tv_advance(11 * 60'000);  // the recorder looks every ten minutes
  const boost::json::array timers = listed_timers();
  ASSERT_EQ(timers.size(), 1u);
  EXPECT_EQ(text_in(timers[0], "from"), time_text(start + 1800 - 120));
  EXPECT_EQ(text_in(timers[0], "to"), time_text(start + 1800 + 5400 + 600));
}

}  // namespace
