#include <pthread.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tv.h"

namespace {

constexpr TimerClock::time_point kNever = TimerClock::time_point::max();

struct Waiting {
  TimerClock::time_point due = kNever;
  void (*action)() = nullptr;
};

struct Timers {
  std::mutex lock;  // guards all but the thread, which only start and stop touch
  std::condition_variable changed;
  std::array<Waiting, static_cast<std::size_t>(Timer::kCount)> waiting;  // by timer
  bool open = false;
  std::thread thread;
};

// Lives until the process ends: a host may leave without switching the set off while the thread still waits here.
Timers& timers = *new Timers;

void run_timers() {
  pthread_setname_np(pthread_self(), "dtv_tv-timers");
  std::unique_lock guard(timers.lock);
  while (timers.open) {
    Waiting& next = *std::ranges::min_element(timers.waiting, {}, &Waiting::due);
    if (next.due == kNever) {
      timers.changed.wait(guard);
    } else if (next.due > TimerClock::now()) {
      const TimerClock::time_point due = next.due;  // the entry may change while this waits
      timers.changed.wait_until(guard, due);
    } else {
      next.due = kNever;
      void (*const action)() = next.action;
      guard.unlock();
      action();
      guard.lock();
    }
  }
}

}  // namespace

void timers_start() {
  {
    const std::lock_guard guard(timers.lock);
    timers.waiting = {};
    timers.open = true;
  }
  timers.thread = std::thread(run_timers);
}

void timers_stop() {
  {
    const std::lock_guard guard(timers.lock);
    timers.open = false;
  }
  timers.changed.notify_one();
  if (timers.thread.joinable()) timers.thread.join();
}

bool timer_set(Timer timer, TimerClock::time_point due, void (*action)()) {
  {
    const std::lock_guard guard(timers.lock);
    if (!timers.open) return false;
    timers.waiting[static_cast<std::size_t>(timer)] = {.due = due, .action = action};
  }
  timers.changed.notify_one();
  return true;
}
