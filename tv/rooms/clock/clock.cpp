// The clock and the sleep timer. The set's time is the machine's time plus an offset; setting the clock sets the
// offset.
//
// Units: milliseconds since 1970 if a function's name has "millis", else seconds, also for the sleep timer. Times range
// from 1970 to the end of 9999. Broadcast time always equals the set's time. Days of the week are numbered from 0,
// Sunday.
//
// The zone is a configuration value, a name in the tz database; an unknown name means UTC. Summer time follows the
// zone, or is always on or always off, as the configuration says. A local time that the change to summer time skips is
// read as winter time: 2:30 means 3:30. For a local time that occurs twice, b_dst chooses one.
#include "rooms/clock/clock.h"

#include <absl/strings/string_view.h>
#include <absl/time/civil_time.h>
#include <absl/time/time.h>

#include <algorithm>
#include <atomic>
#include <boost/json.hpp>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <optional>

#include "base/text.h"
#include "core/contract.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"
#include "core/timers.h"
#include "rooms/config/config.h"
#include "rooms/guide/guide.h"
#include "rooms/remote/remote.h"

namespace {

constexpr const char* kZoneKey = "g_time__tz_name";
constexpr const char* kSummerKey = "g_time__dst";
enum Summer : INT32 { kNoSummer = 0, kAlwaysSummer = 1 };  // any other value: follow the zone
constexpr INT64 kSummerSeconds = 3600;

constexpr INT64 kLastSecond = 253402300799;  // of 9999
constexpr INT64 kLastMilli = kLastSecond * 1000 + 999;

constexpr Setting kMoved{.key = "clock_moved_ms", .factory = 0, .minimum = -kLastMilli, .maximum = kLastMilli};

constexpr INT32 kLongestSleep = 24 * 60 * 60;  // in seconds
constexpr INT32 kSleepSteps[] = {900, 1800, 3600, 5400,
                                 7200};  // of the SLEEP key; after the last step the timer is off

std::atomic<INT64> moved = 0;  // milliseconds between the machine's clock and the set's; written under the lock

std::atomic<std::uint64_t> changes = 0;  // of the set's time

std::mutex lock;                    // guards the variables below
TimerTime sleep_end = kTimerNever;  // kTimerNever: the sleep timer is off
INT32 sleep_duration = 0;           // the duration that it was set to, in seconds
Timer sleep_timer;

// The subscriber of changes of the time. Its lock comes after the configuration's and the one above.
struct Subscriber {
  std::mutex lock;
  a_vextvapi_time_dt_nfy_fct callback = nullptr;
  void* tag = nullptr;
};
Subscriber& subscriber = *new Subscriber;

void post_change() {
  const std::lock_guard guard(subscriber.lock);
  if (subscriber.callback == nullptr) return;
  events_post([callback = subscriber.callback, tag = subscriber.tag] { callback(0, tag, 0); });
}

// ---- Time ----

INT64 now_seconds() { return (timer_utc_millis() + moved) / 1000; }

bool is_time(INT64 seconds) { return seconds >= 0 && seconds <= kLastSecond; }

std::string not_a_time(INT64 number) { return std::to_string(number) + " is not within 1970 to 9999"; }

// Sets the offset from the machine's time to the set's, in milliseconds.
INT32 move_clock(INT64 by) {
  const std::lock_guard guard(lock);
  const SettingValue value[] = {{kMoved.key, by}};
  if (!store_write(value)) return -1;
  moved = by;
  ++changes;
  post_change();
  guide_look_again();
  return 0;
}

INT32 set_clock(INT64 millis) { return move_clock(millis - timer_utc_millis()); }

// ---- The zone ----

// Accepts only names, since the library would also load files by their paths.
bool find_zone(std::string_view name, absl::TimeZone& ret_zone) {
  const auto of_a_name = [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '/' || c == '_' ||
           c == '-' || c == '+';
  };
  if (name.empty() || name.front() == '/' || !std::ranges::all_of(name, of_a_name)) return false;
  return absl::LoadTimeZone(absl::string_view(name.data(), name.size()), &ret_zone);
}

absl::TimeZone zone_of(const std::string& name) {
  absl::TimeZone zone = absl::UTCTimeZone();
  if (!find_zone(name, zone)) std::fprintf(stderr, "dtv_tv: there is no time zone \"%s\"; using UTC\n", name.c_str());
  return zone;
}

// Returns the zone's offset from UTC in winter. Daylight saving in the tz database can be negative: Dublin's standard
// time is used in summer, and its daylight saving of -1 hour in winter. So this returns the smaller of the latest
// offsets with and without daylight saving, if the year before had both.
INT64 standard_offset(const absl::TimeZone& zone, absl::Time time) {
  std::optional<int> latest[2];  // without daylight saving, with it
  for (int days = 0; days < 366; days += 30) {
    const absl::TimeZone::CivilInfo info = zone.At(time - absl::Hours(24 * days));
    std::optional<int>& offset = latest[info.is_dst ? 1 : 0];
    if (!offset) offset = info.offset;
  }
  return latest[0] && latest[1] ? std::min(*latest[0], *latest[1]) : zone.At(time).offset;
}

struct LocalClock {
  absl::TimeZone zone;
  bool always_summer;
};

LocalClock local_clock() {
  const absl::TimeZone zone = zone_of(config_text(kZoneKey));
  const INT32 summer = config_number(kSummerKey);
  if (summer != kNoSummer && summer != kAlwaysSummer) return {.zone = zone, .always_summer = false};
  const bool always = summer == kAlwaysSummer;
  const INT64 offset = standard_offset(zone, absl::FromUnixSeconds(now_seconds())) + (always ? kSummerSeconds : 0);
  return {.zone = absl::FixedTimeZone(static_cast<int>(offset)), .always_summer = always};
}

INT64 offset_at(const LocalClock& clock, INT64 seconds) { return clock.zone.At(absl::FromUnixSeconds(seconds)).offset; }

bool is_summer(const LocalClock& clock, absl::Time time) {
  return clock.always_summer || clock.zone.At(time).offset > standard_offset(clock.zone, time);
}

bool is_dtg(const VEXTVAPI_TIME_DTG_T& dtg) {
  if (dtg.ui1_mo < 1 || dtg.ui1_mo > 12 || dtg.ui1_hr > 23 || dtg.ui1_min > 59 || dtg.ui1_sec > 59) return false;
  return absl::CivilDay(dtg.ui2_yr, dtg.ui1_mo, dtg.ui1_day).day() ==
         dtg.ui1_day;  // CivilDay moves a day that does not exist to the next month
}

absl::Time time_of(const VEXTVAPI_TIME_DTG_T& dtg) {
  const absl::CivilSecond civil(dtg.ui2_yr, dtg.ui1_mo, dtg.ui1_day, dtg.ui1_hr, dtg.ui1_min, dtg.ui1_sec);
  if (dtg.b_gmt != 0) return absl::FromCivil(civil, absl::UTCTimeZone());
  const LocalClock clock = local_clock();
  const absl::TimeZone::TimeInfo info = clock.zone.At(civil);
  const bool later = info.kind == absl::TimeZone::TimeInfo::REPEATED &&
                     is_summer(clock, info.pre) != (dtg.b_dst != 0) && is_summer(clock, info.post) == (dtg.b_dst != 0);
  return later ? info.post : info.pre;
}

VEXTVAPI_TIME_DTG_T dtg_of(INT64 seconds) {
  const LocalClock clock = local_clock();
  const absl::Time time = absl::FromUnixSeconds(seconds);
  const absl::CivilSecond civil = clock.zone.At(time).cs;
  const int monday_first = static_cast<int>(absl::GetWeekday(civil));
  return {.ui2_yr = static_cast<UINT16>(civil.year()),
          .ui1_mo = static_cast<UINT8>(civil.month()),
          .ui1_day = static_cast<UINT8>(civil.day()),
          .ui1_dow = static_cast<UINT8>((monday_first + 1) % 7),
          .ui1_hr = static_cast<UINT8>(civil.hour()),
          .ui1_min = static_cast<UINT8>(civil.minute()),
          .ui1_sec = static_cast<UINT8>(civil.second()),
          .b_gmt = 0,
          .b_dst = is_summer(clock, time) ? 1 : 0};
}

// ---- The sleep timer ----

void sleep_is_over() {
  {
    const std::lock_guard guard(lock);
    if (timer_now() < sleep_end) return;  // the timer was set again meanwhile
    sleep_end = kTimerNever;
  }
  remote_standby();
}

// The caller holds the lock. 0 seconds: off. The timer is not cancelled; its action finds that nothing is due.
INT32 set_sleep(INT32 seconds) {
  const TimerTime end = seconds == 0 ? kTimerNever : timer_now() + std::chrono::seconds(seconds);
  if (seconds != 0 && !timer_set(sleep_timer, end, sleep_is_over)) return -1;
  sleep_end = end;
  sleep_duration = seconds;
  return 0;
}

// Rounds up to whole seconds, so that 0 means that the timer is off.
INT32 sleep_remaining() {
  const std::lock_guard guard(lock);
  if (sleep_end == kTimerNever) return 0;
  const auto left = std::chrono::ceil<std::chrono::seconds>(sleep_end - timer_now()).count();
  return static_cast<INT32>(std::max<INT64>(left, 1));
}

// ---- The control command ----

std::string shown(INT64 seconds, const absl::TimeZone& zone) {
  return absl::FormatTime("%Y-%m-%dT%H:%M:%S%Ez", absl::FromUnixSeconds(seconds), zone);
}

boost::json::object show() {
  const INT64 now = now_seconds();
  const LocalClock clock = local_clock();
  return {{"utc", shown(now, absl::UTCTimeZone())},
          {"local", shown(now, clock.zone)},
          {"zone", config_text(kZoneKey)},
          {"offset_seconds", offset_at(clock, now)},
          {"summer", is_summer(clock, absl::FromUnixSeconds(now))},
          {"sleep_seconds", sleep_remaining()}};
}

boost::json::object changed(INT32 result) { return result == 0 ? show() : reply_not_kept(); }

boost::json::object set_by_hand(std::string_view word) {
  if (word == "machine") return changed(move_clock(0));
  const absl::string_view text(word.data(), word.size());
  absl::Time time;
  std::string why;
  if (!absl::ParseTime(absl::RFC3339_full, text, &time, &why) &&
      !absl::ParseTime("%Y-%m-%dT%H:%M:%E*S", text, local_clock().zone, &time, &why)) {
    return reply_takes("clock set",
                       "machine or a time such as 2026-03-29T12:30:00, which is local, or 2026-03-29T10:30:00Z", word);
  }
  const INT64 millis = absl::ToUnixMillis(time);
  if (millis < 0 || millis > kLastMilli) return reply_error("the clock accepts times from 1970 to the end of 9999");
  return changed(set_clock(millis));
}

boost::json::object choose_zone(std::string_view name) {
  absl::TimeZone zone;
  if (!find_zone(name, zone)) {
    return reply_error("there is no time zone " + quoted(name) +
                       "; names are the tz database's, for example Europe/Berlin");
  }
  return changed(config_set(kZoneKey, name));
}

boost::json::object start_sleep(std::string_view word) {
  const auto seconds = parse_number_within<INT32>(word, 0, kLongestSleep);
  if (!seconds) {
    const std::string limits = "0 to " + std::to_string(kLongestSleep) + " (0 is off)";
    return reply_takes("clock sleep", "the seconds until standby, " + limits, word);
  }
  std::unique_lock guard(lock);
  const INT32 result = set_sleep(*seconds);
  guard.unlock();
  return changed(result);
}

}  // namespace

INT64 a_vextvapi_time_get_time_zone() {
  const LocalClock clock = local_clock();
  return standard_offset(clock.zone, absl::FromUnixSeconds(now_seconds())) - (clock.always_summer ? kSummerSeconds : 0);
}

INT64 a_vextvapi_time_get_time_offset() { return offset_at(local_clock(), now_seconds()); }

INT64 a_vextvapi_time_get_utc_time() { return now_seconds(); }

INT64 a_vextvapi_time_get_broadcast_time() { return now_seconds(); }

INT32 a_vextvapi_time_convert_utc_to_local_time(INT64 utc_time, INT64* local_time) {
  if (local_time == nullptr) return -1;
  if (!is_time(utc_time)) return refuse_call(__func__, not_a_time(utc_time));
  *local_time = utc_time + offset_at(local_clock(), utc_time);
  return 0;
}

INT32 a_vextvapi_time_convert_local_time_to_millis(const VEXTVAPI_TIME_DTG_T* dtg, INT64* millis) {
  if (dtg == nullptr || millis == nullptr) return -1;
  const bool exists = is_dtg(*dtg);
  const INT64 seconds = exists ? absl::ToUnixSeconds(time_of(*dtg)) : -1;
  if (!is_time(seconds)) {
    char text[sizeof "65535-255-255 255:255:255"];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", dtg->ui2_yr, dtg->ui1_mo, dtg->ui1_day,
                  dtg->ui1_hr, dtg->ui1_min, dtg->ui1_sec);
    return refuse_call(__func__, text + std::string(exists ? " is not within 1970 to 9999" : " does not exist"));
  }
  *millis = seconds * 1000;
  return 0;
}

INT32 a_vextvapi_time_convert_millis_to_local_time(INT64 millis, VEXTVAPI_TIME_DTG_T* dtg) {
  if (dtg == nullptr) return -1;
  if (millis < 0 || millis > kLastMilli) return refuse_call(__func__, not_a_time(millis));
  *dtg = dtg_of(millis / 1000);
  return 0;
}

INT32 a_vextvapi_time_set_utc_time(INT64 utc_time) {
  if (!is_time(utc_time)) return refuse_call(__func__, not_a_time(utc_time));
  return set_clock(utc_time * 1000);
}

INT32 a_vextvapi_time_get_sleep_timer_remaining_time(INT32* remaining) {
  if (remaining == nullptr) return -1;
  *remaining = sleep_remaining();
  return 0;
}

INT32 a_vextvapi_time_set_sleep_timer(INT32 duration) {
  if (duration < 0 || duration > kLongestSleep) {
    return refuse_call(__func__,
                       std::to_string(duration) + " is not within 0 to " + std::to_string(kLongestSleep) + " seconds");
  }
  const std::lock_guard guard(lock);
  return set_sleep(duration) == 0 ? 0 : refuse_call(__func__, "the set is off");
}

INT32 a_vextvapi_time_register_dt_event_callback(a_vextvapi_time_dt_nfy_fct callback, void* tag) {
  if (callback == nullptr) return refuse_call(__func__, "there is no callback");
  const std::lock_guard guard(subscriber.lock);
  subscriber.callback = callback;
  subscriber.tag = tag;
  return 0;
}

void clock_stop_sleep() {
  const std::lock_guard guard(lock);
  set_sleep(0);
}

std::int64_t clock_utc() { return now_seconds(); }

std::int64_t clock_local_day(int days) {
  const LocalClock clock = local_clock();
  const absl::CivilDay today(clock.zone.At(absl::FromUnixSeconds(now_seconds())).cs);
  return absl::ToUnixSeconds(clock.zone.At(absl::CivilSecond(today + days)).pre);
}

std::int64_t clock_offset_at(std::int64_t utc) { return offset_at(local_clock(), utc); }

void clock_zone_changed() { post_change(); }

std::uint64_t clock_changes() { return changes; }

std::int32_t clock_sleep_left() { return sleep_remaining(); }

bool clock_step_sleep() {
  const std::lock_guard guard(lock);
  const INT32 present = sleep_end == kTimerNever ? 0 : sleep_duration;
  const auto* const next = std::ranges::upper_bound(kSleepSteps, present);
  return set_sleep(next == std::end(kSleepSteps) ? 0 : *next) == 0;
}

namespace {

void load() {
  {
    const std::lock_guard guard(subscriber.lock);
    subscriber.callback = nullptr;
  }
  const std::lock_guard guard(lock);
  moved = store_read(kMoved);
  sleep_end = kTimerNever;
}

bool reset() {
  if (move_clock(0) != 0) return false;
  clock_stop_sleep();
  return true;
}

void report(boost::json::object& answer) {
  if (const INT32 remaining = sleep_remaining(); remaining > 0) answer["sleep_seconds"] = remaining;
}

boost::json::object clock_command(Arguments arguments) {
  struct Part {
    std::string_view name;
    boost::json::object (*run)(std::string_view word);
  };
  constexpr Part kParts[] = {{"set", set_by_hand}, {"zone", choose_zone}, {"sleep", start_sleep}};
  if (arguments.empty()) return show();
  const auto* const part = std::ranges::find(kParts, arguments[0], &Part::name);
  if (arguments.size() != 2 || part == std::end(kParts)) {
    return reply_error("clock takes set TIME, zone NAME or sleep SECONDS");
  }
  return part->run(arguments[1]);
}

constexpr Command kCommands[] = {
    {"clock", "[set TIME|machine | zone NAME | sleep SECONDS]", 2,
     "Shows the clock; sets it (machine: to the machine's time); chooses the time zone; starts the sleep timer (0: "
     "off)",
     clock_command},
};

}  // namespace

const Room room_clock = {.commands = kCommands, .load = load, .reset = reset, .report = report};
