// Only folders of the machine inside one folder, the root, can become USB sticks, or the antenna by a command. Nothing
// outside the root is accessed.
#pragma once

#include <string>
#include <string_view>
#include <system_error>

// A path with all symbolic links resolved.
struct UsbPlace {
  bool inside = false;     // in the root, or the root itself, but never /; the other members are for this case only
  std::error_code failed;  // why the path could not be resolved
  std::string folder;      // the canonical path; if resolving failed, what it would be
};

// Sets the root to the folder given to dtv_tv_stick_root, or $HOME. Reports a folder that cannot be used on stderr. Any
// thread may call the functions of this file.
void usb_root_load();

// The root's canonical path; empty if there is no root, and then no path is inside.
std::string usb_root();

// path: absolute.
UsbPlace usb_place(std::string_view path);
