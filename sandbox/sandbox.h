// A private view of the file system for one process, in which absolute paths exist or do not exist as it says, while
// nothing of it is made on the machine.
#pragma once

#include <map>
#include <string>

struct WantedPath {
  enum What { FILE, FOLDER, ABSENT, DEVICE, BOUND } what = FILE;
  std::string content;  // of a file; of what is bound, the real path of the machine's folder
};
using WantedPaths = std::map<std::string, WantedPath>;  // by absolute path without a slash at its end

// What is made in a folder of the private view's own, as the root is one, is lost with the process.
enum class NewFolders { WRITABLE, READ_ONLY };

// Moves this process, which must have one thread only, into a mount namespace of its own; where the machine keeps that
// to its superuser, into a user namespace too, in which the process stays who it is. What the machine mounts later on
// is seen there as well. /proc/self/exe no longer tells the program's path. False with ret_error when the machine does
// not allow it; the process may then have come half-way and should end.
bool sandbox_enter(const WantedPaths& wanted, NewFolders folders, std::string& ret_error);
