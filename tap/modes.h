// What stands in the platform's place: a script or a recording.
#pragma once

#include <string>

namespace tap {

// A null text ends the mode.
bool script_load(const char* text, std::string& ret_error);
bool replay_load(const char* lines, std::string& ret_error);

// What differed from the recording so far; empty while nothing did.
std::string replay_differences();

}  // namespace tap
