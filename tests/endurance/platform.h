// The platform of these tests: it keeps a volume, remembers the callback, and can hold a request up.
#pragma once

#include <atomic>

#include "tvapi/all.h"

struct Platform {
  std::atomic<int> starts = 0;             // times that playback control was started
  std::atomic<INT32> volume = 0;           // as set last
  std::atomic<bool> holds_mute = false;    // whether the getter of the mute state waits
  std::atomic<bool> mute_is_held = false;  // a request waits there
  std::atomic<int> inside = 0;             // calls that are being answered
  std::atomic<int> overlaps = 0;           // calls that came while another was answered
  std::atomic<a_vextvapi_volctrl_nfy_fct> callback = nullptr;
  std::atomic<void*> tag = nullptr;
};
extern Platform platform;

// Tells the plugin, as on a thread of the platform, that the volume has changed. The callback's result.
INT32 raise_volume(INT32 level);
