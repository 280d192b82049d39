// The command device in a private view of the machine's files (sandbox.h). There it is a null device, which does not
// know the device's control calls, so this process answers them itself.
#pragma once

constexpr const char* kDevicePath = "/dev/cli";

using DeviceFct = void (*)(char character);

// Passes each character that this process writes to the device by its control call to fct, on the writing thread. With
// null, the device's control calls go to the kernel like all others.
void device_listen(DeviceFct fct);
