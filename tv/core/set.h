// The whole set, as its rooms see it.
#pragma once

#include <string>

// Resets all rooms to the factory's state. Returns false, with nothing changed, where the store cannot forget what it
// keeps; false also where another thread's change that came between could not be undone.
bool set_reset();

// The state folder's absolute path. Only while a room loads.
const std::string& set_folder();
