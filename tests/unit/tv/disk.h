// The disk as a test has it: slow, failing, or with the power cut at any moment. The test program's own fsync and
// fdatasync take the place of the C library's, for SQLite and the set alike.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

// Called in place of every sync, on its thread; returns 0 or the errno that the sync fails with. Null: real syncs.
using DiskHook = std::function<int(int descriptor)>;

struct DiskGuard {
  explicit DiskGuard(DiskHook hook);
  ~DiskGuard();  // waits for nobody
  DiskGuard(const DiskGuard&) = delete;
  DiskGuard& operator=(const DiskGuard&) = delete;
};

using FolderImage = std::map<std::string, std::string>;  // file name -> content

struct PowerCut {
  FolderImage image;
  std::uint64_t acknowledged;  // when the power was cut
  std::uint64_t begun;
  std::string where;  // for messages
};

// Records what a power cut would leave of a folder's files, at each sync. Of a file there is what was synced last; in
// every second image also any sectors of what was written since. A name is there when the folder was synced since; in
// every second image perhaps also otherwise. Construct it before anybody opens the files.
struct PowerRecorder {
  explicit PowerRecorder(std::string recorded_folder);
  int sync(int descriptor);  // for a DiskGuard

  std::function<std::uint64_t()> acknowledged, begun;
  std::vector<PowerCut> cuts;
  std::size_t database_syncs = 0;
  std::size_t every = 100;  // of many syncs so many are left out for one that is recorded

  // What follows is its own.
  void cut(const std::string& where, const FolderImage& image);
  FolderImage synced_image() const;
  FolderImage mixed_image();
  std::string mixed(const std::string& synced, const std::string& written);

  std::mutex lock;  // guards all that follow and the cuts
  std::string folder;
  std::map<std::string, ino_t> names;     // as synced last
  std::map<ino_t, std::string> contents;  // as synced last
  std::map<ino_t, int> descriptors;       // of the files that were synced, to read what was written since
  std::mt19937 random{20240229};
  std::size_t syncs = 0;
  int close_ones = 0;  // syncs that come so soon after the database's that all are recorded
};
