// The lists of recordings, and of timers and reminders: an item is the recorder's identifier.
#include <boost/json.hpp>

#include "core/reply.h"
#include "core/text.h"
#include "rooms/channels/channels.h"
#include "rooms/menus/menus.h"
#include "rooms/menus/parts.h"
#include "rooms/playback/playback.h"
#include "rooms/recorder/recorder.h"

namespace {

int id_of(const MenuView& view) { return static_cast<int>(view.item); }

boost::json::object shown(const RecorderLine& line) {
  boost::json::object row{{"name", cut_text(line.title, kLongestShown)},
                          {"note", cut_text(line.channel, kLongestShown)},
                          {"start", reply_time(line.start)},
                          {"seconds", line.duration}};
  if (!line.mark.empty()) row["marks"].emplace_array().emplace_back(line.mark);
  return row;
}

constexpr std::chrono::seconds kAskTime{10};

// Ends a recording that runs. Another one is deleted when RED is pressed twice.
Acted stop_or_delete(MenuView& view) {
  const auto recording = recorder_recording(id_of(view));
  if (!recording) return refuse("there are no recordings");
  const bool runs = recording->mark == "recording";
  if (!runs && (view.asked != view.item || timer_now() >= view.asked_until)) {
    view.asked = view.item;
    view.asked_until = timer_now() + kAskTime;
    menus_say("press_red", recording->title);
    return Acted::kStays;
  }
  view.asked = 0;
  const std::string why = runs ? recorder_stop(id_of(view)) : recorder_delete(id_of(view));
  if (!why.empty()) return refuse(why);
  menus_say(runs ? "not_recorded" : "deleted", recording->title);
  return Acted::kStays;
}

Acted delete_timer(MenuView& view) {
  const auto timer = recorder_timer(id_of(view));
  if (!timer) return refuse("there are no timers");
  const std::string why = recorder_delete_timer(id_of(view));
  if (!why.empty()) return refuse(why);
  menus_say("deleted", timer->title);
  return Acted::kStays;
}

Acted show_event(MenuView& view) {
  const auto timer = recorder_timer(id_of(view));
  const auto channel = timer ? channels_by_key(timer->key) : std::nullopt;
  if (!channel) return refuse(timer ? "the channel is not in the list any more" : "there are no timers");
  show_in_guide(view, channel->id, timer->start);
  return Acted::kStays;
}

Acted play(MenuView& view) {
  const std::string why = playback_start(id_of(view), {});
  return why.empty() ? Acted::kCloses : refuse(why);
}

constexpr MenuAction kOfRecordings[] = {{"ENTER", "play", play}, {"RED", "stop_or_delete", stop_or_delete}};
constexpr MenuAction kOfTimers[] = {{"ENTER", "guide", show_event}, {"RED", "delete", delete_timer}};

}  // namespace

constinit const std::span<const MenuAction> kRecordingActions = kOfRecordings;
constinit const std::span<const MenuAction> kTimerActions = kOfTimers;

std::vector<std::int64_t> recording_items(const MenuView&) { return recorder_recordings(); }

boost::json::object recording_row(std::int64_t item, const MenuView&) {
  const auto recording = recorder_recording(static_cast<int>(item));
  return recording ? shown(*recording) : gone_row();
}

std::vector<std::int64_t> timer_items(const MenuView&) { return recorder_timers(); }

boost::json::object timer_row(std::int64_t item, const MenuView&) {
  const auto timer = recorder_timer(static_cast<int>(item));
  return timer ? shown(*timer) : gone_row();
}
