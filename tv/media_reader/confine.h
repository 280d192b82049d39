// Confines the process before it reads a file. If a hostile file takes control of a library, it can then reach only
// that file, the socket and the memory for pictures.
#pragma once

#include <cstddef>

// Memory in bytes that the process may map in addition to what it has mapped when it starts.
inline constexpr std::size_t kMostMemory = std::size_t{512} << 20;
inline constexpr unsigned kMostFiles = 8;  // file descriptors

// Forbids new privileges, core dumps and written files, lowers the priority, sets the limits above, and installs a
// filter that refuses all system calls except those that reading needs. Returns which step failed, for people; null:
// all is done.
const char* confine();
