// The volume callback of a test's or benchmark's platform: kept when the plugin registers it, and raised on request.
#pragma once

#include <atomic>

#include "tvapi/all.h"

extern std::atomic<a_vextvapi_volctrl_nfy_fct> volume_callback;  // null before the registration
extern std::atomic<void*> volume_tag;

// Raises the callback on the calling thread, as a platform does after a change of the volume. Returns its result.
inline INT32 raise_volume(INT32 level) {
  return volume_callback.load()(0, volume_tag, reinterpret_cast<void*>(intptr_t{level}), nullptr, nullptr, nullptr);
}
