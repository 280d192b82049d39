// The clock: zones, daylight saving, dates, setting the time; the sleep timer.
#include <atomic>
#include <chrono>
#include <climits>
#include <ctime>
#include <thread>

#include "tests/unit/tv/support.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr INT64 kSummerStarts = 1774746000;  // 2026-03-29 01:00 UTC, in Berlin 2:00, then 3:00
constexpr INT64 kSummerEnds = 1792890000;    // 2026-10-25 01:00 UTC, in Berlin 3:00, then 2:00
constexpr INT64 kLast = 253402300799;        // 9999-12-31 23:59:59 UTC

struct TvClock : testing::Test {
  TvFolder folder;
  TvClock() { EXPECT_EQ(tv_start(folder.path), ""); }
};

// A set whose timers use the manual clock.
struct TvSleep : testing::Test {
  ManualClock manual;
  TvFolder folder;
  TvSleep() { EXPECT_EQ(tv_start(folder.path), ""); }
};

// A set whose timers use the machine's clock.
template <typename Condition>
void wait_until(Condition is_so) {
  for (const auto begin = steady_clock::now(); !is_so() && steady_clock::now() - begin < seconds(20);)
    std::this_thread::sleep_for(milliseconds(5));
}

void choose(const std::string& zone) { EXPECT_EQ(a_vextvapi_config_set_str_value("g_time__tz_name", zone.c_str()), 0); }

INT64 local(INT64 utc) {
  INT64 answer = -1;
  EXPECT_EQ(a_vextvapi_time_convert_utc_to_local_time(utc, &answer), 0);
  return answer;
}

VEXTVAPI_TIME_DTG_T date(UINT16 year, UINT8 month, UINT8 day, UINT8 hour, UINT8 minute, UINT8 second = 0) {
  VEXTVAPI_TIME_DTG_T dtg{};
  dtg.ui2_yr = year;
  dtg.ui1_mo = month;
  dtg.ui1_day = day;
  dtg.ui1_hr = hour;
  dtg.ui1_min = minute;
  dtg.ui1_sec = second;
  return dtg;
}

INT64 millis(const VEXTVAPI_TIME_DTG_T& dtg) {
  INT64 answer = -1;
  EXPECT_EQ(a_vextvapi_time_convert_local_time_to_millis(&dtg, &answer), 0);
  return answer;
}

// "2026-03-29 03:00:00 0 GMT0 DST1", 0 being Sunday
std::string from_millis(INT64 number) {
  VEXTVAPI_TIME_DTG_T dtg{};
  EXPECT_EQ(a_vextvapi_time_convert_millis_to_local_time(number, &dtg), 0);
  char text[80];
  std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d %d GMT%d DST%d", dtg.ui2_yr, dtg.ui1_mo, dtg.ui1_day,
                dtg.ui1_hr, dtg.ui1_min, dtg.ui1_sec, dtg.ui1_dow, dtg.b_gmt, dtg.b_dst);
  return text;
}

TEST_F(TvClock, NewSetHasTheMachinesTimeAndBerlinsZone) {
  EXPECT_NEAR(static_cast<double>(a_vextvapi_time_get_utc_time()), static_cast<double>(std::time(nullptr)), 2);
  EXPECT_NEAR(static_cast<double>(a_vextvapi_time_get_broadcast_time()), static_cast<double>(std::time(nullptr)), 2);
  EXPECT_EQ(a_vextvapi_time_get_time_zone(), 3600);
  const INT64 offset = a_vextvapi_time_get_time_offset();
  EXPECT_TRUE(offset == 3600 || offset == 7200) << offset;
}

TEST_F(TvClock, LocalTimeFollowsDaylightSaving) {
  EXPECT_EQ(local(0), 3600);  // no summer time in 1970
  EXPECT_EQ(local(kSummerStarts - 1), kSummerStarts - 1 + 3600);
  EXPECT_EQ(local(kSummerStarts), kSummerStarts + 7200);
  EXPECT_EQ(local(kSummerEnds - 1), kSummerEnds - 1 + 7200);
  EXPECT_EQ(local(kSummerEnds), kSummerEnds + 3600);
  EXPECT_EQ(local(2130062400), 2130062400 + 7200);  // July 2037
  EXPECT_EQ(local(2540289600), 2540289600 + 7200);  // July 2050: by the zone's rule, beyond its table
  EXPECT_EQ(local(kLast), kLast + 3600);
}

TEST_F(TvClock, ZonesOfTheWorld) {
  const struct {
    const char* zone;
    INT64 utc;
    INT64 offset;
    INT64 standard;
  } cases[] = {
      {"UTC", 1783166400, 0, 0},
      {"Europe/London", 1783166400, 3600, 0},  // 2026-07-04
      {"Europe/London", 1794744000, 0, 0},     // 2026-11-15
      {"Europe/Berlin", 1783166400, 7200, 3600},
      {"Europe/Berlin", 1794744000, 3600, 3600},
      {"Europe/Dublin", 1783166400, 3600, 0},  // standard time; winter time is an hour behind it
      {"Europe/Dublin", 1794744000, 0, 0},
      {"Europe/Dublin", 1774745999, 0, 0},  // the last second of winter
      {"Europe/Dublin", 1774746000, 3600, 0},
      {"America/New_York", 1783166400, -4 * 3600, -5 * 3600},
      {"America/New_York", 1768478400, -5 * 3600, -5 * 3600},  // 2026-01-15
      {"Asia/Kolkata", 1783166400, 19800, 19800},
      {"Australia/Sydney", 1768478400, 11 * 3600, 10 * 3600},
      {"Australia/Lord_Howe", 1768478400, 11 * 3600, 37800},  // half an hour of daylight saving
      {"Asia/Kathmandu", 1768478400, 20700, 20700},
      {"Europe/Istanbul", 1783166400, 3 * 3600, 3 * 3600},
      {"Europe/Istanbul", 1484481600, 3 * 3600, 3 * 3600},  // 2017-01-15: stayed at summer time, which is standard now
      {"Etc/GMT+5", 1783166400, -5 * 3600, -5 * 3600},
  };
  for (const auto& each : cases) {
    choose(each.zone);
    EXPECT_EQ(local(each.utc), each.utc + each.offset) << each.zone;
    EXPECT_EQ(a_vextvapi_time_set_utc_time(each.utc), 0);
    EXPECT_EQ(a_vextvapi_time_get_time_offset(), each.offset) << each.zone;
    EXPECT_EQ(a_vextvapi_time_get_time_zone(), each.standard) << each.zone;
    const std::string summer = each.offset > each.standard ? "true" : "false";
    expect_words(tv_control(R"(["clock"])"), {R"("summer":)" + summer});
    const std::string flag = each.offset > each.standard ? "DST1" : "DST0";
    EXPECT_TRUE(from_millis(each.utc * 1000).ends_with(flag)) << each.zone << ": " << from_millis(each.utc * 1000);
  }
}

TEST_F(TvClock, SummerTimeCanBeAlwaysOnOrOff) {
  EXPECT_EQ(a_vextvapi_time_set_utc_time(1783166400), 0);
  const VEXTVAPI_TIME_DTG_T noon = date(2026, 7, 4, 12, 0);
  EXPECT_EQ(a_vextvapi_config_set_value(-1, "g_time__dst", 0, 0), 0);
  EXPECT_EQ(local(1783166400), 1783166400 + 3600);
  EXPECT_EQ(a_vextvapi_time_get_time_zone(), 3600);
  EXPECT_EQ(millis(noon), 1783162800000);  // 11:00 UTC
  EXPECT_EQ(from_millis(1783162800000), "2026-07-04 12:00:00 6 GMT0 DST0");
  EXPECT_EQ(a_vextvapi_config_set_value(-1, "g_time__dst", 1, 0), 0);
  EXPECT_EQ(local(1768478400), 1768478400 + 7200);  // in January
  EXPECT_EQ(a_vextvapi_time_get_time_zone(), 3600);
  EXPECT_EQ(a_vextvapi_time_get_time_offset(), 7200);
  EXPECT_EQ(millis(noon), 1783159200000);
  EXPECT_EQ(from_millis(1768478400000), "2026-01-15 14:00:00 4 GMT0 DST1");
}

TEST_F(TvClock, AnUnknownZoneIsReportedAndUtcIsUsed) {
  for (const char* zone : {"Mars/Olympus", "", "/etc/localtime", "../etc/passwd", "file:Europe/Berlin", "tzdata.zi"}) {
    choose(zone);
    testing::internal::CaptureStderr();
    EXPECT_EQ(local(kSummerStarts), kSummerStarts) << zone;
    EXPECT_EQ(a_vextvapi_time_get_time_zone(), 0) << zone;
    expect_words(testing::internal::GetCapturedStderr(), {std::string("\"") + zone + '"', "UTC"});
  }
}

TEST_F(TvClock, ConvertsMillisToDates) {
  EXPECT_EQ(from_millis(0), "1970-01-01 01:00:00 4 GMT0 DST0");
  EXPECT_EQ(from_millis(999), "1970-01-01 01:00:00 4 GMT0 DST0");
  EXPECT_EQ(from_millis(kSummerStarts * 1000 - 1), "2026-03-29 01:59:59 0 GMT0 DST0");
  EXPECT_EQ(from_millis(kSummerStarts * 1000), "2026-03-29 03:00:00 0 GMT0 DST1");
  EXPECT_EQ(from_millis(kSummerEnds * 1000 - 1000), "2026-10-25 02:59:59 0 GMT0 DST1");
  EXPECT_EQ(from_millis(kSummerEnds * 1000), "2026-10-25 02:00:00 0 GMT0 DST0");
  EXPECT_EQ(from_millis(1709208000000), "2024-02-29 13:00:00 4 GMT0 DST0");
  EXPECT_EQ(from_millis(2130062400000), "2037-07-01 14:00:00 3 GMT0 DST1");
  EXPECT_EQ(from_millis(kLast * 1000 + 999), "10000-01-01 00:59:59 6 GMT0 DST0");
}

TEST_F(TvClock, ConvertsDatesToMillis) {
  EXPECT_EQ(millis(date(1970, 1, 1, 1, 0)), 0);
  EXPECT_EQ(millis(date(2026, 3, 29, 1, 59, 59)), kSummerStarts * 1000 - 1000);
  EXPECT_EQ(millis(date(2026, 3, 29, 3, 0)), kSummerStarts * 1000);
  EXPECT_EQ(millis(date(2024, 2, 29, 13, 0)), 1709208000000);
  EXPECT_EQ(millis(date(2000, 2, 29, 13, 0)), 951825600000);
  VEXTVAPI_TIME_DTG_T utc = date(2024, 2, 29, 12, 0);
  utc.b_gmt = 1;
  utc.b_dst = 1;    // ignored for UTC
  utc.ui1_dow = 9;  // ignored
  EXPECT_EQ(millis(utc), 1709208000000);
}

TEST_F(TvClock, ConvertsTimesAroundChangesOfTheClock) {
  // Skipped: half past two does not exist on that day. It is read as an hour later, in summer time.
  for (const INT32 summer : {0, 1}) {
    VEXTVAPI_TIME_DTG_T skipped = date(2026, 3, 29, 2, 30);
    skipped.b_dst = summer;
    EXPECT_EQ(millis(skipped), (kSummerStarts + 1800) * 1000) << summer;
  }
  EXPECT_EQ(from_millis((kSummerStarts + 1800) * 1000), "2026-03-29 03:30:00 0 GMT0 DST1");
  // Repeated: the first time is in summer time.
  VEXTVAPI_TIME_DTG_T twice = date(2026, 10, 25, 2, 30);
  twice.b_dst = 1;
  EXPECT_EQ(millis(twice), (kSummerEnds - 1800) * 1000);
  twice.b_dst = 0;
  EXPECT_EQ(millis(twice), (kSummerEnds + 1800) * 1000);
  // For a time that exists once, b_dst is ignored.
  VEXTVAPI_TIME_DTG_T once = date(2026, 7, 4, 14, 0);
  EXPECT_EQ(millis(once), 1783166400000);
  once.b_dst = 1;
  EXPECT_EQ(millis(once), 1783166400000);
  // West of Greenwich.
  choose("America/New_York");
  VEXTVAPI_TIME_DTG_T west = date(2026, 11, 1, 1, 30);
  EXPECT_EQ(millis(west), 1793514600000);
  west.b_dst = 1;
  EXPECT_EQ(millis(west), 1793511000000);
  // Repeated because the zone's standard time changed, so b_dst cannot choose: the first one.
  choose("Europe/Moscow");
  for (const INT32 summer : {0, 1}) {
    VEXTVAPI_TIME_DTG_T moved = date(2014, 10, 26, 1, 30);
    moved.b_dst = summer;
    EXPECT_EQ(millis(moved), 1414272600000) << summer;
  }
}

TEST_F(TvClock, EveryHourOfFourYearsConvertsThereAndBack) {
  for (const char* zone : {"Europe/Berlin", "Europe/Dublin"}) {
    choose(zone);
    for (INT64 utc = 1704067200; utc < 1830297600; utc += 3600) {  // 2024 to 2027
      VEXTVAPI_TIME_DTG_T dtg{};
      ASSERT_EQ(a_vextvapi_time_convert_millis_to_local_time(utc * 1000, &dtg), 0);
      INT64 back = -1;
      ASSERT_EQ(a_vextvapi_time_convert_local_time_to_millis(&dtg, &back), 0);
      ASSERT_EQ(back, utc * 1000) << from_millis(utc * 1000);
    }
  }
}

TEST_F(TvClock, RefusesDatesThatDoNotExist) {
  const VEXTVAPI_TIME_DTG_T wrong[] = {
      date(2023, 2, 29, 0, 0),     date(2100, 2, 29, 0, 0),
      date(2026, 0, 1, 0, 0),      date(2026, 13, 1, 0, 0),
      date(2026, 1, 0, 0, 0),      date(2026, 4, 31, 0, 0),
      date(2026, 1, 32, 0, 0),     date(2026, 1, 1, 24, 0),
      date(2026, 1, 1, 0, 60),     date(1969, 6, 1, 0, 0),
      date(2026, 1, 1, 0, 0, 60),  date(10000, 1, 1, 1, 0),
      date(0, 0, 0, 0, 0),         date(0, 1, 1, 0, 0),
      date(65535, 12, 31, 23, 59), date(2026, 255, 255, 255, 255, 255),
  };
  for (const VEXTVAPI_TIME_DTG_T& each : wrong) {
    INT64 untouched = 77;
    const std::string log = refusal([&] { return a_vextvapi_time_convert_local_time_to_millis(&each, &untouched); });
    expect_words(log, {"a_vextvapi_time_convert_local_time_to_millis", std::to_string(each.ui2_yr)});
    EXPECT_EQ(untouched, 77);
  }
}

TEST_F(TvClock, RefusesTimesOutOfRangeAndNullPointers) {
  const INT64 now = a_vextvapi_time_get_utc_time();
  for (const INT64 time : {INT64{-1}, INT64_MIN, kLast + 1, INT64_MAX}) {
    INT64 untouched = 77;
    expect_words(refusal([&] { return a_vextvapi_time_convert_utc_to_local_time(time, &untouched); }),
                 {std::to_string(time)});
    EXPECT_EQ(untouched, 77);
    expect_words(refusal([&] { return a_vextvapi_time_set_utc_time(time); }), {std::to_string(time)});
  }
  for (const INT64 time : {INT64{-1}, INT64_MIN, kLast * 1000 + 1000, INT64_MAX}) {
    VEXTVAPI_TIME_DTG_T untouched = date(7, 7, 7, 7, 7);
    refusal([&] { return a_vextvapi_time_convert_millis_to_local_time(time, &untouched); });
    EXPECT_EQ(untouched.ui2_yr, 7);
  }
  const VEXTVAPI_TIME_DTG_T dtg = date(2026, 1, 1, 1, 1);
  INT64 number = 0;
  EXPECT_LT(a_vextvapi_time_convert_utc_to_local_time(0, nullptr), 0);
  EXPECT_LT(a_vextvapi_time_convert_local_time_to_millis(nullptr, &number), 0);
  EXPECT_LT(a_vextvapi_time_convert_local_time_to_millis(&dtg, nullptr), 0);
  EXPECT_LT(a_vextvapi_time_convert_millis_to_local_time(0, nullptr), 0);
  EXPECT_LT(a_vextvapi_time_get_sleep_timer_remaining_time(nullptr), 0);
  EXPECT_LE(a_vextvapi_time_get_utc_time() - now, 5);
}

TEST_F(TvClock, ASetClockRunsOnAndSurvivesARestart) {
  EXPECT_EQ(a_vextvapi_time_set_utc_time(kSummerStarts - 1), 0);
  wait_until([] { return a_vextvapi_time_get_utc_time() >= kSummerStarts; });
  const INT64 later = a_vextvapi_time_get_utc_time();
  EXPECT_GE(later, kSummerStarts);
  EXPECT_LE(later, kSummerStarts + 10);
  EXPECT_EQ(a_vextvapi_time_get_time_offset(), 7200);
  EXPECT_NEAR(static_cast<double>(a_vextvapi_time_get_broadcast_time()), static_cast<double>(later), 2);
  dtv_tv_stop();
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_GE(a_vextvapi_time_get_utc_time(), later);
  EXPECT_LE(a_vextvapi_time_get_utc_time(), later + 10);
  tv_control(R"(["reset"])");
  EXPECT_NEAR(static_cast<double>(a_vextvapi_time_get_utc_time()), static_cast<double>(std::time(nullptr)), 2);
}

TEST_F(TvClock, TheLastSecondOfTheRange) {
  EXPECT_EQ(a_vextvapi_time_set_utc_time(kLast), 0);
  EXPECT_GE(a_vextvapi_time_get_utc_time(), kLast);
  EXPECT_EQ(a_vextvapi_time_set_utc_time(0), 0);
  EXPECT_LE(a_vextvapi_time_get_utc_time(), 5);
}

// ---- The sleep timer ----

INT32 remaining() {
  INT32 left = -1;
  EXPECT_EQ(a_vextvapi_time_get_sleep_timer_remaining_time(&left), 0);
  return left;
}

bool in_standby() { return tv_control(R"(["state"])").find(R"("power":"standby")") != std::string::npos; }

// In real time. The set uses no processor time, whether or not a timer is set.
TEST_F(TvClock, SleepTimerPutsTheSetInStandby) {
  const auto takes_none = [] {
    const std::clock_t before = std::clock();
    std::this_thread::sleep_for(milliseconds(600));
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 5);
  };
  EXPECT_EQ(remaining(), 0);
  const auto start = steady_clock::now();
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(1), 0);
  EXPECT_EQ(remaining(), 1);
  EXPECT_FALSE(in_standby());
  takes_none();
  wait_until(in_standby);
  EXPECT_GE(steady_clock::now() - start, seconds(1));
  EXPECT_TRUE(in_standby());
  EXPECT_EQ(remaining(), 0);
  takes_none();
  tv_control(R"(["power","on"])");
  EXPECT_FALSE(in_standby());
}

TEST_F(TvSleep, SleepTimerEndsAtTheExactMillisecond) {
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(7200), 0);
  dtv_tv_advance(7'199'999);
  EXPECT_FALSE(in_standby());
  EXPECT_EQ(remaining(), 1) << "rounded up to whole seconds";
  dtv_tv_advance(1);
  EXPECT_TRUE(in_standby());
  EXPECT_EQ(remaining(), 0);
}

TEST_F(TvSleep, SleepTimerCountsDownAndIsReplaced) {
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(1), 0);
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(100), 0);
  EXPECT_EQ(remaining(), 100);
  EXPECT_EQ(a_vextvapi_time_set_utc_time(0), 0);  // a change of the time of day has no effect
  dtv_tv_advance(2'000);
  EXPECT_EQ(remaining(), 98);
  EXPECT_FALSE(in_standby());
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(0), 0);
  EXPECT_EQ(remaining(), 0);
  dtv_tv_advance(100'000);
  EXPECT_FALSE(in_standby());
}

// The sleep timer is set again and ends while other threads advance the clock and the set is switched off and on.
TEST_F(TvSleep, ManyThreadsAdvanceTheClock) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) {
        if (t == 0) a_vextvapi_time_set_sleep_timer(i % 3);
        if (t == 1) tv_control(R"(["power","on"])");
        dtv_tv_advance(500);
      }
    });
  }
  dtv_tv_stop();
  EXPECT_EQ(tv_start(folder.path), "");
  for (std::thread& thread : threads) thread.join();
  tv_control(R"(["power","on"])");
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(10), 0);
  dtv_tv_advance(10'000);
  EXPECT_TRUE(in_standby());
}

TEST_F(TvClock, WithoutAManualClockAdvanceDoesNothing) {
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(100), 0);
  dtv_tv_advance(100'000);
  EXPECT_FALSE(in_standby());
  EXPECT_GE(remaining(), 50);
}

TEST_F(TvClock, SwitchingOffAndStandbyStopTheSleepTimer) {
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(86400), 0);
  EXPECT_EQ(remaining(), 86400);
  tv_control(R"(["power","standby"])");
  EXPECT_EQ(remaining(), 0);
  tv_control(R"(["power","on"])");
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(60), 0);
  dtv_tv_stop();
  expect_words(refusal([] { return a_vextvapi_time_set_sleep_timer(60); }), {"off"});
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(remaining(), 0);
}

TEST_F(TvClock, SleepTimerRefusesDurationsOutOfRange) {
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(500), 0);
  for (const INT32 wrong : {-1, INT32_MIN, 86401, INT32_MAX}) {
    expect_words(refusal([&] { return a_vextvapi_time_set_sleep_timer(wrong); }), {std::to_string(wrong), "86400"});
    EXPECT_GE(remaining(), 490);
  }
}

// ---- The command ----

TEST_F(TvClock, Command) {
  const std::string set = tv_control(R"(["clock","set","2026-03-29T01:59:50"])");  // local
  expect_words(set, {R"("utc":"2026-03-29T00:59:5)", R"("local":"2026-03-29T01:59:5)", R"("zone":"Europe/Berlin")",
                     R"("offset_seconds":3600)", R"("summer":false)", R"("sleep_seconds":0)"});
  EXPECT_LE(a_vextvapi_time_get_utc_time() - kSummerStarts, 0);
  expect_words(tv_control(R"(["clock","set","2026-07-04T12:00:00Z"])"), {R"("local":"2026-07-04T14:00:0)"});
  expect_words(tv_control(R"(["clock","set","2026-07-04T12:00:00-05:00"])"), {R"("utc":"2026-07-04T17:00:0)"});
  expect_words(tv_control(R"(["clock","zone","Asia/Kolkata"])"),
               {R"("utc":"2026-07-04T17:00:0)", R"("local":"2026-07-04T22:30:0)", R"("offset_seconds":19800)"});
  expect_words(tv_control(R"(["clock","sleep","900"])"), {R"("sleep_seconds":900)"});
  expect_words(tv_control(R"(["state"])"), {R"("sleep_seconds":)"});
  expect_words(tv_control(R"(["clock","sleep","0"])"), {R"("sleep_seconds":0)"});
  EXPECT_EQ(tv_control(R"(["state"])").find("sleep"), std::string::npos);
  tv_control(R"(["clock","set","machine"])");
  EXPECT_NEAR(static_cast<double>(a_vextvapi_time_get_utc_time()), static_cast<double>(std::time(nullptr)), 2);
  expect_words(tv_control(R"(["clock"])"), {R"("zone":"Asia/Kolkata")"});
  dtv_tv_stop();
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_time_get_time_zone(), 19800);
}

TEST_F(TvClock, ErrorsOfBadCommandsNameWhatIsAllowed) {
  const struct {
    const char* command;
    std::vector<std::string> says;
  } cases[] = {
      {R"(["clock","dance"])", {"set TIME", "zone NAME", "sleep SECONDS"}},
      {R"(["clock","set"])", {"set TIME"}},
      {R"(["clock","set","tomorrow"])", {"tomorrow", "2026-03-29T12:30:00"}},
      {R"(["clock","set","2026-02-30T00:00:00"])", {"2026-02-30"}},
      {R"(["clock","set","1969-12-31T00:00:00Z"])", {"1970"}},
      {R"(["clock","set","10000-01-01T00:00:00Z"])", {"9999"}},
      {R"(["clock","set","infinite-future"])", {"9999"}},
      {R"(["clock","zone","Europe/Atlantis"])", {"Europe/Atlantis", "Europe/Berlin"}},
      {R"(["clock","zone","/usr/share/zoneinfo/UTC"])", {"no time zone"}},
      {R"(["clock","sleep","-1"])", {"-1", "86400"}},
      {R"(["clock","sleep","1h"])", {"1h"}},
      {R"(["clock","sleep","86401"])", {"86401"}},
  };
  for (const auto& each : cases) {
    const std::string answer = tv_control(each.command);
    EXPECT_EQ(answer.rfind(R"({"error":")", 0), 0u) << each.command << " gave " << answer;
    expect_words(answer, each.says);
  }
  EXPECT_EQ(a_vextvapi_time_get_time_zone(), 3600);
  EXPECT_EQ(remaining(), 0);
}

TEST_F(TvClock, ManyThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 50; ++i) {
        if (t == 0) choose(i % 2 == 0 ? "America/New_York" : "Asia/Kolkata");
        if (t == 1) a_vextvapi_time_set_sleep_timer(i % 3);
        if (t == 2) a_vextvapi_time_set_utc_time(kSummerStarts + i);
        const INT64 offset = local(kSummerStarts) - kSummerStarts;
        EXPECT_TRUE(offset == 7200 || offset == -4 * 3600 || offset == 19800) << offset;
        EXPECT_GE(remaining(), 0);
        EXPECT_GT(millis(date(2026, 7, 4, 12, 0)), 0);
        tv_control(R"(["clock"])");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(a_vextvapi_time_get_utc_time(), kSummerStarts);
}

// ---- The callback for changes of the time ----

std::atomic<int> time_changes = 0;

INT32 count_change(INT32 type, void* tag, UINT32 handle) {
  EXPECT_EQ(type, 0);
  EXPECT_EQ(tag, &time_changes);
  EXPECT_EQ(handle, 0u);
  ++time_changes;
  return 0;
}

// A set with a subscriber of changes of the time.
struct TvClockChanges : testing::Test {
  ManualClock manual;
  TvFolder folder;
  TvClockChanges() {
    EXPECT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(a_vextvapi_time_register_dt_event_callback(count_change, &time_changes), 0);
  }
  ~TvClockChanges() override { dtv_tv_stop(); }

  // How many changes were reported since the last call.
  static int reported() {
    dtv_tv_advance(0);
    return time_changes.exchange(0);
  }
};

TEST_F(TvClockChanges, ClockAndZoneAreReported) {
  EXPECT_EQ(a_vextvapi_time_set_utc_time(kSummerStarts), 0);
  EXPECT_EQ(reported(), 1);
  choose("Europe/London");
  EXPECT_EQ(reported(), 1);
  choose("Europe/London");
  EXPECT_EQ(reported(), 0) << "it was that zone already";
  EXPECT_EQ(a_vextvapi_config_set_value(-1, "g_time__dst", 0, 0), 0);
  EXPECT_EQ(reported(), 1);
  EXPECT_EQ(a_vextvapi_config_set_value(-1, "g_time__clock_format", 0, 0), 0);
  EXPECT_EQ(reported(), 0) << "local time does not depend on it";
}

TEST_F(TvClockChanges, RefusesANullCallback) {
  refusal([] { return a_vextvapi_time_register_dt_event_callback(nullptr, nullptr); });
  EXPECT_EQ(a_vextvapi_time_set_utc_time(kSummerStarts), 0);
  EXPECT_EQ(reported(), 1) << "the earlier callback stays";
}

}  // namespace
