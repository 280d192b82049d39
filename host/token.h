// The token that control commands require. A loopback connection does not identify the local user; access to a file
// does.
#pragma once

#include <string>

// Reads the token from the file "token" in the state folder, or creates it: 64 hexadecimal digits and a line feed,
// readable only by the user. A file with other content, or that others can read, is replaced. Returns false with a
// message when the token can be neither read nor created. The folder must exist.
bool token_read(const std::string& state_folder, std::string& ret_token, std::string& ret_error);
