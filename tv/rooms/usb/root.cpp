#include "root.h"

#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <utility>
#include <vector>

#include "dtv_tv.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMostLinks = 40;  // on one path, as in the kernel

std::mutex lock;      // guards all below; held while a path is resolved, without taking another
std::string wanted;   // absolute; empty: $HOME
fs::path named_root;  // the root's path as it was given, links included
std::string root;     // canonical

bool is_within(const std::string& path, const std::string& folder) {
  return folder == "/" || path == folder || path.starts_with(folder + "/");
}

// The normalised path without a trailing slash.
fs::path plain(const fs::path& path) {
  const fs::path normal = path.lexically_normal();
  return normal.has_filename() ? normal : normal.parent_path();
}

// A path that is being resolved, name by name.
struct Walk {
  std::string at = "/";            // the resolved part, canonical
  std::vector<std::string> ahead;  // the names still to resolve, in reverse order
  int links = 0;                   // followed so far
};

// Puts a path in front of the names still to resolve. If it begins with the root's path as it was given, that part is
// replaced by the root: the folders above the root, links among them, are not accessed.
void lead(Walk& walk, const fs::path& path) {
  auto begin = path.begin();
  if (path.is_absolute()) {
    walk.at.assign(1, '/');
    const auto [after, rest] = std::mismatch(path.begin(), path.end(), named_root.begin(), named_root.end());
    if (rest == named_root.end()) {
      walk.at = root;
      begin = after;
    }
  }
  const auto behind = static_cast<std::ptrdiff_t>(walk.ahead.size());
  for (; begin != path.end(); ++begin) walk.ahead.push_back(*begin);
  std::reverse(walk.ahead.begin() + behind, walk.ahead.end());
}

// Resolves one name. `next` is its path, which is in the root. Returns false, and sets ret_failed, if that fails.
bool step(Walk& walk, const std::string& next, std::error_code& ret_failed) {
  std::error_code failed;
  const fs::file_type type = fs::symlink_status(next, failed).type();
  if (!failed && type == fs::file_type::symlink) {
    const fs::path target = fs::read_symlink(next, failed);
    if (!failed && ++walk.links > kMostLinks) failed = std::make_error_code(std::errc::too_many_symbolic_link_levels);
    if (!failed) lead(walk, target);
  } else if (!failed) {
    walk.at = next;
    if (type != fs::file_type::directory && !walk.ahead.empty())
      failed = std::make_error_code(std::errc::not_a_directory);
  }
  if (failed) ret_failed = failed;
  return !failed;
}

}  // namespace

void dtv_tv_stick_root(const char* folder) {
  const std::lock_guard guard(lock);
  std::error_code none;
  wanted = folder == nullptr || *folder == '\0' ? "" : fs::absolute(folder, none).string();
}

void usb_root_load() {
  const std::lock_guard guard(lock);
  const char* const home = getenv("HOME");
  const std::string name = wanted.empty() && home != nullptr ? home : wanted;
  root.clear();
  named_root.clear();
  if (!name.starts_with('/')) return;  // HOME is missing or not absolute
  std::error_code failed;
  const fs::path folder = fs::canonical(name, failed);
  if (!failed && !fs::is_directory(folder, failed) && !failed)
    failed = std::make_error_code(std::errc::not_a_directory);
  if (failed) {
    std::fprintf(stderr, "dtv_tv: no folder can become a USB stick: the stick root %s cannot be used: %s\n",
                 name.c_str(), failed.message().c_str());
    return;
  }
  root = folder.string();
  named_root = plain(name);
}

std::string usb_root() {
  const std::lock_guard guard(lock);
  return root;
}

UsbPlace usb_place(std::string_view path) {
  const std::lock_guard guard(lock);
  if (root.empty()) return {};
  if (path.size() >= PATH_MAX) {
    return {.inside = true, .failed = std::make_error_code(std::errc::filename_too_long), .folder = std::string(path)};
  }
  std::error_code failed;
  Walk walk;
  lead(walk, path);
  while (!walk.ahead.empty()) {
    const std::string name = walk.ahead.back();
    walk.ahead.pop_back();
    if (name.empty() || name == "." || name == "/") continue;
    if (name == "..") {
      walk.at = fs::path(walk.at).parent_path().string();
      continue;
    }
    const std::string next = (walk.at == "/" ? "" : walk.at) + "/" + name;
    if (is_within(root, next) && next != root) {
      walk.at = next;  // a folder above the root; the root's path is canonical, so it is no link
    } else if (!is_within(next, root)) {
      return {};
    } else if (!step(walk, next, failed)) {
      fs::path missing = next;
      std::for_each(walk.ahead.rbegin(), walk.ahead.rend(), [&](const std::string& each) { missing /= each; });
      walk = {.at = plain(missing).string(), .ahead = {}};
    }
  }
  if (!is_within(walk.at, root) || walk.at == "/") return {};
  return {.inside = true, .failed = failed, .folder = std::move(walk.at)};
}
