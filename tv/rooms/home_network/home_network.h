// The servers of the home network, for the other rooms.
#pragma once

#include <string>
#include <string_view>

// The remote control: a key was pressed while the set was on. Notifies the application that has registered for
// keys. leaves: the key is EXIT. The caller holds no lock.
void home_network_key(std::string_view code, bool leaves);

// Downloads the file at an address that is near into the set's folder of downloads, one at a time. type: its media
// type, if it is known. Returns why not; empty: it runs, and ret_path is where the file will be. The caller holds no
// lock.
std::string home_download(const std::string& address, const std::string& name, const std::string& type,
                          std::string& ret_path);
