// Opens files of the sticks. A stick's contents may be hostile: links may lead anywhere, and any kind of file may have
// the name of a picture.
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "core/reply.h"
#include "rooms/usb/usb.h"

namespace {

std::string why(int error) {
  switch (error) {
    case ELOOP:
      return "it is a symbolic link, or behind one; links on a stick are not followed";
    case EXDEV:
      return "it leads out of the stick";
    default:
      return std::generic_category().message(error);
  }
}

int open_beneath(int folder, const char* path, int flags) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  return static_cast<int>(syscall(SYS_openat2, folder, path, &how, sizeof how));
}

bool is_what(int file, UsbFile what) {
  struct stat info {};
  if (fstat(file, &info) != 0) return false;
  return what == UsbFile::kFolder ? S_ISDIR(info.st_mode) : S_ISREG(info.st_mode);
}

}  // namespace

int usb_open_in(int stick, const char* path, UsbFile what, std::string& ret_why) {
  // Opening a FIFO could wait for ever, and opening a device may have effects. So the path is opened for reading only
  // after its kind is known.
  const int found = open_beneath(stick, path, O_PATH | O_CLOEXEC);
  if (found < 0) {
    ret_why = why(errno);
    return -1;
  }
  const bool fits = is_what(found, what);
  close(found);
  if (!fits) {
    ret_why = what == UsbFile::kFolder ? "it is not a folder" : "it is not a regular file";
    return -1;
  }
  const int file = open_beneath(stick, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (file < 0) {
    ret_why = why(errno);
    return -1;
  }
  if (is_what(file, what)) return file;
  close(file);
  ret_why = "it was replaced meanwhile";
  return -1;
}

int usb_open(std::string_view path, UsbFile what, std::string& ret_error) {
  const std::optional<UsbStick> stick = usb_stick_of(path);
  if (!stick) {
    ret_error = quoted(path) + " is not on an inserted stick";
    return -1;
  }
  const std::string_view behind = path.substr(stick->mount_point.size());
  const std::size_t name = behind.find_first_not_of('/');
  const std::string relative(name == std::string_view::npos ? "." : behind.substr(name));
  const int folder = open(stick->folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) {
    ret_error = "the stick " + quoted(stick->label) + " cannot be read: " + std::generic_category().message(errno);
    return -1;
  }
  std::string reason;
  const int file = usb_open_in(folder, relative.c_str(), what, reason);
  close(folder);
  if (file < 0) ret_error = quoted(path) + " cannot be opened: " + reason;
  return file;
}
