// A private view of the file system for one process: absolute paths exist in it or are missing from it as the process
// wants, and nothing is created on the machine.
#pragma once

#include <map>
#include <string>

struct WantedPath {
  enum What { kFile, kFolder, kAbsent, kDevice, kBound } what = kFile;
  std::string content;  // a file's text; for kBound, the real path of the machine's folder, which is shown read-only
};
using WantedPaths = std::map<std::string, WantedPath>;  // by absolute path, without a slash at its end

// Whether files can be created in the folders that belong to the view itself, such as its root. They are lost with the
// process.
enum class NewFolders { kWritable, kReadOnly };

// Moves this process, which must have only one thread, into a mount namespace of its own. Where the machine allows that
// only to its superuser, the process also enters a user namespace, in which it keeps its user and group. Later mounts
// of the machine are visible in the view. /proc/self/exe no longer gives the program's path. Returns false with
// ret_error when the machine does not allow it or an operation fails; the process may then be half-way and should end.
bool sandbox_enter(const WantedPaths& wanted, NewFolders folders, std::string& ret_error);
