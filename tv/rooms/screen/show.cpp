#include "rooms/screen/show.h"

#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "core/timers.h"
#include "rooms/screen/played.h"
#include "rooms/screen/player/player.h"

namespace {

using std::chrono::seconds;

constexpr seconds kLookTime{2};   // asking for a frame counts as looking for so long
constexpr seconds kLeaveTime{3};  // the player ends so long after the last viewer has stopped looking
// Between two starts of a player: a broken broadcast may change its program map many times a second.
constexpr std::chrono::milliseconds kRestartTime{250};
constexpr seconds kRetryTime{10};  // between two attempts to start a player that does not start

struct State {
  std::mutex lock;  // taken after every room's; guards all members below but the ring and the thread
  std::condition_variable wake;
  bool running = false;
  bool woken = false;
  TimerTime looked_until{};
  TimerTime leave_due{};  // when the timer fires
  ShowFrame newest;
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

// Makes the frame the newest one. The caller holds the lock.
void publish(Jpeg frame, bool shown) {
  state.newest.jpeg = std::move(frame);
  state.newest.shown = shown;
  ++state.newest.number;
}

TimerTime leaves() { return state.looked_until + kLeaveTime; }

// Has the thread woken when the last viewer may have left. Looking only moves that time, and the timer is set again
// when it has fired too early. The caller holds the lock.
void await_leaving(TimerTime now) {
  if (now < state.leave_due || now >= leaves()) return;
  state.leave_due = leaves();
  timer_set(leave_timer, state.leave_due, wake_thread);
}

// ---- The thread ----

struct Show {
  bool (*shows_channel)();
  PlayerHandle player;
  std::optional<PlaybackShown> played = {};         // what the player plays, as it has been told; nothing: a channel
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
  const PlayerWake wake{.wake = [](void*) { wake_thread(); }};
  show.stream = ring_stream(*state.ring);
  show.player = show.played ? played_start(*show.played, wake, error) : player_start(state.ring, wake, error);
  if (show.player != nullptr) show.retry = {};
  const std::lock_guard guard(state.lock);
  if (!error.empty() && error != state.newest.problem) std::fprintf(stderr, "dtv_tv: no picture: %s\n", error.c_str());
  state.newest.problem = std::move(error);
}

// Starts, continues or ends the player, and publishes its next frame.
void turn(Show& show, bool wanted) {
  const auto played = playback_shown();
  if (!wanted || (!played && !show.shows_channel())) return end_player(show);
  // A new player shows nothing of what was before.
  if (played_instance(played) != played_instance(show.played)) end_player(show);
  if (!played && ring_stream(*state.ring) != show.stream) end_player(show);
  if (show.player == nullptr) {
    show.played = played;
    start_player(show);
  }
  if (show.player == nullptr) return;
  if (played) played_tell(*show.player, *show.played, *played);
  const bool rendered = player_step(*show.player, *show.canvas);
  if (played && !played_report(*show.player, *show.played)) {
    end_player(show);
    show.restart = std::chrono::steady_clock::now() + kReopenTime;
  }
  if (!rendered) return;
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

}  // namespace

ShowFrame show_look() {
  const std::lock_guard guard(state.lock);
  const TimerTime now = timer_now();
  state.looked_until = now + kLookTime;
  await_leaving(now);
  state.woken = true;
  state.wake.notify_one();
  return state.newest;
}

bool show_start(bool (*shows_channel)()) {
  Show show{.shows_channel = shows_channel, .player = {}, .empty = {}};
  std::string problem;
  std::vector<std::uint8_t> jpeg;
  if (jpeg_write(*show.canvas, jpeg, problem))
    show.empty = std::make_shared<const std::vector<std::uint8_t>>(std::move(jpeg));
  {
    const std::lock_guard guard(state.lock);
    using std::chrono::microseconds;
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    // Numbers grow from one start of the set to the next, so that a client never takes a new frame for one that it has.
    const auto number = static_cast<std::uint64_t>(std::chrono::duration_cast<microseconds>(since_1970).count());
    state.newest.number = std::max(state.newest.number, number);
    state.newest.problem = std::move(problem);
    state.running = true;
    if (show.empty != nullptr) publish(show.empty, false);
  }
  if (show.empty == nullptr) return false;
  state.thread = std::thread(run, std::move(show));
  return true;
}

void show_stop() {
  {
    const std::lock_guard guard(state.lock);
    state.running = false;
    state.newest.jpeg.reset();
    state.wake.notify_one();
  }
  if (state.thread.joinable()) state.thread.join();
}

void show_clear() {
  const std::lock_guard guard(state.lock);
  state.looked_until = {};
  state.leave_due = {};
  state.newest = {.jpeg = nullptr, .number = state.newest.number, .shown = false, .problem = {}};
}

void show_wake() { wake_thread(); }

void show_packets(std::span<const std::uint8_t> packets) { ring_put(*state.ring, packets); }

void show_changed() {
  const std::lock_guard guard(state.lock);
  state.newest.shown = false;
  state.woken = true;
  state.wake.notify_one();
}
