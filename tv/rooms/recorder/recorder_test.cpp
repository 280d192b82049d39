// Timers, reminders, series, conflicts, and the structured items, without an antenna.
#include "rooms/recorder/recorder_test.h"

#include <cerrno>

#include "rooms/recorder/conflicts.h"
#include "tests/unit/tv/disk.h"

namespace {

using RecorderPlans = RecorderSet;

// ---- The rule of conflicts ----

constexpr ServiceKey kA1{1, 10, 101}, kA2{1, 10, 102}, kB{1, 20, 201}, kC{1, 30, 301}, kD{1, 40, 401};

struct ConflictCase {
  const char* says;
  std::vector<Window> others;
  Window wanted;
  std::vector<int> with;
};

TEST(RecorderConflicts, AreMultiplexesBeyondTheTuners) {
  const ConflictCase cases[] = {
      {"nothing else", {}, {9, 0, 10, kA1}, {}},
      {"a second multiplex has the second tuner", {{1, 0, 10, kB}}, {9, 0, 10, kA1}, {}},
      {"a third multiplex", {{1, 0, 10, kB}, {2, 0, 10, kC}}, {9, 0, 10, kA1}, {1, 2}},
      {"same multiplex as one of two", {{1, 0, 10, kA2}, {2, 0, 10, kC}}, {9, 0, 10, kA1}, {}},
      {"same multiplex as one of three", {{1, 0, 10, kA2}, {2, 0, 10, kC}, {3, 0, 10, kB}}, {9, 0, 10, kA1}, {2, 3}},
      {"the first ends when the wanted one begins", {{1, 0, 5, kB}, {2, 0, 10, kC}}, {9, 5, 10, kA1}, {}},
      {"the second begins when the wanted one ends", {{1, 0, 9, kB}, {2, 5, 9, kC}}, {9, 0, 5, kA1}, {}},
      {"a second of overlap", {{1, 0, 6, kB}, {2, 0, 10, kC}}, {9, 5, 10, kA1}, {1, 2}},
      {"both overlap it, but not each other", {{1, 0, 5, kB}, {2, 5, 10, kC}}, {9, 0, 10, kA1}, {}},
      {"both within it", {{1, 2, 5, kB}, {2, 4, 6, kC}}, {9, 0, 10, kA1}, {1, 2}},
      {"only those of the moment", {{1, 0, 2, kD}, {2, 4, 9, kB}, {3, 5, 6, kC}}, {9, 0, 10, kA1}, {2, 3}},
      {"two services of one multiplex need one tuner", {{1, 0, 10, kA1}, {2, 0, 10, kA2}}, {9, 0, 10, kB}, {}},
      {"the viewer's picture counts", {{0, 0, 1, kB}, {2, 0, 10, kC}}, {9, 0, 10, kA1}, {0, 2}},
      {"the viewer's picture does not count later", {{0, 0, 1, kB}, {2, 0, 10, kC}}, {9, 1, 10, kA1}, {}},
      {"the viewer watches the wanted multiplex", {{0, 0, 1, kA2}, {2, 0, 10, kC}}, {9, 0, 10, kA1}, {}},
  };
  for (const ConflictCase& each : cases) {
    std::vector<int> with;
    for (const Window& window : find_conflicts(each.others, each.wanted, 2)) with.push_back(window.id);
    EXPECT_EQ(with, each.with) << each.says;
  }
  const Window other[] = {{1, 0, 10, kB}};
  EXPECT_EQ(find_conflicts(other, {9, 0, 10, kA1}, 1).size(), 1u) << "one tuner";
}

// ---- Reminders by their structured item ----

_RmdrEventInfo_T timer_request(int channel, std::int64_t start, UINT32 duration) {
  _RmdrEventInfo_T request{};
  request.e_operation = RMDR_OP_ADD;
  request.e_rmdr_mode = RMDR_MODE_RECORD;
  request.ui4_ref_channel_id = channel_id(channel);
  request.start_time = static_cast<UINT32>(start);
  request.duration = duration;
  return request;
}

_RmdrEventInfo_T ask(INT32 operation, UINT16 slot = 0, UINT32 data = 0) {
  _RmdrEventInfo_T request{};
  request.e_operation = operation;
  request.ui2_slot = slot;
  request.info_data = data;
  return request;
}

UINT16 count_timers() {
  _RmdrEventInfo_T request = ask(RMDR_OP_NUMBER);
  EXPECT_EQ(read_item(request), 0);
  return request.total_rmdr_num;
}

TEST_F(RecorderPlans, AddsGetsModifiesAndDeletesATimer) {
  const std::int64_t start = now() + 3600;
  _RmdrEventInfo_T request = timer_request(2, start, 1800);
  std::strcpy(request.s_event_title, "News at 5");
  ASSERT_EQ(read_item(request), 0);
  EXPECT_EQ(request.op_result, RMDR_RESULT_OK);
  const UINT16 slot = request.ui2_slot;
  EXPECT_NE(slot, 0);
  EXPECT_EQ(count_timers(), 1);

  _RmdrEventInfo_T got = ask(RMDR_OP_GET, slot);
  ASSERT_EQ(read_item(got), 0);
  EXPECT_EQ(got.e_rmdr_mode, RMDR_MODE_RECORD);
  EXPECT_EQ(got.ui4_ref_channel_id, channel_id(2));
  EXPECT_EQ(got.start_time, start);
  EXPECT_EQ(got.duration, 1800u);
  EXPECT_EQ(got.ui4_rec_start_time, start - 2 * 60) << "padded as the set is configured";
  EXPECT_EQ(got.ui4_rec_duration, 1800u + 2 * 60 + 10 * 60);
  EXPECT_STREQ(got.s_event_title, "News at 5");

  _RmdrEventInfo_T change = timer_request(1, start + 600, 900);
  change.e_operation = RMDR_OP_MODIFY;
  change.ui2_slot = slot;
  change.ui4_rec_start_time = static_cast<UINT32>(start);
  change.ui4_rec_duration = 2000;
  ASSERT_EQ(read_item(change), 0);
  got = ask(RMDR_OP_GET_BY_INDEX, 0, 0);
  ASSERT_EQ(read_item(got), 0);
  EXPECT_EQ(got.ui2_slot, slot);
  EXPECT_EQ(got.ui4_ref_channel_id, channel_id(1));
  EXPECT_EQ(got.start_time, start + 600);
  EXPECT_EQ(got.ui4_rec_start_time, start);
  EXPECT_EQ(got.ui4_rec_duration, 2000u);

  restart();
  got = ask(RMDR_OP_GET, slot);
  ASSERT_EQ(read_item(got), 0) << "a timer survives";
  EXPECT_EQ(got.ui4_rec_duration, 2000u);

  _RmdrEventInfo_T gone = ask(RMDR_OP_DELETE, slot);
  ASSERT_EQ(read_item(gone), 0);
  EXPECT_EQ(count_timers(), 0);
  restart();
  EXPECT_EQ(count_timers(), 0);
}

TEST_F(RecorderPlans, GenreIsTheRequestsOrTheEvents) {
  _RmdrEventInfo_T request = timer_request(2, now() + 3600, 1800);
  request.ui1_genre = 0x41;
  ASSERT_EQ(read_item(request), 0);
  EXPECT_EQ(request.ui1_genre, 0x41);
  const std::int64_t start = now() + 7200;
  std::ofstream(home.path + "/news.xml")
      << "<tv><channel id=\"1\"><display-name>One</display-name></channel><programme channel=\"1\" start=\""
      << xmltv_time(start) << "\" stop=\"" << xmltv_time(start + 600)
      << "\"><title>News</title><category>news</category></programme></tv>";
  expect_done(run({"guide", "import", home.path + "/news.xml"}));
  ASSERT_TRUE(comes_true([] { return run({"guide"}).find("\"running\"") == std::string::npos; }));
  _RmdrEventInfo_T of_event = timer_request(1, 0, 0);
  of_event.event_id = static_cast<UINT16>(std::stoi(event_at(channel_id(1), start)));
  of_event.ui1_genre = 0x41;
  ASSERT_EQ(read_item(of_event), 0);
  EXPECT_EQ(of_event.ui1_genre, 0x20) << "the event's first category";
  restart();
  _RmdrEventInfo_T got = ask(RMDR_OP_GET, request.ui2_slot);
  ASSERT_EQ(read_item(got), 0);
  EXPECT_EQ(got.ui1_genre, 0x41);
}

TEST_F(RecorderPlans, DiskIsReadyWhileItsFolderCanBeUsed) {
  const auto is_ready = [] {
    _RmdrEventInfo_T request = ask(RMDR_OP_USB_READY);
    EXPECT_EQ(read_item(request), 0);
    return request.is_usb_ready != 0;
  };
  EXPECT_TRUE(is_ready());
  const std::string recordings = folder.path + "/recordings";
  std::filesystem::remove(recordings);
  EXPECT_FALSE(is_ready()) << "the folder is gone";
  std::ofstream(recordings) << "x";
  EXPECT_FALSE(is_ready()) << "it is a file";
  std::filesystem::remove(recordings);
  std::filesystem::create_directory(recordings);
  EXPECT_TRUE(is_ready());
}

TEST_F(RecorderPlans, ListsTimersInTheOrderOfTheirTimes) {
  const std::int64_t start = now() + 7200;
  for (const int later : {2, 0, 1}) {
    _RmdrEventInfo_T request = timer_request(1, start + later * 7200, 600);
    ASSERT_EQ(read_item(request), 0);
  }
  for (UINT32 i = 0; i < 3; ++i) {
    _RmdrEventInfo_T got = ask(RMDR_OP_GET_BY_INDEX, 0, i);
    ASSERT_EQ(read_item(got), 0);
    EXPECT_EQ(got.start_time, start + i * 7200);
    _RmdrEventInfo_T slot = ask(RMDR_OP_RECORDING_ON_SLOT, got.ui2_slot);
    ASSERT_EQ(read_item(slot), 0);
    EXPECT_EQ(slot.is_rmdr, 1);
    EXPECT_EQ(slot.is_on_going_pvr, 0);
    EXPECT_EQ(slot.slot_idx, i);
  }
  _RmdrEventInfo_T none = ask(RMDR_OP_RECORDING_ON_SLOT, 999);
  ASSERT_EQ(read_item(none), 0);
  EXPECT_EQ(none.is_rmdr, 0);
}

TEST_F(RecorderPlans, AnswersWhetherItRecordsAndWhereTo) {
  _RmdrEventInfo_T request = ask(RMDR_OP_IS_RECORDING);
  ASSERT_EQ(read_item(request), 0);
  EXPECT_EQ(request.is_recording, 0);
  request = ask(RMDR_OP_USB_READY);
  ASSERT_EQ(read_item(request), 0);
  EXPECT_EQ(request.is_usb_ready, 1);
  request = ask(RMDR_OP_USB_READY_TO_SHIFT);
  request.is_usb_ready = 1;
  ASSERT_EQ(read_item(request), 0);
  EXPECT_EQ(request.is_usb_ready, 0) << "there is no time shift";
  request = ask(RMDR_OP_NONE);
  request.op_result = 77;
  ASSERT_EQ(read_item(request), 0);
  EXPECT_EQ(request.op_result, 0);
}

TEST_F(RecorderPlans, RefusesWrongRequests) {
  const std::int64_t later = now() + 3600;
  struct Case {
    const char* says;
    void (*spoil)(_RmdrEventInfo_T& request);
    INT32 result;
  };
  const Case cases[] = {
      {"no such channel", [](_RmdrEventInfo_T& r) { r.ui4_ref_channel_id = 7; }, RMDR_RESULT_NOT_FOUND},
      {"no such event", [](_RmdrEventInfo_T& r) { r.event_id = 7; }, RMDR_RESULT_NOT_FOUND},
      {"no such mode", [](_RmdrEventInfo_T& r) { r.e_rmdr_mode = 4; }, RMDR_RESULT_ARGUMENT},
      {"negative mode", [](_RmdrEventInfo_T& r) { r.e_rmdr_mode = -1; }, RMDR_RESULT_ARGUMENT},
      {"a series without an event", [](_RmdrEventInfo_T& r) { r.e_rmdr_mode = RMDR_MODE_SERIES; },
       RMDR_RESULT_ARGUMENT},
      {"it takes no time", [](_RmdrEventInfo_T& r) { r.duration = 0; }, RMDR_RESULT_ARGUMENT},
      {"it takes more than a day", [](_RmdrEventInfo_T& r) { r.duration = 86401; }, RMDR_RESULT_ARGUMENT},
      {"the longest number", [](_RmdrEventInfo_T& r) { r.duration = UINT32_MAX; }, RMDR_RESULT_ARGUMENT},
      {"it has ended", [](_RmdrEventInfo_T& r) { r.start_time = 1000; }, RMDR_RESULT_PAST},
      {"in more than a year", [](_RmdrEventInfo_T& r) { r.start_time = UINT32_MAX; }, RMDR_RESULT_ARGUMENT},
      {"recorded elsewhen", [](_RmdrEventInfo_T& r) { r.ui4_rec_start_time = 1; }, RMDR_RESULT_ARGUMENT},
      {"recorded for no time",
       [](_RmdrEventInfo_T& r) {
         r.ui4_rec_start_time = r.start_time;
         r.ui4_rec_duration = 0;
       },
       RMDR_RESULT_ARGUMENT},
      {"not UTF-8", [](_RmdrEventInfo_T& r) { std::memset(r.s_event_title, 0xFF, sizeof r.s_event_title); },
       RMDR_RESULT_ARGUMENT},
      {"delete none", [](_RmdrEventInfo_T& r) { r.e_operation = RMDR_OP_DELETE; }, RMDR_RESULT_NOT_FOUND},
      {"modify none",
       [](_RmdrEventInfo_T& r) {
         r.e_operation = RMDR_OP_MODIFY;
         r.ui2_slot = 9;
       },
       RMDR_RESULT_NOT_FOUND},
      {"get none",
       [](_RmdrEventInfo_T& r) {
         r.e_operation = RMDR_OP_GET;
         r.ui2_slot = 65535;
       },
       RMDR_RESULT_NOT_FOUND},
      {"get beyond the end",
       [](_RmdrEventInfo_T& r) {
         r.e_operation = RMDR_OP_GET_BY_INDEX;
         r.info_data = UINT32_MAX;
       },
       RMDR_RESULT_NOT_FOUND},
  };
  for (const Case& each : cases) {
    _RmdrEventInfo_T request = timer_request(1, later, 600);
    each.spoil(request);
    request.op_result = 77;
    expect_words(refusal([&] { return read_item(request); }), {"reminder"});
    EXPECT_EQ(request.op_result, each.result) << each.says;
  }
  _RmdrEventInfo_T unknown = ask(99);
  expect_words(refusal([&] { return read_item(unknown); }), {"99"});
  EXPECT_EQ(count_timers(), 0);
  expect_words(
      refusal([&] { return setConfigValueStruct(VEXTVAPI_CONFIG_ITEM_PVR_REMINDER, sizeof unknown, &unknown); }),
      {"only read"});
}

TEST_F(RecorderPlans, RefusesWhatIsPlannedAlready) {
  _RmdrEventInfo_T request = timer_request(1, now() + 3600, 600);
  ASSERT_EQ(read_item(request), 0);
  refusal([&] { return read_item(request); });
  EXPECT_EQ(request.op_result, RMDR_RESULT_DUPLICATE);
  EXPECT_EQ(count_timers(), 1);
}

TEST_F(RecorderPlans, ConflictNamesATimerInTheWay) {
  standby();  // the picture needs no tuner
  const std::int64_t start = now() + 3600;
  _RmdrEventInfo_T first = timer_request(1, start, 3600), second = timer_request(3, start, 3600);
  ASSERT_EQ(read_item(first), 0);
  ASSERT_EQ(read_item(second), 0);

  _RmdrEventInfo_T same_multiplex = timer_request(2, start, 3600);
  same_multiplex.e_operation = RMDR_OP_CONFLICT;
  same_multiplex.conflict_state = 1;
  ASSERT_EQ(read_item(same_multiplex), 0);
  EXPECT_EQ(same_multiplex.conflict_type, RMDR_CONFLICT_NONE);
  EXPECT_EQ(same_multiplex.conflict_state, 0);

  _RmdrEventInfo_T third = timer_request(42, start + 1800, 3600);
  third.e_operation = RMDR_OP_CONFLICT;
  ASSERT_EQ(read_item(third), 0);
  EXPECT_EQ(third.conflict_type, RMDR_CONFLICT_REMINDERS);
  EXPECT_EQ(third.conflict_state, 1);
  EXPECT_EQ(third.conflict_slot, first.ui2_slot);
  third.is_ignore_special_slot = 1;
  ASSERT_EQ(read_item(third), 0);
  EXPECT_EQ(third.conflict_state, 0) << "without the first, there is a tuner";
  EXPECT_EQ(count_timers(), 2);

  third = timer_request(42, start + 1800, 3600);
  const std::string log = refusal([&] { return read_item(third); });
  expect_words(log, {"timer " + std::to_string(first.ui2_slot), "timer " + std::to_string(second.ui2_slot)});
  EXPECT_EQ(third.op_result, RMDR_RESULT_CONFLICT);
  EXPECT_EQ(third.conflict_slot, first.ui2_slot);
  EXPECT_EQ(count_timers(), 2);

  third = timer_request(42, start + 3600 + 12 * 60, 3600);  // after the end of both, padding included
  ASSERT_EQ(read_item(third), 0) << "the padding of the end and of the beginning touch";
}

TEST_F(RecorderPlans, PictureConflictsOnlyWithWhatBeginsNow) {
  expect_done(run({"key", "1"}));
  expect_done(run({"key", "ENTER"}));
  _RmdrEventInfo_T other = timer_request(3, now() - 60, 3600);
  ASSERT_EQ(read_item(other), 0);
  _RmdrEventInfo_T third = timer_request(42, now() - 60, 3600);
  third.e_operation = RMDR_OP_CONFLICT;
  ASSERT_EQ(read_item(third), 0);
  EXPECT_EQ(third.conflict_state, 1);
  standby();
  ASSERT_EQ(read_item(third), 0);
  EXPECT_EQ(third.conflict_state, 0);
}

TEST_F(RecorderPlans, HasAtMost500) {
  const std::int64_t start = now() + 3600;
  for (int i = 0; i < 500; ++i) {
    _RmdrEventInfo_T request = timer_request(1, start + i * 60, 60);
    request.e_rmdr_mode = RMDR_MODE_REMIND;
    ASSERT_EQ(read_item(request), 0) << i;
  }
  _RmdrEventInfo_T request = timer_request(2, start, 60);
  expect_words(refusal([&] { return read_item(request); }), {"500"});
  EXPECT_EQ(request.op_result, RMDR_RESULT_FULL);
  EXPECT_EQ(listed_timers().size(), 500u);
}

TEST_F(RecorderPlans, ChangeThatCannotBeSavedChangesNothing) {
  _RmdrEventInfo_T request = timer_request(1, now() + 3600, 600), other = timer_request(2, now() + 3600, 600);
  ASSERT_EQ(read_item(request), 0);
  {
    const DiskGuard broken([](int descriptor) { return is_named(descriptor, "recorder.sqlite") ? EIO : 0; });
    refusal([&] { return read_item(other); });
    EXPECT_EQ(other.op_result, RMDR_RESULT_NOT_SAVED);
    _RmdrEventInfo_T gone = ask(RMDR_OP_DELETE, request.ui2_slot);
    refusal([&] { return read_item(gone); });
    EXPECT_EQ(gone.op_result, RMDR_RESULT_NOT_SAVED);
  }
  EXPECT_EQ(count_timers(), 1);
  restart();
  EXPECT_EQ(count_timers(), 1);
  _RmdrEventInfo_T got = ask(RMDR_OP_GET, request.ui2_slot);
  EXPECT_EQ(read_item(got), 0);
}

// ---- What is due ----

TEST_F(RecorderPlans, ReminderShowsAMessageForAMinute) {
  const std::int64_t start = now() + 600;
  import_guide({{"Two", start, start + 1800, "The News"}});
  expect_done(run({"reminder", "2", event_at(channel_id(2), start)}));
  standby();
  dtv_tv_advance(599'000);
  EXPECT_EQ(text_in(reply_to({"state"}), "reminder"), "");
  dtv_tv_advance(2'000);
  EXPECT_EQ(text_in(reply_to({"state"}), "reminder"), "The News on Two");
  EXPECT_EQ(power(), "standby") << "a reminder does not switch the set on";
  EXPECT_EQ(listed_timers().size(), 0u);
  EXPECT_EQ(run({"screen"}).find("message"), std::string::npos) << "nothing is shown in standby";
  expect_done(run({"power", "on"}));
  expect_words(run({"screen"}), {R"("message":{"word":"reminder_due","about":"","text":"The News on Two"})"});
  dtv_tv_advance(61'000);
  EXPECT_EQ(text_in(reply_to({"state"}), "reminder"), "");
  EXPECT_EQ(run({"screen"}).find("message"), std::string::npos);
}

TEST_F(RecorderPlans, WatchingWakesTheSetAndShowsTheChannel) {
  const std::int64_t start = now() + 600;
  import_guide({{"Three", start, start + 1800, "A Film"}});
  expect_done(run({"reminder", "3", event_at(channel_id(3), start), "watch"}));
  expect_done(run({"key", "1"}));
  expect_done(run({"key", "ENTER"}));
  standby();
  dtv_tv_advance(601'000);
  EXPECT_EQ(power(), "on");
  EXPECT_EQ(place(), "3 TV");
  EXPECT_EQ(listed_timers().size(), 0u);
}

// The identifier of a channel of the air to which the viewer gave the number.
constexpr UINT32 viewers_id(int number) { return channel_id(number) | SVL_CHANNEL_ID_VIEWERS_NUMBER; }

TEST_F(RecorderPlans, TimerFollowsAChannelThatGetsAnotherNumber) {
  _RmdrEventInfo_T request = timer_request(2, now() + 3600, 1800);
  ASSERT_EQ(read_item(request), 0);
  expect_done(run({"channel", "2", "number", "77"}));
  _RmdrEventInfo_T got = ask(RMDR_OP_GET, request.ui2_slot);
  ASSERT_EQ(read_item(got), 0);
  EXPECT_EQ(got.ui4_ref_channel_id, viewers_id(77));
  expect_done(run({"channel", "1", "number", "2"}));
  ASSERT_EQ(read_item(got), 0);
  EXPECT_EQ(got.ui4_ref_channel_id, viewers_id(77)) << "another channel has its former number";
  expect_done(run({"channel", "77", "delete"}));
  ASSERT_EQ(read_item(got), 0);
  EXPECT_EQ(got.ui4_ref_channel_id, channel_id(2)) << "as it was planned";
}

TEST_F(RecorderPlans, WatchingShowsAChannelThatGotAnotherNumber) {
  const std::int64_t start = now() + 600;
  import_guide({{"Three", start, start + 1800, "A Film"}});
  expect_done(run({"reminder", "3", event_at(channel_id(3), start), "watch"}));
  expect_done(run({"channel", "3", "number", "55"}));
  dtv_tv_advance(601'000);
  EXPECT_EQ(place(), "55 TV");
}

TEST_F(RecorderPlans, RecordingWithoutASignalIsListedAsFailed) {
  standby();
  expect_done(run({"record", "1", "+10", "20"}));
  dtv_tv_advance(11 * 60'000);
  EXPECT_EQ(listed_timers().size(), 1u);
  EXPECT_EQ(text_in(listed_timers()[0], "waits"), "there is no signal");
  EXPECT_EQ(listed_recordings(), 0u);
  EXPECT_EQ(power(), "standby") << "a recording does not switch the picture on";
  dtv_tv_advance(20 * 60'000);
  EXPECT_EQ(listed_timers().size(), 0u);
  ASSERT_EQ(listed_recordings(), 1u);
  EXPECT_EQ(text_in(newest_recording(), "status"), "failed");
  EXPECT_EQ(text_in(newest_recording(), "reason"), "there is no signal");
}

TEST_F(RecorderPlans, TimerThatCameWhileTheSetWasOffIsListedAsMissed) {
  expect_done(run({"record", "1", "+10", "20"}));
  dtv_tv_stop();
  dtv_tv_advance(31 * 60'000);
  ASSERT_EQ(tv_start(folder.path), "");
  dtv_tv_advance(1000);
  ASSERT_EQ(listed_recordings(), 1u);
  EXPECT_EQ(text_in(newest_recording(), "reason"), "the set was off");
}

// ---- Series ----

TEST_F(RecorderPlans, SeriesPlansEachOfItsEventsOnce) {
  const std::int64_t first = now() + 3600, day = 86400;
  const auto guide = [&](bool second_day) {
    std::vector<TestEvent> events = {{"One", first, first + 1800, "Soap"},
                                     {"One", first + 1800, first + 3600, "Weather"},
                                     {"Two", first + 7200, first + 9000, "Soap"}};
    if (second_day) events.push_back({"One", first + day, first + day + 1800, "Soap"});
    import_guide(events);
  };
  guide(false);
  expect_done(run({"record", "event", "1", event_at(channel_id(1), first), "series"}));
  dtv_tv_advance(1000);
  boost::json::array timers = listed_timers();
  ASSERT_EQ(timers.size(), 2u) << "the event, and the series; not another channel's event";
  EXPECT_EQ(text_in(timers[0], "kind"), "record");
  EXPECT_EQ(text_in(timers[0], "title"), "Soap");
  EXPECT_EQ(number_in(timers[0], "series"), number_in(timers[1], "id"));
  EXPECT_EQ(text_in(timers[1], "kind"), "series");

  expect_done(run({"timer", std::to_string(number_in(timers[0], "id")), "delete"}));
  guide(true);
  dtv_tv_advance(11 * 60'000);
  timers = listed_timers();
  ASSERT_EQ(timers.size(), 2u) << "the deleted event does not come back, the next day's has come";
  EXPECT_EQ(number_in(timers[0], "event"), std::stoll(event_at(channel_id(1), first + day)));
  restart();
  dtv_tv_advance(11 * 60'000);
  EXPECT_EQ(listed_timers().size(), 2u);

  expect_done(run({"timer", std::to_string(number_in(timers[1], "id")), "delete"}));
  EXPECT_EQ(listed_timers().size(), 0u) << "with the series go its timers";
}

// ---- The other structured items ----

TEST_F(RecorderPlans, DiskIsTheStateFoldersOne) {
  _Qt_PAIRED_DISK_INFO disk{};
  ASSERT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_PAIRED_DISK, disk), 0);
  EXPECT_GT(disk.ui8_total_size, 0u);
  EXPECT_LE(disk.ui8_free_size, disk.ui8_total_size);
  const std::filesystem::space_info space = std::filesystem::space(folder.path);
  EXPECT_EQ(disk.ui8_total_size, space.capacity);
  EXPECT_EQ(disk.ca_mnt_path, std::filesystem::canonical(folder.path).string() + "/recordings");
  refusal([&] { return setConfigValueStruct(VEXTVAPI_CONFIG_ITEM_PVR_PAIRED_DISK, sizeof disk, &disk); });
}

TEST_F(RecorderPlans, FormOnTheScreenIsWrittenOnly) {
  const _PvrUiStatus form{.formId = 3, .formState = 2};
  ASSERT_EQ(setConfigValueStruct(VEXTVAPI_CONFIG_ITEM_PVR_UI_STATUS, sizeof form, &form), 0);
  EXPECT_NE(run({"state"}).find(R"("recorder_form":{"id":3,"state":2})"), std::string::npos);
  _PvrUiStatus read{};
  refusal([&] { return read_item(VEXTVAPI_CONFIG_ITEM_PVR_UI_STATUS, read); });
}

TEST_F(RecorderPlans, EmptyListHasNothingToShowOrPlay) {
  _Qt_RECLIST_INFO_T list{};
  list.e_op = RECLIST_OP_NUMBER;
  list.reclist_num = 5;
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.reclist_num, 0);
  list.e_op = RECLIST_OP_FILE;
  list.t_reclist_info.list_id = 5;
  list.recording_status = 5;
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.recording_status, RECLIST_STATUS_NONE);
  EXPECT_STREQ(list.file_name_id, "");
  list.e_op = 0;
  list.page_index = 65535;
  list.start_slot = 65535;
  list.at_page[0].channel_id = 5;
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.at_page[0].channel_id, 0u);
  for (const INT32 operation :
       std::initializer_list<INT32>{RECLIST_OP_DELETE, RECLIST_OP_RENAME, RECLIST_OP_STOP, 0, 99}) {
    list.e_op = operation;
    refusal([&] { return write_item(list); });
  }
  _PvrFileInfo file{};
  ASSERT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, file), 0);
  EXPECT_EQ(file.e_file_status, PVR_FILE_NONE);
}

TEST_F(RecorderPlans, ErrorsOfBadCommandsSayWhatWouldBeRight) {
  struct Case {
    std::vector<std::string> command;
    std::vector<std::string> says;
  };
  const Case cases[] = {
      {{"record"}, {"now", "stop", "event", "CHANNEL FROM MINUTES"}},
      {{"record", "now", "0"}, {"1 to 1440"}},
      {{"record", "now", "1441"}, {"1 to 1440"}},
      {{"record", "now", "5", "6"}, {"too many"}},
      {{"record", "stop"}, {"nothing is being recorded"}},
      {{"record", "stop", "x"}, {"id"}},
      {{"record", "stop", "5"}, {"nothing is being recorded"}},
      {{"record", "77", "+5", "5"}, {"no channel", "77"}},
      {{"record", "1", "today", "5"}, {"2026-03-29T10:30:00Z", "+20", "today"}},
      {{"record", "1", "+5", "0"}, {"1 to 1440"}},
      {{"record", "1", "2001-01-01T00:00:00Z", "5"}, {"ended already"}},
      {{"record", "event", "1"}, {"CHANNEL EVENTID"}},
      {{"record", "event", "1", "5", "serial"}, {"series"}},
      {{"record", "event", "1", "5"}, {"guide", "event 5"}},
      {{"timer", "5"}, {"no timer 5"}},
      {{"timer"}, {"timer ID"}},
      {{"timer", "0"}, {"id"}},
      {{"recording", "5"}, {"no recording 5"}},
      {{"recording", "5", "burn"}, {"no recording 5"}},
      {{"recordings", "-1"}, {"counted from 0"}},
      {{"reminder", "1"}, {"CHANNEL EVENTID"}},
      {{"reminder", "1", "70000"}, {"70000"}},
  };
  for (const Case& each : cases) {
    boost::json::array words(each.command.begin(), each.command.end());
    const std::string error = error_of(boost::json::parse(tv_control(boost::json::serialize(words))));
    EXPECT_NE(error, "") << words;
    for (const std::string& word : each.says) EXPECT_NE(error.find(word), std::string::npos) << word << " in " << error;
  }
}

TEST_F(RecorderPlans, ResetDeletesTimers) {
  expect_done(run({"record", "1", "+10", "20"}));
  expect_done(run({"reset"}));
  EXPECT_EQ(listed_timers().size(), 0u);
  restart();
  EXPECT_EQ(listed_timers().size(), 0u);
}

}  // namespace
