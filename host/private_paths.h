// The absolute paths that the plugin uses and a PC does not have: the folder of the language libraries and the command
// device. For dtv-host, and for dtvctl --local.
#pragma once

#include <string>

struct PrivatePaths {
  bool device = false;  // whether this process answers the device's calls, see "sandbox/device.h"
};

// Makes those of the paths that the machine does not have visible to this process alone, without creating anything on
// the machine except state_folder, which is made first: its parent folder may be read-only afterwards. Call it before
// any other thread starts and after the last use of /proc/self/exe. If the machine does not allow it, prints so on
// stderr and changes nothing.
PrivatePaths private_paths_enter(const std::string& state_folder);

// Passes the device's characters to the set, on the thread that writes them. Null: the set takes none.
void private_paths_connect(const PrivatePaths& paths, void (*tv_command)(char character));
