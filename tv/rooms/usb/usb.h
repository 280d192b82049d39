// The inserted USB sticks and their files, for the other rooms.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct UsbStick {
  std::uint32_t port = 0;
  std::string device = {};  // "/dev/sda1"
  std::string label = {};
  std::string mount_point = {};  // where applications find its files
  std::string folder = {};       // on this machine; the mount point is a link to it
};

// By port. The functions of this file take the USB room's lock for data, under which no other is taken.
std::vector<UsbStick> usb_sticks();

// The stick whose mount point the path begins with; nothing: none. The path need not exist.
std::optional<UsbStick> usb_stick_of(std::string_view path);

// Opens a regular file or a folder of an inserted stick for reading, by its path, which begins with the stick's mount
// point. Nothing outside the stick is ever opened: no symbolic link in the stick is followed, and no ".." leads out of
// it. Never waits for a FIFO. Returns a file descriptor, or -1 with ret_error, for people.
enum class UsbFile { kFile, kFolder };
int usb_open(std::string_view path, UsbFile what, std::string& ret_error);

// The same by a path within the stick. stick: the stick's folder, opened with O_PATH; "." as the path is that folder.
// ret_why begins with "it".
int usb_open_in(int stick, const char* path, UsbFile what, std::string& ret_why);
