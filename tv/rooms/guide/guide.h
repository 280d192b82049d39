// The programme guide, for the other rooms. The locks under which it is read come after the tuner's, before the
// channels'. Functions that read the database take some tens of microseconds; none of them waits for a write.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "broadcast/tables.h"

struct GuideEvent {
  ServiceKey key;
  std::uint16_t id = 0;
  std::int64_t start = 0;  // seconds since 1970, UTC
  std::uint32_t duration = 0;
  std::string title;
  std::string summary;
  std::string details;
  std::vector<std::uint8_t> categories;
  std::uint8_t age = 0;  // minimum age in years; 0: none
  std::string series;    // XMLTV's series or the title: events with the same one belong together
};

// Takes a section of events. shift: added to its times (antenna_time_shift). Any thread, without a lock.
void guide_take(const Eit& eit, std::int64_t shift);

// The number of sections that were taken and are not written yet. A caller that reads faster than a broadcast comes
// waits while they are many: the queue has a bound, beyond which the oldest are dropped.
std::size_t guide_waiting();

// Another number after the menus' language or the country has changed: of sections with texts or ratings for several,
// the guide then stores others. Takes the configuration's lock.
std::uint64_t guide_round();

// The listener runs after each change of the guide's events, without a lock, on the guide's thread or that of whoever
// emptied the guide; it must not wait for the guide. A batch of sections is one change. It stays registered until the
// process ends; registering it again changes nothing. At most kMostGuideListeners.
inline constexpr std::size_t kMostGuideListeners = 4;
void guide_listen(void (*listener)());

// The event that runs at that time, and the first that begins after it.
std::optional<GuideEvent> guide_event_at(const ServiceKey& key, std::int64_t time);
std::optional<GuideEvent> guide_event_after(const ServiceKey& key, std::int64_t time);

std::optional<GuideEvent> guide_event(const ServiceKey& key, std::uint16_t id);

// The events of a service that overlap the time, in their order; at most `most`.
std::vector<GuideEvent> guide_events(const ServiceKey& key, std::int64_t from, std::int64_t to, std::size_t most);

// Future events of a series on any service, in their order; at most 100.
std::vector<GuideEvent> guide_series(const std::string& series, std::int64_t from);

// Another channel was chosen, or the time was set: another event may be the present one. Any thread, under any lock
// that comes before the timers'.
void guide_look_again();

// Whether the set's age limit blocks the event.
bool guide_blocks(const GuideEvent& event);
