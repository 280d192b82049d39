// The timer thread, for what happens later. Its clock is the machine's monotonic one, or with dtv_tv_manual_clock the
// one that a test advances. The timers' lock is taken after every other lock.
#pragma once

#include <chrono>

using TimerTime = std::chrono::steady_clock::time_point;
constexpr TimerTime kTimerNever = TimerTime::max();

// A room's timer: a variable that lives until the process ends. Only timers.cpp touches its members.
struct Timer {
  TimerTime due = kTimerNever;
  void (*action)() = nullptr;
};

void timers_start();

// Forgets every timer that is set and ends the thread; no action runs when it returns.
void timers_stop();

TimerTime timer_now();

// Sets the timer, in place of what it was set to: calls action at that time, on the timer thread and without a lock. An
// action may have begun already when its timer is set anew, so it checks under its room's lock whether it is still due.
// The caller may hold its room's lock. Returns false when the set is off.
bool timer_set(Timer& timer, TimerTime due, void (*action)());

// Sleeps, also while the set is off. With a manual clock it advances that clock instead, and no action runs.
void timer_pause(std::chrono::milliseconds pause);
