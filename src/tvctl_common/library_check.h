// The check of a library before dlopen, which trusts the headers and does not compare them with the file's length: a
// truncated library would kill the process by SIGBUS when a missing page is touched.
#pragma once

// True if the path is a regular file with the header of a shared library for this machine, and the file contains all
// segments that would be loaded. Does not block on a pipe.
bool tvc_library_is_whole(const char* path);
