// The recorder, for the other rooms.
//
// Its lock for changes comes before the remote control's and those of all rooms after it, and before the lock under
// which the sub picture works (rooms/tuner/picture.h). Its lock for readers comes after all of these; only the
// locks of the writers and the timers' come after it.
#pragma once

#include <string>

// The message of the latest reminder; empty: its time on the screen is over. Takes only the lock for readers, so the
// caller may hold its own room's lock.
std::string recorder_message();
