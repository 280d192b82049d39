// The set's screen: the main picture's frames as JPEGs, and what is drawn over them as text.
//
// The picture costs nothing while nobody looks. Asking for a frame counts as looking. The room's thread then starts a
// player for the main picture's packets, and ends it some seconds after the last viewer has left. Without a picture (no
// signal, standby, another source) the newest frame is an empty one; the page writes the reason on it.
#include <absl/strings/escaping.h>
#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "core/reply.h"
#include "core/room.h"
#include "core/timers.h"
#include "dtv_tv.h"
#include "rooms/clock/clock.h"
#include "rooms/guide/guide.h"
#include "rooms/remote/remote.h"
#include "rooms/screen/player/player.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner.h"

namespace {

using std::chrono::seconds;

constexpr seconds kLookTime{2};    // asking for a frame counts as looking for so long
constexpr seconds kLeaveTime{3};   // the player ends so long after the last viewer has stopped looking
constexpr seconds kBannerTime{5};  // after a channel change or INFO
constexpr seconds kVolumeTime{3};  // after a change of the volume
// Between two starts of a player: a broken broadcast may change its program map many times a second.
constexpr std::chrono::milliseconds kRestartTime{250};
constexpr seconds kRetryTime{10};  // between two attempts to start a player that does not start

using Jpeg = std::shared_ptr<const std::vector<std::uint8_t>>;

struct Sound {
  std::int64_t volume = 0;
  bool mute = false;
  bool operator==(const Sound&) const = default;
};

struct State {
  std::mutex lock;  // taken after every other room's; guards all members below but the ring and the thread
  std::condition_variable wake;
  bool running = false;
  bool woken = false;
  TimerTime looked_until{};
  TimerTime leave_due{};  // when the timer fires
  Jpeg newest;
  std::uint64_t number = 0;            // of the newest frame
  bool shown = false;                  // the newest frame is the channel's
  std::string problem;                 // why this television can show no picture; empty: it can
  std::optional<ChangeResult> result;  // of the last channel change
  TimerTime banner_until{};
  Sound sound;  // as last reported
  TimerTime sound_until{};
  std::shared_ptr<PacketRing> ring = std::make_shared<PacketRing>();
  std::thread thread;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

Timer leave_timer;

void wake_thread() {
  const std::lock_guard guard(state.lock);
  state.woken = true;
  state.wake.notify_one();
}

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

// Why the screen shows no channel; empty: it shows one. Takes other rooms' locks, so the caller holds none.
std::string_view reason() {
  if (!remote_is_on()) return "standby";
  if (!sources_is_tv()) return "source";
  if (!tuner_channel()) return "no_channel";
  const std::lock_guard guard(state.lock);
  if (!state.result) return "tuning";
  const auto* const row = std::ranges::find(kReasons, *state.result, &ReasonRow::result);
  return row != std::end(kReasons) ? row->reason : "no_signal";
}

// Makes the frame the newest one. The caller holds the lock.
void publish(Jpeg frame, bool shown) {
  state.newest = std::move(frame);
  state.shown = shown;
  ++state.number;
}

TimerTime leaves() { return state.looked_until + kLeaveTime; }

// Has the thread woken when the last viewer may have left. Looking only moves that time, and the timer is set again
// when it has fired too early. The caller of this function and of look holds the lock.
void await_leaving(TimerTime now) {
  if (now < state.leave_due || now >= leaves()) return;
  state.leave_due = leaves();
  timer_set(leave_timer, state.leave_due, wake_thread);
}

// Counts the caller as a viewer.
void look() {
  const TimerTime now = timer_now();
  state.looked_until = now + kLookTime;
  await_leaving(now);
  state.woken = true;
  state.wake.notify_one();
}

// ---- The thread ----

struct Show {
  PlayerHandle player;
  std::uint64_t stream = 0;                         // that it plays
  TimerTime retry{};                                // no player is started before, after one that did not start
  std::chrono::steady_clock::time_point restart{};  // nor before this
  Jpeg empty;
  std::unique_ptr<Canvas> canvas = std::make_unique<Canvas>();
};

void end_player(Show& show) {
  if (show.player == nullptr) return;
  show.player.reset();
  malloc_trim(0);  // what a player leaves behind, 10 MB and more, goes back to the system
  const std::lock_guard guard(state.lock);
  publish(show.empty, false);
}

void start_player(Show& show) {
  std::string error;
  const TimerTime now = timer_now();
  if (now < show.retry || std::chrono::steady_clock::now() < show.restart) return;
  show.restart = std::chrono::steady_clock::now() + kRestartTime;
  show.retry = now + kRetryTime;
  show.stream = ring_stream(*state.ring);
  show.player = player_start(state.ring, {.wake = [](void*) { wake_thread(); }}, error);
  if (show.player != nullptr) show.retry = {};
  const std::lock_guard guard(state.lock);
  if (!error.empty() && error != state.problem) std::fprintf(stderr, "dtv_tv: no picture: %s\n", error.c_str());
  state.problem = std::move(error);
}

// Starts, continues or ends the player, and publishes its next frame.
void turn(Show& show, bool wanted) {
  if (!wanted || !reason().empty()) return end_player(show);
  // A new player shows nothing of the channel before.
  if (ring_stream(*state.ring) != show.stream) end_player(show);
  if (show.player == nullptr) start_player(show);
  if (show.player == nullptr) return;
  if (!player_step(*show.player, *show.canvas)) return;
  std::vector<std::uint8_t> jpeg;
  std::string error;
  if (!jpeg_write(*show.canvas, jpeg, error)) return;
  const std::lock_guard guard(state.lock);
  publish(std::make_shared<const std::vector<std::uint8_t>>(std::move(jpeg)), true);
}

void run(Show show) {
  pthread_setname_np(pthread_self(), "dtv_tv-screen");
  std::unique_lock guard(state.lock);
  while (true) {
    const auto is_woken = [] { return state.woken || !state.running; };
    // Without a player it may wait for the next start.
    if (timer_now() < leaves())
      state.wake.wait_for(guard, kReopenTime, is_woken);
    else
      state.wake.wait(guard, is_woken);
    if (!state.running) break;
    state.woken = false;
    const TimerTime now = timer_now();
    const bool wanted = now < leaves();
    await_leaving(now);
    guard.unlock();
    turn(show, wanted);
    guard.lock();
  }
  guard.unlock();
  show.player.reset();
}

// ---- The tuner ----

// On the reception's thread.
void take_packets(void*, std::span<const std::uint8_t> packets) { ring_put(*state.ring, packets); }

void take_change(void*, ChangeResult result) {
  const std::lock_guard guard(state.lock);
  state.result = result;
  state.shown = false;
  state.banner_until = timer_now() + kBannerTime;
  state.woken = true;
  state.wake.notify_one();
}

constexpr TunerPlayer kPlayer{.packets = take_packets, .changed = take_change};

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
  boost::json::object reply;
  Jpeg frame;
  bool with_banner = false;
  {
    const std::lock_guard guard(state.lock);
    const TimerTime now = timer_now();
    look();
    if (!state.problem.empty() && (why.empty() || state.newest == nullptr)) {
      why = "unavailable";
      reply["problem"] = state.problem;
    }
    reply["picture"] = why.empty() ? "channel" : "none";
    if (!why.empty()) reply["reason"] = why;
    reply["shown"] = why.empty() && state.shown;
    with_banner = (info || now < state.banner_until) && why != "standby" && why != "source";
    if (std::exchange(state.sound, sound) != sound) state.sound_until = now + kVolumeTime;
    if (now < state.sound_until) {
      reply["volume"] = sound.volume;
      reply["mute"] = sound.mute;
    }
    frame = state.newest;
  }
  reply["source"] = sources_name(sources_current());
  if (with_banner)
    if (const auto channel = tuner_channel()) reply["banner"] = banner(*channel);
  if (!arguments.empty() && frame != nullptr)
    reply["jpeg"] = absl::Base64Escape({reinterpret_cast<const char*>(frame->data()), frame->size()});
  return reply;
}

// ---- The room ----

void load() {
  const Sound sound = sound_now();
  const std::lock_guard guard(state.lock);
  state.looked_until = {};
  state.leave_due = {};
  state.newest.reset();
  state.shown = false;
  state.problem.clear();
  state.result.reset();
  state.banner_until = {};
  state.sound = sound;
  state.sound_until = {};
}

void start() {
  Show show;
  std::string problem;
  std::vector<std::uint8_t> jpeg;
  if (jpeg_write(*show.canvas, jpeg, problem))
    show.empty = std::make_shared<const std::vector<std::uint8_t>>(std::move(jpeg));
  {
    const std::lock_guard guard(state.lock);
    using std::chrono::microseconds;
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    // Numbers grow from one start of the set to the next, so that a client never takes a new frame for one that it has.
    state.number = std::max(state.number,
                            static_cast<std::uint64_t>(std::chrono::duration_cast<microseconds>(since_1970).count()));
    state.running = true;
    state.problem = std::move(problem);
    if (show.empty != nullptr) publish(show.empty, false);
  }
  if (show.empty == nullptr) return;
  state.thread = std::thread(run, std::move(show));
  tuner_set_player(&kPlayer);
}

void stop() {
  tuner_set_player(nullptr);
  {
    const std::lock_guard guard(state.lock);
    state.running = false;
    state.newest.reset();
    state.wake.notify_one();
  }
  if (state.thread.joinable()) state.thread.join();
}

constexpr Command kCommands[] = {
    {"screen", "[FILE]", 1, "Reports what the screen shows; dtvctl also saves its picture, a JPEG, in FILE",
     screen_command},
};

}  // namespace

std::uint64_t dtv_tv_screen(std::uint64_t after, std::uint8_t** ret_jpeg, std::uint32_t* ret_size) {
  Jpeg frame;
  std::uint64_t number = 0;
  {
    const std::lock_guard guard(state.lock);
    if (state.newest == nullptr) return 0;
    look();
    frame = state.newest;
    number = state.number;
  }
  if (number <= after || ret_jpeg == nullptr || ret_size == nullptr) return number;
  auto* const bytes = static_cast<std::uint8_t*>(std::malloc(frame->size()));
  if (bytes == nullptr) return 0;
  std::memcpy(bytes, frame->data(), frame->size());
  *ret_jpeg = bytes;
  *ret_size = static_cast<std::uint32_t>(frame->size());
  return number;
}

const Room room_screen = {.commands = kCommands, .load = load, .start = start, .stop = stop};
