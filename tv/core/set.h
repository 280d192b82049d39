// Functions of the whole set, for its rooms.
#pragma once

#include <string>

// Resets all rooms to the factory state. False: the store could not delete its values, and nothing has changed; or
// another thread's simultaneous change could not be undone, and the rest is reset.
bool set_reset();

// The state folder's canonical path. Call it only from a room's load: the power lock guards it.
const std::string& set_folder();
