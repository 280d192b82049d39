// Logos of channels: PNG files whose name is the channel's name or number.
#pragma once

#include <string>

#include "rooms/channels/lists.h"

// Looks in the folders PreDef and UserDef of this folder. Returns the logo's number, 0 if the channel has none: of
// "7.png" the channel's number 7, by which a client finds the file again; of "Name.png" a number above 0x8000, and the
// file's name is the channel's.
std::uint16_t find_logo(const std::string& folder, const Entry& entry);
