// The set's menus, operated by keys, on a set with channels, a guide and a manual clock.
#include <algorithm>
#include <thread>

#include "core/reply.h"
#include "rooms/recorder/recorder_test.h"

namespace {

using boost::json::object;
using boost::json::value;

object screen() { return reply_to({"screen"}).as_object(); }

// The open menu as the screen shows it.
object menu() {
  const object shown = screen();
  const value* const found = shown.if_contains("menu");
  return found == nullptr ? object{} : found->as_object();
}

std::string open_menu() { return text_in(menu(), "menu"); }

// The word and the subject of the message; empty: there is none.
std::string message() {
  const object shown = screen();
  const value* const found = shown.if_contains("message");
  return found == nullptr ? "" : text_in(*found, "word") + " " + text_in(*found, "about");
}

value chosen_row() {
  const object shown = menu();
  return shown.at("rows").at(shown.at("selected").at("row").to_number<std::size_t>());
}

std::string chosen() { return text_in(chosen_row(), "name"); }

std::string names() {
  std::string all;
  const object shown = menu();
  for (const value& row : shown.at("rows").as_array()) all += text_in(row, "name") + " ";
  return all;
}

std::string chosen_event() {
  const object shown = menu();
  const value* const event = shown.if_contains("event");
  return event == nullptr ? "" : text_in(*event, "title");
}

bool has_mark(const value& row, std::string_view mark) {
  const value* const marks = row.as_object().if_contains("marks");
  if (marks == nullptr) return false;
  return std::ranges::any_of(marks->as_array(), [mark](const value& each) { return each.as_string() == mark; });
}

struct TvMenus : RecorderSet {};

TEST_F(TvMenus, EachKeyOpensItsMenuAndClosesIt) {
  const struct {
    const char* key;
    const char* menu;
  } cases[] = {
      {"MENU", "main"}, {"GUIDE", "guide"}, {"ENTER", "channels"}, {"FAVORITE", "favourites"}, {"TIMER", "timers"}};
  for (const auto& each : cases) {
    EXPECT_EQ(open_menu(), "");
    press(each.key);
    EXPECT_EQ(open_menu(), each.menu);
    EXPECT_EQ(text_in(reply_to({"state"}), "menu"), each.menu);
    press("EXIT");
    EXPECT_EQ(open_menu(), "") << each.key;
    EXPECT_FALSE(reply_to({"state"}).as_object().contains("menu"));
  }
  for (const char* const key : {"MENU", "GUIDE", "FAVORITE", "TIMER"}) {
    press_all({key, key});
    EXPECT_EQ(open_menu(), "") << key;
  }
}

TEST_F(TvMenus, OneMenuIsOpenAtMost) {
  press_all({"GUIDE", "MENU"});
  EXPECT_EQ(open_menu(), "main");
  press("FAVORITE");
  EXPECT_EQ(open_menu(), "favourites");
  press("EXIT");
  EXPECT_EQ(open_menu(), "");
}

TEST_F(TvMenus, TheMainMenuOpensTheOthers) {
  press("MENU");
  EXPECT_EQ(names(), "Programme guide Channel list Favourites Sources Recordings Timers Media ");
  const char* const menus[] = {"guide", "channels", "favourites", "sources", "recordings", "timers"};
  for (std::size_t i = 0; i < std::size(menus); ++i) {
    expect_done(run({"menu", "main"}));
    for (std::size_t down = 0; down < i; ++down) press("DOWN");
    press("ENTER");
    EXPECT_EQ(open_menu(), menus[i]);
  }
}

TEST_F(TvMenus, ArrowsMoveAndWrapAroundAndEnterTunes) {
  press("ENTER");
  EXPECT_EQ(names(), "One Two Three Radio Nowhere Far ");
  EXPECT_EQ(chosen(), "One");
  EXPECT_TRUE(has_mark(chosen_row(), "current"));
  press("UP");
  EXPECT_EQ(chosen(), "Far");
  press_all({"DOWN", "DOWN", "DOWN"});
  EXPECT_EQ(chosen(), "Three");
  press("CH-");
  EXPECT_EQ(chosen(), "Far");
  press("CH+");
  EXPECT_EQ(chosen(), "One");
  EXPECT_EQ(place(), "1 TV");
  press_all({"DOWN", "ENTER"});
  EXPECT_EQ(place(), "2 TV");
  EXPECT_EQ(open_menu(), "");
}

TEST_F(TvMenus, AnotherKeyClosesTheMenuAndWorks) {
  press_all({"ENTER", "4"});
  EXPECT_EQ(open_menu(), "");
  EXPECT_EQ(text_in(screen(), "typed"), "4");
  press("ENTER");
  EXPECT_EQ(place(), "4 TV");
  press_all({"GUIDE", "PRE-CH"});
  EXPECT_EQ(open_menu(), "");
  EXPECT_EQ(place(), "1 TV");
  press_all({"GUIDE", "VOL+", "MUTE"});  // the menu stays
  EXPECT_EQ(open_menu(), "guide");
}

TEST_F(TvMenus, AMenuClosesWithoutKeys) {
  press("ENTER");
  dtv_tv_advance(59'000);
  EXPECT_EQ(open_menu(), "channels");
  press("DOWN");  // begins the time again
  dtv_tv_advance(59'999);
  EXPECT_EQ(open_menu(), "channels");
  dtv_tv_advance(1);
  EXPECT_EQ(open_menu(), "");
  press("GUIDE");
  dtv_tv_advance(299'999);
  EXPECT_EQ(open_menu(), "guide");
  dtv_tv_advance(1);
  EXPECT_EQ(open_menu(), "");
  press("DOWN");
  EXPECT_EQ(message(), "not_available DOWN");
}

TEST_F(TvMenus, AMenuClosesInStandbyAndWithAnotherSource) {
  press("GUIDE");
  standby();
  EXPECT_EQ(open_menu(), "");
  press("GUIDE");  // only wakes the set
  EXPECT_EQ(power(), "on");
  EXPECT_EQ(open_menu(), "");
  press("GUIDE");
  expect_done(run({"source", "HDMI 2"}));
  EXPECT_EQ(open_menu(), "");
  expect_done(run({"source", "TV"}));
  EXPECT_EQ(open_menu(), "");
  press("GUIDE");
  restart();
  EXPECT_EQ(open_menu(), "");
  press("GUIDE");
  expect_done(run({"reset"}));
  EXPECT_EQ(open_menu(), "");
}

TEST_F(TvMenus, SourceStepsOnAndShowsTheList) {
  press("SOURCE");
  EXPECT_EQ(open_menu(), "sources");
  EXPECT_EQ(chosen(), "HDMI 1");
  EXPECT_TRUE(has_mark(chosen_row(), "current"));
  press("SOURCE");
  EXPECT_EQ(open_menu(), "sources");
  EXPECT_EQ(place(), "1 HDMI 2");
  press("DOWN");
  EXPECT_EQ(chosen(), "HDMI 3");
  EXPECT_TRUE(has_mark(chosen_row(), "empty"));
  press("ENTER");
  EXPECT_EQ(place(), "1 HDMI 3");
  EXPECT_EQ(open_menu(), "");
  expect_done(run({"source", "TV", "block"}));
  expect_done(run({"menu", "sources"}));
  press_all({"UP", "UP", "UP", "UP"});
  EXPECT_EQ(chosen(), "TV");
  press("ENTER");
  EXPECT_EQ(message(), "refused TV is blocked");
  EXPECT_EQ(open_menu(), "sources");
  press("ENTER");
  EXPECT_EQ(place(), "1 HDMI 3");
  dtv_tv_advance(15'000);
  EXPECT_EQ(open_menu(), "");
}

TEST_F(TvMenus, FavouritesAreAddedAndRemoved) {
  press("ADD/ERASE");
  EXPECT_EQ(message(), "favourite One");
  press_all({"ENTER", "DOWN", "DOWN", "GREEN"});
  EXPECT_EQ(message(), "favourite Three");
  EXPECT_TRUE(has_mark(chosen_row(), "favourite"));
  press("FAVORITE");
  EXPECT_EQ(names(), "One Three ");
  press("DOWN");
  EXPECT_EQ(chosen(), "Three");
  press("ADD/ERASE");  // in the list
  EXPECT_EQ(message(), "no_favourite Three");
  EXPECT_EQ(names(), "One ");
  EXPECT_EQ(chosen(), "One");
  press("GREEN");
  EXPECT_EQ(number_in(menu(), "total"), 0);
  EXPECT_FALSE(menu().contains("selected"));
  press("ENTER");
  EXPECT_EQ(message(), "refused the list is empty");
  press_all({"UP", "DOWN", "CH+", "GREEN"});
  EXPECT_EQ(place(), "1 TV");
}

TEST_F(TvMenus, AChangeThatIsNotSavedIsReported) {
  press_all({"ENTER", "DOWN"});
  move_folder_away(true);
  expect_words(run({"key", "ENTER"}), {"error", "could not be saved"});
  EXPECT_EQ(place(), "1 TV");
  EXPECT_EQ(open_menu(), "channels");
  move_folder_away(false);
  press("ENTER");
  EXPECT_EQ(place(), "2 TV");
}

// ---- The guide ----

struct TvGuideMenu : TvMenus {
  std::int64_t begin = now() - now() % 1800;  // of the shown hours
  TvGuideMenu() {
    import_guide({{"One", begin, begin + 3600, "News"},
                  {"One", begin + 3600, begin + 7200, "Film"},
                  {"One", begin + 7200, begin + 9000, "Sport"},
                  {"Two", begin, begin + 1800, "Quiz"},
                  {"Two", begin + 1800, begin + 7200, "Opera"},
                  {"One", begin + 86400, begin + 90000, "Tomorrow"}});
    press("GUIDE");
  }
};

TEST_F(TvGuideMenu, ShowsChannelsAndTheirEvents) {
  const object shown = menu();
  EXPECT_EQ(shown.at("columns").as_array().size(), 4u);
  EXPECT_EQ(shown.at("columns").at(0).as_string(), reply_time(begin));
  EXPECT_EQ(shown.at("total"), 6);
  EXPECT_EQ(shown.at("rows").at(0).at("events").as_array().size(), 2u);
  EXPECT_EQ(text_in(shown.at("rows").at(0).at("events").at(1), "title"), "Film");
  EXPECT_EQ(shown.at("selected").at("row"), 0);
  EXPECT_EQ(shown.at("selected").at("column"), 0);
  EXPECT_EQ(chosen_event(), "News");
  EXPECT_EQ(text_in(shown.at("actions"), "RED"), "record");
  EXPECT_EQ(text_in(shown.at("actions"), "EXIT"), "close");
}

TEST_F(TvGuideMenu, ArrowsMoveByEventAndByChannel) {
  press("RIGHT");
  EXPECT_EQ(chosen_event(), "Film");
  press("DOWN");
  EXPECT_EQ(chosen_event(), "Opera");  // at the same time
  press("LEFT");
  EXPECT_EQ(chosen_event(), "Quiz");
  press_all({"LEFT", "LEFT"});  // nothing is before the present
  EXPECT_EQ(chosen_event(), "Quiz");
  press_all({"UP", "RIGHT", "RIGHT"});
  EXPECT_EQ(chosen_event(), "Sport");
  EXPECT_EQ(menu().at("columns").at(0).as_string(), reply_time(begin + 7200));
  press("RIGHT");  // nothing is known of the time after it
  EXPECT_EQ(chosen_event(), "");
  EXPECT_FALSE(menu().at("selected").as_object().contains("column"));
  press("LEFT");
  EXPECT_EQ(chosen_event(), "Sport");
}

TEST_F(TvGuideMenu, YellowGoesADayOnAndBackAfterAWeek) {
  press("YELLOW");
  EXPECT_EQ(chosen_event(), "Tomorrow");
  for (int i = 0; i < 6; ++i) press("YELLOW");
  EXPECT_GT(menu().at("time").as_string(), reply_time(now() + 6 * 86400));
  press("YELLOW");
  EXPECT_EQ(chosen_event(), "News");
  for (int i = 0; i < 400; ++i) press("RIGHT");
  EXPECT_LE(menu().at("time").as_string(), reply_time(now() + 7 * 86400));
}

TEST_F(TvGuideMenu, EnterTunesTheChannel) {
  press_all({"DOWN", "DOWN", "ENTER"});
  EXPECT_EQ(place(), "3 TV");
  EXPECT_EQ(open_menu(), "");
}

TEST_F(TvGuideMenu, RedPlansARecordingAndGreenAReminder) {
  press_all({"RIGHT", "RED"});
  EXPECT_EQ(message(), "will_record Film");
  ASSERT_EQ(listed_timers().size(), 1u);
  EXPECT_EQ(text_in(listed_timers()[0], "kind"), "record");
  EXPECT_EQ(text_in(listed_timers()[0], "title"), "Film");
  EXPECT_EQ(text_in(menu().at("event"), "mark"), "record");
  press("RED");
  EXPECT_EQ(message(), "not_recorded Film");
  EXPECT_EQ(listed_timers().size(), 0u);
  press("GREEN");
  EXPECT_EQ(message(), "reminder Film");
  EXPECT_EQ(text_in(listed_timers()[0], "kind"), "reminder");
  EXPECT_EQ(text_in(menu().at("event"), "mark"), "remind");
  press("GREEN");
  EXPECT_EQ(message(), "no_reminder Film");
  EXPECT_EQ(listed_timers().size(), 0u);
  press_all({"LEFT", "GREEN"});
  EXPECT_EQ(message(), "refused it has begun already");
  press_all({"DOWN", "DOWN", "RED"});  // the guide knows nothing of channel 3
  EXPECT_EQ(message(), "refused there is no event at this time");
  EXPECT_EQ(listed_timers().size(), 0u);
}

TEST_F(TvGuideMenu, BlueShowsDetailsAndExitReturns) {
  press_all({"RIGHT", "BLUE"});
  EXPECT_EQ(open_menu(), "details");
  EXPECT_EQ(chosen_event(), "Film");
  EXPECT_TRUE(menu().contains("text"));
  EXPECT_EQ(text_in(menu().at("actions"), "EXIT"), "back");
  press("EXIT");
  EXPECT_EQ(open_menu(), "guide");
  EXPECT_EQ(chosen_event(), "Film");
  press_all({"INFO", "GREEN", "INFO"});
  EXPECT_EQ(open_menu(), "guide");
  EXPECT_EQ(listed_timers().size(), 1u);
}

TEST_F(TvGuideMenu, ThePresentMovesOn) {
  dtv_tv_advance(3600'000);
  expect_done(run({"menu", "guide"}));
  EXPECT_EQ(chosen_event(), "Film");
  press("RIGHT");
  press("LEFT");
  EXPECT_EQ(chosen_event(), "Film");
  EXPECT_EQ(menu().at("columns").at(0).as_string(), reply_time(begin + 3600));
}

TEST_F(TvGuideMenu, ChannelsAndGuideMayVanishWhileItIsOpen) {
  expect_done(run({"guide", "clear"}));
  press_all({"RIGHT", "RED", "BLUE"});
  expect_done(run({"channels", "clear"}));
  EXPECT_EQ(open_menu(), "guide");
  EXPECT_EQ(number_in(menu(), "total"), 0);
  for (const char* const key : {"UP", "DOWN", "LEFT", "RIGHT", "RED", "GREEN", "YELLOW", "BLUE", "CH+", "CH-", "ENTER"})
    press(key);
  EXPECT_EQ(open_menu(), "guide");
}

// ---- Timers and recordings ----

TEST_F(TvGuideMenu, TimersAreDeleted) {
  press_all({"RIGHT", "GREEN", "DOWN", "GREEN", "TIMER"});
  EXPECT_EQ(open_menu(), "timers");
  EXPECT_EQ(number_in(menu(), "total"), 2);
  EXPECT_EQ(chosen(), "Opera");  // the earlier one
  EXPECT_TRUE(has_mark(chosen_row(), "remind"));
  press("ENTER");
  EXPECT_EQ(open_menu(), "guide");
  EXPECT_EQ(chosen_event(), "Opera");
  press_all({"TIMER", "RED"});
  EXPECT_EQ(message(), "deleted Opera");
  EXPECT_EQ(chosen(), "Film");
  press("RED");
  EXPECT_EQ(message(), "deleted Film");
  EXPECT_EQ(listed_timers().size(), 0u);
  press("RED");
  EXPECT_EQ(message(), "refused there are no timers");
  press("ENTER");
  EXPECT_EQ(open_menu(), "timers");
}

// ---- Keys without effect ----

TEST_F(TvMenus, AKeyWithoutEffectSaysSoForThreeSeconds) {
  EXPECT_EQ(text_in(reply_to({"key", "FREEZE"}).at("message"), "text"), "Not available: FREEZE");
  EXPECT_EQ(message(), "not_available FREEZE");
  dtv_tv_advance(2'999);
  EXPECT_EQ(message(), "not_available FREEZE");
  dtv_tv_advance(1);
  EXPECT_EQ(message(), "");
  press("FREEZE");
  press("VOL+");  // the next key takes the message away
  EXPECT_EQ(message(), "");
  press_all({"9", "9", "ENTER"});
  EXPECT_EQ(message(), "no_channel 99");
}

TEST_F(TvMenus, AnApplicationHasTheKeysThatTheSetDoesNotUse) {
  EXPECT_EQ(a_portal_start_ex(1), 0);
  for (const char* const key : {"UP", "RED", "GREEN", "YELLOW", "BLUE", "ENTER", "LEFT", "FF", "EXIT"}) {
    press(key);
    EXPECT_EQ(message(), "") << key;
    EXPECT_EQ(open_menu(), "") << key;
  }
  EXPECT_EQ(listed_recordings(), 0u);
  press("GUIDE");  // a menu over the application has the keys
  press("DOWN");
  EXPECT_EQ(chosen(), "Two");
  press_all({"EXIT", "3", "ENTER"});
  EXPECT_EQ(place(), "3 TV");
}

TEST_F(TvMenus, ApplicationsOfTheSetAreMenus) {
  const struct {
    INT32 number;
    const char* menu;
  } cases[] = {{1, "guide"}, {2, "channels"}, {3, "favourites"}, {5, "recordings"}, {6, "timers"}, {10, "sources"}};
  for (const auto& each : cases) {
    EXPECT_EQ(a_vextvapi_util_start_native_app(each.number), 0);
    EXPECT_EQ(open_menu(), each.menu);
    EXPECT_TRUE(reply_to({"state"}).as_object().contains("native_app")) << each.menu;
  }
  press("EXIT");
  EXPECT_FALSE(reply_to({"state"}).as_object().contains("native_app"));
  EXPECT_EQ(a_vextvapi_util_start_native_app(1), 0);
  dtv_tv_advance(300'000);
  EXPECT_FALSE(reply_to({"state"}).as_object().contains("native_app"));
  press("GUIDE");  // of the viewer, not of the application
  EXPECT_FALSE(reply_to({"state"}).as_object().contains("native_app"));
  EXPECT_EQ(a_vextvapi_util_start_native_app(17), 0);  // has no menu
  EXPECT_EQ(open_menu(), "");
  EXPECT_EQ(text_in(reply_to({"state"}), "native_app"), "USER_MANUAL");
}

// ---- The command ----

TEST_F(TvMenus, MenuCommand) {
  EXPECT_EQ(run({"menu"}), R"({"menu":null})");
  EXPECT_EQ(text_in(reply_to({"menu", "timers"}), "menu"), "timers");
  EXPECT_EQ(text_in(reply_to({"menu"}), "title"), "Timers");
  EXPECT_EQ(run({"menu", "close"}), R"({"menu":null})");
  expect_words(run({"menu", "details"}), {"error", "menu takes main, guide", "details"});
  expect_words(run({"menu", ""}), {"error"});
  standby();
  expect_words(run({"menu", "guide"}), {"error", "standby"});
  EXPECT_EQ(run({"menu"}), R"({"menu":null})");
}

// ---- Bounds ----

struct TvManyChannels : TunerSet {};

TEST_F(TvManyChannels, AListShowsSevenRowsAroundTheChosenOne) {
  std::string content;
  for (int i = 1; i <= 2000; ++i) {
    const std::string name = "Channel " + std::to_string(i);
    content += channel_lines({name.c_str(), i, 10, i}, "DVBT");
  }
  import("air.conf", content);
  for (const char* const name : {"channels", "guide"}) {
    const object shown = reply_to({"menu", name}).as_object();
    EXPECT_EQ(shown.at("total"), 2000);
    EXPECT_EQ(shown.at("rows").as_array().size(), 7u);
    EXPECT_LT(boost::json::serialize(shown).size(), 4000u);
  }
  press("UP");
  EXPECT_EQ(chosen(), "Channel 2000");
  EXPECT_EQ(number_in(menu(), "first"), 1993);
  press("CH+");
  EXPECT_EQ(chosen(), "Channel 1993");
  EXPECT_EQ(number_in(menu(), "first"), 1989);
}

TEST_F(TvMenus, LongTextsAreCutBetweenCharacters) {
  std::string title = "x";
  for (int i = 0; i < 90; ++i) title += "\u00e4";
  import_guide({{"One", now(), now() + 3600, title.c_str()}});
  press("GUIDE");
  EXPECT_EQ(chosen_event(), title.substr(0, 99));
}

TEST_F(TvMenus, ManyThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const char* const keys[] = {"GUIDE", "DOWN", "RIGHT", "MENU", "ENTER", "EXIT", "SOURCE", "BLUE", "FAVORITE"};
      for (int i = 0; i < 40; ++i) {
        tv_control(R"(["key",")" + std::string(keys[static_cast<std::size_t>(i * (t + 1)) % std::size(keys)]) +
                   R"("])");
        tv_control(R"(["screen"])");
        a_vextvapi_util_start_native_app(1 + i % 17);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  expect_done(run({"menu", "close"}));
  EXPECT_EQ(open_menu(), "");
}

// ---- With an antenna ----

struct TvMenusReceiving : ReceivingSet {};

TEST_F(TvMenusReceiving, RedRecordsTheRunningEventAtOnce) {
  import_guide({{"One", now() - 600, now() + 1200, "News"}});
  press("RED");
  EXPECT_EQ(message(), "records News");
  ASSERT_EQ(listed_recordings(), 1u);
  EXPECT_EQ(text_in(newest_recording(), "status"), "recording");
  press("RED");
  EXPECT_EQ(message(), "refused One is being recorded already");
  press("GUIDE");
  EXPECT_EQ(text_in(menu().at("event"), "mark"), "recording");
  press_all({"EXIT", "ENTER"});
  EXPECT_TRUE(has_mark(chosen_row(), "recording"));
  expect_done(run({"menu", "recordings"}));
  EXPECT_EQ(chosen(), "News");
  EXPECT_TRUE(has_mark(chosen_row(), "recording"));
  grows_to(1);
  press("RED");
  EXPECT_EQ(message(), "not_recorded News");
  EXPECT_EQ(text_in(newest_recording(), "status"), "partial");
  press("RED");
  EXPECT_EQ(message(), "press_red News");
  dtv_tv_advance(10'000);  // the question is over
  press("RED");
  EXPECT_EQ(message(), "press_red News");
  press_all({"DOWN", "RED"});  // so it is after another key
  EXPECT_EQ(message(), "press_red News");
  press("RED");
  EXPECT_EQ(message(), "deleted News");
  EXPECT_EQ(listed_recordings(), 0u);
}

TEST_F(TvMenusReceiving, RedInTheGuideRecordsARunningEvent) {
  import_guide({{"Two", now() - 600, now() + 1200, "Quiz"}});
  press_all({"GUIDE", "DOWN", "RED"});
  EXPECT_EQ(message(), "will_record Quiz");
  dtv_tv_advance(1'000);
  EXPECT_TRUE(comes_true([] { return listed_recordings() == 1; }));
  EXPECT_EQ(text_in(menu().at("event"), "mark"), "recording");
}

TEST_F(TvMenusReceiving, RedSaysWhyItRecordsNothing) {
  press_all({"4", "2", "ENTER"});
  std::filesystem::remove(air + "/30.ts");
  expect_done(antenna(air));
  EXPECT_EQ(read_antenna().find("30.ts"), std::string::npos);
  press("RED");
  EXPECT_EQ(message().substr(0, 8), "refused ");
  EXPECT_EQ(listed_recordings(), 0u);
  press_all({"SOURCE", "EXIT", "RED"});
  EXPECT_EQ(message(), "not_available RED");
}

}  // namespace
