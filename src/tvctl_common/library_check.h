// A check of a library file before dlopen, which trusts the file's headers: after loading a truncated file, the process
// would die of SIGBUS when it touched a missing page.
#pragma once

// Returns true if the path is a regular file that has the header of a shared library for this machine and contains
// every segment that dlopen would load. Does not block on a pipe.
bool tvc_library_is_whole(const char* path);
