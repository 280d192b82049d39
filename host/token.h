// The token that control commands need: loopback TCP has no notion of the local user, but a file has.
#pragma once

#include <string>

inline constexpr std::size_t kTokenDigits = 64;

// Reads the token from the state folder's file "token", or makes it: 64 hexadecimal digits and a line feed, readable by
// the user alone. A file that holds something else, or that others can read, is replaced. Returns false, with a
// message, where it can be neither read nor made. The folder must exist.
bool token_read(const std::string& state_folder, std::string& ret_token, std::string& ret_error);
