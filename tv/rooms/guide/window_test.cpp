// The active window, and the callbacks for events that change.
#include "rooms/guide/guide_test.h"

namespace {

constexpr UINT32 kOne = guide_channel(1), kTwo = guide_channel(2);

std::mutex heard_lock;
std::vector<std::string> heard;  // "condition reason channel number"

INT32 listen(INT32 type, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
  const auto number = [](void* word) { return std::to_string(reinterpret_cast<intptr_t>(word)); };
  const std::lock_guard guard(heard_lock);
  EXPECT_EQ(type, 0);
  EXPECT_EQ(tag, &heard);
  EXPECT_EQ(arg1, nullptr);
  heard.push_back(number(arg2) + " " + number(arg3) + " " + std::to_string(reinterpret_cast<intptr_t>(arg4) >> 18));
  return 0;
}

struct GuideWindow : GuideSet {
  GuideWindow() {
    import_channels({"One", "Two", "Three"});
    heard.clear();
    EXPECT_EQ(a_vextvapi_event_register_callback(listen, &heard), 0);
  }
  ~GuideWindow() override { dtv_tv_stop(); }

  static void show(const std::vector<UINT32>& channels, INT64 start = kGuideNow) {
    EXPECT_EQ(a_vextvapi_event_setCurrentActiveWindow(channels.data(), static_cast<UINT32>(start),
                                                      static_cast<UINT32>(channels.size())),
              0);
  }

  // What was reported since the last call. Runs what is due first.
  static std::vector<std::string> reports(std::uint32_t milliseconds = 0) {
    dtv_tv_advance(milliseconds);
    const std::lock_guard guard(heard_lock);
    return std::exchange(heard, {});
  }
};

using Reports = std::vector<std::string>;

TEST_F(GuideWindow, IsSetReadAndCleared) {
  INT32 number = 7;
  UINT32 start = 7, end = 7, channels[4] = {9, 9, 9, 9};
  EXPECT_EQ(a_vextvapi_event_get_active_win_channel_num(&number), 0);
  EXPECT_EQ(number, 0);
  show({kOne, kTwo, guide_channel(3)});
  EXPECT_EQ(a_vextvapi_event_get_active_win_channel_num(&number), 0);
  EXPECT_EQ(number, 3);
  EXPECT_EQ(a_vextvapi_event_get_active_win_list(channels, 2, &start, &end), 0);
  EXPECT_EQ(channels[0], kOne);
  EXPECT_EQ(channels[1], kTwo);
  EXPECT_EQ(channels[2], 9u) << "there is room for two";
  EXPECT_EQ(start, kGuideNow);
  EXPECT_EQ(end, kGuideNow + 24 * 3600);
  EXPECT_EQ(a_vextvapi_event_get_active_win_list(nullptr, 0, nullptr, nullptr), 0);
  EXPECT_EQ(a_vextvapi_event_get_active_win_list(channels, 4, nullptr, nullptr), 0);
  EXPECT_EQ(channels[3], 9u) << "the window has three";
  EXPECT_EQ(a_vextvapi_event_clear_active_win(), 0);
  EXPECT_EQ(a_vextvapi_event_get_active_win_list(nullptr, 0, &start, &end), 0);
  EXPECT_EQ(start, 0u);
  EXPECT_EQ(end, 0u);
  show({kOne}, UINT32_MAX - 5);
  EXPECT_EQ(a_vextvapi_event_get_active_win_list(nullptr, 0, nullptr, &end), 0);
  EXPECT_EQ(end, UINT32_MAX);
}

TEST_F(GuideWindow, RefusesTooManyChannelsAndNullPointers) {
  show({kOne});
  const std::vector<UINT32> many(65, kTwo);
  expect_words(refusal([&] { return a_vextvapi_event_setCurrentActiveWindow(many.data(), 0, 65); }), {"65", "64"});
  refusal([&] { return a_vextvapi_event_setCurrentActiveWindow(many.data(), 0, UINT32_MAX); });
  refusal([] { return a_vextvapi_event_setCurrentActiveWindow(nullptr, 0, 1); });
  refusal([] { return a_vextvapi_event_get_active_win_channel_num(nullptr); });
  refusal([] { return a_vextvapi_event_register_callback(nullptr, nullptr); });
  INT32 number = 0;
  EXPECT_EQ(a_vextvapi_event_get_active_win_channel_num(&number), 0);
  EXPECT_EQ(number, 1) << "what was refused changed nothing";
  EXPECT_EQ(a_vextvapi_event_setCurrentActiveWindow(nullptr, 0, 0), 0);
}

TEST_F(GuideWindow, ReportsAnotherWindowOnce) {
  show({kOne});
  show({kOne});
  EXPECT_EQ(reports(), Reports{"1 1 0"});
  show({kOne}, kGuideNow + 60);
  a_vextvapi_event_clear_active_win();
  a_vextvapi_event_clear_active_win();
  EXPECT_EQ(reports(), (Reports{"1 1 0", "1 1 0"}));
}

TEST_F(GuideWindow, ReportsChangedEventsOfItsChannelsInItsTime) {
  show({kOne, kTwo});
  reports();
  import_guide(xmltv_channel("1", "One") + xmltv_channel("2", "Two") + xmltv_channel("3", "Three") +
               titled("1", 60, 90, "Film") + titled("2", 25 * 60, 26 * 60, "Tomorrow") + titled("3", 60, 90, "Other"));
  EXPECT_EQ(reports(), Reports{"2 3 1"}) << "Two's event is after the window, Three is not in it";
  tv_control(R"(["guide","clear"])");
  EXPECT_EQ(reports(), (Reports{"2 1 1", "2 1 2"}));
}

TEST_F(GuideWindow, ReportsThePresentEventAtEachBorder) {
  import_guide(xmltv_channel("1", "One") + xmltv_channel("2", "Two") + titled("1", 0, 30, "News") +
               titled("1", 30, 90, "Film") + titled("1", 100, 110, "Late") + titled("2", 0, 105, "Long"));
  show({kOne, kTwo});
  EXPECT_EQ(reports(), (Reports{"2 3 1", "1 1 0"})) << "One is tuned, so its present event counts without a window";
  EXPECT_EQ(reports(29 * 60 * 1000), Reports{}) << "the first event still runs";
  EXPECT_EQ(reports(61 * 1000), Reports{"3 4 1"}) << "from News to Film";
  EXPECT_EQ(reports(59 * 60 * 1000), Reports{});
  EXPECT_EQ(reports(61 * 1000), Reports{"3 4 1"}) << "Film ended";
  EXPECT_EQ(reports(10 * 60 * 1000), Reports{"3 4 1"}) << "Late began";
  a_vextvapi_event_clear_active_win();
  EXPECT_EQ(reports(10 * 60 * 1000), (Reports{"1 1 0", "3 4 1"})) << "without a window, the tuned channel is watched";
}

TEST_F(GuideWindow, NoticesAChangedPresentEventAndASetClock) {
  import_guide(xmltv_channel("1", "One") + titled("1", 0, 30, "News") + titled("1", 30, 90, "Film"));
  show({kOne});
  EXPECT_EQ(reports(), (Reports{"2 3 1", "1 1 0"}));
  import_guide(xmltv_channel("1", "One") + titled("1", -10, 35, "Special") + titled("1", 35, 90, "Film"));
  EXPECT_EQ(reports(), (Reports{"2 3 1", "3 3 1"})) << "because of the import, not of the time";
  EXPECT_EQ(a_vextvapi_time_set_utc_time(kGuideNow + 3600), 0);
  EXPECT_EQ(reports(), Reports{"3 4 1"});
}

TEST_F(GuideWindow, WatchesAChosenChannelAtOnce) {
  import_guide(xmltv_channel("1", "One") + xmltv_channel("2", "Two") + titled("1", 0, 90, "Long") +
               titled("2", 0, 30, "News") + titled("2", 30, 90, "Film"));
  EXPECT_EQ(reports(), Reports{"2 3 1"}) << "One is tuned";
  tv_control(R"(["tune","2"])");
  EXPECT_EQ(reports(), Reports{});
  EXPECT_EQ(a_vextvapi_time_set_utc_time(kGuideNow + 3600), 0);
  EXPECT_EQ(reports(), Reports{"3 4 2"});
}

TEST_F(GuideWindow, WithoutOneTheTunedChannelsPresentAndFollowingEventsCount) {
  const std::string channels = xmltv_channel("1", "One") + xmltv_channel("2", "Two");
  import_guide(channels + titled("1", -10, 30, "News") + titled("1", 30, 60, "Following") +
               titled("1", 60, 90, "Late") + titled("2", 0, 30, "News"));
  EXPECT_EQ(reports(), Reports{"2 3 1"}) << "Two is not tuned";
  import_guide(channels + titled("1", -10, 30, "More news"));
  EXPECT_EQ(reports(), Reports{"2 3 1"}) << "another title";
  import_guide(channels + titled("1", -10, 25, "More news"));
  EXPECT_EQ(reports(), Reports{"2 3 1"}) << "another end";
  import_guide(channels + titled("1", 30, 55, "Following"));
  EXPECT_EQ(reports(), Reports{"2 3 1"}) << "the following event's end";
  import_guide(channels + titled("1", 60, 90, "Very late") + titled("2", 0, 30, "More news"));
  EXPECT_EQ(reports(), Reports{}) << "neither the present nor the following event of the tuned channel";
}

TEST_F(GuideWindow, FollowsAChannelThatGetsAnotherNumber) {
  show({kTwo});
  reports();
  expect_words(tv_control(R"(["channel","2","number","77"])"), {"77"});
  UINT32 now = 0;
  EXPECT_EQ(a_vextvapi_event_get_active_win_list(&now, 1, nullptr, nullptr), 0);
  EXPECT_EQ(now >> 18, 77u);
  import_guide(xmltv_channel("2", "Two") + titled("2", 60, 90, "Film"));
  EXPECT_EQ(reports(), Reports{"2 3 77"});
  expect_words(tv_control(R"(["channel","1","number","2"])"), {"2"});
  import_guide(xmltv_channel("2", "Two") + titled("2", 60, 90, "Another film"));
  EXPECT_EQ(reports(), Reports{"2 3 77"}) << "another channel has its former number";
}

}  // namespace
