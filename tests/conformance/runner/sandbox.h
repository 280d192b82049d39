// A private view of the file system for one case, in which absolute paths exist or do not exist as the case says,
// while nothing of it is made on the machine.
#pragma once

#include <map>
#include <string>

namespace runner {

struct WantedPath {
  enum What { FILE, FOLDER, ABSENT, DEVICE } what = FILE;
  std::string content;  // of a file
};
using WantedPaths = std::map<std::string, WantedPath>;  // by absolute path without a slash at its end

// Moves this process, which must have one thread only, into a mount namespace of its own. The television's own
// folders and files (/3rd, /3rd_rw, the command device, the marker file) are absent there unless they are wanted.
// False with ret_error when the machine does not allow it.
bool sandbox_enter(WantedPaths wanted, std::string& ret_error);

}  // namespace runner
