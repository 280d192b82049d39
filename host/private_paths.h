// The plugin's absolute paths, which a PC does not have: the folder of the language libraries and the command device.
// For dtv-host, and for a set in the command line's own process.
#pragma once

#include <string>

struct PrivatePaths {
  bool device = false;  // whether this process sees to the device's calls, see "sandbox/device.h"
};

// Gives the plugin's paths to this process alone; nothing of them is made on the machine, and what the machine has is
// left as it is. state_folder is made first, since it may stand in a folder that nothing can be made in afterwards.
// Call it before any other thread is made and after the last look at /proc/self/exe. Where the machine does not allow
// it, says so on stderr and changes nothing.
PrivatePaths private_paths_enter(const std::string& state_folder);

// Hands the device's characters to the set, on the thread that writes them; null where the set takes none.
void private_paths_connect(const PrivatePaths& paths, void (*tv_command)(char character));
