// Simulates a disk that is slow, fails, or loses power at any moment. The test program's fsync and fdatasync replace
// the C library's, both for SQLite and for the set.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

// Called instead of every sync, on the syncing thread. Returns 0, or the errno with which the sync fails. Null: real
// syncs.
using DiskHook = std::function<int(int descriptor)>;

struct DiskGuard {
  explicit DiskGuard(DiskHook hook);
  ~DiskGuard();  // does not wait for syncs that are running
  DiskGuard(const DiskGuard&) = delete;
  DiskGuard& operator=(const DiskGuard&) = delete;
};

using FolderImage = std::map<std::string, std::string>;  // file name -> content

struct PowerCut {
  FolderImage image;
  std::uint64_t acknowledged;  // the latest value that was acknowledged at the power cut
  std::uint64_t begun;         // the latest value whose change had begun
  std::string where;           // for messages
};

// Records at each sync what a power cut would leave of a folder's files. An image contains each file as it was last
// synced; every second image also has random sectors of what was written since. A file name is there if the folder was
// synced since; in every second image an unsynced name may be there too. Construct it before the files are opened.
struct PowerRecorder {
  explicit PowerRecorder(std::string recorded_folder);
  int sync(int descriptor);  // for a DiskGuard

  std::function<std::uint64_t()> acknowledged, begun;
  std::vector<PowerCut> cuts;
  std::atomic<std::size_t> database_syncs = 0;  // written on the syncing thread
  std::size_t every = 100;                      // after the first syncs, only one in this many is recorded

  // Internal:
  void cut(const std::string& where, const FolderImage& image);
  FolderImage synced_image() const;
  FolderImage mixed_image();
  std::string mixed(const std::string& synced, const std::string& written);

  std::mutex lock;  // guards the members below and the cuts
  std::string folder;
  std::map<std::string, ino_t> names;     // at the last sync
  std::map<ino_t, std::string> contents;  // at the last sync
  std::map<ino_t, int> descriptors;       // of synced files, to read what was written since
  std::mt19937 random{20240229};
  std::size_t syncs = 0;
  int close_ones = 0;  // how many of the next syncs are all recorded, after one of the database
};
