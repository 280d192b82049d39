// The characters that reach the command device during a case.
#pragma once

#include <string>

namespace runner {

// Begins to keep the characters.
void device_record();

// The characters since the last call, in order.
std::string device_take();

}  // namespace runner
