// What reaches the command device during a case.
#pragma once

#include <string>

namespace runner {

// From now on the characters are kept.
void device_record();

// The characters since the last time, in order.
std::string device_take();

}  // namespace runner
