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

// Called by the USB room after it has inserted or removed a stick: the library scans the new stick, or drops the lists
// of the removed one. Any thread. Takes no lock that comes before the library's.
void library_sticks_changed();

// The state of the stick's scan, in the form in which the command "media" replies.
boost::json::object library_scan_state(const UsbStick& stick);

// An entry of a list. The path begins with the stick's mount point.
struct LibraryEntry {
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;
  std::string path = {};
  std::string title = {};  // the file's own title, or else its name
  std::string artist = {};
  std::string album = {};
  std::uint64_t duration_ms = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

// At most `count` entries directly in a folder, from the index `first` on: the files of one kind, the subfolders
// (MEDIA_TYPE_FOLDER), or the subfolders and then the files of all kinds (MEDIA_TYPE_NULL), each sorted by name. Files
// that the library does not have are not listed.
std::vector<LibraryEntry> library_folder(std::string_view folder, E_MEDIA_TYPE kind, std::size_t first,
                                         std::size_t count);

std::size_t library_folder_count(std::string_view folder, E_MEDIA_TYPE kind);  // the length of that list

// The file after (step 1) or before (step -1) this one among its folder's files of the same kind; nothing at the end of
// the list.
std::optional<LibraryEntry> library_neighbour(std::string_view path, int step);

// Nothing: the library does not have the path.
std::optional<LibraryEntry> library_entry(std::string_view path);

// The files that a playlist on a stick names, in its order, as far as they are on the same stick and in the library.
// Reads the playlist from the stick. The caller holds no lock.
std::vector<LibraryEntry> library_playlist(std::string_view path);

// Records that a file of a stick is being played or displayed now, which puts it first in the order
// VEXTVAPI_CB_SORT_PLAYED. Any thread; never waits for the disk.
void library_note_played(std::string_view path);

// The path of the file's thumbnail in the library's cache, a JPEG of at most this size in pixels. Makes it if the cache
// does not have it, which may take seconds. Empty with ret_why: no thumbnail can be made. The caller holds no lock.
std::string library_thumbnail(std::string_view path, std::uint32_t width, std::uint32_t height, std::string& ret_why);
