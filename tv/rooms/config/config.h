// The values of the configuration, for the other rooms. The caller may hold its room's lock; the configuration's locks
// come after it.
#pragma once

#include <string>
#include <string_view>

#include "core/contract.h"

INT32 config_number(const char* key);
std::string config_text(const char* key);

// Returns 0, or -1 with the reason on stderr.
INT32 config_set(const char* key, INT32 value);
INT32 config_set(const char* key, std::string_view value);

// Returns how often the value has changed, so that a room can detect a change.
UINT32 config_changes(const char* key);
