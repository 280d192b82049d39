// Files that appear whole or not at all, and the signals that end the program.
#pragma once

#include <cstdint>
#include <span>
#include <string>

// From here on SIGINT, SIGTERM and SIGHUP only make interrupted() true, so that what has been begun can be removed.
void watch_signals();
bool interrupted();
// Ends the program by the signal that has come, as if it had not been watched.
[[noreturn]] void end_by_signal();

// A file under a temporary name beside its own, until file_commit gives it its name. Otherwise it is removed.
struct NewFile {
  std::string path;
  std::string temporary;
  int descriptor = -1;
  NewFile() = default;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile();
};

// Each is false with ret_error when the file system refuses. file_commit first waits until the disk has the file where
// `durable` is set: without that, a power cut may leave an empty file under the new name.
bool file_begin(NewFile& file, const std::string& path, std::string& ret_error);
bool file_write(const NewFile& file, std::span<const std::uint8_t> bytes, std::string& ret_error);
bool file_commit(NewFile& file, bool durable, std::string& ret_error);

// The temporary name of a file.
std::string file_temporary(const std::string& path);

// Holds the lock of the folder until the program ends; waits while another program has it. False with ret_error if it
// cannot be locked.
bool folder_lock(const std::string& folder, std::string& ret_error);
