// What can answer in place of the platform: a script or a recording.
#pragma once

#include <string>

namespace tap {

// Replace the script or the recording; a null text ends it. False with ret_error when the text is wrong.
bool script_load(const char* text, std::string& ret_error);
bool replay_load(const char* lines, std::string& ret_error);

// How the calls have differed from the recording so far; empty when they have not.
std::string replay_differences();

}  // namespace tap
