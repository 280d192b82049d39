#include "platform.h"

#include <chrono>
#include <thread>

Platform platform;

// One call of a function that requests use. Two at once can only come from two requests at once: handlers call nothing
// from a callback.
struct RunningCall {
  RunningCall() {
    if (platform.running++ > 0) ++platform.overlaps;
  }
  ~RunningCall() { --platform.running; }
  RunningCall(const RunningCall&) = delete;
  RunningCall& operator=(const RunningCall&) = delete;
};

INT32 IVexPb_Ctrl_Init() {
  ++platform.starts;
  return 0;
}

INT32 a_vextvapi_volctrl_getVolume() {
  const RunningCall call;
  return platform.volume;
}

INT32 a_vextvapi_volctrl_setVolume(INT16 level) {
  const RunningCall call;
  platform.volume = level;
  return 0;
}

INT32 a_vextvapi_volctrl_getMute() {
  const RunningCall call;
  while (platform.holds_mute) {
    platform.mute_is_held = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  platform.mute_is_held = false;
  return 0;
}
