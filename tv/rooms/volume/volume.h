// Volume and mute, for the remote control.
#pragma once

#include "core/timers.h"

// What the volume keys and the mute key do. They return false if the store has not saved the change.
bool volume_press(int by);
bool mute_press();

TimerTime volume_changed();  // when volume or mute were changed last; kTimerNever: not since the set's start
