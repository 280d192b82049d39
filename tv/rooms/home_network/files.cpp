// Files from servers: what a viewer or an application downloads, and thumbnails. The home network's thread writes them.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

#include "core/set.h"
#include "core/text.h"
#include "rooms/home_network/loop.h"
#include "rooms/home_network/parts.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestName = 100;      // bytes of a file's name, without its extension
constexpr const char* kPartial = ".part";      // ending of the name of an incomplete file
constexpr std::uint64_t kSpaceStep = 8 << 20;  // bytes after which the free space is checked again
constexpr UINT32 kPercentStep = 10;
constexpr std::uint32_t kThumbnailMillis = 5000;
constexpr std::size_t kMostFailures = 256;  // thumbnails that could not be fetched and are not fetched again
constexpr mode_t kOwnerOnly = 0600;

struct Running {
  Download shown;
  std::uint64_t call = 0;
};

struct State {
  std::mutex lock;  // guards all members below
  std::string downloads_folder;
  std::string thumbnails_folder;
  std::deque<Running> downloads;   // in the order in which they were started
  std::set<std::string> fetching;  // paths of thumbnails
  std::set<std::string> failed;    // paths of thumbnails
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// A file that is being written; on the home network's thread.
struct Target {
  int file = -1;
  std::string partial = {};
  std::string path = {};
  std::uint64_t bytes = 0;
  std::uint64_t checked = 0;  // bytes that had come when the free space was checked last
  UINT32 percent = 0;         // the latest one that was reported
  bool full = false;          // the disk is full

  Target() = default;
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
  ~Target() {
    if (file >= 0) close(file);
    if (!partial.empty()) unlink(partial.c_str());
  }
};

bool has_space(const std::string& folder, std::uint64_t bytes) {
  std::error_code failed;
  const fs::space_info space = fs::space(folder, failed);
  return !failed && space.available >= bytes && space.available - bytes >= kFreeSpace;
}

bool write_all(int file, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

// Makes a file name of a server's text: without folders, not hidden, and without characters that are special to a shell
// or a terminal.
std::string safe_name(const std::string& text, const std::string& extension) {
  std::string name = clean_text(text, kLongestName);
  std::ranges::replace_if(
      name, [](char c) { return std::string_view("/\\:*?\"<>|$`").find(c) != std::string_view::npos; }, '_');
  name.erase(0, name.find_first_not_of(". -"));
  if (name.empty()) name = "file";
  const std::string end = extension.empty() ? "" : "." + extension;
  if (!end.empty() && name.size() > end.size() && name.ends_with(end)) name.resize(name.size() - end.size());
  return name + end;
}

// A path that no file has: with the name, or with "name (2)" and so on. The caller holds the lock, so that no other
// download gets the same path.
std::string free_path(const std::string& folder, const std::string& name) {
  const fs::path wanted(name);
  std::error_code failed;
  for (std::size_t number = 1; number <= kMostDownloadedFiles + 1; ++number) {
    const std::string suffix = number == 1 ? "" : " (" + std::to_string(number) + ")";
    std::string path = folder + "/" + wanted.stem().string() + suffix + wanted.extension().string();
    if (!fs::exists(fs::symlink_status(path, failed)) && !fs::exists(fs::symlink_status(path + kPartial, failed)))
      return path;
  }
  return {};
}

std::size_t files_in(const std::string& folder) {
  std::error_code failed;
  std::size_t count = 0;
  for (auto each = fs::directory_iterator(folder, failed); !failed && each != fs::directory_iterator();
       each.increment(failed))
    if (++count > kMostDownloadedFiles) break;
  return count;
}

// The caller holds the lock.
Running* find(INT32 server, INT32 object) {
  const auto found = std::find_if(state.downloads.rbegin(), state.downloads.rend(), [&](const Running& each) {
    return each.shown.server == server && each.shown.object == object;
  });
  return found == state.downloads.rend() ? nullptr : &*found;
}

Running* find(std::uint64_t call) {
  const auto found = std::ranges::find(state.downloads, call, &Running::call);
  return found == state.downloads.end() ? nullptr : &*found;
}

bool take(std::uint64_t call, Target& target, const char* bytes, std::size_t size) {
  if (target.bytes + size >= target.checked + kSpaceStep) {
    target.checked = target.bytes;
    target.full = !has_space(fs::path(target.path).parent_path().string(), size);
  }
  if (target.full || !write_all(target.file, bytes, size)) {
    target.full = true;
    return false;
  }
  target.bytes += size;
  INT32 server = 0;
  INT32 object = 0;
  UINT32 percent = 0;
  {
    const std::lock_guard guard(state.lock);
    Running* const running = find(call);
    if (running == nullptr) return false;
    running->shown.bytes = target.bytes;
    server = running->shown.server;
    object = running->shown.object;
    if (running->shown.of != 0)
      percent = static_cast<UINT32>(std::min<std::uint64_t>(target.bytes * 100 / running->shown.of, 100));
  }
  percent -= percent % kPercentStep;
  if (percent > target.percent) {
    target.percent = percent;
    servers_notify(DMS_PROGRESS, server, static_cast<UINT32>(object), percent);
  }
  return true;
}

// A result of 0 means done.
void finish(std::uint64_t call, Target& target, std::string why) {
  if (target.full) why = "the disk is full";
  if (why.empty() && rename(target.partial.c_str(), target.path.c_str()) != 0) why = "the file cannot be renamed";
  if (why.empty()) target.partial.clear();
  INT32 server = 0;
  INT32 object = 0;
  Download::State result = Download::State::kDone;
  {
    const std::lock_guard guard(state.lock);
    Running* const running = find(call);
    if (running == nullptr) return;
    Download& shown = running->shown;
    if (!why.empty() && shown.state == Download::State::kRunning) shown.state = Download::State::kFailed;
    if (why.empty()) {
      shown.state = Download::State::kDone;
      shown.path = target.path;
      shown.of = shown.bytes;
    }
    shown.why = why;
    server = shown.server;
    object = shown.object;
    result = shown.state;
  }
  const UINT32 number = result == Download::State::kDone        ? DMS_DOWNLOAD_DONE
                        : result == Download::State::kCancelled ? DMS_DOWNLOAD_CANCELLED
                                                                : DMS_DOWNLOAD_FAILED;
  servers_notify(DMS_DOWNLOAD, server, static_cast<UINT32>(object), number);
}

void set_size(std::uint64_t call, std::int64_t size) {
  const std::lock_guard guard(state.lock);
  if (Running* const running = find(call); running != nullptr && size > 0)
    running->shown.of = static_cast<std::uint64_t>(size);
}

// Forgets the oldest finished downloads beyond kMostDownloadsShown. The caller holds the lock.
void forget_old() {
  while (state.downloads.size() >= kMostDownloadsShown) {
    const auto old = std::ranges::find_if(
        state.downloads, [](const Running& each) { return each.shown.state != Download::State::kRunning; });
    if (old == state.downloads.end()) return;
    state.downloads.erase(old);
  }
}

bool make_folder(const std::string& folder) { return mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST; }

void remove_partial_files(const std::string& folder) {
  std::error_code failed;
  for (auto each = fs::directory_iterator(folder, failed); !failed && each != fs::directory_iterator();
       each.increment(failed)) {
    std::error_code ignored;
    if (each->path().extension() == kPartial) fs::remove(each->path(), ignored);
  }
}

// Opens the file for a download. Returns why it failed; empty: done. The caller holds the lock.
std::string open_target(const UpnpObject& item, Target& ret_target) {
  const std::string& folder = state.downloads_folder;
  if (!make_folder(folder)) return "the folder of downloads cannot be created";
  if (files_in(folder) >= kMostDownloadedFiles) return "there are too many files in " + folder + "; delete some";
  if (!has_space(folder, std::min(item.size, kLongestDownload))) return "the disk has no space for the file";
  ret_target.path = free_path(folder, safe_name(item.name, extension_of(item)));
  if (ret_target.path.empty()) return "there are too many files of that name";
  const std::string partial = ret_target.path + kPartial;
  ret_target.file = open(partial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly);
  if (ret_target.file < 0) return "the file cannot be created in " + folder;
  ret_target.partial = partial;
  return {};
}

// ---- Thumbnails ----

// The type of a picture by its first bytes: "jpg" or "png"; empty: neither.
std::string picture_of(std::string_view bytes) {
  if (bytes.starts_with("\xFF\xD8\xFF")) return "jpg";
  return bytes.starts_with("\x89PNG\r\n\x1A\n") ? "png" : "";
}

void remove_oldest_thumbnail(const std::string& folder) {
  std::error_code failed;
  fs::path oldest;
  fs::file_time_type oldest_time = fs::file_time_type::max();
  std::size_t count = 0;
  for (auto each = fs::directory_iterator(folder, failed); !failed && each != fs::directory_iterator();
       each.increment(failed)) {
    ++count;
    std::error_code ignored;
    const auto time = fs::last_write_time(each->path(), ignored);
    if (ignored || time >= oldest_time) continue;
    oldest_time = time;
    oldest = each->path();
  }
  if (count >= kMostServerThumbnails) fs::remove(oldest, failed);
}

bool keep_thumbnail(const std::string& path, const std::string& bytes) {
  const std::string folder = fs::path(path).parent_path().string();
  if (picture_of(bytes).empty() || !make_folder(folder) || !has_space(folder, bytes.size())) return false;
  remove_oldest_thumbnail(folder);
  const std::string partial = path + kPartial;
  const int file = open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly);
  if (file < 0) return false;
  const bool written = write_all(file, bytes.data(), bytes.size());
  close(file);
  if (written && rename(partial.c_str(), path.c_str()) == 0) return true;
  unlink(partial.c_str());
  return false;
}

}  // namespace

void files_load() {
  const std::lock_guard guard(state.lock);
  state.downloads_folder = set_folder() + "/downloads";
  state.thumbnails_folder = set_folder() + "/server_thumbnails";
  state.downloads.clear();
  state.fetching.clear();
  state.failed.clear();
  remove_partial_files(state.downloads_folder);
  remove_partial_files(state.thumbnails_folder);
}

std::string download_start(INT32 server, INT32 object, const UpnpObject& item, std::string* ret_path) {
  if (item.url.empty()) return "the object has no file that the set can fetch";
  std::string why;
  const UpnpLibrary* const library = upnp_library(why);
  if (library == nullptr || !home_loop_start(why)) return why;
  const std::uint64_t call = next_call();
  const auto target = std::make_shared<Target>();
  {
    const std::lock_guard guard(state.lock);
    const Running* const same = find(server, object);
    if (same != nullptr && same->shown.state == Download::State::kRunning) return {};
    const auto running = std::ranges::count_if(
        state.downloads, [](const Running& each) { return each.shown.state == Download::State::kRunning; });
    if (static_cast<std::size_t>(running) >= kMostDownloads)
      return std::to_string(kMostDownloads) + " downloads run already";
    why = open_target(item, *target);
    if (!why.empty()) return why;
    if (ret_path != nullptr) *ret_path = target->path;
    forget_old();
    state.downloads.push_back({.shown = {.server = server, .object = object, .of = item.size}, .call = call});
  }
  home_loop_post([library, call, target, url = item.url] {
    library->upnp_download(
        call, {.url = url,
               .most = kLongestDownload,
               .size = [call](std::int64_t size) { set_size(call, size); },
               .take = [call, target](const char* bytes, std::size_t size) { return take(call, *target, bytes, size); },
               .done = [call, target](const std::string& end) { finish(call, *target, end); }});
  });
  return {};
}

std::string home_download(const std::string& address, const std::string& name, const std::string& type,
                          std::string& ret_path) {
  const UpnpObject item{.name = name, .url = address, .type = type};
  std::string path;
  std::string why = download_start(0, 0, item, &path);
  if (why.empty() && path.empty()) why = "the previous file is still being downloaded";
  if (why.empty()) ret_path = std::move(path);
  return why;
}

void download_cancel(INT32 server, INT32 object) {
  std::uint64_t call = 0;
  {
    const std::lock_guard guard(state.lock);
    Running* const running = find(server, object);
    if (running == nullptr || running->shown.state != Download::State::kRunning) return;
    running->shown.state = Download::State::kCancelled;
    call = running->call;
  }
  std::string why;
  if (const UpnpLibrary* const library = upnp_library(why)) home_loop_post([=] { library->upnp_cancel(call); });
}

std::optional<Download> download_find(INT32 server, INT32 object) {
  const std::lock_guard guard(state.lock);
  const Running* const running = find(server, object);
  if (running == nullptr) return std::nullopt;
  return running->shown;
}

std::string thumbnail_of(INT32 server, INT32 object, const UpnpObject& item) {
  std::string why;
  const UpnpLibrary* const library = item.thumbnail.empty() ? nullptr : upnp_library(why);
  if (library == nullptr) return {};
  char name[32];
  std::snprintf(name, sizeof name, "/%016zx", std::hash<std::string>{}(item.thumbnail));
  std::string path;
  {
    const std::lock_guard guard(state.lock);
    path = state.thumbnails_folder + name;
    struct stat facts {};
    if (stat(path.c_str(), &facts) == 0) return path;
    if (state.failed.contains(path) || state.fetching.size() >= kMostThumbnailFetches) return {};
    if (!state.fetching.insert(path).second) return {};
  }
  const auto bytes = std::make_shared<std::string>();
  const auto done = [bytes, path, server, object](const std::string& end) {
    const bool kept = end.empty() && keep_thumbnail(path, *bytes);
    {
      const std::lock_guard guard(state.lock);
      state.fetching.erase(path);
      if (state.failed.size() >= kMostFailures) state.failed.clear();
      if (!kept) state.failed.insert(path);
    }
    if (kept) servers_notify(DMS_THUMBNAIL, server, static_cast<UINT32>(object), 0);
  };
  home_loop_post([library, bytes, done, url = item.thumbnail, call = next_call()] {
    library->upnp_download(
        call, {.url = url,
               .most = kLongestThumbnail,
               .millis = kThumbnailMillis,
               .picture = true,
               .take = [bytes](const char* part, std::size_t size) { return bytes->append(part, size), true; },
               .done = done});
  });
  return {};
}
