#include "rooms/library/reader.h"

#include <dlfcn.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <utility>

#include "base/text.h"
#include "rooms/library/reader_checks.h"
#include "rooms/library/reader_process.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFactsTime{5000};      // for the facts of a file
constexpr milliseconds kPictureTime{10'000};  // for its thumbnail or its picture
// Then the process is replaced, which ends leaks, and the control that a file may have gained.
constexpr std::uint32_t kFilesPerProcess = 1000;

std::mutex program_lock;
std::string program_set;  // set by media_reader_set_program; empty: the default

// Finds dtv-media-reader relative to this library or program, in a build and when installed.
std::string program() {
  {
    const std::lock_guard guard(program_lock);
    if (!program_set.empty()) return program_set;
  }
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&media_reader_create), &info) == 0 || info.dli_fname == nullptr) return {};
  std::error_code ignored;
  const fs::path folder = fs::canonical(info.dli_fname, ignored).parent_path();
  fs::path found;
  for (const char* const place : {".", "../bin", "../../bin"}) {
    found = folder / place / "dtv-media-reader";
    if (fs::exists(found, ignored)) break;
  }
  return found.lexically_normal();
}

}  // namespace

struct MediaReader {
  ReaderProcess process = {};
  std::uint32_t files = 0;   // that the present process has been given
  std::uint32_t serial = 0;  // of the latest request; a request never has 0
  std::atomic<bool> cancelled = false;
  int cancel = -1;  // an eventfd, readable after media_reader_cancel
};

namespace {

// Starts the process unless a usable one runs. False with ret_why.
bool have_process(MediaReader& reader, std::string& ret_why) {
  ReaderProcess& process = reader.process;
  if (process.running() && (reader.files >= kFilesPerProcess || process_is_useless(process))) process_end(process);
  if (process.running()) return true;
  reader.files = 0;
  return process_start(program(), process, ret_why);
}

void put_extension(const std::string& name, WireRequest& ret_request) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos) return;
  const std::string_view extension = std::string_view(name).substr(dot + 1);
  const bool plain = std::ranges::all_of(
      extension, [](char c) { return (c >= '0' && c <= '9') || (ascii_lower(c) >= 'a' && ascii_lower(c) <= 'z'); });
  if (plain && extension.size() < sizeof ret_request.extension)
    std::ranges::transform(extension, ret_request.extension, ascii_lower);
}

std::string seconds(milliseconds time) { return std::to_string(time.count() / 1000) + " s"; }

// Sends a request and waits for the reply. After any failure the process is ended, and the next file gets a new one.
ReadResult ask(MediaReader& reader, WireRequest request, int file, const std::string& name, milliseconds time,
               WireReply& ret_reply, std::string& ret_why) {
  if (reader.cancelled) return ReadResult::kCancelled;
  if (std::string why; !have_process(reader, why)) {
    ret_why = std::move(why);
    return ReadResult::kNoReader;
  }
  reader.serial = std::max(reader.serial + 1, 1U);
  ++reader.files;
  request.serial = reader.serial;
  request.milliseconds = static_cast<std::uint32_t>(time.count());
  put_extension(name, request);
  WireReply reply;
  std::string why;
  switch (process_ask(reader.process, request, file, reader.cancel, time, reply)) {
    case Exchange::kAnswered:
      if (reply.refused != 0) {
        ret_why = check_why(reply);
        return ReadResult::kRefused;
      }
      ret_reply = reply;
      return ReadResult::kRead;
    case Exchange::kCancelled:
      process_end(reader.process);
      return ReadResult::kCancelled;
    case Exchange::kDied:
      why = "it crashed the reader of media files: " + process_end_of(reader.process);
      break;
    case Exchange::kNonsense:
      why = "the reader of media files answered nonsense";
      break;
    case Exchange::kLate:
      why = "reading it took more than " + seconds(time);
      break;
  }
  process_end(reader.process);
  ret_why = std::move(why);
  return ReadResult::kRefused;
}

ReadResult nonsense(MediaReader& reader, std::string& ret_why) {
  process_end(reader.process);
  ret_why = "the reader of media files answered nonsense";
  return ReadResult::kRefused;
}

// Copies the bytes before it checks them, since the process could still change them.
bool take_bytes(const MediaReader& reader, const WireReply& reply, std::vector<std::uint8_t>& ret_bytes) {
  if (reply.size == 0 || reply.size > kWireMemorySize) return false;
  std::vector<std::uint8_t> bytes(reply.size);
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t got =
        pread(reader.process.memory, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  ret_bytes = std::move(bytes);
  return true;
}

WireRequest picture_request(WireWhat what, std::uint32_t width, std::uint32_t height) {
  return {.what = what,
          .width = std::clamp(width, 1U, kMostPictureWidth),
          .height = std::clamp(height, 1U, kMostPictureHeight)};
}

}  // namespace

void MediaReaderEnd::operator()(MediaReader* reader) const {
  process_end(reader->process);
  if (reader->cancel >= 0) close(reader->cancel);
  delete reader;
}

MediaReaderHandle media_reader_create() {
  MediaReaderHandle reader(new MediaReader);
  reader->cancel = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  return reader;
}

ReadResult media_reader_facts(MediaReader& reader, int file, const std::string& name, MediaFacts& ret_facts,
                              std::string& ret_why) {
  WireReply reply;
  const ReadResult result = ask(reader, {.what = WireWhat::kFacts}, file, name, kFactsTime, reply, ret_why);
  if (result != ReadResult::kRead) return result;
  return check_facts(reply, ret_facts) ? result : nonsense(reader, ret_why);
}

ReadResult media_reader_thumbnail(MediaReader& reader, int file, const std::string& name, std::uint32_t width,
                                  std::uint32_t height, std::vector<std::uint8_t>& ret_jpeg, std::string& ret_why) {
  const WireRequest request = picture_request(WireWhat::kThumbnail, width, height);
  WireReply reply;
  const ReadResult result = ask(reader, request, file, name, kPictureTime, reply, ret_why);
  if (result != ReadResult::kRead) return result;
  std::vector<std::uint8_t> jpeg;
  if (!take_bytes(reader, reply, jpeg) || !check_jpeg(jpeg, request.width, request.height))
    return nonsense(reader, ret_why);
  ret_jpeg = std::move(jpeg);
  return result;
}

ReadResult media_reader_picture(MediaReader& reader, int file, const std::string& name, std::uint32_t width,
                                std::uint32_t height, MediaPicture& ret_picture, std::string& ret_why) {
  const WireRequest request = picture_request(WireWhat::kPicture, width, height);
  WireReply reply;
  const ReadResult result = ask(reader, request, file, name, kPictureTime, reply, ret_why);
  if (result != ReadResult::kRead) return result;
  MediaPicture picture{.width = reply.width, .height = reply.height};
  const bool fits = picture.width <= request.width && picture.height <= request.height;
  if (!fits || reply.size != std::uint64_t{4} * picture.width * picture.height ||
      !take_bytes(reader, reply, picture.pixels))
    return nonsense(reader, ret_why);
  ret_picture = std::move(picture);
  return result;
}

void media_reader_cancel(MediaReader& reader) {
  reader.cancelled = true;
  eventfd_write(reader.cancel, 1);
}

void media_reader_set_program(const std::string& path) {
  const std::lock_guard guard(program_lock);
  program_set = path;
}
