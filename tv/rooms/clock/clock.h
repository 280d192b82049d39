// The set's time, and what the remote control does to the sleep timer.
#pragma once

#include <cstdint>

// The set's time of day in seconds since 1970, UTC. An application may have set it; a test's manual clock moves it.
std::int64_t clock_utc();

// Incremented when the set's time is set.
std::uint64_t clock_changes();

void clock_stop_sleep();

// What the SLEEP key does. Returns false when the set is off.
bool clock_step_sleep();
