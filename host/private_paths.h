// The plugin's absolute paths, which a PC does not have: the folder of the language libraries and the command device.
#pragma once

#include <string>

struct PrivatePaths {
  bool device = false;  // whether this process sees to the device's calls, see "sandbox/device.h"
};

// Gives the plugin's paths to this process alone; nothing of them is made on the machine, and what the machine has is
// left as it is. language_folder: the built or installed language libraries. Call it before any other thread is made
// and after the last look at /proc/self/exe. Where the machine does not allow it, says so on stderr and changes
// nothing.
PrivatePaths private_paths_enter(const std::string& language_folder);
