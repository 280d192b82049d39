// A platform for measuring how long a notification takes. A thread of the platform raises volume callbacks after each
// setVolume(n):
//   n up to 100: one callback with the volume n, as a television does;
//   n above 100: n callbacks, BENCH_INTERVAL_US apart (environment variable; default 1000). In the place of the volume
//   each carries the time at which it was raised, the low 31 bits of CLOCK_MONOTONIC in nanoseconds, so that the
//   receiver can work out how long the notification took.
#include <stdlib.h>
#include <time.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "tests/platform/volume.h"

static std::atomic<int> wanted;  // the n of a setVolume that the thread has not finished; 0: none

static constexpr int kVolumeMax = 100;

static INT32 clock_low_bits() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<INT32>((INT64{now.tv_sec} * 1'000'000'000 + now.tv_nsec) & 0x7FFFFFFF);
}

[[noreturn]] static void raise_callbacks() {
  const char* const given = getenv("BENCH_INTERVAL_US");
  const long interval_us = given != nullptr ? atol(given) : 1000;  // long enough for the host to go back to sleep
  for (;;) {
    wanted.wait(0);
    const int volume = wanted.load();
    if (volume <= kVolumeMax) {
      wanted = 0;  // before the callback: its receiver may set the next volume at once
      raise_volume(volume);
      continue;
    }
    for (int i = 0; i < volume; ++i) {
      const timespec interval = {.tv_sec = 0, .tv_nsec = interval_us * 1000};
      nanosleep(&interval, nullptr);
      raise_volume(clock_low_bits());
    }
    wanted = 0;
  }
}

INT32 a_vextvapi_volctrl_setVolume(INT16 volume) {
  int none = 0;
  if (volume < 1 || !volume_callback || !wanted.compare_exchange_strong(none, volume)) return -1;
  static std::once_flag started;
  std::call_once(started, [] { std::thread(raise_callbacks).detach(); });
  wanted.notify_one();
  return 0;
}
