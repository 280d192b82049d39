// The active window, its callbacks, the timer for the borders between events, and the listeners.
#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include "core/contract.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/timers.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/parts.h"
#include "rooms/tuner/tuner.h"

namespace {

constexpr UINT32 kMostWindowChannels = 64;
constexpr UINT32 kWindowLength = 24 * 3600;  // seconds
// The border timer looks at least so often, since the first channel, which an unused tuner has, may have changed.
constexpr std::int64_t kLongestPause = 60;  // seconds

// As the application names it. Its identifier may change, so the channel is followed by its service.
struct WindowChannel {
  UINT32 id = 0;
  std::optional<ServiceKey> key;  // nothing: no channel had the identifier
  bool operator==(const WindowChannel&) const = default;
};

struct Window {
  std::vector<WindowChannel> channels;
  UINT32 start = 0;
  UINT32 end = 0;
  bool operator==(const Window&) const = default;
};

// What is known of the present event of a watched channel.
struct Present {
  std::int64_t start = 0;  // 0: there is none
  UINT16 id = 0;
  std::int64_t next = 0;  // when another one may be present, as far as the guide said
};

struct WindowState {
  std::mutex lock;  // guards the members below, except the timer
  a_vextvapi_event_nfy_fct callback = nullptr;
  void* tag = nullptr;
  Window window;
  std::map<UINT32, Present> present;              // by watched channel
  std::map<std::int64_t, std::intptr_t> changed;  // watched services whose events changed since the last look, and why
  std::vector<void (*)()> listeners;
  Timer borders;
};
WindowState& state = *new WindowState;

// The caller holds the lock.
void post(std::intptr_t condition, std::intptr_t reason, UINT32 channel) {
  if (state.callback == nullptr) return;
  events_post([callback = state.callback, tag = state.tag, condition, reason, channel] {
    const auto word = [](std::intptr_t number) { return reinterpret_cast<void*>(number); };
    callback(0, tag, nullptr, word(condition), word(reason), word(static_cast<std::intptr_t>(channel)));
  });
}

Window current_window() {
  const std::lock_guard guard(state.lock);
  return state.window;
}

std::optional<Channel> channel_now(const WindowChannel& each) {
  return each.key ? channels_by_key(*each.key, list_of_id(each.id)) : channels_by_id(each.id);
}

struct Watched {
  std::int64_t service = 0;
  bool in_window = false;
  bool tuned = false;
};

// The channels of the window and the tuned one, by their present identifiers.
std::map<UINT32, Watched> find_watched(const Window& window) {
  std::map<UINT32, Watched> watched;
  for (const WindowChannel& each : window.channels)
    if (const auto channel = channel_now(each))
      watched[channel->id] = {.service = packed(channel->key), .in_window = true};
  if (const auto tuned = tuner_channel()) {
    Watched& place = watched[tuned->id];
    place.service = packed(tuned->key);
    place.tuned = true;
  }
  return watched;
}

std::map<UINT32, Present> find_present(const std::map<UINT32, Watched>& watched, std::int64_t now) {
  std::map<UINT32, Present> found;
  for (const auto& [id, each] : watched) {
    const GuideReading reading;
    if (reading.database == nullptr) break;
    const auto present = brief_at(*reading.database, each.service, now);
    const auto after = brief_after(*reading.database, each.service, now);
    Present& place = found[id];
    place.next = std::numeric_limits<std::int64_t>::max();
    if (present) place = {.start = present->start, .id = present->id, .next = present->stop};
    if (after) place.next = std::min(place.next, after->start);
  }
  return found;
}

// The time of the service's present and following event, as far as it is not over; without a following one it is open.
GuideSpan near_time(std::int64_t service, std::int64_t now) {
  const GuideReading reading;
  const auto after = reading.database == nullptr ? std::nullopt : brief_after(*reading.database, service, now);
  return {now, after ? after->stop : std::numeric_limits<std::int64_t>::max()};
}

bool overlap(const GuideSpan& left, const GuideSpan& right) { return left.to > right.from && left.from < right.to; }

void look_at_borders();

void look_again(TimerTime when) { timer_set(state.borders, when, look_at_borders); }

// Why another event is the present one. The caller holds the lock.
std::intptr_t reason_of(const Present& known, std::int64_t service, std::int64_t now) {
  const auto changed = state.changed.find(service);
  constexpr std::intptr_t kTime = VEXTVAPI_EVENT_REASON_TIME;
  return known.next <= now || changed == state.changed.end() ? kTime : changed->second;
}

// The timer's action. It may run at any time: it compares, and waits for the next border.
void look_at_borders() {
  const std::int64_t now = clock_utc();
  const std::map<UINT32, Watched> watched = find_watched(current_window());
  const std::map<UINT32, Present> present = find_present(watched, now);
  std::int64_t next = now + kLongestPause;
  {
    const std::lock_guard guard(state.lock);
    std::erase_if(state.present, [&](const auto& each) { return !present.contains(each.first); });
    for (const auto& [channel, found] : present) {
      next = std::min(next, found.next);
      const auto [place, is_new] = state.present.try_emplace(channel, found);
      const Present known = std::exchange(place->second, found);
      if (is_new || (known.start == found.start && known.id == found.id)) continue;
      post(VEXTVAPI_EVENT_CONDITION_PRESENT, reason_of(known, watched.at(channel).service, now), channel);
    }
    state.changed.clear();
  }
  keeper_look_for_old();
  look_again(timer_now() + std::chrono::seconds(std::max<std::int64_t>(next - now, 1)));
}

void set_window(Window window) {
  {
    const std::lock_guard guard(state.lock);
    if (window == state.window) return;
    state.window = std::move(window);
    post(VEXTVAPI_EVENT_CONDITION_WINDOW, VEXTVAPI_EVENT_REASON_REQUEST, 0);
  }
  look_again(timer_now());
}

// Posts what changed of the watched channels, and calls the listeners. span_of: the time in which a service's events
// changed, null: they did not.
void report_changes(const std::function<const GuideSpan*(std::int64_t service)>& span_of, std::intptr_t reason) {
  const Window window = current_window();
  const std::int64_t now = clock_utc();
  for (const auto& [id, each] : find_watched(window)) {
    const GuideSpan* const span = span_of(each.service);
    if (span == nullptr) continue;
    const bool shown = (each.in_window && overlap(*span, {window.start, window.end})) ||
                       (each.tuned && overlap(*span, near_time(each.service, now)));
    const std::lock_guard guard(state.lock);
    state.changed[each.service] = reason;
    if (shown) post(VEXTVAPI_EVENT_CONDITION_UPDATED, reason, id);
  }
  look_again(timer_now());
  std::vector<void (*)()> listeners;
  {
    const std::lock_guard guard(state.lock);
    listeners = state.listeners;
  }
  for (void (*const listener)() : listeners) listener();
}

}  // namespace

void window_load() {
  const std::lock_guard guard(state.lock);
  state.callback = nullptr;
  state.window = {};
  state.present.clear();
  state.changed.clear();
}

void window_forget() { set_window({}); }

void window_start() { look_again(timer_now()); }

void guide_look_again() { look_again(timer_now()); }

void window_changes(const GuideChanges& changes, std::intptr_t reason) {
  report_changes(
      [&changes](std::int64_t service) {
        const auto found = changes.spans.find(service);
        return found == changes.spans.end() ? nullptr : &found->second;
      },
      reason);
}

void window_everything_changed(std::intptr_t reason) {
  static constexpr GuideSpan kAlways{0, std::numeric_limits<std::int64_t>::max()};
  report_changes([](std::int64_t) { return &kAlways; }, reason);
}

void guide_listen(void (*listener)()) {
  const std::lock_guard guard(state.lock);
  const bool known = std::ranges::count(state.listeners, listener) > 0;
  if (!known && state.listeners.size() < kMostGuideListeners) state.listeners.push_back(listener);
}

INT32 a_vextvapi_event_register_callback(a_vextvapi_event_nfy_fct callback, void* tag) {
  if (callback == nullptr) return refuse_call(__func__, "there is no callback");
  const std::lock_guard guard(state.lock);
  state.callback = callback;
  state.tag = tag;
  return 0;
}

INT32 a_vextvapi_event_setCurrentActiveWindow(const UINT32* channel_ids, UINT32 start_time, UINT32 channel_num) {
  if (channel_num > kMostWindowChannels) {
    return refuse_call(__func__, std::to_string(channel_num) + " channels are more than the window's " +
                                     std::to_string(kMostWindowChannels));
  }
  if (channel_ids == nullptr && channel_num != 0) return refuse_call(__func__, "there are no channel identifiers");
  Window window;
  for (UINT32 i = 0; i < channel_num; ++i) {
    const auto channel = channels_by_id(channel_ids[i]);
    window.channels.push_back({.id = channel_ids[i], .key = channel ? std::optional(channel->key) : std::nullopt});
  }
  window.start = start_time;
  window.end = start_time > UINT32_MAX - kWindowLength ? UINT32_MAX : start_time + kWindowLength;
  set_window(std::move(window));
  return 0;
}

INT32 a_vextvapi_event_get_active_win_channel_num(INT32* channel_num) {
  if (channel_num == nullptr) return refuse_call(__func__, "there is no place for the number");
  *channel_num = static_cast<INT32>(current_window().channels.size());
  return 0;
}

INT32 a_vextvapi_event_get_active_win_list(UINT32* channel_ids, UINT32 channel_num, UINT32* start_time,
                                           UINT32* end_time) {
  const Window window = current_window();
  for (std::size_t i = 0; channel_ids != nullptr && i < std::min<std::size_t>(channel_num, window.channels.size());
       ++i) {
    const auto channel = channel_now(window.channels[i]);
    channel_ids[i] = channel ? channel->id : window.channels[i].id;
  }
  if (start_time != nullptr) *start_time = window.start;
  if (end_time != nullptr) *end_time = window.end;
  return 0;
}

INT32 a_vextvapi_event_clear_active_win() {
  window_forget();
  return 0;
}
