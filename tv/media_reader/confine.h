// What the process takes from itself before it reads a file, so that a library that a file has taken over can reach
// nothing but that file, the socket and the picture's memory.
#pragma once

#include <cstddef>

// Memory that the process may map in addition to what its libraries take at its start.
inline constexpr std::size_t kMostMemory = std::size_t{512} << 20;
inline constexpr unsigned kMostFiles = 8;  // file descriptors

// No new privileges, no core dump, no file written, low priority, the limits above, and a filter that refuses all
// system calls but those that reading takes. Returns what could not be taken; null: all is done.
const char* confine();
