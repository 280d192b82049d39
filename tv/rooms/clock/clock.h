// The sleep timer, for the remote control.
#pragma once

void clock_stop_sleep();

// What the SLEEP key does. Returns false when the set is off.
bool clock_step_sleep();
