// Names that are unique in the world.
#pragma once

#include <string>

std::string new_identifier();  // "uuid:6ba7b810-9dad-41d1-80b4-00c04fd430c8", at random
