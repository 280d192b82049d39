// A platform for measuring how long a notification takes. Setting the volume wakes the platform's own thread, which
//   up to 100: raises one volume callback with that volume, as a set does;
//   to n above: raises n volume callbacks, BENCH_INTERVAL_US apart (in the environment; default 1000), and each carries
//   the time at which it was raised as its volume: nanoseconds of CLOCK_MONOTONIC, the low 31 bits. Whoever receives it
//   subtracts that from the same clock.
#include <stdlib.h>
#include <time.h>

#include <atomic>
#include <thread>

#include "tvapi/all.h"

static a_vextvapi_volctrl_nfy_fct volume_callback;
static void* volume_tag;
static std::atomic<int> wanted;  // the volume that was set and that the thread has not seen to; 0: none

static constexpr int kVolumeMax = 100;

static INT32 clock_low_bits() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<INT32>((INT64{now.tv_sec} * 1'000'000'000 + now.tv_nsec) & 0x7FFFFFFF);
}

static void raise_callback(INT32 volume) {
  volume_callback(0, volume_tag, reinterpret_cast<void*>(intptr_t{volume}), nullptr, nullptr, nullptr);
}

[[noreturn]] static void raise_callbacks() {
  const char* const given = getenv("BENCH_INTERVAL_US");
  const long interval_us = given != nullptr ? atol(given) : 1000;  // long enough for the host to go back to sleep
  for (;;) {
    wanted.wait(0);
    const int volume = wanted.load();
    if (volume <= kVolumeMax) {
      wanted = 0;  // before the callback: whoever is told of it may set the next one at once
      raise_callback(volume);
      continue;
    }
    for (int i = 0; i < volume; ++i) {
      const timespec interval = {.tv_sec = 0, .tv_nsec = interval_us * 1000};
      nanosleep(&interval, nullptr);
      raise_callback(clock_low_bits());
    }
    wanted = 0;
  }
}

INT32 a_vextvapi_volctrl_reg_callback(a_vextvapi_volctrl_nfy_fct callback, void* tag) {
  const bool first = volume_callback == nullptr;
  volume_callback = callback;
  volume_tag = tag;
  if (first) std::thread(raise_callbacks).detach();
  return 0;
}

INT32 a_vextvapi_volctrl_setVolume(INT16 volume) {
  int none = 0;
  if (volume < 1 || !volume_callback || !wanted.compare_exchange_strong(none, volume)) return -1;
  wanted.notify_one();
  return 0;
}
