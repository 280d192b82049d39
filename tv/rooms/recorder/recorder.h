// The recorder, for the other rooms.
//
// Its lock for changes comes before the remote control's and the locks of all rooms after that one. Its lock for what
// is shown comes directly before the timers'.
#pragma once

#include <string>

// The message of the latest reminder, for the screen; empty: there is none any more. Takes the lock for what is shown
// only, so the caller may hold its room's lock.
std::string recorder_message();
