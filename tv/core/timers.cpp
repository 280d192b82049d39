#include "core/timers.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "core/events.h"
#include "dtv_tv.h"

namespace {

using std::chrono::steady_clock;

struct Timers {
  std::mutex lock;  // guards all except the thread, which only start and stop use
  std::condition_variable changed;
  std::vector<Timer*> waiting;  // the timers that are set, without duplicates
  bool open = false;
  bool acting = false;                        // an action runs, on the thread or in dtv_tv_advance; never two at once
  std::optional<TimerTime> manual;            // the manual clock's time; none: the machine's clock is used
  std::chrono::system_clock::duration day{};  // the time of day at the manual clock's zero
  std::thread thread;
};

// Never destroyed: the process may exit without switching the set off, while the thread still waits here.
Timers& timers = *new Timers;

// The caller of the functions below holds the lock.

TimerTime now() { return timers.manual.value_or(steady_clock::now()); }

// Null if no timer is set.
Timer* first_due() {
  const auto first = std::ranges::min_element(timers.waiting, {}, &Timer::due);
  return first == timers.waiting.end() ? nullptr : *first;
}

// Runs the timer's action with the lock released. No other action is running.
void act(Timer& due, std::unique_lock<std::mutex>& guard) {
  void (*const action)() = due.action;
  std::erase(timers.waiting, &due);
  timers.acting = true;
  guard.unlock();
  action();
  guard.lock();
  timers.acting = false;
  timers.changed.notify_all();
}

void run_timers() {
  pthread_setname_np(pthread_self(), "dtv_tv-timers");
  std::unique_lock guard(timers.lock);
  while (timers.open) {
    Timer* const next = first_due();
    if (timers.manual || next == nullptr) {
      timers.changed.wait(guard);
    } else if (next->due > steady_clock::now()) {
      const TimerTime due = next->due;  // a copy: the timer may be set again during the wait
      timers.changed.wait_until(guard, due);
    } else {
      act(*next, guard);
    }
  }
}

}  // namespace

void timers_start() {
  {
    const std::lock_guard guard(timers.lock);
    timers.waiting.clear();
    timers.open = true;
  }
  timers.thread = std::thread(run_timers);
}

void timers_stop() {
  {
    std::unique_lock guard(timers.lock);
    timers.open = false;
    timers.changed.notify_all();
    timers.changed.wait(guard, [] { return !timers.acting; });
  }
  if (timers.thread.joinable()) timers.thread.join();
}

TimerTime timer_now() {
  const std::lock_guard guard(timers.lock);
  return now();
}

std::int64_t timer_utc_millis() {
  const std::lock_guard guard(timers.lock);
  using std::chrono::system_clock;
  const auto utc =
      timers.manual ? timers.day + timers.manual->time_since_epoch() : system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(utc).count();
}

bool timer_set(Timer& timer, TimerTime due, void (*action)()) {
  const std::lock_guard guard(timers.lock);
  if (!timers.open) return false;
  timer = {.due = due, .action = action};
  if (std::ranges::find(timers.waiting, &timer) == timers.waiting.end()) timers.waiting.push_back(&timer);
  timers.changed.notify_all();
  return true;
}

void timer_pause(std::chrono::milliseconds pause) {
  {
    const std::lock_guard guard(timers.lock);
    if (timers.manual) {
      *timers.manual += pause;
      return;
    }
  }
  std::this_thread::sleep_for(pause);
}

void dtv_tv_manual_clock(int32_t manual) {
  const std::lock_guard guard(timers.lock);
  timers.manual.reset();
  if (manual == 0) return;
  timers.manual = steady_clock::now();
  timers.day = std::chrono::system_clock::now().time_since_epoch() - timers.manual->time_since_epoch();
}

void dtv_tv_advance(uint32_t milliseconds) {
  std::unique_lock guard(timers.lock);
  if (!timers.manual) return;
  const TimerTime end = now() + std::chrono::milliseconds(milliseconds);
  const auto settle = [&] {
    guard.unlock();
    events_settle();
    guard.lock();
  };
  settle();
  while (true) {
    timers.changed.wait(guard, [] { return !timers.acting; });
    Timer* const next = first_due();
    if (!timers.open || next == nullptr || next->due > end) break;
    timers.manual = std::max(now(), next->due);
    act(*next, guard);
    settle();
  }
  timers.manual = std::max(now(), end);
}
