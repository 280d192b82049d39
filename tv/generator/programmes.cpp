#include "generator/programmes.h"

#include <absl/time/civil_time.h>
#include <absl/time/time.h>

#include <algorithm>

namespace {

constexpr Show kShows[] = {
#include "generator/programmes.def"
};

constexpr const char* kZone = "Europe/Berlin";
constexpr int kFirstHour = 6;  // a day's programme begins then, and lasts until it begins again
constexpr int kShortest = 30;  // minutes, like the next
constexpr int kLongest = 120;
constexpr int kStep = 5;

const absl::TimeZone& zone() {
  static const absl::TimeZone kKnown = [] {
    absl::TimeZone loaded;
    absl::LoadTimeZone(kZone, &loaded);
    return loaded;
  }();
  return kKnown;
}

std::int64_t utc_of(absl::CivilDay day, int hour) {
  return absl::ToUnixSeconds(absl::FromCivil(absl::CivilHour(day) + hour, zone()));
}

// A number that looks random, and is always the same for the same arguments.
std::uint32_t scattered(std::int64_t day, std::uint32_t service, std::uint32_t index) {
  std::uint64_t mixed = static_cast<std::uint64_t>(day) << 32 ^ std::uint64_t{service} << 16 ^ index;
  for (int round = 0; round < 3; ++round) mixed = (mixed ^ mixed >> 29) * 0xBF58476D1CE4E5B9;
  return static_cast<std::uint32_t>(mixed >> 32);
}

bool fixed(const Show& show) { return show.from == show.to; }

// The next programme of the day that begins at a fixed time, not before `now`; the end of the day if there is none.
std::int64_t next_fixed(std::uint16_t service, absl::CivilDay day, std::int64_t now, const Show*& ret_show) {
  std::int64_t next = utc_of(day + 1, kFirstHour);
  for (const Show& show : kShows) {
    if (show.service != service || !fixed(show)) continue;
    const std::int64_t start = utc_of(day, show.from);
    if (start < now || start >= next) continue;
    next = start;
    ret_show = &show;
  }
  return next;
}

// A programme for the hour; not the same as the previous one, if there is another.
const Show& pick(std::uint16_t service, int hour, std::uint32_t number, const Show* previous) {
  std::vector<const Show*> fitting;
  const Show* any = nullptr;
  for (const Show& show : kShows) {
    if (show.service != service || fixed(show)) continue;
    any = &show;
    if (show.from <= hour && hour < show.to) fitting.push_back(&show);
  }
  if (fitting.size() > 1) std::erase(fitting, previous);
  return fitting.empty() ? *any : *fitting[number % fitting.size()];
}

// How long the programme takes of the minutes that are left before the next fixed one, so that what then remains is
// neither too short nor too long for a programme.
int minutes_of(const Show& show, std::uint32_t number, int left) {
  const int choices = (show.longest - show.shortest) / kStep + 1;
  const int wanted = show.shortest + static_cast<int>(number % static_cast<std::uint32_t>(choices)) * kStep;
  if (left - wanted >= kShortest) return wanted;
  return left <= kLongest ? left : left / 2 / kStep * kStep;
}

void append_day(std::uint16_t service, absl::CivilDay day, std::vector<Programme>& ret_programmes) {
  const std::int64_t end = utc_of(day + 1, kFirstHour);
  const std::int64_t number = day - absl::CivilDay(1970, 1, 1);
  const Show* previous = nullptr;
  std::uint32_t index = 0;
  for (std::int64_t now = utc_of(day, kFirstHour); now < end; ++index) {
    const Show* show = nullptr;
    const std::int64_t next = next_fixed(service, day, now, show);
    int minutes = show == nullptr ? 0 : show->shortest;
    if (show == nullptr || next > now) {
      const absl::CivilHour begin = absl::ToCivilHour(absl::FromUnixSeconds(now), zone());
      const auto hour = static_cast<int>(begin - absl::CivilHour(day));
      show = &pick(service, hour, scattered(number, service, index * 2), previous);
      minutes = minutes_of(*show, scattered(number, service, index * 2 + 1), static_cast<int>((next - now) / 60));
    }
    // 512 days of at most 128 programmes share the 16 bits of an event id.
    ret_programmes.push_back({.id = static_cast<std::uint16_t>(number % 512 * 128 + index),
                              .start = now,
                              .duration = static_cast<std::uint32_t>(minutes) * 60,
                              .episode = show->series ? static_cast<int>(number % 400) + 1 : 0,
                              .show = show});
    previous = show;
    now += minutes * 60;
  }
}

}  // namespace

bool programmes_zone_known() {
  absl::TimeZone loaded;
  return absl::LoadTimeZone(kZone, &loaded);
}

ZoneOffset programmes_zone(std::int64_t utc) {
  const absl::Time time = absl::FromUnixSeconds(utc);
  ZoneOffset offset = {.seconds = zone().At(time).offset, .next_change = utc, .next_seconds = 0};
  offset.next_seconds = offset.seconds;
  if (absl::TimeZone::CivilTransition change; zone().NextTransition(time, &change)) {
    const absl::Time changes = zone().At(change.from).trans;
    offset.next_change = absl::ToUnixSeconds(changes);
    offset.next_seconds = zone().At(changes).offset;
  }
  return offset;
}

std::vector<Programme> programmes_between(std::uint16_t service, std::int64_t from, std::int64_t to) {
  const auto day_of = [](std::int64_t utc) { return absl::ToCivilDay(absl::FromUnixSeconds(utc), zone()); };
  std::vector<Programme> programmes;
  if (std::ranges::find(kShows, service, &Show::service) == std::end(kShows)) return programmes;
  for (absl::CivilDay day = day_of(from) - 1; day <= day_of(to); ++day) append_day(service, day, programmes);
  std::erase_if(programmes,
                [from, to](const Programme& each) { return each.start + each.duration <= from || each.start >= to; });
  return programmes;
}
