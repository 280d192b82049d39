// Power and keys, for the other rooms.
#pragma once

#include <string>

#include "core/timers.h"

bool remote_is_on();  // false in standby
void remote_wake();

// When the key INFO was pressed last; kTimerNever: not since the set was switched on.
TimerTime remote_info_pressed();
TimerTime remote_volume_pressed();  // the same of VOL_UI

// The digits of the channel number that is being typed; empty: none is.
std::string remote_typed();

// Puts the set into standby. The caller must not hold a lock.
void remote_standby();

// Switches to an HDMI input, at the request of its source. Does nothing in standby or for an input that does not exist.
void remote_show_hdmi(int input);
