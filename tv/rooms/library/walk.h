// Walks the folders of a stick, whose contents may be hostile. The walk stays inside the stick: it follows no symbolic
// link, enters no other file system, and reports only regular files.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "tvapi/cbrowser.h"

inline constexpr std::size_t kMostStickFiles = 100'000;    // media files of a stick
inline constexpr std::size_t kMostStickNames = 1'000'000;  // names of any kind that a walk reads
inline constexpr std::size_t kMostStickFolders = 50'000;   // folders of a stick
inline constexpr std::size_t kDeepestFolder = 32;          // levels of folders
inline constexpr std::size_t kLongestMediaPath = sizeof T_MEDIA_INFO{}.media_path - 1;

struct WalkedFile {
  std::string name = {};
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;  // by the name's extension
  std::uint64_t size = 0;
  std::int64_t mtime = 0;  // ns since 1970
  std::uint64_t inode = 0;
};

struct WalkedFolder {
  std::string path = {};               // within the stick, as MediaRow::folder
  bool whole = true;                   // false: there may be more in it
  std::vector<WalkedFile> files = {};  // by name
};

struct Walk {
  int stick = -1;                // the stick's folder, opened with O_PATH
  std::size_t longest_path = 0;  // bytes, within the stick
  std::size_t most_names = kMostStickNames;
  bool inodes = true;                                   // false: all are reported as 0; see keeps_inodes
  std::uint64_t avoided_device = 0, avoided_inode = 0;  // the folder that is not entered: the set's own state folder
  // Called for each folder with media files in it.
  std::function<void(WalkedFolder folder)> folder;
  // Called for each file and folder that is left out. The path is within the stick and may contain any bytes.
  std::function<void(const std::string& path, const std::string& why)> problem;
  std::function<bool()> ends;  // true: the walk is cancelled
};

// Whether files keep their inode numbers on the file system with this magic number (f_type of statfs). On FAT, exFAT
// and FUSE, a file gets another number at each mount, and after the kernel has dropped its inode from the cache.
bool keeps_inodes(std::int64_t magic);

// ns since 1970, moved into the years 1678 to 2262. What a stick says may be any number.
std::int64_t media_time(const timespec& time);

// False: it was cancelled, or the stick cannot be read any more, which ret_why then says.
bool walk_stick(const Walk& walk, std::string& ret_why);
