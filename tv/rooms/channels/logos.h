// Logos of channels: PNG files whose name is the channel's name or number, in a folder of the state folder, which a
// client sees as /3rd_rw/ChLogo. Its folder PreDef has those of the broadcast and of imported lists, UserDef those that
// the viewer has put there.
#pragma once

#include <cstddef>
#include <string>

#include "rooms/channels/lists.h"

inline constexpr const char* kLogoFolder = "/ChLogo";          // in the state folder
inline constexpr std::size_t kLongestLogo = 256u << 10;        // bytes of a file that is taken
inline constexpr std::size_t kMostLogos = 2'000;               // files in PreDef
inline constexpr std::size_t kMostLogoFiles = 4 * kMostLogos;  // that take_logos reads at most

// Makes the folder and its two folders, where they are missing.
void make_logo_folder(const std::string& folder);

// Copies the PNG files of a folder that is named after channels into PreDef; a file of the same name is replaced.
// Links, folders, other files and too long ones are left out. Returns how many were copied; 0 also if there is no such
// folder.
std::size_t take_logos(const std::string& from, const std::string& folder);

// Removes what take_logos has copied.
void remove_logos(const std::string& folder);

// The logo's number, 0 if the channel has none: of "7.png" the channel's number 7, by which a client finds the file
// again; of "Name.png" a number above 0x8000, and the file's name is the channel's.
std::uint16_t find_logo(const std::string& folder, const Entry& entry);

// Gives every channel its logo's number.
void give_logos(Lists& lists, const std::string& folder);
