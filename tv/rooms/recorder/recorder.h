// The recorder, for the other rooms. Its locks come after the remote control's, and before those of two pictures, of
// the sources, of the tuner and of the rooms after it.
#pragma once

#include <string>

// The message of the latest reminder, for the screen; empty: there is none any more.
std::string recorder_message();
