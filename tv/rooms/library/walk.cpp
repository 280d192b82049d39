#include "rooms/library/walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>

#include "rooms/library/names.h"
#include "rooms/usb/usb.h"

namespace {

struct FolderEnd {
  void operator()(DIR* folder) const { closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, FolderEnd>;

struct Waiting {
  std::string path;
  std::size_t depth;
};

struct Walking {
  const Walk& walk;
  std::uint64_t device = 0;
  std::size_t names = 0;
  std::size_t files = 0;
  std::size_t folders = 0;
  std::vector<Waiting> ahead = {};  // the last one is the next
};

std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + "/" + name;
}

// Why a file or folder must be left out and reported; null: it is taken, or is skipped without a report.
const char* problem_of(const Walking& walking, const std::string& path, const std::string& name) {
  if (const char* const problem = media_name_problem(name)) return problem;
  if (path.size() > walking.walk.longest_path) return "its path is longer than an application can take";
  return nullptr;
}

void take_folder(Walking& walking, const Waiting& parent, const std::string& path, const struct stat& info,
                 std::vector<Waiting>& subfolders) {
  const Walk& walk = walking.walk;
  if (info.st_dev == walk.avoided_device && info.st_ino == walk.avoided_inode) return;
  if (info.st_dev != walking.device) {
    walk.problem(path, "it is on another file system");
  } else if (parent.depth >= kDeepestFolder) {
    walk.problem(path, "it is inside too many folders");
  } else if (walking.folders >= kMostStickFolders) {
    walk.problem(path, "the stick has too many folders");
  } else {
    ++walking.folders;
    subfolders.push_back({.path = path, .depth = parent.depth + 1});
  }
}

void take_file(Walking& walking, const std::string& path, const std::string& name, const struct stat& info,
               WalkedFolder& folder) {
  const E_MEDIA_TYPE kind = media_kind_of_name(name);
  if (kind == MEDIA_TYPE_NULL) return;
  if (info.st_size == 0) {
    walking.walk.problem(path, "it is empty");
  } else if (walking.files >= kMostStickFiles) {
    walking.walk.problem(path, "the stick has too many files");
  } else {
    ++walking.files;
    folder.files.push_back({.name = name,
                            .kind = kind,
                            .size = static_cast<std::uint64_t>(info.st_size),
                            .mtime = media_time(info.st_mtim),
                            .inode = walking.walk.inodes ? info.st_ino : 0});
  }
}

void take_entry(Walking& walking, const Waiting& parent, DIR* open, const std::string& name, WalkedFolder& folder,
                std::vector<Waiting>& subfolders) {
  if (media_is_hidden(name)) return;
  const std::string path = join(parent.path, name);
  struct stat info {};
  if (fstatat(dirfd(open), name.c_str(), &info, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0) {
    if (errno == ENOENT) return;
    folder.whole = false;
    walking.walk.problem(path, std::generic_category().message(errno));
    return;
  }
  const bool is_folder = S_ISDIR(info.st_mode);
  if (!is_folder && media_kind_of_name(name) == MEDIA_TYPE_NULL && !S_ISLNK(info.st_mode)) return;
  if (const char* const problem = problem_of(walking, path, name)) {
    walking.walk.problem(path, problem);
  } else if (is_folder) {
    take_folder(walking, parent, path, info, subfolders);
  } else if (S_ISLNK(info.st_mode)) {
    walking.walk.problem(path, "it is a symbolic link; links on a stick are not followed");
  } else if (!S_ISREG(info.st_mode)) {
    walking.walk.problem(path, "it is not a regular file");
  } else {
    take_file(walking, path, name, info, folder);
  }
}

// Reads the folder's names. False: the walk was cancelled.
bool read_folder(Walking& walking, const Waiting& waiting, OpenFolder open) {
  WalkedFolder folder{.path = waiting.path};
  std::vector<Waiting> subfolders;
  while (true) {
    if (walking.walk.ends()) return false;
    errno = 0;
    const dirent* const entry = readdir(open.get());
    if (entry == nullptr) {
      if (errno != 0) {
        folder.whole = false;
        walking.walk.problem(waiting.path, std::generic_category().message(errno));
      }
      break;
    }
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (++walking.names > walking.walk.most_names) {
      folder.whole = false;
      walking.walk.problem(waiting.path, "the stick has too many names; the rest of this folder is left out");
      break;
    }
    take_entry(walking, waiting, open.get(), name, folder, subfolders);
  }
  std::ranges::sort(folder.files, {}, &WalkedFile::name);
  // The next folder is the last of `ahead`, so the walk is in the order of the names.
  std::ranges::sort(subfolders, std::greater(), &Waiting::path);
  walking.ahead.insert(walking.ahead.end(), subfolders.begin(), subfolders.end());
  if (!folder.files.empty() || !folder.whole) walking.walk.folder(std::move(folder));
  return true;
}

}  // namespace

bool keeps_inodes(std::int64_t magic) {
  return magic != MSDOS_SUPER_MAGIC && magic != EXFAT_SUPER_MAGIC && magic != FUSE_SUPER_MAGIC;
}

std::int64_t media_time(const timespec& time) {
  constexpr std::int64_t kSecond = 1'000'000'000, kLast = INT64_MAX / kSecond - 1;
  return std::clamp<std::int64_t>(time.tv_sec, -kLast, kLast) * kSecond + time.tv_nsec;
}

bool walk_stick(const Walk& walk, std::string& ret_why) {
  ret_why.clear();
  Walking walking{.walk = walk};
  walking.ahead.push_back({.path = "", .depth = 0});
  struct stat info {};
  if (fstat(walk.stick, &info) != 0) {
    ret_why = "it cannot be read: " + std::generic_category().message(errno);
    return false;
  }
  walking.device = info.st_dev;
  while (!walking.ahead.empty()) {
    const Waiting waiting = std::move(walking.ahead.back());
    walking.ahead.pop_back();
    std::string why;
    const int folder =
        usb_open_in(walk.stick, waiting.path.empty() ? "." : waiting.path.c_str(), UsbFile::kFolder, why);
    OpenFolder open(folder < 0 ? nullptr : fdopendir(folder));
    if (open == nullptr) {
      if (folder >= 0) close(folder);
      if (waiting.path.empty()) {
        ret_why = why;
        return false;
      }
      walk.problem(waiting.path, why.c_str());
      walk.folder({.path = waiting.path, .whole = false, .files = {}});
      continue;
    }
    if (!read_folder(walking, waiting, std::move(open))) return false;
  }
  return true;
}
