// Volume and mute, for the other rooms.
#pragma once

#include "core/timers.h"

// What the volume keys and the mute key do. They return false if the store has not saved the change.
bool volume_press(int by);
bool mute_press();

int volume_level();  // 0 to 100
bool volume_is_muted();

// What a controller of the home network does: each changes one of both. False: the store has not saved the change, or
// the level is not on the scale.
bool volume_set(int level);
bool mute_set(bool mute);

// Called at each change, under the room's lock; it must not wait, nor call the room. Null: nobody is called. One
// function at a time.
void volume_on_change(void (*changed)());

TimerTime volume_changed();  // when volume or mute were changed last; kTimerNever: not since the set's start
