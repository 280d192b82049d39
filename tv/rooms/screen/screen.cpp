// The set's screen: why it shows a picture or none, and what is drawn over the picture, as text. show.cpp has the
// picture itself.
#include <absl/strings/escaping.h>

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <cstring>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "core/reply.h"
#include "core/room.h"
#include "core/timers.h"
#include "dtv_tv.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/guide.h"
#include "rooms/media_player/media_player.h"
#include "rooms/menus/menus.h"
#include "rooms/multiview/multiview.h"
#include "rooms/photos/photos.h"
#include "rooms/playback/playback.h"
#include "rooms/recorder/recorder.h"
#include "rooms/remote/remote.h"
#include "rooms/screen/show.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner.h"
#include "rooms/volume/volume.h"

namespace {

using std::chrono::seconds;

constexpr seconds kBannerTime{5};  // after a channel change or INFO
constexpr seconds kVolumeTime{3};  // after a change of the volume

struct State {
  std::mutex lock;  // taken after every other room's; guards all members below
  TimerTime banner_until{};
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// ---- What the screen shows ----

struct ReasonRow {
  ChangeResult result;
  const char* reason;  // empty: there is a picture
};

constexpr ReasonRow kReasons[] = {
    {ChangeResult::kPicture, ""},
    {ChangeResult::kNoSignal, "no_signal"},
    {ChangeResult::kScrambled, "scrambled"},
    {ChangeResult::kBlockedChannel, "blocked_channel"},
    {ChangeResult::kBlockedEvent, "blocked_event"},
    {ChangeResult::kAudioOnly, "radio"},
    {ChangeResult::kNoTuner, "no_tuner"},
    {ChangeResult::kNotFound, "not_found"},
};

// Why the screen shows no channel in the picture's region; empty: it shows one. Takes other rooms' locks, so the caller
// holds none.
std::string_view reason(const ScreenPicture& picture) {
  if (!remote_is_on()) return "standby";
  if (!sources_is_tuner(picture.source)) return "source";
  if (!picture.shown) return "stopped";
  if (!picture.channel) return "no_channel";
  if (!picture.result) return "tuning";
  const auto* const row = std::ranges::find(kReasons, *picture.result, &ReasonRow::result);
  return row != std::end(kReasons) ? row->reason : "no_signal";
}

int chosen(const std::vector<TunerTrack>& tracks, StreamKind kind) {
  for (const TunerTrack& each : tracks)
    if (each.kind == kind && each.chosen) return each.pid;
  return 0;
}

// The drawer of the photo or the media player's picture that replaces the main picture; null: there is neither.
const Drawer* drawer() {
  if (!remote_is_on()) return nullptr;
  const Drawer* const photo = photos_drawer();
  return photo != nullptr ? photo : media_player_drawer();
}

// For the thread of show.cpp. The picture that is not heard plays no sound; the viewer's subtitles are the main one's.
ShowPlan plan() {
  const Multiview now = multiview_state();
  ShowPlan plan;
  auto& [main, second] = plan;
  main.region = now.main.region;
  main.drawer = drawer();
  if (remote_is_on() && main.drawer == nullptr) main.file = playback_shown();
  main.plays = main.drawer == nullptr && (main.file || reason(now.main).empty());
  if (main.plays && !main.file) {
    const std::vector<TunerTrack> tracks = tuner_tracks();
    main.audio = now.main.heard ? chosen(tracks, StreamKind::kAudio) : 0;
    main.subtitle = chosen(tracks, StreamKind::kSubtitle);
  }
  if (!now.sub.shown) return plan;
  second.region = now.sub.region;
  second.plays = reason(now.sub).empty();
  if (second.plays && now.sub.heard) second.audio = chosen(multiview_tracks(), StreamKind::kAudio);
  return plan;
}

// ---- The pictures' tuners ----

// On the reception's thread.
void take_packets(void*, std::span<const std::uint8_t> packets) { show_packets(PicturePlace::kMain, packets); }
void take_second_packets(void*, std::span<const std::uint8_t> packets) { show_packets(PicturePlace::kSecond, packets); }

void take_change(void*, ChangeResult) {
  {
    const std::lock_guard guard(state.lock);
    state.banner_until = timer_now() + kBannerTime;
  }
  if (!playback_shown() && drawer() == nullptr) show_changed(PicturePlace::kMain);
}

void take_second_change(void*, ChangeResult) { show_changed(PicturePlace::kSecond); }

constexpr TunerPlayer kPlayer{.packets = take_packets, .changed = take_change};
constexpr TunerPlayer kSecondPlayer{.packets = take_second_packets, .changed = take_second_change};

// ---- The command ----

boost::json::object shown_event(const GuideEvent& event, std::int64_t now) {
  const double progress =
      event.duration == 0 ? 0 : static_cast<double>(now - event.start) / static_cast<double>(event.duration);
  return {{"title", event.title},
          {"start", reply_time(event.start)},
          {"seconds", event.duration},
          {"progress", std::clamp(progress, 0.0, 1.0)}};
}

boost::json::object banner(const Channel& channel) {
  boost::json::object shown{{"number", channel.number}, {"name", channel.name}};
  const std::int64_t now = clock_utc();
  if (const auto event = guide_event_at(channel.key, now)) shown["present"] = shown_event(*event, now);
  if (const auto event = guide_event_after(channel.key, now)) shown["following"] = shown_event(*event, now);
  return shown;
}

bool is_recent(TimerTime pressed, seconds time) { return pressed != kTimerNever && timer_now() < pressed + time; }

bool shows_info() { return is_recent(remote_info_pressed(), kBannerTime); }

bool shows_volume() {
  return is_recent(volume_changed(), kVolumeTime) || is_recent(remote_volume_pressed(), kVolumeTime);
}

bool shows_banner() {
  const std::lock_guard guard(state.lock);
  return timer_now() < state.banner_until;
}

boost::json::object shown_region(const VEXTVAPI_REGION_T& region) {
  return {{"x", region.x}, {"y", region.y}, {"width", region.width}, {"height", region.height}};
}

boost::json::object shown_stream(const PlayedStream& stream) {
  return {{"pid", stream.pid}, {"language", stream.language}};
}

// Both pictures' places, and what the second one shows.
void report_second(const Multiview& now, const ShowFrame& frame, boost::json::object& ret_reply) {
  ret_reply["region"] = shown_region(now.main.region);
  boost::json::object second{{"source", sources_name(now.sub.source)}, {"region", shown_region(now.sub.region)}};
  if (now.sub.channel) {
    second["channel"] = now.sub.channel->number;
    second["name"] = now.sub.channel->name;
  }
  const std::string_view why = reason(now.sub);
  if (!why.empty()) second["reason"] = why;
  second["shown"] = why.empty() && frame.pictures[1].shown;
  ret_reply["second"] = std::move(second);
  ret_reply["focus"] = now.sub.heard ? "sub" : "main";
}

// What is in the main picture's place: a photo, a media player's file or a recording, else a channel, or nothing.
std::string_view shown_kind() {
  if (!remote_is_on()) return "channel";
  if (photos_drawer() != nullptr) return "photo";
  if (media_player_drawer() != nullptr) return "media";
  return playback_shown() ? "recording" : "channel";
}

// The photo or the file that a viewer sees, for a reply.
void report_media(std::string_view kind, boost::json::object& ret_reply) {
  if (kind == "photo") {
    const auto photo = photos_shown();
    ret_reply["title"] = photo ? photo->path.substr(photo->path.find_last_of('/') + 1) : "";
    ret_reply["slide_show"] = photo && photo->slide_show;
  } else if (kind == "media") {
    const boost::json::object player = media_player_describe();
    constexpr const char* kShown[] = {"state", "title",    "artist",  "album",  "reason",   "position",
                                      "speed", "duration", "chapter", "tracks", "buffering"};
    for (const char* const each : kShown)
      if (const auto* const member = player.find(each); member != player.end()) ret_reply[each] = member->value();
    ret_reply["paused"] = ret_reply["state"] == "paused";
    if (const auto* const video = player.find("video"); video != player.end()) ret_reply["video"] = video->value();
  }
}

boost::json::object screen_command(Arguments arguments) {
  const Multiview now = multiview_state();
  const std::string_view kind = shown_kind();
  std::string_view why = kind == "channel" ? reason(now.main) : "";
  const ShowFrame frame = show_look();
  boost::json::object reply;
  if (!frame.problem.empty() && (why.empty() || frame.jpeg == nullptr)) {
    why = "unavailable";
    reply["problem"] = frame.problem;
  }
  reply["picture"] = why.empty() ? kind : "none";
  if (!why.empty()) reply["reason"] = why;
  reply["shown"] = why.empty() && frame.pictures[0].shown;
  if (why.empty()) report_media(kind, reply);
  if (shows_volume()) room_volume.report(reply);
  reply["source"] = sources_name(now.main.source);
  const bool on = why != "standby";
  if (now.main.channel && on && (shows_info() || shows_banner())) reply["banner"] = banner(*now.main.channel);
  if (now.sub.shown && on) report_second(now, frame, reply);
  const PlayedPicture& heard = frame.pictures[now.sub.heard ? 1 : 0];
  if (const VideoShape& video = frame.pictures[0].video; video.width != 0 && video.height != 0)
    reply["video"] = {{"width", video.width}, {"height", video.height}, {"aspect", video.aspect}};
  if (heard.audio) reply["sound"] = shown_stream(*heard.audio);
  if (frame.pictures[0].subtitle) reply["subtitles"] = shown_stream(*frame.pictures[0].subtitle);
  if (const std::string typed = remote_typed(); !typed.empty()) reply["typed"] = typed;
  menus_report_screen(reply);
  const std::string reminder = recorder_message();
  if (on && !reminder.empty() && !reply.contains("message"))
    reply["message"] = {{"word", "reminder_due"}, {"about", ""}, {"text", reminder}};
  if (!arguments.empty() && frame.jpeg != nullptr)
    reply["jpeg"] = absl::Base64Escape({reinterpret_cast<const char*>(frame.jpeg->data()), frame.jpeg->size()});
  return reply;
}

// ---- The room ----

void load() {
  show_clear();
  const std::lock_guard guard(state.lock);
  state.banner_until = {};
}

void start() {
  if (!show_start(plan)) return;
  tuner_set_player(&kPlayer);
  multiview_set_player(&kSecondPlayer);
}

void stop() {
  multiview_set_player(nullptr);
  tuner_set_player(nullptr);
  show_stop();
}

constexpr Command kCommands[] = {
    {"screen", "[FILE]", 1, "Reports what the screen shows; dtvctl also saves its picture, a JPEG, in FILE",
     screen_command},
};

}  // namespace

std::uint64_t dtv_tv_screen(std::uint64_t after, std::uint8_t** ret_jpeg, std::uint32_t* ret_size) {
  const ShowFrame frame = show_look();
  if (frame.jpeg == nullptr) return 0;
  if (frame.number <= after || ret_jpeg == nullptr || ret_size == nullptr) return frame.number;
  auto* const bytes = static_cast<std::uint8_t*>(std::malloc(frame.jpeg->size()));
  if (bytes == nullptr) return 0;
  std::memcpy(bytes, frame.jpeg->data(), frame.jpeg->size());
  *ret_jpeg = bytes;
  *ret_size = static_cast<std::uint32_t>(frame.jpeg->size());
  return frame.number;
}

const Room room_screen = {.commands = kCommands, .load = load, .start = start, .stop = stop};
