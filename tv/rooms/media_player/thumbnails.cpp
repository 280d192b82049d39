// Thumbnails for applications: the library makes them on a thread of the player, and applications read them as text.
#include <absl/strings/escaping.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>
#include <utility>
#include <vector>

#include "core/background.h"
#include "core/events.h"
#include "rooms/library/library.h"
#include "rooms/media_player/parts.h"

namespace {

constexpr INT32 kLargest = 1920;  // pixels
// Bytes that fit as base64, with a NUL at the end, into a block of PLAYER_THUMBNAIL_SIZE characters.
constexpr std::size_t kMostBytes = (PLAYER_THUMBNAIL_SIZE - 1) / 4 * 3;

void make(const SessionHandle& session, const std::string& path, std::uint32_t width, std::uint32_t height) {
  background_begin("dtv_tv-thumb");
  std::string why;
  std::string made = library_thumbnail(path, width, height, why);
  a_vextvapi_cb_pb_nfy_fct callback = nullptr;
  {
    const std::lock_guard guard(session->lock);
    session->thumbnailing = false;
    if (!made.empty()) session->thumbnail = made;
    callback = session->callback;
  }
  if (callback == nullptr) return;
  if (made.empty()) return session_post(session, PLAYER_EVENT_THUMBNAIL_FAILED, IVEX_PB_ERROR_CODE_FAILED);
  // The event keeps the path until the callback has returned.
  events_post([session, made = std::move(made)]() mutable {
    a_vextvapi_cb_pb_nfy_fct now = nullptr;
    void* tag = nullptr;
    {
      const std::lock_guard guard(session->lock);
      now = session->callback;
      tag = session->tag;
    }
    if (now != nullptr) now(PLAYER_EVENT_THUMBNAIL, tag, const_cast<char*>(made.data()), 0, 0, 0);
  });
}

}  // namespace

INT32 thumbnail_make(const SessionHandle& session, INT32 width, INT32 height) {
  if (width < 1 || height < 1 || width > kLargest || height > kLargest) return IVEX_PB_ERROR_CODE_INV_ARG;
  const std::lock_guard guard(session->lock);
  if (session->source->network) return IVEX_PB_ERROR_CODE_NOT_SUPPORTED;
  if (session->thumbnailing) return IVEX_PB_ERROR_CODE_NOT_READY;
  if (session->thumbnailer.joinable()) session->thumbnailer.join();  // it has ended
  try {
    session->thumbnailer = std::thread(make, session, session->path, static_cast<std::uint32_t>(width),
                                       static_cast<std::uint32_t>(height));
  } catch (const std::system_error&) {
    return IVEX_PB_ERROR_CODE_FAILED;
  }
  session->thumbnailing = true;
  return IVEX_PB_ERROR_CODE_OK;
}

std::string thumbnail_text(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return {};
  struct stat info {};
  std::string bytes;
  if (fstat(file, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
      info.st_size <= static_cast<off_t>(kMostBytes)) {
    bytes.resize(static_cast<std::size_t>(info.st_size));
    const ssize_t count = pread(file, bytes.data(), bytes.size(), 0);
    bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  }
  close(file);
  return bytes.empty() ? "" : absl::Base64Escape(bytes);
}
