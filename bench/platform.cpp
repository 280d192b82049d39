// A platform for measuring how long a notification takes: setting the volume to n makes its own thread raise n volume
// callbacks, one a millisecond, and each carries the time at which it was raised as its volume: nanoseconds of
// CLOCK_MONOTONIC, the low 31 bits. Whoever receives it subtracts that from the same clock.
#include <time.h>

#include <atomic>
#include <thread>

#include "tvapi/all.h"

static a_vextvapi_volctrl_nfy_fct volume_callback;
static void* volume_tag;
static std::atomic<bool> raising;

static constexpr long kIntervalNs = 1'000'000;  // long enough for the host to go back to sleep in between

static INT32 clock_low_bits() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<INT32>((INT64{now.tv_sec} * 1'000'000'000 + now.tv_nsec) & 0x7FFFFFFF);
}

static void raise_callbacks(int count) {
  for (int i = 0; i < count; ++i) {
    const timespec interval = {.tv_sec = 0, .tv_nsec = kIntervalNs};
    nanosleep(&interval, nullptr);
    volume_callback(0, volume_tag, reinterpret_cast<void*>(intptr_t{clock_low_bits()}), nullptr, nullptr, nullptr);
  }
  raising = false;
}

INT32 a_vextvapi_volctrl_reg_callback(a_vextvapi_volctrl_nfy_fct callback, void* tag) {
  volume_callback = callback;
  volume_tag = tag;
  return 0;
}

INT32 a_vextvapi_volctrl_setVolume(INT16 volume) {
  if (!volume_callback || raising.exchange(true)) return -1;
  std::thread(raise_callbacks, int{volume}).detach();
  return 0;
}
