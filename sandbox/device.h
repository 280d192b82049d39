// The command device in a private view of the machine's files (sandbox.h): there it is a null device in disguise, which
// knows no control calls, so this process sees to them itself.
#pragma once

constexpr const char* DEVICE_PATH = "/dev/cli";

using DeviceFct = void (*)(char character);

// Hands each character that this process writes to the device by its control call to fct, on the thread that writes it.
// Null: the device's calls go to the kernel, as all others do.
void device_listen(DeviceFct fct);
