// What the remote control does to the sleep timer.
#pragma once

void clock_stop_sleep();

// What the SLEEP key does. Returns false when the set is off.
bool clock_step_sleep();
