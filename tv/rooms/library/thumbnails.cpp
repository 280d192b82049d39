// The thumbnail cache: JPEG files in a folder of the state folder, which a thread makes with a reader of its own. A
// thumbnail's key, its file name, is a hash of the stick, the path, the size, the time of change and the bounds of the
// picture, so a changed file has another key. If there are too many, the least recently used ones are removed.
#include "rooms/library/thumbnails.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <list>
#include <map>
#include <system_error>
#include <thread>

#include "core/background.h"
#include "core/reply.h"
#include "rooms/library/names.h"
#include "rooms/library/parts.h"
#include "rooms/library/reader.h"

namespace fs = std::filesystem;

namespace {

using SteadyTime = std::chrono::steady_clock::time_point;
constexpr std::chrono::seconds kTryAgain{5};     // after a failure that may pass, such as a full disk
constexpr std::chrono::seconds kReadAgain{60};   // after the reader has failed, which may have taken long
constexpr std::chrono::seconds kReaderIdle{10};  // after which the reader's process is ended
constexpr std::uint64_t kFnvBegin = 0xCBF29CE484222325, kFnvPrime = 0x100000001B3;

struct Wanted {
  std::string key;
  std::string path;
  std::uint32_t width;
  std::uint32_t height;
};

// A thumbnail in the cache.
struct Kept {
  std::uint64_t bytes;
  std::list<std::string>::iterator use;  // in Thumbnails::uses
};

// Why a thumbnail cannot be made, and until when it is not tried again.
struct Refused {
  std::string why;
  SteadyTime until;
};

struct Thumbnails {
  std::mutex lock;  // guards all below
  std::condition_variable changed;
  std::string folder;
  std::map<std::string, Kept> kept = {};        // by key
  std::list<std::string> uses = {};             // keys, the least recently used one first
  std::uint64_t bytes = 0;                      // of `kept`
  std::map<std::string, Refused> refused = {};  // by key
  std::deque<Wanted> queue = {};
  std::string making;           // key of the one that is being made; empty: none
  std::uint64_t forgotten = 0;  // how often all were erased
  MediaReader* reader = nullptr;
  bool runs = false;
  std::thread thread;  // used by thumbnails_start and thumbnails_stop only
};
Thumbnails& thumbnails = *new Thumbnails;

std::string hex(std::uint64_t number) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(number));
  return text;
}

std::string key_of(std::string_view identity) {
  std::uint64_t forwards = kFnvBegin, backwards = kFnvBegin;
  for (std::size_t i = 0; i < identity.size(); ++i) {
    forwards = (forwards ^ static_cast<unsigned char>(identity[i])) * kFnvPrime;
    backwards = (backwards ^ static_cast<unsigned char>(identity[identity.size() - 1 - i])) * kFnvPrime;
  }
  return hex(forwards) + hex(backwards);
}

// Opens the media file, and computes the key of its thumbnail. -1 with ret_why.
int open_wanted(std::string_view path, std::uint32_t width, std::uint32_t height, std::string& ret_key,
                std::string& ret_why) {
  const auto place = media_place(path);
  if (width == 0 || height == 0 || width > kWidestThumbnail || height > kHighestThumbnail) {
    ret_why = "a thumbnail is at most " + std::to_string(kWidestThumbnail) + "x" + std::to_string(kHighestThumbnail) +
              " pixels";
    return -1;
  }
  const int file = usb_open(path, UsbFile::kFile, ret_why);
  struct stat info {};
  if (file < 0) return -1;
  if (!place || fstat(file, &info) != 0) {
    close(file);
    ret_why = quoted(path) + " is not on an inserted stick";
    return -1;
  }
  ret_key = key_of(place->stick.folder + '\n' + place->path + '\n' + std::to_string(info.st_size) + '\n' +
                   std::to_string(info.st_mtim.tv_sec) + '.' + std::to_string(info.st_mtim.tv_nsec) + '\n' +
                   std::to_string(width) + 'x' + std::to_string(height));
  return file;
}

// The caller of the next functions holds the lock.

std::string file_of(const std::string& key) { return thumbnails.folder + "/" + key + ".jpg"; }

void forget(const std::string& key) {
  const auto found = thumbnails.kept.find(key);
  if (found == thumbnails.kept.end()) return;
  thumbnails.bytes -= found->second.bytes;
  thumbnails.uses.erase(found->second.use);
  thumbnails.kept.erase(found);
}

void make_room() {
  while (!thumbnails.uses.empty() &&
         (thumbnails.kept.size() > kMostThumbnails || thumbnails.bytes > kMostThumbnailBytes)) {
    const std::string oldest = thumbnails.uses.front();
    unlink(file_of(oldest).c_str());
    forget(oldest);
  }
}

void note(const std::string& key, std::uint64_t bytes) {
  forget(key);
  thumbnails.uses.push_back(key);
  thumbnails.kept[key] = {.bytes = bytes, .use = std::prev(thumbnails.uses.end())};
  thumbnails.bytes += bytes;
}

// The answer for the key, if there is one now; nothing: the thumbnail is neither made nor refused.
std::optional<ThumbnailAnswer> known(const std::string& key) {
  using State = ThumbnailAnswer::State;
  const auto kept = thumbnails.kept.find(key);
  if (kept != thumbnails.kept.end()) {
    const std::string path = file_of(key);
    // Sets the file's time, by which the next start sorts the cache. This fails if somebody has removed the file.
    if (utimensat(AT_FDCWD, path.c_str(), nullptr, 0) == 0) {
      thumbnails.uses.splice(thumbnails.uses.end(), thumbnails.uses, kept->second.use);
      return ThumbnailAnswer{.state = State::kMade, .path = path};
    }
    forget(key);
  }
  const auto refused = thumbnails.refused.find(key);
  if (refused != thumbnails.refused.end() && refused->second.until > std::chrono::steady_clock::now())
    return ThumbnailAnswer{.state = State::kNone, .why = refused->second.why};
  if (!thumbnails.runs) return ThumbnailAnswer{.state = State::kNone, .why = "the set is off"};
  return std::nullopt;
}

// Queues the request. first: somebody waits for it, so it goes to the front. Otherwise the oldest request is dropped if
// there are too many.
void enqueue(Wanted wanted, bool first) {
  if (thumbnails.making == wanted.key) return;
  const auto queued = std::ranges::find(thumbnails.queue, wanted.key, &Wanted::key);
  if (queued != thumbnails.queue.end()) {
    if (!first) return;
    thumbnails.queue.erase(queued);
  }
  if (first) {
    thumbnails.queue.push_front(std::move(wanted));
  } else {
    thumbnails.queue.push_back(std::move(wanted));
    if (thumbnails.queue.size() > kMostQueuedThumbnails) thumbnails.queue.pop_front();
  }
}

// ---- On the thread, without the lock ----

bool save(const std::string& path, const std::vector<std::uint8_t>& jpeg) {
  const std::string part = path + ".part";
  const int file = open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file < 0) return false;
  std::size_t written = 0;
  while (written < jpeg.size()) {
    const ssize_t put = write(file, jpeg.data() + written, jpeg.size() - written);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) break;
    written += static_cast<std::size_t>(put);
  }
  const bool closed = close(file) == 0;
  if (written == jpeg.size() && closed && rename(part.c_str(), path.c_str()) == 0) return true;
  unlink(part.c_str());
  return false;
}

// Makes and saves a thumbnail. Returns why it failed; empty: it is saved. ret_until: when it may be tried again.
std::string make(const Wanted& wanted, MediaReader& reader, const std::string& target, std::uint64_t& ret_bytes,
                 SteadyTime& ret_until) {
  std::string key, why;
  ret_until = std::chrono::steady_clock::now() + kTryAgain;
  const int file = open_wanted(wanted.path, wanted.width, wanted.height, key, why);
  if (file < 0) return why;
  std::vector<std::uint8_t> jpeg;
  const ReadResult result =
      key == wanted.key ? media_reader_thumbnail(reader, file, wanted.path, wanted.width, wanted.height, jpeg, why)
                        : ReadResult::kCancelled;
  close(file);
  switch (result) {
    case ReadResult::kRead:
      if (!save(target, jpeg)) return "the thumbnail cannot be saved: " + std::generic_category().message(errno);
      ret_bytes = jpeg.size();
      return "";
    case ReadResult::kRefused:
      ret_until = SteadyTime::max();
      return why;
    case ReadResult::kFailed:
      ret_until = std::chrono::steady_clock::now() + kReadAgain;
      return why;
    case ReadResult::kCancelled:
      return "the file was changed, or the set is being switched off";
    case ReadResult::kNoReader:
      return "the reader of media files cannot be started" + (why.empty() ? "" : ": " + why);
  }
  return why;
}

void run_thumbnails() {
  background_begin("dtv_tv-thumbs");
  MediaReaderHandle reader;
  std::unique_lock guard(thumbnails.lock);
  while (thumbnails.runs) {
    if (thumbnails.queue.empty()) {
      const auto has_work = [] { return !thumbnails.runs || !thumbnails.queue.empty(); };
      if (reader == nullptr) {
        thumbnails.changed.wait(guard, has_work);
      } else if (!thumbnails.changed.wait_for(guard, kReaderIdle, has_work)) {
        thumbnails.reader = nullptr;
        guard.unlock();
        reader.reset();
        guard.lock();
      }
      continue;
    }
    const Wanted wanted = std::move(thumbnails.queue.front());
    thumbnails.queue.pop_front();
    thumbnails.making = wanted.key;
    if (reader == nullptr) reader = media_reader_create();
    thumbnails.reader = reader.get();
    const std::string target = file_of(wanted.key);
    const std::uint64_t forgotten = thumbnails.forgotten;
    guard.unlock();
    std::uint64_t bytes = 0;
    SteadyTime until;
    const std::string why = make(wanted, *reader, target, bytes, until);
    guard.lock();
    thumbnails.making.clear();
    if (thumbnails.forgotten != forgotten) {
      unlink(target.c_str());
    } else if (why.empty()) {
      note(wanted.key, bytes);
      make_room();
    } else {
      if (thumbnails.refused.size() >= kMostRefusedThumbnails) thumbnails.refused.clear();
      thumbnails.refused[wanted.key] = {.why = why, .until = until};
    }
    thumbnails.changed.notify_all();
  }
  thumbnails.reader = nullptr;
  thumbnails.queue.clear();
  thumbnails.changed.notify_all();
  guard.unlock();
  reader.reset();
}

}  // namespace

void thumbnails_load(const std::string& state_folder) {
  const std::lock_guard guard(thumbnails.lock);
  thumbnails.folder = state_folder + "/thumbnails";
  thumbnails.kept.clear();
  thumbnails.uses.clear();
  thumbnails.bytes = 0;
  thumbnails.refused.clear();
  thumbnails.queue.clear();
  std::error_code failed;
  fs::create_directories(thumbnails.folder, failed);
  std::vector<std::pair<fs::file_time_type, fs::path>> files;
  for (fs::directory_iterator entry(thumbnails.folder, failed); !failed && entry != fs::directory_iterator();
       entry.increment(failed)) {
    std::error_code none;
    if (!entry->is_regular_file(none) || entry->is_symlink(none)) continue;
    if (entry->path().extension() == ".jpg") {
      files.emplace_back(entry->last_write_time(none), entry->path());
    } else if (entry->path().extension() == ".part") {
      unlink(entry->path().c_str());  // left by a process that was killed
    }
  }
  std::ranges::sort(files);
  for (const auto& [time, path] : files) {
    std::error_code none;
    note(path.stem().string(), fs::file_size(path, none));
  }
  make_room();
}

void thumbnails_start() {
  {
    const std::lock_guard guard(thumbnails.lock);
    thumbnails.runs = true;
  }
  thumbnails.thread = std::thread(run_thumbnails);
}

void thumbnails_stop() {
  {
    const std::lock_guard guard(thumbnails.lock);
    thumbnails.runs = false;
    if (thumbnails.reader != nullptr) media_reader_cancel(*thumbnails.reader);
  }
  thumbnails.changed.notify_all();
  if (thumbnails.thread.joinable()) thumbnails.thread.join();
}

void thumbnails_forget() {
  const std::lock_guard guard(thumbnails.lock);
  for (const auto& [key, kept] : thumbnails.kept) unlink(file_of(key).c_str());
  thumbnails.kept.clear();
  thumbnails.uses.clear();
  thumbnails.bytes = 0;
  thumbnails.refused.clear();
  thumbnails.queue.clear();
  ++thumbnails.forgotten;  // the one that is being made is erased when it is saved
  thumbnails.changed.notify_all();
}

ThumbnailAnswer thumbnail_ask(std::string_view path, std::uint32_t width, std::uint32_t height) {
  std::string key, why;
  const int file = open_wanted(path, width, height, key, why);
  if (file < 0) return {.state = ThumbnailAnswer::State::kNone, .why = why};
  close(file);
  {
    const std::lock_guard guard(thumbnails.lock);
    if (auto answer = known(key)) return std::move(*answer);
    enqueue({.key = key, .path = std::string(path), .width = width, .height = height}, false);
  }
  thumbnails.changed.notify_all();
  return {.state = ThumbnailAnswer::State::kPending};
}

std::string thumbnail_wait(std::string_view path, std::uint32_t width, std::uint32_t height, std::string& ret_why) {
  std::string key, why;
  const int file = open_wanted(path, width, height, key, why);
  if (file < 0) {
    ret_why = why;
    return "";
  }
  close(file);
  constexpr std::chrono::seconds kLongestWait{5};
  const SteadyTime end = std::chrono::steady_clock::now() + kLongestWait;
  std::unique_lock guard(thumbnails.lock);
  while (true) {
    if (auto answer = known(key)) {
      ret_why = answer->why;
      return answer->path;
    }
    if (std::chrono::steady_clock::now() >= end) {
      ret_why = "making it takes more than " + std::to_string(kLongestWait.count()) + " s";
      return "";
    }
    // Queued again after each wait, since other requests may have pushed it out of the queue.
    enqueue({.key = key, .path = std::string(path), .width = width, .height = height}, true);
    thumbnails.changed.notify_all();
    thumbnails.changed.wait_until(guard, end);
  }
}
