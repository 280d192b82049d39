// Recordings and timers that follow the events of the guide.
#include <ctime>

#include "core/reply.h"
#include "rooms/recorder/recorder_test.h"

namespace {

using RecorderFollows = ReceivingSet;

constexpr std::int64_t kSome = 100'000;  // bytes
constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kEndPadding = 10 * kMinute;  // as the set is configured

std::int64_t end_of(const boost::json::value& timer) {
  std::tm utc{};
  EXPECT_NE(strptime(text_in(timer, "to").c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc), nullptr);
  return timegm(&utc);
}

RECLIST_ENTRY_T newest_entry() {
  _Qt_RECLIST_INFO_T list{};
  EXPECT_EQ(read_item(list), 0);
  return list.at_page[0];
}

TEST_F(RecorderFollows, RecordingNowTakesThePresentEventAndItsEnd) {
  const std::int64_t start = now() - 10 * kMinute, end = now() + 20 * kMinute;
  import_guide({{"One", start, end, "The News"}, {"One", end, end + 1800, "A Film"}});
  ASSERT_EQ(error_of(reply_to({"record", "now"})), "");
  ASSERT_EQ(listed_timers().size(), 1u);
  EXPECT_EQ(end_of(listed_timers()[0]), end + kEndPadding);
  const RECLIST_ENTRY_T entry = newest_entry();
  EXPECT_STREQ(entry.program_name, "The News");
  EXPECT_EQ(std::to_string(entry.event_id), event_at(channel_id(1), now()));
  EXPECT_NEAR(static_cast<double>(entry.start_time), static_cast<double>(now()), 1) << "it begins now";
  expect_done(run({"record", "stop"}));
}

TEST_F(RecorderFollows, RecordingNowFollowsItsEvent) {
  const std::int64_t start = now() - 10 * kMinute, end = now() + 20 * kMinute;
  import_guide({{"One", start, end, "The Match"}});
  ASSERT_EQ(error_of(reply_to({"record", "now"})), "");
  grows_to(kSome);
  import_guide({{"One", start, end + 15 * kMinute, "The Match"}});
  dtv_tv_advance(1000);
  EXPECT_EQ(end_of(listed_timers()[0]), end + 15 * kMinute + kEndPadding);
  dtv_tv_advance(31 * 60'000);
  EXPECT_EQ(text_in(newest_recording(), "status"), "recording") << "after the end that it had first";
  dtv_tv_advance(15 * 60'000);
  EXPECT_EQ(text_in(newest_recording(), "status"), "complete");
}

TEST_F(RecorderFollows, RecordingByTheRedKeyFollowsItsEvent) {
  const std::int64_t start = now() - 10 * kMinute, end = now() + 20 * kMinute;
  import_guide({{"One", start, end, "The Match"}});
  expect_done(run({"key", "RED"}));
  grows_to(kSome);
  ASSERT_EQ(listed_timers().size(), 1u);
  EXPECT_EQ(end_of(listed_timers()[0]), end + kEndPadding);
  import_guide({{"One", start, end + 15 * kMinute, "The Match"}});
  dtv_tv_advance(1000);
  EXPECT_EQ(end_of(listed_timers()[0]), end + 15 * kMinute + kEndPadding);
  expect_done(run({"record", "stop"}));
}

TEST_F(RecorderFollows, RecordingForATimeKeepsItAndNamesTheEvent) {
  const std::int64_t start = now() - 10 * kMinute, end = now() + 20 * kMinute;
  import_guide({{"One", start, end, "The News"}});
  const std::int64_t begin = now();
  ASSERT_EQ(error_of(reply_to({"record", "now", "5"})), "");
  const RECLIST_ENTRY_T entry = newest_entry();
  EXPECT_STREQ(entry.program_name, "The News");
  EXPECT_EQ(std::to_string(entry.event_id), event_at(channel_id(1), now()));
  import_guide({{"One", start, end + 3600, "The News"}});
  dtv_tv_advance(1000);
  EXPECT_NEAR(static_cast<double>(end_of(listed_timers()[0])), static_cast<double>(begin + 5 * kMinute), 1);
}

TEST_F(RecorderFollows, RecordingNowWithoutAnEventTakesTheConfiguredTime) {
  expect_done(run({"config", "g_rec__default_duration", "45"}));
  const std::int64_t begin = now();
  ASSERT_EQ(error_of(reply_to({"record", "now"})), "");
  EXPECT_NEAR(static_cast<double>(end_of(listed_timers()[0])), static_cast<double>(begin + 45 * kMinute), 1);
  EXPECT_EQ(newest_entry().event_id, 0);
}

TEST_F(RecorderFollows, LastMinuteExtensionProlongsATimersRecording) {
  const std::int64_t start = now() + 5 * kMinute, end = start + 10 * kMinute;
  expect_done(run({"config", "g_rec__start_padding", "0"}));
  expect_done(run({"config", "g_rec__end_padding", "0"}));
  import_guide({{"One", start, end, "The Match"}});
  expect_done(run({"record", "event", "1", event_at(channel_id(1), start)}));
  dtv_tv_advance(15 * 60'000 - 2000);
  grows_to(kSome);
  import_guide({{"One", start, end, "The Match"}});
  dtv_tv_advance(1);  // the guide is searched now, so the next search comes after the end
  import_guide({{"One", start, end + 1200, "The Match"}});
  dtv_tv_advance(5000);
  EXPECT_EQ(text_in(newest_recording(), "status"), "recording");
  EXPECT_EQ(end_of(listed_timers()[0]), end + 1200);
  dtv_tv_advance(20 * 60'000);
  EXPECT_EQ(text_in(newest_recording(), "status"), "complete");
}

// The guide is searched at once after a quiet time, and then only once in 10 seconds.
TEST_F(RecorderFollows, GuideChangesAreLookedAtAtABoundedRate) {
  const std::int64_t start = now() + 3600;
  const auto timer_end = [] { return end_of(listed_timers()[0]) - kEndPadding; };
  import_guide({{"One", start, start + 600, "News"}});
  expect_done(run({"record", "event", "1", event_at(channel_id(1), start)}));
  dtv_tv_advance(60'000);
  import_guide({{"One", start, start + 700, "News"}});
  dtv_tv_advance(1);
  EXPECT_EQ(timer_end(), start + 700);
  import_guide({{"One", start, start + 800, "News"}});
  dtv_tv_advance(9000);
  EXPECT_EQ(timer_end(), start + 700);
  dtv_tv_advance(1000);
  EXPECT_EQ(timer_end(), start + 800);
}

// A multiplex that announces an event of channel One, with the identifier 5.
Bytes announcing(std::int64_t start) {
  TestStream stream{.bytes = multiplex(10, {101, 102}, 4), .counters = {}};
  add_section(stream, 0x12, eit({1, 10, 101}, 5, start, "News"));
  return stream.bytes;
}

TEST_F(RecorderFollows, ReminderOfAMovedEventWaits) {
  const std::int64_t start = now() + 10 * kMinute, moved = start + 20 * kMinute;
  const auto has_event = [](std::int64_t begin) {
    return comes_true([begin] {
      return run({"guide", "event", "1", "5"}).find("\"start\":\"" + reply_time(begin) + "\"") != std::string::npos;
    });
  };
  write_bytes(air + "/10.ts", announcing(start));
  expect_done(antenna("rescan"));
  read_antenna();
  press("1");
  press("ENTER");
  dtv_tv_advance(5000);
  ASSERT_TRUE(has_event(start)) << run({"guide"});
  expect_done(run({"reminder", "1", "5"}));
  dtv_tv_advance(8 * 60'000);
  std::fstream(air + "/10.ts", std::ios::binary | std::ios::in | std::ios::out)
      .write(reinterpret_cast<const char*>(announcing(moved).data()),
             static_cast<std::streamsize>(announcing(moved).size()));
  ASSERT_TRUE(has_event(moved)) << run({"guide", "event", "1", "5"});
  dtv_tv_advance(3 * 60'000);
  EXPECT_EQ(text_in(reply_to({"state"}), "reminder"), "") << "at the time that it had first";
  EXPECT_EQ(listed_timers().size(), 1u);
  dtv_tv_advance(19 * 60'000 + 10'000);
  EXPECT_EQ(text_in(reply_to({"state"}), "reminder"), "News on One");
}

}  // namespace
