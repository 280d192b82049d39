// The set's screen: why it shows a picture or none, and what is drawn over the picture, as text. show.cpp has the
// picture itself.
#include <absl/strings/escaping.h>

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <cstring>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

#include "core/reply.h"
#include "core/room.h"
#include "core/timers.h"
#include "dtv_tv.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/guide.h"
#include "rooms/playback/playback.h"
#include "rooms/remote/remote.h"
#include "rooms/screen/show.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner.h"

namespace {

using std::chrono::seconds;

constexpr seconds kBannerTime{5};  // after a channel change or INFO
constexpr seconds kVolumeTime{3};  // after a change of the volume

struct Sound {
  std::int64_t volume = 0;
  bool mute = false;
  bool operator==(const Sound&) const = default;
};

struct State {
  std::mutex lock;                     // taken after every other room's; guards all members below
  std::optional<ChangeResult> result;  // of the last channel change
  TimerTime banner_until{};
  Sound sound;  // as last reported
  TimerTime sound_until{};
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

// Why the screen shows neither a channel nor a recording; empty: it shows one. Takes other rooms' locks, so the caller
// holds none.
std::string_view reason() {
  if (!remote_is_on()) return "standby";
  if (playback_shown()) return "";
  if (!sources_is_tv()) return "source";
  if (!tuner_channel()) return "no_channel";
  const std::lock_guard guard(state.lock);
  if (!state.result) return "tuning";
  const auto* const row = std::ranges::find(kReasons, *state.result, &ReasonRow::result);
  return row != std::end(kReasons) ? row->reason : "no_signal";
}

// ---- The tuner ----

// On the reception's thread.
void take_packets(void*, std::span<const std::uint8_t> packets) { show_packets(packets); }

void take_change(void*, ChangeResult result) {
  {
    const std::lock_guard guard(state.lock);
    state.result = result;
    state.banner_until = timer_now() + kBannerTime;
  }
  if (!playback_shown()) show_changed();
}

constexpr TunerPlayer kPlayer{.packets = take_packets, .changed = take_change};

// ---- The command ----

boost::json::object shown_event(const GuideEvent& event, std::int64_t now) {
  const double progress =
      event.duration == 0 ? 0 : static_cast<double>(now - event.start) / static_cast<double>(event.duration);
  return {{"title", event.title},
          {"start", event.start},
          {"duration", event.duration},
          {"progress", std::clamp(progress, 0.0, 1.0)}};
}

boost::json::object banner(const Channel& channel) {
  boost::json::object shown{{"number", channel.number}, {"name", channel.name}};
  const std::int64_t now = clock_utc();
  if (const auto event = guide_event_at(channel.key, now)) shown["present"] = shown_event(*event, now);
  if (const auto event = guide_event_after(channel.key, now)) shown["following"] = shown_event(*event, now);
  return shown;
}

Sound sound_now() {
  boost::json::object reported;
  room_volume.report(reported);
  return {.volume = reported.at("volume").to_number<std::int64_t>(), .mute = reported.at("mute").as_bool()};
}

bool shows_info() {
  const TimerTime pressed = remote_info_pressed();
  return pressed != kTimerNever && timer_now() < pressed + kBannerTime;
}

boost::json::object screen_command(Arguments arguments) {
  std::string_view why = reason();
  const Sound sound = sound_now();
  const bool info = shows_info();
  const ShowFrame frame = show_look();
  boost::json::object reply;
  if (!frame.problem.empty() && (why.empty() || frame.jpeg == nullptr)) {
    why = "unavailable";
    reply["problem"] = frame.problem;
  }
  reply["picture"] = !why.empty() ? "none" : playback_shown() ? "recording" : "channel";
  if (!why.empty()) reply["reason"] = why;
  reply["shown"] = why.empty() && frame.shown;
  bool with_banner = false;
  {
    const std::lock_guard guard(state.lock);
    const TimerTime now = timer_now();
    with_banner = (info || now < state.banner_until) && why != "standby" && why != "source";
    if (std::exchange(state.sound, sound) != sound) state.sound_until = now + kVolumeTime;
    if (now < state.sound_until) {
      reply["volume"] = sound.volume;
      reply["mute"] = sound.mute;
    }
  }
  reply["source"] = sources_name(sources_current());
  if (with_banner)
    if (const auto channel = tuner_channel()) reply["banner"] = banner(*channel);
  if (!arguments.empty() && frame.jpeg != nullptr)
    reply["jpeg"] = absl::Base64Escape({reinterpret_cast<const char*>(frame.jpeg->data()), frame.jpeg->size()});
  return reply;
}

// ---- The room ----

void load() {
  const Sound sound = sound_now();
  show_clear();
  const std::lock_guard guard(state.lock);
  state.result.reset();
  state.banner_until = {};
  state.sound = sound;
  state.sound_until = {};
}

void start() {
  if (show_start([] { return reason().empty(); })) tuner_set_player(&kPlayer);
}

void stop() {
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
