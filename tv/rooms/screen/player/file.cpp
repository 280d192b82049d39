#include "rooms/screen/player/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace {

constexpr const char* kGone = "the file was deleted while it was played";
constexpr const char* kShorter = "the file became shorter while it was played";

std::string error_text(const char* what) { return what + std::generic_category().message(errno); }

// The file's state now. The caller holds the lock.
bool look(FileReader& reader) {
  struct stat info {};
  FileSource& source = *reader.source;
  if (fstat(reader.file, &info) != 0) {
    source.trouble = error_text("the file cannot be read: ");
  } else if (info.st_nlink == 0) {
    source.trouble = kGone;
  } else if (info.st_size < reader.size) {
    source.trouble = kShorter;
  } else {
    reader.size = info.st_size;
    return true;
  }
  return false;
}

// Waits until there are bytes behind the position. False: the file ends here.
bool await_bytes(FileReader& reader, std::unique_lock<std::mutex>& guard) {
  FileSource& source = *reader.source;
  const auto end = std::chrono::steady_clock::now() + kGrowWait;
  while (!reader.cancelled && look(reader)) {
    if (reader.size > reader.position) return true;
    if (!source.grows || std::chrono::steady_clock::now() >= end) return false;
    source.changed.wait_for(guard, kGrowCheck);
  }
  return false;
}

}  // namespace

FileReader::~FileReader() {
  if (file >= 0) close(file);
}

std::unique_ptr<FileReader> file_open(const std::shared_ptr<FileSource>& source) {
  auto reader = std::make_unique<FileReader>();
  reader->source = source;
  std::string why;
  if (source->open)
    reader->file = source->open(why);
  else  // opening a FIFO must not wait for its writer
    reader->file = open(source->path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  const std::lock_guard guard(source->lock);
  source->trouble.clear();
  struct stat info {};
  if (reader->file < 0 && source->open) {
    source->trouble = why;
    return nullptr;
  }
  if (reader->file < 0 || fstat(reader->file, &info) != 0) {
    source->trouble = error_text("the file cannot be opened: ");
    return nullptr;
  }
  if (!S_ISREG(info.st_mode)) {
    source->trouble = "it is not a regular file";
    return nullptr;
  }
  reader->size = info.st_size;
  return reader;
}

std::size_t file_read(FileReader& reader, std::span<char> room) {
  FileSource& source = *reader.source;
  std::unique_lock guard(source.lock);
  if (room.empty() || !await_bytes(reader, guard)) return 0;
  const off_t position = reader.position;
  guard.unlock();  // the disk may be slow
  const ssize_t count = pread(reader.file, room.data(), room.size(), position);
  guard.lock();
  if (count < 0) source.trouble = error_text("the file cannot be read: ");
  if (count <= 0) return 0;
  reader.position = position + count;
  return static_cast<std::size_t>(count);
}

bool file_seek(FileReader& reader, std::int64_t position) {
  if (position < 0) return false;
  const std::lock_guard guard(reader.source->lock);
  reader.position = position;
  return true;
}

std::int64_t file_size(FileReader& reader) {
  const std::lock_guard guard(reader.source->lock);
  if (!look(reader)) return -1;
  const std::int64_t size = reader.size;
  return reader.source->grows ? size - std::min(kGrowMargin, size / 4) : size;
}

void file_cancel(FileReader& reader) {
  const std::lock_guard guard(reader.source->lock);
  reader.cancelled = true;
  reader.source->changed.notify_all();
}

void file_set_growing(FileSource& source, bool grows) {
  const std::lock_guard guard(source.lock);
  source.grows = grows;
  source.changed.notify_all();
}

std::string file_trouble(FileSource& source) {
  const std::lock_guard guard(source.lock);
  return source.trouble;
}
