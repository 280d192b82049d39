// What the library's files share. Threads: dtv_tv-media scans sticks; dtv_tv-thumbs makes thumbnails. All threads read
// the database through one connection (LibraryReading), one at a time, each for microseconds. All threads write through
// a second connection (LibraryWriting). The scan writes in short transactions, so that a viewer's favourites are
// written in between.
//
// Locks: the writing lock, the reading lock, and the locks of scan.cpp, thumbnails.cpp and calls.cpp. A thread holds
// one of them at a time. The exceptions are opening, closing and replacing the database, which take the writing lock
// and then the reading lock.
#pragma once

#include <boost/json/fwd.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "rooms/library/library.h"
#include "rooms/library/rows.h"
#include "rooms/usb/usb.h"

inline constexpr std::size_t kMostSticks = 64;                // in the database
inline constexpr std::int64_t kMostRows = 400'000;            // of all sticks
inline constexpr std::size_t kMostProblems = 200;             // of a stick that are named; the others are only counted
inline constexpr std::size_t kMostErasedAtOnce = 2000;        // rows in one transaction
inline constexpr std::size_t kMostWrittenAtOnce = 128;        // files in one transaction
inline constexpr std::chrono::milliseconds kWriteAfter{300};  // after which facts that were read are written
inline constexpr std::size_t kMostNoted = 64;                 // played files whose times wait to be written

// ---- keeper.cpp: the connections ----

bool library_open(const std::string& folder, std::string& ret_error);
void library_close();

// Reads the whole database, and replaces a damaged one by an empty one. `ends` is called now and then; true ends the
// check. For the scanning thread.
void library_check(bool (*ends)());

// The connection for reading, and its lock while the object exists. database is null when the set is off or the
// database could not be opened.
struct LibraryReading {
  std::unique_lock<std::mutex> guard;
  Database* database = nullptr;
  LibraryReading();
};

// The same for the connection for writing.
struct LibraryWriting {
  std::unique_lock<std::mutex> guard;
  Database* database = nullptr;
  LibraryWriting();
};

// Runs the work in a transaction, under the writing lock. False: the work returned false or the database failed, which
// stderr reports, and nothing has changed.
bool library_write(const std::function<bool(Database& database)>& work);

// The number of changes of the database, so that a cache can tell whether it is stale.
std::uint64_t library_changes();

// ---- scan.cpp ----

struct MediaProblem {
  std::string path = {};  // with the mount point; bytes that cannot be shown are replaced
  std::string why = {};
};

struct ScanReport {
  std::string_view state = "waiting";  // then running, done, cancelled, failed
  std::uint64_t files = 0;             // that the scan has dealt with, whether listed or left out
  std::uint64_t of = 0;                // files that the scan has found; 0: not known yet
  std::uint64_t left_out = 0;
  std::uint64_t read = 0;                                      // files that were opened in this scan
  std::chrono::steady_clock::time_point begin = {}, end = {};  // end: once the scan is over
  std::string reason = {};
  // Files that could not be listed; refused_rows has those that the reader refused.
  std::vector<MediaProblem> problems = {};
};

void scans_load(const std::string& state_folder);
void scans_start();
void scans_stop();
void scans_sticks_changed();
ScanReport scan_report(const UsbStick& stick);
// Each returns why it failed; empty: done.
std::string scan_begin(const UsbStick& stick);
std::string scan_cancel(const UsbStick& stick);
std::string scan_forget(const UsbStick& stick);  // ends its scan, and erases all that the database has of it
bool scans_are_done();                           // no scan runs or waits
void scans_note_played(std::string_view path);
void scans_settle();  // waits until no scan runs or waits, and all noted times are written

// ---- library.cpp: entries by their paths ----

struct MediaPlace {
  UsbStick stick;
  std::string path = {};  // within the stick, without a slash at either end
  bool ends_with_slash = false;
};
// Nothing: the path is not on an inserted stick. The caller does not hold the library's locks.
std::optional<MediaPlace> media_place(std::string_view path);
std::optional<MediaRow> media_row(Database& database, const MediaPlace& place);
// The path under which applications know an entry: it begins with the mount point.
std::string media_path(const UsbStick& stick, std::string_view folder, std::string_view name);

// An entry of a list: a file, or a folder, whose row has the kind MEDIA_TYPE_FOLDER.
struct MediaItem {
  MediaRow row = {};
  std::string path = {};
};

// What a list is to contain.
struct MediaList {
  std::string_view path = {};  // empty: all sticks
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;
  bool all = false;     // subfolders, and then files of all kinds; only what is directly in the path
  bool direct = false;  // only what is directly in the path, as with a path that ends with a slash
  INT32 sort = 0;       // VEXTVAPI_CB_SORT_...
  bool groups = false;  // one entry for each artist, album or genre, if the order is by that
  std::optional<std::string> group = {};
};
// Gives at most `count` entries from the index `first` on. ret_total: the length of the whole list; may be null. False
// with ret_why: the path is on no stick, or the order does not exist.
bool media_list(const MediaList& list, std::int64_t first, std::int64_t count, std::vector<MediaItem>& ret_items,
                std::int64_t* ret_total, std::string& ret_why);
bool media_search(std::string_view text, std::optional<E_MEDIA_TYPE> kind, std::int64_t first, std::int64_t count,
                  std::vector<MediaItem>& ret_items, std::int64_t& ret_total, std::string& ret_why);

// The local time as the number 20260323141500, with the offset that the set's time zone has today. utc: s since 1970.
std::int64_t media_local_date(std::int64_t utc);

// ---- recordings.cpp ----

// The set's recordings whose titles contain the text, in the order `sort` (VEXTVAPI_CB_SORT_...).
std::vector<MediaItem> media_recordings(INT32 sort, std::string_view title);

// ---- calls.cpp ----

void calls_load();
INT32 set_sort(E_MEDIA_TYPE kind);   // the order that was set for the kind's lists
void calls_scan_status(INT32 type);  // posts a call of the application's callback

// Whether the set may jump to a stick by itself.
bool may_jump();
bool set_may_jump(bool may);  // false: the store has not saved it

// ---- playlists.cpp ----

struct Playlist {
  std::string title = {};               // empty: the playlist does not state one
  std::vector<std::string> files = {};  // within the stick, in their order
};
// file: the playlist, open for reading. folder: the playlist's folder within the stick. mount_point: the stick's, for
// entries with absolute paths.
Playlist playlist_read(int file, std::string_view folder, std::string_view mount_point);
// The rows of a playlist's files, without those that the library does not have.
std::vector<MediaRow> playlist_rows(Database& database, std::int64_t stick, const Playlist& playlist);

// ---- thumbnails.cpp ----

void thumbnails_load(const std::string& state_folder);
void thumbnails_start();
void thumbnails_stop();

struct ThumbnailAnswer {
  enum class State { kMade, kPending, kNone } state = State::kNone;
  std::string path = {};  // of the JPEG, if it is made
  std::string why = {};   // if there is none
};
// Never waits: a thumbnail that is not made yet is queued, and the answer is kPending.
ThumbnailAnswer thumbnail_ask(std::string_view path, std::uint32_t width, std::uint32_t height);
// Waits until the thumbnail is made. Returns its path, or empty with ret_why. The caller holds no lock.
std::string thumbnail_wait(std::string_view path, std::uint32_t width, std::uint32_t height, std::string& ret_why);

// ---- commands.cpp ----

inline constexpr std::size_t kMostMediaWords = 25;
boost::json::object media_command(std::span<const std::string_view> arguments);
