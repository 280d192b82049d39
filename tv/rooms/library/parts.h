// What the library's files share. Threads: dtv_tv-media scans sticks; dtv_tv-thumbnails makes thumbnails. All read the
// database through one connection (LibraryReading), one thread at a time, each for microseconds. All writes go through
// another one (LibraryWriting): of the scan in short transactions, of a viewer's favourites in between.
// Locks: the writing lock, the reading lock, and those of scan.cpp, thumbnails.cpp and calls.cpp. None is taken under
// another one of these, except for the reading lock under the writing lock when a damaged database is exchanged.
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

inline constexpr std::size_t kMostSticks = 64;      // in the database
inline constexpr std::int64_t kMostRows = 400'000;  // of all sticks
struct LibraryLimits {
  std::size_t sticks = kMostSticks;
  std::int64_t rows = kMostRows;
};
extern LibraryLimits library_limits;                          // changed only by tests, while no scan runs or waits
inline constexpr std::size_t kMostProblems = 200;             // of a stick that are named
inline constexpr std::size_t kMostErasedAtOnce = 2000;        // rows in one transaction
inline constexpr std::size_t kMostWrittenAtOnce = 128;        // files in one transaction
inline constexpr std::chrono::milliseconds kWriteAfter{300};  // what was read is in the lists
inline constexpr std::size_t kMostNoted = 64;                 // files that were played and wait to be written

// ---- keeper.cpp: the connections ----

bool library_open(const std::string& folder, std::string& ret_error);
void library_close();

// Reads the whole file, and puts an empty one in the place of a damaged one. For the scanning thread.
void library_check(bool (*ends)());

// Puts an empty file in the place of one that a statement has found damaged. For the scanning thread. False: there is
// none, or that has happened too often.
bool library_replace_damaged();

// The connection for reading; null when the set is off or the database could not be opened. What the end of either of
// these does about a damaged file takes the lock of scan.cpp.
struct LibraryReading {
  std::unique_lock<std::mutex> guard;
  Database* database = nullptr;
  LibraryReading();
  ~LibraryReading();
};

struct LibraryWriting {
  std::unique_lock<std::mutex> guard;
  Database* database = nullptr;
  LibraryWriting();
  ~LibraryWriting();
};

// Runs the work in a transaction. False: nothing has changed; an error of the database is reported on stderr.
bool library_write(const std::function<bool(Database& database)>& work);

// Incremented by each transaction.
std::uint64_t library_changes();

// ---- scan.cpp ----

struct MediaProblem {
  std::string path = {};  // as applications have it; bytes that cannot be shown are replaced
  std::string why = {};
};

struct ScanReport {
  std::string_view state = "waiting";  // then running, done, cancelled, failed
  std::uint64_t files = 0;             // that are in the lists or left out
  std::uint64_t of = 0;                // 0: not known yet
  std::uint64_t left_out = 0;
  std::uint64_t read = 0;                                      // files that were opened in this scan
  std::chrono::steady_clock::time_point begin = {}, end = {};  // end: of one that does not run
  std::string reason = {};
  std::vector<MediaProblem> problems = {};  // those that the walk found
};

void scans_load(const std::string& state_folder);
void scans_start();
void scans_stop();
void scans_sticks_changed();
void scans_damaged();  // has the damaged database replaced, and all sticks scanned again
ScanReport scan_report(const UsbStick& stick);
// Each returns why not; empty: done.
std::string scan_begin(const UsbStick& stick);
std::string scan_cancel(const UsbStick& stick);
std::string scan_forget(const UsbStick& stick);  // erases what is known of it
bool scans_forget();                             // the same of all sticks, also of those that are not inserted
bool scans_are_done();                           // none runs or waits
void scans_note_played(std::string_view path);
void scans_settle();  // waits until none runs or waits, and what was noted is written

// ---- library.cpp: entries by their paths ----

struct MediaPlace {
  UsbStick stick;
  std::string path = {};  // within the stick, without a slash at either end
  bool ends_with_slash = false;
};
// Nothing: the path is not on an inserted stick. The caller does not hold the library's locks.
std::optional<MediaPlace> media_place(std::string_view path);
std::optional<MediaRow> media_row(Database& database, const MediaPlace& place);
// The path of an entry for applications.
std::string media_path(const UsbStick& stick, std::string_view folder, std::string_view name);

// An entry of a list: a row of a stick, or a folder.
struct MediaItem {
  MediaRow row = {};
  std::string path = {};
};

struct MediaList {
  std::string_view path = {};  // empty: all sticks
  E_MEDIA_TYPE kind = MEDIA_TYPE_NULL;
  bool all = false;     // folders, and then files of all kinds, directly in the path
  bool direct = false;  // as if the path ended with a slash
  INT32 sort = 0;       // VEXTVAPI_CB_SORT_...
  bool groups = false;  // one entry of each group, if the order has groups
  std::optional<std::string> group = {};
};
// False with ret_why: the path is on no stick, or the order does not exist. ret_total may be null.
bool media_list(const MediaList& list, std::int64_t first, std::int64_t count, std::vector<MediaItem>& ret_items,
                std::int64_t* ret_total, std::string& ret_why);
bool media_search(std::string_view text, std::optional<E_MEDIA_TYPE> kind, std::int64_t first, std::int64_t count,
                  std::vector<MediaItem>& ret_items, std::int64_t& ret_total, std::string& ret_why);

// The time as 20260323141500 in the set's time zone. utc: s since 1970. Takes the configuration's lock.
std::int64_t media_local_date(std::int64_t utc);

// ---- recordings.cpp ----

// The set's recordings with the text in their titles, in the order.
std::vector<MediaItem> media_recordings(INT32 sort, std::string_view title);

// ---- calls.cpp ----

void calls_load();
void calls_reset();                  // to the settings in the store; an application stays registered
INT32 set_sort(E_MEDIA_TYPE kind);   // the set order of the kind's lists
void calls_scan_status(INT32 type);  // posts the callback

// Whether the set may jump to a stick by itself.
bool may_jump();
bool set_may_jump(bool may);

// ---- playlists.cpp ----

struct Playlist {
  std::string title = {};               // empty: it has none
  std::vector<std::string> files = {};  // within the stick, in their order
  bool whole = true;                    // false: the file could not be read
};
// file: open for reading. folder: of the playlist, within the stick; mount_point: of the stick, since entries may be
// absolute.
Playlist playlist_read(int file, std::string_view folder, std::string_view mount_point);
// The rows of a playlist's files, without those that the library does not have.
std::vector<MediaRow> playlist_rows(Database& database, std::int64_t stick, const Playlist& playlist);

// ---- thumbnails.cpp ----

void thumbnails_load(const std::string& state_folder);
void thumbnails_start();
void thumbnails_stop();
void thumbnails_forget();  // erases all

struct ThumbnailAnswer {
  enum class State { kMade, kPending, kNone } state = State::kNone;
  std::string path = {};  // of the JPEG, if it is made
  std::string why = {};   // if there is none
};
// Never waits: what is not made yet is queued.
ThumbnailAnswer thumbnail_ask(std::string_view path, std::uint32_t width, std::uint32_t height);
std::string thumbnail_wait(std::string_view path, std::uint32_t width, std::uint32_t height, std::string& ret_why);

// ---- commands.cpp ----

inline constexpr std::size_t kMostMediaWords = 25;
boost::json::object media_command(std::span<const std::string_view> arguments);
