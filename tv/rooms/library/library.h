// The media library of the inserted sticks, for the other rooms.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tvapi/cbrowser.h"

struct UsbStick;

// The USB room has inserted or removed a stick: the library scans it, or forgets its lists. Any thread; it takes no
// lock that comes before the library's.
void library_sticks_changed();

// How far the stick's scan is, as the command "media" shows it.
boost::json::object library_scan_state(const UsbStick& stick);

// An entry as the lists have it. The path begins with the stick's mount point.
struct LibraryEntry {
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;
  std::string path = {};
  std::string title = {};  // else the file's name
  std::string artist = {};
  std::string album = {};
  std::uint64_t duration_ms = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

// The folders and then the files of one kind (MEDIA_TYPE_NULL: of all kinds) directly in a folder, by name, from an
// index on. What is not in the library is not listed.
std::vector<LibraryEntry> library_folder(std::string_view folder, E_MEDIA_TYPE kind, std::size_t first,
                                         std::size_t count);

std::size_t library_folder_count(std::string_view folder, E_MEDIA_TYPE kind);  // how many those are

// The file next to this one in its folder's list of its kind, forwards (1) or backwards (-1); nothing: it is the last.
std::optional<LibraryEntry> library_neighbour(std::string_view path, int step);

std::optional<LibraryEntry> library_entry(std::string_view path);

// What a playlist on a stick names, in its order: files of the same stick that are in the library. Reads the file. The
// caller holds no lock.
std::vector<LibraryEntry> library_playlist(std::string_view path);

// A file of a stick is being played, or a photo displayed: it comes first in the list of what was played. Any thread;
// never waits.
void library_note_played(std::string_view path);

// The path of the thumbnail's file in the library's cache, made if it is not there yet, which may take seconds. Empty
// with ret_why: there can be none. The caller holds no lock.
std::string library_thumbnail(std::string_view path, std::uint32_t width, std::uint32_t height, std::string& ret_why);
