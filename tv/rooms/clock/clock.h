// The set's time, for the other rooms, and what the remote control does to the sleep timer.
#pragma once

#include <cstdint>

// The set's time of day in seconds since 1970, UTC. An application may have set it; a test's manual clock moves it.
std::int64_t clock_utc();

// Incremented when the set's time is set.
std::uint64_t clock_changes();

// The time, in seconds since 1970, UTC, at which the local day begins that is so many days after today; negative is
// before.
std::int64_t clock_local_day(int days);

// How many seconds the local time is ahead of UTC at that time (seconds since 1970, UTC).
std::int64_t clock_offset_at(std::int64_t utc);

// The configuration calls it when it has changed a value of the time zone or of daylight saving. The caller may hold
// the configuration's locks.
void clock_zone_changed();

void clock_stop_sleep();
std::int32_t clock_sleep_left();  // s; 0: the sleep timer is off

// What the SLEEP key does. Returns false when the set is off.
bool clock_step_sleep();
