// The positions at which files were left. Any thread; the caller holds no lock of a player.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline constexpr std::int64_t kMostBookmarks = 1000;  // the oldest are dropped

// Identifies a file. A file that has changed is another file.
struct FileIdentity {
  std::string path = {};
  std::int64_t size = 0;
  std::int64_t changed = 0;  // time of the latest change, ns since 1970
};

void bookmarks_load();
void bookmarks_close();
std::optional<double> bookmark_read(const FileIdentity& file);  // s
bool bookmark_save(const FileIdentity& file, double seconds);   // 0: forgets the file. False: not saved
bool bookmarks_forget(std::string_view folder);                 // of all files below the folder
bool bookmarks_reset();
