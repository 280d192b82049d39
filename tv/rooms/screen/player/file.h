// Reads a file for the player: one that is complete, or one that still grows. Only regular files are read. A file that
// is deleted or becomes shorter while it is read ends there, with the reason.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>

inline constexpr std::chrono::milliseconds kGrowCheck{100};  // how often a reader at the end of a growing file looks
inline constexpr std::chrono::seconds kGrowWait{10};         // a file that does not grow for so long has ended
// The end of a growing file that its size leaves out, at most a quarter of it. To seek, the library reads time stamps
// behind what it takes for the end, and would wait there.
inline constexpr std::int64_t kGrowMargin = 512 << 10;

// What the player and its readers share.
struct FileSource {
  std::string path;
  std::function<int(std::string& ret_why)>
      open;         // if set, used instead of the path: opens the file, and returns its descriptor or -1
  std::mutex lock;  // guards the members below and the readers'
  std::condition_variable changed;
  bool grows = false;
  std::string trouble;  // why the latest reader ended before the file's end; empty: it did not
};

struct FileReader {
  std::shared_ptr<FileSource> source;
  int file = -1;
  off_t position = 0;
  off_t size = 0;  // the largest that has been seen
  bool cancelled = false;
  ~FileReader();
};

// Null: the file cannot be opened, and the source's trouble says why.
std::unique_ptr<FileReader> file_open(const std::shared_ptr<FileSource>& source);

// Copies bytes, at most the room's. At the end of a file that grows it waits for more. Returns their number; 0 at the
// end, once cancelled, and in trouble.
std::size_t file_read(FileReader& reader, std::span<char> room);

bool file_seek(FileReader& reader, std::int64_t position);

std::int64_t file_size(FileReader& reader);  // -1 in trouble

// Ends all reading by this reader, also a call that waits. Any thread.
void file_cancel(FileReader& reader);

// Whether more is expected behind the end of the file. Any thread.
void file_set_growing(FileSource& source, bool grows);

std::string file_trouble(FileSource& source);
