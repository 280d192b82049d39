// Where files were left. Any thread, without the table's or a session's lock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline constexpr std::int64_t kMostBookmarks = 1000;  // the oldest are dropped

// A file that was changed is another one.
struct FileIdentity {
  std::string path = {};
  std::int64_t size = 0;
  std::int64_t changed = 0;  // ns since 1970
};

void bookmarks_load();
void bookmarks_close();
std::optional<double> bookmark_read(const FileIdentity& file);  // s
bool bookmark_save(const FileIdentity& file, double seconds);   // 0: forgets it. False: it was not saved
bool bookmarks_forget(std::string_view folder);                 // of all files below it
bool bookmarks_reset();
