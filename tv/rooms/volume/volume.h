// Volume and mute, for the other rooms.
#pragma once

#include "core/timers.h"

// What the volume keys and the mute key do. They return false if the store has not saved the change.
bool volume_press(int by);
bool mute_press();

int volume_level();  // 0 to 100
bool volume_is_muted();

// What a controller of the home network does: sets the volume (0 to 100), or only mute. False: the store has not saved
// the change, or the level is out of its range.
bool volume_set(int level);
bool mute_set(bool mute);

// Sets the function that is called at each change. There is one; null: none. It is called under the room's lock, and
// must neither wait nor call this room.
void volume_on_change(void (*changed)());

TimerTime volume_changed();  // when volume or mute were changed last; kTimerNever: not since the set's start
