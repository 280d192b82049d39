// The command device in a private view of the machine's files (sandbox.h). There it is a null device, which does not
// know the device's control calls, so this process answers them itself.
#pragma once

constexpr const char* kDevicePath = "/dev/cli";

using DeviceFct = void (*)(char character);

// Calls fct, on the writing thread, with each character that this process sends to the device by ioctl. With null,
// these calls go to the kernel like all others.
void device_listen(DeviceFct fct);
