// The command device: the characters that reach it by its control call.
#pragma once

#include <string>

namespace runner {

constexpr const char* DEVICE_PATH = "/dev/cli";

// The characters since the last time, in order.
std::string device_take();

}  // namespace runner
