#include "sandbox/sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <memory>
#include <system_error>

namespace {

// Where the new root is put together: any folder that every machine has; what it holds is bound back in.
constexpr const char* BUILDING_SITE = "/tmp";
constexpr const char* OLD_ROOT = "/.machine";

struct Node {
  std::map<std::string, Node> children;
  const WantedPath* wanted = nullptr;
};

bool fail(const std::string& what, std::string& ret_error) {
  ret_error = what + ": " + std::generic_category().message(errno);
  return false;
}

// From the machine's files, as they are seen while the new root is put together.
std::string old_path_of(const std::string& path) { return OLD_ROOT + path; }

bool write_text(const std::string& path, const std::string& text, std::string& ret_error) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0) return fail(path, ret_error);
  const bool whole = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(file);
  return whole || fail(path, ret_error);
}

bool bind(const std::string& from, const std::string& to, std::string& ret_error) {
  return mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 || fail("bind " + to, ret_error);
}

// Shows one entry of the machine as it is.
bool pass_through(const std::string& old_path, const std::string& path, std::string& ret_error) {
  struct stat info {};
  if (lstat(old_path.c_str(), &info) != 0) return true;  // gone meanwhile
  if (S_ISLNK(info.st_mode)) {
    char target[PATH_MAX];
    const ssize_t length = readlink(old_path.c_str(), target, sizeof target - 1);
    if (length < 0) return fail("readlink " + path, ret_error);
    target[length] = '\0';
    return symlink(target, path.c_str()) == 0 || fail("symlink " + path, ret_error);
  }
  if (S_ISDIR(info.st_mode)) {
    if (mkdir(path.c_str(), 0755) != 0) return fail("mkdir " + path, ret_error);
  } else if (!write_text(path, "", ret_error)) {
    return false;
  }
  return bind(old_path, path, ret_error);
}

bool build(const Node& node, const std::string& old_folder, const std::string& folder, std::string& ret_error);

bool build_entry(const Node& node, const std::string& old_path, const std::string& path, std::string& ret_error) {
  if (!node.children.empty() || node.wanted == nullptr || node.wanted->what == WantedPath::FOLDER) {
    if (mkdir(path.c_str(), 0755) != 0) return fail("mkdir " + path, ret_error);
    // A folder that is wanted is empty but for what else is wanted in it.
    const bool fresh = node.wanted != nullptr;
    return build(node, fresh ? "" : old_path, path, ret_error);
  }
  switch (node.wanted->what) {
    case WantedPath::FILE:
      return write_text(path, node.wanted->content, ret_error);
    case WantedPath::DEVICE:
      return write_text(path, "", ret_error) && bind(old_path_of("/dev/null"), path, ret_error);
    case WantedPath::BOUND:
      if (mkdir(path.c_str(), 0755) != 0) return fail("mkdir " + path, ret_error);
      return bind(old_path_of(node.wanted->content), path, ret_error);
    case WantedPath::FOLDER:
    case WantedPath::ABSENT:
      break;
  }
  return true;
}

// Fills a folder of the new root with the entries of the old one, changed as node says.
bool build(const Node& node, const std::string& old_folder, const std::string& folder, std::string& ret_error) {
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(old_folder.empty() ? nullptr : opendir(old_folder.c_str()),
                                                    closedir);
  while (listing) {
    const dirent* entry = readdir(listing.get());
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || node.children.contains(name) || "/" + name == OLD_ROOT) continue;
    if (!pass_through(old_folder + "/" + name, folder + "/" + name, ret_error)) return false;
  }
  for (const auto& [name, child] : node.children) {
    const std::string old_path = old_folder.empty() ? "" : old_folder + "/" + name;
    if (!build_entry(child, old_path, folder + "/" + name, ret_error)) return false;
  }
  return true;
}

// Without a superuser's rights a process may do it in a user namespace.
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
  // Mounts come in from the machine, and none goes out to it.
  return mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0 || fail("make mounts private", ret_error);
}

// In its own user namespace the process could otherwise do to the user's files what the user may not.
bool drop_capabilities(std::string& ret_error) {
  __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  return syscall(SYS_capset, &header, none) == 0 || fail("drop capabilities", ret_error);
}

}  // namespace

bool sandbox_enter(const WantedPaths& wanted, NewFolders folders, std::string& ret_error) {
  Node root;
  for (const auto& [path, what] : wanted) {
    // A path of the machine that is absent anyway costs nothing.
    if (what.what == WantedPath::ABSENT && access(path.c_str(), F_OK) != 0) continue;
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
  if (mount("tmpfs", BUILDING_SITE, "tmpfs", 0, "mode=755") != 0) return fail("mount tmpfs", ret_error);
  const std::string old_root = BUILDING_SITE + std::string(OLD_ROOT);
  if (mkdir(old_root.c_str(), 0700) != 0) return fail("mkdir " + old_root, ret_error);
  if (syscall(SYS_pivot_root, BUILDING_SITE, old_root.c_str()) != 0) return fail("pivot_root", ret_error);
  if (chdir("/") != 0) return fail("chdir /", ret_error);
  if (!build(root, OLD_ROOT, "", ret_error)) return false;
  if (umount2(OLD_ROOT, MNT_DETACH) != 0) return fail("umount the machine's root", ret_error);
  rmdir(OLD_ROOT);
  if (has_working_folder && chdir(working_folder) != 0 && chdir("/") != 0) return fail("chdir /", ret_error);
  if (folders == NewFolders::READ_ONLY && mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
    return fail("make the new folders read-only", ret_error);
  return !of_user || drop_capabilities(ret_error);
}
