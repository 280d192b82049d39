// Functions of the whole set, for its rooms.
#pragma once

#include <string>

// Resets all rooms to the factory state. Returns false, with nothing changed, if the store cannot delete its values;
// also if another thread made a change in between that could not be undone.
bool set_reset();

// The state folder's absolute path. Call it only from a room's load.
const std::string& set_folder();
