#include "sandbox/sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

namespace {

// Where the new root is assembled: a folder that every machine has. Its own entries are bound back in.
constexpr const char* kBuildingSite = "/tmp";
constexpr const char* kOldRoot = "/.machine";
constexpr unsigned long kNewRootFlags = MS_NOSUID | MS_NODEV;

struct Node {
  std::map<std::string, Node> children;
  const WantedPath* wanted = nullptr;
};

// Reports the failed operation with the message of errno.
bool fail(const std::string& operation, std::string& ret_error) {
  ret_error = operation + ": " + std::generic_category().message(errno);
  return false;
}

// Where a path of the machine is found while the new root is assembled.
std::string old_path_of(const std::string& path) { return kOldRoot + path; }

bool write_text(const std::string& path, const std::string& text, std::string& ret_error) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0) return fail("open " + path, ret_error);
  errno = EIO;  // for a write that is cut short, which sets none
  const bool whole = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (!whole) fail("write " + path, ret_error);
  close(file);
  return whole;
}

bool bind(const std::string& from, const std::string& to, std::string& ret_error) {
  return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 || fail("bind " + to, ret_error);
}

// Makes a bound folder read-only. A user namespace may not clear the mount's other options, so they are repeated.
bool make_read_only(const std::string& path, std::string& ret_error) {
  struct statvfs info {};
  if (statvfs(path.c_str(), &info) != 0) return fail("statvfs " + path, ret_error);
  constexpr std::pair<unsigned long, unsigned long> kKept[] = {
      {ST_NOSUID, MS_NOSUID},   {ST_NODEV, MS_NODEV},           {ST_NOEXEC, MS_NOEXEC},
      {ST_NOATIME, MS_NOATIME}, {ST_NODIRATIME, MS_NODIRATIME}, {ST_RELATIME, MS_RELATIME}};
  unsigned long flags = MS_REMOUNT | MS_BIND | MS_RDONLY;
  for (const auto& [has, keeps] : kKept)
    if ((info.f_flag & has) != 0) flags |= keeps;
  return mount(nullptr, path.c_str(), nullptr, flags, nullptr) == 0 || fail("remount " + path, ret_error);
}

// Shows one entry of the machine as it is. Other processes may remove it at any step: it is then not shown.
bool pass_through(const std::string& old_path, const std::string& path, std::string& ret_error) {
  struct stat info {};
  if (lstat(old_path.c_str(), &info) != 0) return errno == ENOENT || fail("lstat " + path, ret_error);
  if (S_ISLNK(info.st_mode)) {
    char target[PATH_MAX];
    const ssize_t length = readlink(old_path.c_str(), target, sizeof target - 1);
    if (length < 0) return errno == ENOENT || fail("readlink " + path, ret_error);
    target[length] = '\0';
    return symlink(target, path.c_str()) == 0 || fail("symlink " + path, ret_error);
  }
  if (S_ISDIR(info.st_mode)) {
    if (mkdir(path.c_str(), 0755) != 0) return fail("mkdir " + path, ret_error);
  } else if (!write_text(path, "", ret_error)) {
    return false;
  }
  if (mount(old_path.c_str(), path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0) return true;
  if (errno != ENOENT) return fail("bind " + path, ret_error);
  return remove(path.c_str()) == 0 || fail("remove " + path, ret_error);
}

bool build(const Node& node, const std::string& old_folder, const std::string& folder, std::string& ret_error);

bool build_entry(const Node& node, const std::string& old_path, const std::string& path, std::string& ret_error) {
  if (!node.children.empty() || node.wanted == nullptr || node.wanted->what == WantedPath::kFolder) {
    if (mkdir(path.c_str(), 0755) != 0) return fail("mkdir " + path, ret_error);
    // A wanted folder has no other entries than the wanted ones.
    const bool fresh = node.wanted != nullptr;
    return build(node, fresh ? "" : old_path, path, ret_error);
  }
  switch (node.wanted->what) {
    case WantedPath::kFile:
      return write_text(path, node.wanted->content, ret_error);
    case WantedPath::kDevice:
      return write_text(path, "", ret_error) && bind(old_path_of("/dev/null"), path, ret_error);
    case WantedPath::kBound:
      if (mkdir(path.c_str(), 0755) != 0) return fail("mkdir " + path, ret_error);
      return bind(old_path_of(node.wanted->content), path, ret_error) && make_read_only(path, ret_error);
    case WantedPath::kFolder:
    case WantedPath::kAbsent:
      break;
  }
  return true;
}

// Shows the entries of a folder of the machine, except those that the view replaces. A folder that the machine does not
// have has none.
bool pass_through_others(const Node& node, const std::string& old_folder, const std::string& folder,
                         std::string& ret_error) {
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(old_folder.c_str()), closedir);
  if (!listing) return errno == ENOENT || fail("opendir " + folder, ret_error);
  while (true) {
    errno = 0;
    const dirent* entry = readdir(listing.get());
    if (entry == nullptr) return errno == 0 || fail("readdir " + folder, ret_error);
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || node.children.contains(name) || "/" + name == kOldRoot) continue;
    if (!pass_through(old_folder + "/" + name, folder + "/" + name, ret_error)) return false;
  }
}

// Fills a folder of the new root with the entries of old_folder (empty: with none), changed as node says.
bool build(const Node& node, const std::string& old_folder, const std::string& folder, std::string& ret_error) {
  if (!old_folder.empty() && !pass_through_others(node, old_folder, folder, ret_error)) return false;
  for (const auto& [name, child] : node.children) {
    const std::string old_path = old_folder.empty() ? "" : old_folder + "/" + name;
    if (!build_entry(child, old_path, folder + "/" + name, ret_error)) return false;
  }
  return true;
}

// A process without a superuser's rights may enter a mount namespace together with a user namespace.
bool enter_namespace(bool& ret_of_user, std::string& ret_error) {
  ret_of_user = unshare(CLONE_NEWNS) != 0;
  if (ret_of_user) {
    const std::string uid = std::to_string(getuid());
    const std::string gid = std::to_string(getgid());
    if (unshare(CLONE_NEWNS | CLONE_NEWUSER) != 0) return fail("unshare", ret_error);
    if (!write_text("/proc/self/setgroups", "deny", ret_error) ||
        !write_text("/proc/self/uid_map", uid + " " + uid + " 1", ret_error) ||
        !write_text("/proc/self/gid_map", gid + " " + gid + " 1", ret_error))
      return false;
  }
  // The machine's later mounts show up here; mounts that are made here do not show up on the machine.
  return mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0 || fail("make mounts slaves", ret_error);
}

// The capabilities of a user namespace would let the process do to the user's files what the user itself may not.
bool drop_capabilities(std::string& ret_error) {
  __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  return syscall(SYS_capset, &header, none) == 0 || fail("drop capabilities", ret_error);
}

}  // namespace

bool sandbox_enter(const WantedPaths& wanted, NewFolders folders, std::string& ret_error) {
  Node root;
  for (const auto& [path, what] : wanted) {
    // A path that the machine does not have anyway needs no new folders.
    if (what.what == WantedPath::kAbsent && access(path.c_str(), F_OK) != 0) continue;
    Node* node = &root;
    for (std::size_t at = 1; at <= path.size();) {
      const std::size_t end = std::min(path.find('/', at), path.size());
      if (end > at) node = &node->children[path.substr(at, end - at)];
      at = end + 1;
    }
    if (node == &root) {
      ret_error = "the root folder cannot be wanted";
      return false;
    }
    node->wanted = &what;
  }

  char working_folder[PATH_MAX];
  const bool has_working_folder = getcwd(working_folder, sizeof working_folder) != nullptr;
  bool of_user = false;
  if (!enter_namespace(of_user, ret_error)) return false;
  if (mount("tmpfs", kBuildingSite, "tmpfs", kNewRootFlags, "mode=755") != 0) return fail("mount tmpfs", ret_error);
  const std::string old_root = kBuildingSite + std::string(kOldRoot);
  if (mkdir(old_root.c_str(), 0700) != 0) return fail("mkdir " + old_root, ret_error);
  if (syscall(SYS_pivot_root, kBuildingSite, old_root.c_str()) != 0) return fail("pivot_root", ret_error);
  if (chdir("/") != 0) return fail("chdir /", ret_error);
  if (!build(root, kOldRoot, "", ret_error)) return false;
  if (umount2(kOldRoot, MNT_DETACH) != 0) return fail("umount the machine's root", ret_error);
  if (rmdir(kOldRoot) != 0) return fail("rmdir " + std::string(kOldRoot), ret_error);
  if (has_working_folder && chdir(working_folder) != 0 && chdir("/") != 0) return fail("chdir /", ret_error);
  constexpr unsigned long kRemountFlags = MS_REMOUNT | MS_BIND | MS_RDONLY | kNewRootFlags;
  if (folders == NewFolders::kReadOnly && mount(nullptr, "/", nullptr, kRemountFlags, nullptr) != 0)
    return fail("make the new folders read-only", ret_error);
  return !of_user || drop_capabilities(ret_error);
}
