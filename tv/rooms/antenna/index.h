// The index of the antenna's folder: which files are multiplexes, and why the others are not. Reads the disk on the
// caller's thread, without a lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "rooms/antenna/antenna.h"

inline constexpr std::size_t kMostFiles = 256;      // of a folder, by name; the others are refused together
inline constexpr std::size_t kMostEntries = 10000;  // of a folder, of any kind; the others are ignored

// Tells whether a file has changed.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t changed = 0;  // nanoseconds since 1970
  bool operator==(const FileStamp&) const = default;
};

struct IndexEntry {
  Multiplex multiplex;
  std::vector<std::uint16_t> services;  // of the PAT, sorted
  std::int64_t shift = 0;               // antenna_time_shift
  bool has_frequency = false;           // of its own: the NIT's
  FileStamp stamp;
};

// A file that the index has examined, multiplex or not.
struct IndexedFile {
  std::string path;
  FileStamp stamp;
};

struct IndexRefusal {
  std::string name;
  std::string why;
};

struct Index {
  std::string problem;              // why the folder could not be read; empty: it was
  FileStamp folder;                 // its time changes with its list of names
  std::vector<IndexEntry> entries;  // by medium, frequency and path
  std::vector<IndexRefusal> refused;
  std::vector<IndexedFile> files;
};

// What index_read asks and tells its caller.
struct IndexReader {
  std::int64_t (*now)();               // the set's time: seconds since 1970, UTC
  const std::atomic<bool>& cancelled;  // true ends the reading
  std::function<void(std::size_t number, std::size_t of, const std::string& name)> begins;  // before each file, from 1
};

// Reads the folder's files with a multiplex's extension; symbolic links are not followed. Files that have not changed
// since `before` keep their entries. False: it was cancelled.
bool index_read(const std::string& folder, const Index& before, const IndexReader& reader, Index& ret_index);

// Whether the folder's list of names or an examined file has changed since the index was read.
bool index_is_outdated(const std::string& folder, const Index& index);

// How far the times of a stream are moved, in seconds: by whole minutes from the stream's time to the set's. A stream
// that was stamped for today, less than kStampedToday away from the set's time, is not moved.
inline constexpr std::int64_t kStampedToday = 26 * 60 * 60;
std::int64_t index_shift(std::int64_t stream_utc, std::int64_t set_utc);
