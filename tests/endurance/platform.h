// The platform of the endurance tests: it keeps a volume, can hold a request up inside the platform, and counts calls
// that overlap. Any thread may use it; it takes no lock, which would hide races of the plugin from the thread
// sanitizer.
#pragma once

#include <atomic>

#include "tests/platform/volume.h"

struct Platform {
  std::atomic<int> starts = 0;             // times that playback control was started
  std::atomic<INT32> volume = 0;           // as set last
  std::atomic<bool> holds_mute = false;    // whether the getter of the mute state waits
  std::atomic<bool> mute_is_held = false;  // a request waits there
  std::atomic<int> running = 0;            // calls of the requests' functions that have not returned yet
  std::atomic<int> overlaps = 0;           // such calls that came while another was running
};
extern Platform platform;
