#include "rooms/screen/show.h"

#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "core/timers.h"
#include "rooms/multiview/multiview.h"
#include "rooms/screen/played.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr seconds kLookTime{2};   // asking for a frame counts as looking for so long
constexpr seconds kLeaveTime{3};  // the players end so long after the last viewer has stopped looking
// Between two starts of a player: a broken broadcast may change its program map many times a second.
constexpr std::chrono::milliseconds kRestartTime{250};
constexpr seconds kRetryTime{10};  // between two attempts to start a player that does not start

using Ring = std::shared_ptr<PacketRing>;

struct State {
  std::mutex lock;  // taken after every room's; guards all members below but the rings and the thread
  std::condition_variable wake;
  bool running = false;
  bool woken = false;
  TimerTime looked_until{};
  TimerTime leave_due{};  // when the timer fires
  ShowFrame newest;
  std::array<Ring, kPictures> rings = {std::make_shared<PacketRing>(), std::make_shared<PacketRing>()};
  std::thread thread;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

Timer leave_timer;

// The caller of the functions below holds the lock.

void wake() {
  state.woken = true;
  state.wake.notify_one();
}

TimerTime leaves() { return state.looked_until + kLeaveTime; }

// Has the thread woken when the last viewer may have left. Looking only moves that time, and the timer is set again
// when it has fired too early.
void await_leaving(TimerTime now) {
  if (now < state.leave_due || now >= leaves()) return;
  state.leave_due = leaves();
  timer_set(leave_timer, state.leave_due, show_wake);
}

// ---- The thread ----

// A place on the canvas.
struct Place {
  int x = 0, y = 0, width = 0, height = 0;
  bool operator==(const Place&) const = default;
};

struct Picture {
  Ring ring;
  Place place = {};
  PlayerHandle player = {};
  std::uint64_t stream = 0;                // of the ring, that it plays
  std::optional<PlaybackShown> told = {};  // what the player knows of the file that it plays in place of the ring
  TimerTime retry = {};                    // no player is started before, after one that did not start
  steady_clock::time_point restart{};      // nor before this
  const Drawer* drawer = nullptr;          // draws in place of a player
  std::uint64_t newest = 0;                // number of the picture that the drawer drew last
  std::unique_ptr<Canvas> canvas = {};     // while there is a player or a drawer
  bool drawn = false;                      // the canvas has a picture, in the place's size
};

struct Show {
  ShowPlan (*plan)();
  Jpeg empty;
  std::array<Picture, kPictures> pictures;
  std::unique_ptr<Canvas> canvas = {};  // both pictures; while there is a player
  bool rests = true;                    // no player has been started since player_rest
  bool composed = false;                // the newest frame has the pictures as they are
  steady_clock::time_point next_frame = {};
};

Place place_of(const VEXTVAPI_REGION_T& region) {
  const auto scaled = [](std::uint32_t panel, std::uint32_t of, int canvas) {
    return static_cast<int>(std::min(panel, of) * static_cast<std::uint32_t>(canvas) / of);
  };
  const int x = scaled(region.x, kPanelWidth, kScreenWidth), y = scaled(region.y, kPanelHeight, kScreenHeight);
  const int right = scaled(region.x + region.width, kPanelWidth, kScreenWidth);
  const int bottom = scaled(region.y + region.height, kPanelHeight, kScreenHeight);
  return {.x = x, .y = y, .width = std::max(right - x, 0), .height = std::max(bottom - y, 0)};
}

// The library may write beyond the end of a row, so each picture has a canvas of its own, which is copied.
void copy_picture(const Picture& picture, Canvas& ret_canvas) {
  const auto [x, y, width, height] = picture.place;
  for (int row = 0; row < height; ++row) {
    std::uint8_t* const to =
        &ret_canvas
             .pixels[static_cast<std::size_t>(y + row) * kScreenStride + std::size_t{4} * static_cast<std::size_t>(x)];
    const std::size_t bytes = std::size_t{4} * static_cast<std::size_t>(width);
    if (picture.drawn)
      std::memcpy(to, &picture.canvas->pixels[static_cast<std::size_t>(row) * kScreenStride], bytes);
    else
      std::memset(to, 0, bytes);
  }
}

std::optional<PlayedStream> played(const Picture& picture, TrackKind kind) {
  if (picture.player == nullptr) return std::nullopt;
  for (const PlayerTrack& each : player_facts(*picture.player).tracks)
    if (each.kind == kind && each.chosen) return PlayedStream{.pid = each.pid, .language = each.language};
  return std::nullopt;
}

// Makes the frame the newest one.
void publish(const Show& show, Jpeg frame) {
  const std::lock_guard guard(state.lock);
  state.newest.jpeg = std::move(frame);
  ++state.newest.number;
  for (std::size_t i = 0; i < kPictures; ++i) state.newest.pictures[i].shown = show.pictures[i].drawn;
}

// The present picture must not be shown any more.
void empty(Show& show, Picture& picture) {
  picture.canvas.reset();
  picture.drawn = show.composed = false;
  show.next_frame = {};
}

void end_player(Show& show, Picture& picture) {
  if (picture.player == nullptr) return;
  picture.player.reset();
  empty(show, picture);
  malloc_trim(0);  // returns what a player has freed, 10 MB and more, to the system
}

// Lets the drawer draw its newest picture, unless the canvas has that picture in the right size.
void follow_drawer(Show& show, Picture& picture) {
  if (picture.place.width <= 0 || picture.place.height <= 0) return;
  if (picture.canvas == nullptr) picture.canvas = std::make_unique<Canvas>();
  Canvas& canvas = *picture.canvas;
  const bool resized = canvas.width != picture.place.width || canvas.height != picture.place.height;
  canvas.width = picture.place.width;
  canvas.height = picture.place.height;
  const std::uint64_t newest = picture.drawer->newest(canvas.width, canvas.height);
  if (newest == picture.newest && !resized && (picture.drawn || newest == 0)) return;
  const bool was_drawn = std::exchange(picture.drawn, newest != 0 && picture.drawer->draw(canvas));
  picture.newest = newest;
  if (picture.drawn || was_drawn) show.composed = false;
}

void start_player(Show& show, Picture& picture, const PicturePlan& plan, std::string& ret_error) {
  const TimerTime now = timer_now();
  picture.restart = steady_clock::now() + kRestartTime;
  picture.retry = now + kRetryTime;
  picture.stream = ring_stream(*picture.ring);
  picture.told = plan.file;
  const PlayerWake wake{.wake = [](void*) { show_wake(); }};
  picture.player = plan.file ? played_start(*plan.file, wake, ret_error) : player_start(picture.ring, wake, ret_error);
  if (picture.player == nullptr) return;
  picture.retry = {};
  show.rests = false;
  picture.canvas = std::make_unique<Canvas>();
}

// Reports why there is no player; empty: there is one. What is wrong with the second picture does not concern the main.
void tell(const Show& show, const Picture& picture, std::string error) {
  const std::lock_guard guard(state.lock);
  if (!error.empty() && error != state.newest.problem) std::fprintf(stderr, "dtv_tv: no picture: %s\n", error.c_str());
  if (&picture == show.pictures.data()) state.newest.problem = std::move(error);
}

// Starts, continues or ends the picture's player.
void follow(Show& show, Picture& picture, const PicturePlan& plan) {
  if (const Drawer* const drawer = plan.region ? plan.drawer : nullptr; drawer != picture.drawer) {
    end_player(show, picture);
    empty(show, picture);
    picture.drawer = drawer;
    picture.newest = 0;
  }
  if (picture.drawer != nullptr) return follow_drawer(show, picture);
  const std::uint64_t stream = ring_stream(*picture.ring);
  if (&picture != show.pictures.data() && !plan.region && stream != 0) ring_forget(*picture.ring);
  const bool plays = plan.plays && plan.region && (plan.file || stream != 0);
  const bool same = plan.file ? played_instance(plan.file) == played_instance(picture.told)
                              : !picture.told && stream == picture.stream;
  // A new player shows nothing of what was before.
  if (!plays || !same) end_player(show, picture);
  if (!plays) return;
  if (picture.player == nullptr && timer_now() >= picture.retry && steady_clock::now() >= picture.restart) {
    std::string error;
    start_player(show, picture, plan, error);
    tell(show, picture, std::move(error));
  }
  if (picture.player == nullptr) return;
  if (plan.file)
    played_tell(*picture.player, *picture.told, *plan.file);
  else
    player_choose_streams(*picture.player, plan.audio, plan.subtitle);
  Canvas& canvas = *picture.canvas;
  const bool resized = canvas.width != picture.place.width || canvas.height != picture.place.height;
  canvas.width = picture.place.width;
  canvas.height = picture.place.height;
  if (player_step(*picture.player, canvas)) {
    picture.drawn = true;
    show.composed = false;
  } else if (resized && picture.drawn) {
    picture.drawn = player_draw(*picture.player, canvas);
  }
  if (plan.file && !played_report(*picture.player, *picture.told)) {
    end_player(show, picture);
    picture.restart = steady_clock::now() + kReopenTime;
  }
}

// Moves the pictures. Black is what no picture covers.
void lay_out(Show& show, const ShowPlan& plan) {
  bool moved = false;
  for (std::size_t i = 0; i < kPictures; ++i) {
    std::optional<VEXTVAPI_REGION_T> region = plan[i].region;
    VEXTVAPI_REGION_T own{};
    if (region && plan[i].drawer != nullptr && plan[i].drawer->place != nullptr && plan[i].drawer->place(own))
      region = own;
    const Place place = region ? place_of(*region) : Place{};
    moved = std::exchange(show.pictures[i].place, place) != place || moved;
  }
  if (!moved) return;
  show.composed = false;
  show.next_frame = {};
}

void report_streams(const Show& show) {
  std::array<PlayedPicture, kPictures> now;
  for (std::size_t i = 0; i < kPictures; ++i) {
    if (const PlayerHandle& player = show.pictures[i].player) now[i].video = player_facts(*player).video;
    now[i].audio = played(show.pictures[i], TrackKind::kAudio);
    now[i].subtitle = played(show.pictures[i], TrackKind::kSubtitle);
  }
  const std::lock_guard guard(state.lock);
  for (std::size_t i = 0; i < kPictures; ++i) {
    state.newest.pictures[i].video = now[i].video;
    state.newest.pictures[i].audio = std::move(now[i].audio);
    state.newest.pictures[i].subtitle = std::move(now[i].subtitle);
  }
}

void compose(Show& show) {
  if (show.canvas == nullptr) show.canvas = std::make_unique<Canvas>();
  show.canvas->pixels.fill(0);
  for (const Picture& picture : show.pictures) copy_picture(picture, *show.canvas);
  std::vector<std::uint8_t> jpeg;
  std::string error;
  if (jpeg_write(*show.canvas, jpeg, error))
    publish(show, std::make_shared<const std::vector<std::uint8_t>>(std::move(jpeg)));
}

void turn(Show& show, bool wanted) {
  const ShowPlan plan = wanted ? show.plan() : ShowPlan{};
  lay_out(show, plan);
  for (std::size_t i = 0; i < kPictures; ++i) follow(show, show.pictures[i], plan[i]);
  report_streams(show);
  const bool idle = !wanted && std::ranges::all_of(show.pictures, [](const Picture& each) { return !each.player; });
  if (idle && !std::exchange(show.rests, true)) player_rest();
  const auto now = steady_clock::now();
  if (show.composed || now < show.next_frame) return;
  show.composed = true;
  if (std::ranges::any_of(show.pictures, &Picture::drawn)) {
    // As in player_step: the average of a frame's time is kept.
    show.next_frame = std::max(show.next_frame, now - kFrameTime / 2) + kFrameTime;
    return compose(show);
  }
  // A canvas is there since the first frame that was not empty.
  if (std::exchange(show.canvas, nullptr) != nullptr) publish(show, show.empty);
}

void run(Show show) {
  pthread_setname_np(pthread_self(), "dtv_tv-screen");
  std::unique_lock guard(state.lock);
  while (true) {
    const auto is_woken = [] { return state.woken || !state.running; };
    // Without a player it may wait for the next start.
    if (timer_now() < leaves())
      state.wake.wait_for(guard, show.composed ? kReopenTime : kFrameTime, is_woken);
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
  for (Picture& picture : show.pictures) picture.player.reset();
}

}  // namespace

ShowFrame show_look() {
  const std::lock_guard guard(state.lock);
  const TimerTime now = timer_now();
  state.looked_until = now + kLookTime;
  await_leaving(now);
  wake();
  return state.newest;
}

bool show_start(ShowPlan (*plan)()) {
  Show show{
      .plan = plan, .empty = {}, .pictures = {{{.ring = state.rings[0]}, {.ring = state.rings[1]}}}, .composed = true};
  std::string problem;
  std::vector<std::uint8_t> jpeg;
  if (jpeg_write(*std::make_unique<Canvas>(), jpeg, problem))
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
  }
  if (show.empty == nullptr) return false;
  publish(show, show.empty);
  state.thread = std::thread(run, std::move(show));
  return true;
}

void show_stop() {
  {
    const std::lock_guard guard(state.lock);
    state.running = false;
    state.wake.notify_one();
  }
  if (state.thread.joinable()) state.thread.join();
  const std::lock_guard guard(state.lock);
  state.newest.jpeg.reset();
}

void show_clear() {
  const std::lock_guard guard(state.lock);
  state.looked_until = {};
  state.leave_due = {};
  state.newest = {.jpeg = nullptr, .number = state.newest.number, .pictures = {}, .problem = {}};
}

void show_packets(PicturePlace place, std::span<const std::uint8_t> packets) {
  ring_put(*state.rings[static_cast<std::size_t>(place)], packets);
}

void show_changed(PicturePlace place) {
  ring_forget(*state.rings[static_cast<std::size_t>(place)]);
  const std::lock_guard guard(state.lock);
  state.newest.pictures[static_cast<std::size_t>(place)].shown = false;
  wake();
}

void show_wake() {
  const std::lock_guard guard(state.lock);
  wake();
}
