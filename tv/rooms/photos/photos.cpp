// The image viewer: the displayed picture, its view, and the slide show. application.cpp opens the pictures of
// applications, commands.cpp has the viewer's commands, decoder.cpp the thread that decodes.
#include "rooms/photos/photos.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <utility>

#include "core/events.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/timers.h"
#include "rooms/library/library.h"
#include "rooms/media_player/media_player.h"
#include "rooms/photos/application.h"
#include "rooms/photos/commands.h"
#include "rooms/photos/state.h"
#include "rooms/remote/remote.h"
#include "rooms/screen/show.h"
#include "rooms/usb/usb.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kFadeTime{600};
constexpr int kMostBroken = 20;  // photos in a row that a slide show skips, since they cannot be shown

struct State {
  std::mutex lock;  // guards the members below; taken after every room's and the store's; the timers' is taken under it
  std::optional<Photo> shown;
  std::optional<Photo> before;  // the picture that fades out
  TimerTime fade_begin = {};
  bool leaves = false;  // photos_leave was called
  // Incremented when the display ends or is to end. A photo that was queued before is then dropped.
  std::uint64_t turn = 0;
  bool slides = false;
  seconds slide_time{kUsualSlide};
  TimerTime slide_due = kTimerNever;
  int broken = 0;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

std::atomic<bool> displayed = false;    // read without the lock
std::atomic<std::uint64_t> newest = 0;  // number of the newest picture; changed under the lock

Timer slide_timer;
Timer leave_timer;
Timer sticks_timer;

void slide_on();

// The caller of the functions below holds the lock.

void changed() { ++newest; }

void set_slide() {
  state.slide_due = timer_now() + state.slide_time;
  timer_set(slide_timer, state.slide_due, slide_on);
}

void stop_slides() {
  state.slides = false;
  state.slide_due = kTimerNever;
}

void close_now() {
  ++state.turn;
  state.shown.reset();
  state.before.reset();
  displayed = false;
  stop_slides();
  changed();
}

// ---- The slide show, on the timer thread and the decoder's ----

// Opens the file; null with ret_why.
PhotoFile open_file(const std::string& path, std::string& ret_why) {
  const int file = media_player_open_file(path, ret_why);
  return file < 0 ? nullptr : photo_file(file);
}

void take_slide(const std::string& path, std::uint64_t turn, DecodedPhoto decoded);

// As photo_display. turn: if it is no longer State::turn, the photo is dropped; nothing: the photo is displayed in any
// case.
void display(const Photo& photo, std::optional<std::uint64_t> turn);

// Queues the file to be opened and decoded, for the slide show or a key. Opening waits for the stick, so the decoder's
// thread does it.
void queue(const std::string& path, std::uint64_t turn) {
  decoder_queue([path](std::string& ret_why) { return open_file(path, ret_why); }, path,
                [path, turn](DecodedPhoto decoded) { take_slide(path, turn, std::move(decoded)); });
}

// The first photo of the path's folder; nothing: there is no other than the path.
std::optional<std::string> first_of(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  const std::vector<LibraryEntry> entries = library_folder(folder, MEDIA_TYPE_PHOTO, 0, 1);
  if (entries.empty() || entries[0].path == path) return std::nullopt;
  return entries[0].path;
}

std::optional<std::string> next_of(const std::string& path, int step) {
  if (const auto entry = library_neighbour(path, step)) return entry->path;
  return step > 0 ? first_of(path) : std::nullopt;
}

// Takes a photo that the slide show or a key has requested: displays it, or goes on to the next if it cannot be shown.
void take_slide(const std::string& path, std::uint64_t turn, DecodedPhoto decoded) {
  if (decoded.picture != nullptr) return display({.path = path, .decoded = std::move(decoded)}, turn);
  std::fprintf(stderr, "dtv_tv: the photo %s is skipped: %s\n", quoted(path).c_str(), decoded.why.c_str());
  bool goes_on = false;
  {
    const std::lock_guard guard(state.lock);
    if (turn != state.turn) return;
    goes_on = state.slides && ++state.broken < kMostBroken;
    if (!goes_on) stop_slides();
  }
  if (!goes_on) return;
  if (const auto next = next_of(path, 1)) queue(*next, turn);
}

void slide_on() {
  std::string path;
  std::uint64_t turn = 0;
  {
    const std::lock_guard guard(state.lock);
    if (!state.slides || !state.shown || timer_now() < state.slide_due) return;
    path = state.shown->path;
    turn = state.turn;
    set_slide();  // tries again later if the next photo cannot be shown
  }
  if (const auto next = next_of(path, 1)) queue(*next, turn);
}

// ---- What the screen draws ----

std::uint64_t number(int, int) {
  if (!displayed) return 0;
  const std::lock_guard guard(state.lock);
  if (state.before) {  // during a fade, each call is about another picture
    changed();
    if (timer_now() >= state.fade_begin + kFadeTime) state.before.reset();
  }
  return newest;
}

bool draw(Canvas& ret_canvas) {
  std::optional<Photo> shown, before;
  TimerTime fade_begin;
  {
    const std::lock_guard guard(state.lock);
    shown = state.shown;
    before = state.before;
    fade_begin = state.fade_begin;
  }
  if (!shown) return false;
  view_draw(*shown->decoded.picture, shown->view, ret_canvas);
  if (!before) return true;
  const auto past = std::chrono::duration_cast<milliseconds>(timer_now() - fade_begin);
  const auto left = static_cast<int>(std::clamp<std::int64_t>(256 - past * 256 / kFadeTime, 0, 256));
  const auto canvas = std::make_unique<Canvas>();
  canvas->width = ret_canvas.width;
  canvas->height = ret_canvas.height;
  view_draw(*before->decoded.picture, before->view, *canvas);
  view_mix(*canvas, left, ret_canvas);
  return true;
}

constexpr Drawer kDrawer{.newest = number, .draw = draw};

// Ends the display if photos_leave or a removed stick wants it.
void leave_now() {
  {
    const std::lock_guard guard(state.lock);
    if (!std::exchange(state.leaves, false)) return;
    close_now();
  }
  decoder_forget();
  show_wake();
}

void look_at_sticks() {
  application_look_at_sticks();
  const auto shown = photo_shown();
  if (shown && !media_player_is_own_file(shown->path) && !usb_stick_of(shown->path)) photo_close();
}

}  // namespace

std::optional<Photo> photo_shown() {
  const std::lock_guard guard(state.lock);
  return state.shown;
}

bool photo_slides() {
  const std::lock_guard guard(state.lock);
  return state.slides;
}

void photo_display(const Photo& photo) { display(photo, std::nullopt); }

namespace {

void display(const Photo& photo, std::optional<std::uint64_t> turn) {
  {
    const std::lock_guard guard(state.lock);
    if (turn && *turn != state.turn) return;
    state.leaves = false;
    state.before.reset();
    if (state.shown && state.shown->path != photo.path && application_effect() == VEXTVAPI_IMAGE_EFFECT_FADE) {
      state.before = std::move(state.shown);
      state.fade_begin = timer_now();
    }
    state.shown = photo;
    state.broken = 0;
    displayed = true;
    if (state.slides) set_slide();
    changed();
  }
  if (!photo.application) application_forget();
  library_note_played(photo.path);
  show_wake();
  if (!remote_is_on()) photos_leave();  // the set went to standby meanwhile
}

}  // namespace

bool photo_change_view(void (*change)(PhotoView& view, int number), int number) {
  {
    const std::lock_guard guard(state.lock);
    if (!state.shown) return false;
    change(state.shown->view, number);
    changed();
  }
  show_wake();
  return true;
}

void photo_close() {
  {
    const std::lock_guard guard(state.lock);
    close_now();
  }
  decoder_forget();
  show_wake();
}

std::string photo_show(const std::string& path) {
  if (!remote_is_on()) return "the set is in standby";
  std::string why;
  PhotoFile file = open_file(path, why);
  if (file == nullptr) return why;
  DecodedPhoto decoded = decoder_decode(file, path);
  if (decoded.picture == nullptr) return quoted(path) + " cannot be shown: " + decoded.why;
  photo_display({.path = path, .decoded = std::move(decoded)});
  return {};
}

std::optional<std::string> photo_neighbour(int step) {
  const auto shown = photo_shown();
  return shown ? next_of(shown->path, step) : std::nullopt;
}

std::string photo_slide_show(bool runs, int between) {
  const std::lock_guard guard(state.lock);
  if (runs && !state.shown) return "no photo is displayed; show one first";
  if (!runs) {
    stop_slides();
    return {};
  }
  state.slides = true;
  state.broken = 0;
  state.slide_time = seconds(std::clamp(between, kLeastSlide, kMostSlide));
  set_slide();
  return {};
}

// ---- For the other rooms ----

const Drawer* photos_drawer() { return displayed ? &kDrawer : nullptr; }

std::optional<PhotoShown> photos_shown() {
  const std::lock_guard guard(state.lock);
  if (!state.shown) return std::nullopt;
  return PhotoShown{.path = state.shown->path, .application = state.shown->application, .slide_show = state.slides};
}

std::string photos_show(const std::string& path) { return photo_show(path); }

std::string photos_slide_show(bool runs) { return photo_slide_show(runs, kUsualSlide); }

bool photos_press_next(int step) {
  std::string path;
  std::uint64_t turn = 0;
  {
    const std::lock_guard guard(state.lock);
    if (!state.shown) return false;
    path = state.shown->path;
    turn = state.turn;
  }
  if (const auto next = next_of(path, step)) queue(*next, turn);
  return true;
}

bool photos_press_stop() {
  if (!displayed) return false;
  photo_close();
  return true;
}

bool photos_press_pause() {
  if (!displayed) return false;
  photo_slide_show(!photo_slides(), kUsualSlide);
  return true;
}

bool photos_press_zoom() {
  return photo_change_view(
      [](PhotoView& view, int) {
        constexpr int kSteps[] = {kFitZoom, 150, 200, 400};
        const int* const next = std::ranges::upper_bound(kSteps, view.zoom);
        view.zoom = next == std::end(kSteps) ? kFitZoom : *next;
      },
      0);
}

bool photos_press_turn() {
  return photo_change_view([](PhotoView& view, int) { view.rotation = (view.rotation + 90) % 360; }, 0);
}

void photos_leave() {
  if (!displayed) return;
  const std::lock_guard guard(state.lock);
  ++state.turn;
  state.leaves = true;
  timer_set(leave_timer, timer_now(), leave_now);
}

void photos_sticks_changed() { timer_set(sticks_timer, timer_now(), look_at_sticks); }

namespace {

void load() {
  application_clear();
  const std::lock_guard guard(state.lock);
  close_now();
  state.leaves = false;
}

bool reset() {
  application_clear();
  photo_close();
  return true;
}

}  // namespace

const Room room_photos = {
    .commands = kPhotoCommands, .load = load, .reset = reset, .start = decoder_start, .stop = decoder_stop};
