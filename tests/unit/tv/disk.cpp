#include "disk.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace {

std::mutex hook_lock;
std::shared_ptr<const DiskHook> hook;  // guarded by hook_lock

int sync_descriptor(int descriptor, long call) {
  std::shared_ptr<const DiskHook> present;
  {
    const std::lock_guard guard(hook_lock);
    present = hook;
  }
  if (present == nullptr) return static_cast<int>(syscall(call, descriptor));
  const int failure = (*present)(descriptor);
  if (failure != 0) errno = failure;
  return failure == 0 ? 0 : -1;
}

std::map<std::string, ino_t> names_in(const std::string& folder) {
  std::map<std::string, ino_t> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    struct stat info {};
    if (lstat(entry.path().c_str(), &info) == 0 && S_ISREG(info.st_mode)) names[entry.path().filename()] = info.st_ino;
  }
  return names;
}

// Does not open the file, since closing it would release SQLite's locks.
std::string content_of(int descriptor) {
  struct stat info {};
  if (fstat(descriptor, &info) != 0) return "";
  std::string content(static_cast<std::size_t>(info.st_size), '\0');
  const ssize_t length = pread(descriptor, content.data(), content.size(), 0);
  content.resize(length < 0 ? 0u : static_cast<std::size_t>(length));
  return content;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int fsync(int descriptor) {
  return sync_descriptor(descriptor, SYS_fsync);
}

extern "C" __attribute__((visibility("default"))) int fdatasync(int descriptor) {
  return sync_descriptor(descriptor, SYS_fdatasync);
}

DiskGuard::DiskGuard(DiskHook wanted) {
  const std::lock_guard guard(hook_lock);
  hook = std::make_shared<const DiskHook>(std::move(wanted));
}

DiskGuard::~DiskGuard() {
  const std::lock_guard guard(hook_lock);
  hook = nullptr;
}

PowerRecorder::PowerRecorder(std::string recorded_folder) : folder(std::move(recorded_folder)) {
  names = names_in(folder);
  for (const auto& [name, inode] : names) {
    std::ifstream file(folder + "/" + name, std::ios::binary);
    contents[inode] = {std::istreambuf_iterator<char>(file), {}};
  }
}

FolderImage PowerRecorder::synced_image() const {
  FolderImage image;
  for (const auto& [name, inode] : names) {
    const auto found = contents.find(inode);
    image[name] = found == contents.end() ? "" : found->second;
  }
  return image;
}

// The synced content with random sectors of the written one, since a disk writes sectors in any order.
std::string PowerRecorder::mixed(const std::string& synced, const std::string& written) {
  constexpr std::size_t kSector = 512;
  std::string result = synced;
  if (random() % 2 == 0) result.resize(written.size(), '\0');
  for (std::size_t at = 0; at < std::min(result.size(), written.size()); at += kSector) {
    const std::size_t length = std::min({kSector, result.size() - at, written.size() - at});
    if (random() % 2 == 0) result.replace(at, length, written, at, length);
  }
  return result;
}

FolderImage PowerRecorder::mixed_image() {
  FolderImage image;
  const std::map<std::string, ino_t> written = names_in(folder);
  const auto add = [&](const std::map<std::string, ino_t>& from, const std::map<std::string, ino_t>& other) {
    for (const auto& [name, inode] : from) {
      const auto same = other.find(name);
      const bool certain = same != other.end() && same->second == inode;
      if (!certain && random() % 2 == 0) continue;
      const auto content = contents.find(inode);
      std::string& file = image[name] = content == contents.end() ? "" : content->second;
      struct stat info {};
      const auto open = descriptors.find(inode);
      if (open != descriptors.end() && fstat(open->second, &info) == 0 && info.st_ino == inode) {
        file = mixed(file, content_of(open->second));
      }
    }
  };
  add(names, written);
  add(written, names);
  return image;
}

void PowerRecorder::cut(const std::string& where, const FolderImage& image) {
  cuts.push_back({image, acknowledged(), begun(), "sync " + std::to_string(syncs) + ", " + where});
}

int PowerRecorder::sync(int descriptor) {
  const std::lock_guard guard(lock);
  struct stat info {};
  if (fstat(descriptor, &info) != 0) return errno;
  const std::string path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
  if (path.rfind(folder, 0) != 0) return 0;
  const bool database = path.ends_with("/tv.sqlite");
  if (database) ++database_syncs;
  close_ones = database ? 6 : close_ones - 1;
  const bool recorded = ++syncs < 20 || close_ones > 0 || syncs % every == 0;
  const std::string name = std::filesystem::path(path).filename();
  if (S_ISREG(info.st_mode)) descriptors[info.st_ino] = descriptor;
  if (recorded) cut("before that of " + name, mixed_image());
  if (S_ISREG(info.st_mode)) {
    contents[info.st_ino] = content_of(descriptor);
  } else {
    names = names_in(folder);
  }
  if (recorded) cut("after that of " + name, synced_image());
  return 0;
}
