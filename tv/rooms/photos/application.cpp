#include "rooms/photos/application.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

#include "core/reply.h"
#include "core/text.h"
#include "rooms/library/library.h"
#include "rooms/media_player/media_player.h"
#include "rooms/photos/state.h"
#include "rooms/remote/remote.h"
#include "rooms/usb/usb.h"

namespace {

constexpr std::size_t kLongestPath = 255;
constexpr INT32 kLargestThumbnail = 1280;  // pixels, wide and high
constexpr std::size_t kThumbnailPath = 256;

struct Opened {
  Photo photo = {};
  PhotoFile file = {};
  std::uint64_t serial = 0;
};

struct State {
  std::mutex lock;  // guards the members below; no other lock is taken under it
  bool ready = false;
  std::uint64_t serial = 0;  // number of the picture that was opened last
  std::optional<Opened> opened;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

std::atomic<INT32> effect = 0;

constexpr std::array kRotations = {VEXTVAPI_IMAGE_ROTATION_NONE, VEXTVAPI_IMAGE_ROTATION_RIGHT,
                                   VEXTVAPI_IMAGE_ROTATION_HALF, VEXTVAPI_IMAGE_ROTATION_LEFT};

std::optional<Opened> opened() {
  const std::lock_guard guard(state.lock);
  return state.opened;
}

// Changes the view of the open picture, and of the displayed one if that is the same picture.
INT32 turn(const char* function, void (*change)(PhotoView& view, int number), int number) {
  std::string path;
  {
    const std::lock_guard guard(state.lock);
    if (!state.opened) return refuse_call(function, "no picture is open");
    if (state.opened->photo.decoded.picture == nullptr)
      return refuse_call(function, "the picture has not been decoded yet");
    change(state.opened->photo.view, number);
    path = state.opened->photo.path;
  }
  if (const auto shown = photo_shown(); shown && shown->application && shown->path == path)
    photo_change_view(change, number);
  return 0;
}

}  // namespace

INT32 a_vextvapi_img_playback_initRes() {
  const std::lock_guard guard(state.lock);
  state.ready = true;
  return 0;
}

INT32 a_vextvapi_img_playback_deinitRes() {
  {
    const std::lock_guard guard(state.lock);
    state.ready = false;
    state.opened.reset();
  }
  effect = 0;
  if (const auto shown = photo_shown(); shown && shown->application) photo_close();
  return 0;
}

INT32 a_vextvapi_img_playback_open(const char* path, INT32 mode, INT32 flags) {
  if (path == nullptr) return refuse_call(__func__, "there is no path");
  const std::string_view name(path);
  if (name.empty() || name.size() > kLongestPath)
    return refuse_call(__func__, "a path has 1 to " + std::to_string(kLongestPath) + " bytes");
  if (mode < VEXTVAPI_IMAGE_MODE_FLAT || mode > VEXTVAPI_IMAGE_MODE_TOP_AND_BOTTOM)
    return refuse_call(__func__, "the mode is 0, 1 or 2, not " + std::to_string(mode));
  if (flags != 0) return refuse_call(__func__, "the flags are 0, not " + std::to_string(flags));
  {
    const std::lock_guard guard(state.lock);
    if (!state.ready) return refuse_call(__func__, "the image player has not been prepared (initRes)");
  }
  std::string why;
  const int file = media_player_open_file(path, why);
  if (file < 0) return refuse_call(__func__, why);
  const std::lock_guard guard(state.lock);
  state.opened = Opened{.photo = {.path = std::string(name), .application = true, .mode = mode},
                        .file = photo_file(file),
                        .serial = ++state.serial};
  return 0;
}

INT32 a_vextvapi_img_playback_close() {
  {
    const std::lock_guard guard(state.lock);
    if (!state.opened) return refuse_call(__func__, "no picture is open");
    state.opened.reset();
  }
  if (const auto shown = photo_shown(); shown && shown->application) photo_close();
  return 0;
}

INT32 a_vextvapi_img_playback_decode() {
  const auto present = opened();
  if (!present) return refuse_call(__func__, "no picture is open");
  if (present->photo.decoded.picture != nullptr) return 0;
  DecodedPhoto decoded = decoder_decode(present->file, present->photo.path);
  if (decoded.picture == nullptr) return refuse_call(__func__, quoted(present->photo.path) + ": " + decoded.why);
  const std::lock_guard guard(state.lock);
  if (!state.opened || state.opened->serial != present->serial)
    return refuse_call(__func__, "the picture was closed meanwhile");
  state.opened->photo.decoded = std::move(decoded);
  return 0;
}

INT32 a_vextvapi_img_playback_display() {
  const auto present = opened();
  if (!present) return refuse_call(__func__, "no picture is open");
  if (present->photo.decoded.picture == nullptr) return refuse_call(__func__, "the picture has not been decoded yet");
  if (!remote_is_on()) return refuse_call(__func__, "the set is in standby");
  photo_display(present->photo);
  return 0;
}

INT32 a_vextvapi_img_playback_rotate(INT32 rotation) {
  if (std::ranges::find(kRotations, rotation) == kRotations.end())
    return refuse_call(__func__, "a rotation is 0, 90, 180 or 270 degrees clockwise, not " + std::to_string(rotation));
  return turn(
      __func__, [](PhotoView& view, int number) { view.rotation = number; }, rotation);
}

INT32 a_vextvapi_img_playback_zoom(UINT16 factor) {
  if (factor < VEXTVAPI_IMAGE_ZOOM_LEAST || factor > VEXTVAPI_IMAGE_ZOOM_MOST)
    return refuse_call(__func__, "a zoom is " + std::to_string(VEXTVAPI_IMAGE_ZOOM_LEAST) + " to " +
                                     std::to_string(VEXTVAPI_IMAGE_ZOOM_MOST) + " percent, not " +
                                     std::to_string(factor));
  return turn(
      __func__, [](PhotoView& view, int number) { view.zoom = number; }, factor);
}

INT32 a_vextvapi_img_playback_tfxPlay(INT32 wanted) {
  if (wanted != VEXTVAPI_IMAGE_EFFECT_FADE)
    return refuse_call(__func__, "the only effect is 1, a fade; " + std::to_string(wanted) + " is none");
  const std::lock_guard guard(state.lock);
  if (!state.ready) return refuse_call(__func__, "the image player has not been prepared (initRes)");
  effect = wanted;
  return 0;
}

INT32 a_vextvapi_img_playback_tfxStop() {
  if (effect.exchange(0) == 0) return refuse_call(__func__, "no effect is started");
  return 0;
}

INT32 a_vextvapi_img_playback_getThumbnail_path(const char* path, INT32 width, INT32 height, char* thumbnail_path) {
  if (path == nullptr || thumbnail_path == nullptr) return refuse_call(__func__, "a path or its place is missing");
  if (width < 1 || height < 1 || width > kLargestThumbnail || height > kLargestThumbnail)
    return refuse_call(__func__, "a thumbnail is 1 to " + std::to_string(kLargestThumbnail) + " pixels wide and high");
  std::string why;
  const std::string found =
      library_thumbnail(path, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), why);
  if (found.empty()) return refuse_call(__func__, why);
  if (found.size() >= kThumbnailPath)
    return refuse_call(__func__, "the thumbnail's path is too long; the state folder needs a shorter one");
  fill_text(thumbnail_path, kThumbnailPath, found);
  return 0;
}

INT32 application_effect() { return effect; }

void application_forget() {
  const std::lock_guard guard(state.lock);
  state.opened.reset();
}

void application_look_at_sticks() {
  const auto present = opened();
  if (!present || media_player_is_own_file(present->photo.path) || usb_stick_of(present->photo.path)) return;
  const std::lock_guard guard(state.lock);
  if (state.opened && state.opened->serial == present->serial) state.opened.reset();
}

void application_clear() {
  const std::lock_guard guard(state.lock);
  state.ready = false;
  state.opened.reset();
  effect = 0;
}
