#include "log_capture.h"

#include <algorithm>
#include <cstdio>

namespace {

thread_local std::string* captured = nullptr;

// Called by stdio on the thread that prints, with the new stream locked. The cookie is the stream of before.
ssize_t pass_on(void* cookie, const char* bytes, std::size_t length) {
  if (captured != nullptr) captured->append(bytes, std::min(length, kLogCaptureBytes - captured->size()));
  auto* const stream = static_cast<std::FILE*>(cookie);
  const std::size_t written = std::fwrite(bytes, 1, length, stream);
  std::fflush(stream);
  // A short count makes stdio set the stream's error flag, and drop the rest.
  return static_cast<ssize_t>(written);
}

// Of the new stdout. stdio would allocate it on the thread that prints first, which the thread sanitizer takes for a
// race with the others, since it does not see the stream's lock.
char output_buffer[BUFSIZ];

bool replace(std::FILE*& stream, char* buffer, int buffering) {
  std::FILE* const passing =
      fopencookie(stream, "w", {.read = nullptr, .write = pass_on, .seek = nullptr, .close = nullptr});
  if (passing == nullptr) return false;
  std::setvbuf(passing, buffer, buffering, BUFSIZ);
  stream = passing;
  return true;
}

}  // namespace

bool log_capture_start() { return replace(stdout, output_buffer, _IOLBF) && replace(stderr, nullptr, _IONBF); }

void log_capture(std::string* ret_lines) { captured = ret_lines; }
