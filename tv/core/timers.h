// The timer thread, which runs delayed actions. Its clock is the machine's monotonic one, or after dtv_tv_manual_clock
// the one that a test advances. The timers' lock is taken last.
#pragma once

#include <chrono>
#include <cstdint>

using TimerTime = std::chrono::steady_clock::time_point;
constexpr TimerTime kTimerNever = TimerTime::max();

// A room's timer: a variable with static storage. Only timers.cpp accesses its members.
struct Timer {
  TimerTime due = kTimerNever;
  void (*action)() = nullptr;
};

void timers_start();

// Cancels all timers and ends the thread. No action is running when it returns.
void timers_stop();

TimerTime timer_now();

// The machine's time of day, in milliseconds since 1970, UTC. With a manual clock it moves with that clock.
std::int64_t timer_utc_millis();

// Sets the timer, replacing an earlier setting: the timer thread calls action at that time, without a lock. The action
// may have begun when its timer is set again, so it must check under its room's lock whether it is still due. The
// caller may hold its room's lock. Returns false when the set is off.
bool timer_set(Timer& timer, TimerTime due, void (*action)());

// Sleeps, also while the set is off. With a manual clock it advances that clock instead, without running actions.
void timer_pause(std::chrono::milliseconds pause);
