// The active window, its callbacks, and the timer for the borders between events.
#include <algorithm>
#include <chrono>
#include <map>
#include <optional>

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

struct Window {
  std::vector<UINT32> channels;
  UINT32 start = 0;
  UINT32 end = 0;
  bool operator==(const Window&) const = default;
};

struct WindowState {
  std::mutex lock;  // guards the members below, except the timer
  a_vextvapi_event_nfy_fct callback = nullptr;
  void* tag = nullptr;
  Window window;
  std::map<UINT32, std::int64_t> present;  // beginning of the present event by watched channel; 0: there is none
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

struct Border {
  std::int64_t present = 0;  // the present event's beginning
  std::int64_t next = 0;     // when another one may be present
};

// The channels of the window and the tuned one, with their borders.
std::map<UINT32, Border> find_borders(std::int64_t now) {
  std::vector<UINT32> watched;
  if (const auto tuned = tuner_channel()) watched.push_back(tuned->id);
  {
    const std::lock_guard guard(state.lock);
    watched.insert(watched.end(), state.window.channels.begin(), state.window.channels.end());
  }
  std::map<UINT32, Border> borders;
  for (const UINT32 id : watched) {
    const auto channel = channels_by_id(id);
    if (!channel) continue;
    const GuideReading reading;
    if (reading.database == nullptr) break;
    const auto present = brief_at(*reading.database, packed(channel->key), now);
    const auto after = brief_after(*reading.database, packed(channel->key), now);
    Border& border = borders[id];
    border.next = now + kLongestPause;
    if (present) border = {.present = present->start, .next = std::min(border.next, present->stop)};
    if (after) border.next = std::min(border.next, after->start);
  }
  return borders;
}

void look_at_borders();

void look_again(TimerTime when) { timer_set(state.borders, when, look_at_borders); }

// The timer's action. It may run at any time: it compares, and waits for the next border.
void look_at_borders() {
  const std::int64_t now = clock_utc();
  const std::map<UINT32, Border> borders = find_borders(now);
  std::int64_t next = now + kLongestPause;
  {
    const std::lock_guard guard(state.lock);
    std::erase_if(state.present, [&](const auto& each) { return !borders.contains(each.first); });
    for (const auto& [channel, border] : borders) {
      next = std::min(next, border.next);
      const auto [known, is_new] = state.present.try_emplace(channel, border.present);
      if (is_new || known->second == border.present) continue;
      known->second = border.present;
      post(VEXTVAPI_EVENT_CONDITION_PRESENT, VEXTVAPI_EVENT_REASON_TIME, channel);
    }
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

Window current_window() {
  const std::lock_guard guard(state.lock);
  return state.window;
}

}  // namespace

void window_load() {
  const std::lock_guard guard(state.lock);
  state.callback = nullptr;
  state.window = {};
  state.present.clear();
}

void window_forget() { set_window({}); }

void window_start() { look_again(timer_now()); }

void guide_look_again() { look_again(timer_now()); }

void window_changes(const GuideChanges& changes, std::intptr_t reason) {
  const Window window = current_window();
  for (const UINT32 id : window.channels) {
    const auto channel = channels_by_id(id);
    const auto changed = channel ? changes.spans.find(packed(channel->key)) : changes.spans.end();
    if (changed == changes.spans.end()) continue;
    if (changed->second.to <= window.start || changed->second.from >= window.end) continue;
    const std::lock_guard guard(state.lock);
    post(VEXTVAPI_EVENT_CONDITION_UPDATED, reason, id);
  }
  look_again(timer_now());
}

void window_everything_changed(std::intptr_t reason) {
  for (const UINT32 id : current_window().channels) {
    const std::lock_guard guard(state.lock);
    post(VEXTVAPI_EVENT_CONDITION_UPDATED, reason, id);
  }
  look_again(timer_now());
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
  if (channel_num != 0) window.channels.assign(channel_ids, channel_ids + channel_num);
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
  if (channel_ids != nullptr)
    std::copy_n(window.channels.begin(), std::min<std::size_t>(channel_num, window.channels.size()), channel_ids);
  if (start_time != nullptr) *start_time = window.start;
  if (end_time != nullptr) *end_time = window.end;
  return 0;
}

INT32 a_vextvapi_event_clear_active_win() {
  window_forget();
  return 0;
}
