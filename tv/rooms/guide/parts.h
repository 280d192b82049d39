// What the guide's files share. Threads: the guide's own thread is the only one that writes the database, so no request
// waits for a disk. All others read through a connection of their own, one thread at a time, each for microseconds.
// Locks: the reading lock (GuideReading) and that of window.cpp are never held together. Under them only the channels'
// locks, the event queue's and the lock of the queries are taken. The lock of the queue (keeper.cpp) is taken
// without either; only the lock of the import's report is taken under it.
#pragma once

#include <atomic>
#include <boost/json/fwd.hpp>
#include <chrono>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "rooms/channels/channels.h"
#include "rooms/guide/eit.h"
#include "rooms/guide/guide.h"
#include "rooms/guide/rows.h"

// ---- keeper.cpp: the connections, the thread and its queue ----

inline constexpr std::size_t kMostQueuedSections = 2048;  // in the queue; beyond it the oldest is dropped and counted
inline constexpr std::size_t kMostSectionsAtOnce = 256;   // in one transaction
inline constexpr std::size_t kMostEventsErased = 1000;    // old events in one transaction
inline constexpr std::int64_t kErasePause = 3600;         // seconds between two searches for old events

bool keeper_open(const std::string& folder, std::string& ret_error);
void keeper_start();
void keeper_stop();  // cancels an import and closes the database

// The connection for reading, while it exists; null when the set is off or the database could not be opened.
struct GuideReading {
  std::unique_lock<std::mutex> guard;
  Database* database = nullptr;
  GuideReading();
};

// Queues the rows' section. Never waits.
void keeper_queue(const Eit& eit, std::int64_t shift);

// Has the guide's thread run the job in a transaction, and waits for it. False with ret_error: an import runs, the set
// is off, or the database refused. The job returns false to roll back.
using GuideJob = std::function<bool(Database& database, GuideChanges& ret_changes)>;
bool keeper_run(GuideJob job, std::string& ret_error);

// Erases all events, and perhaps the viewer's mappings, and reports that to the window. As keeper_run.
bool keeper_erase_all(bool mappings, std::string& ret_error);

// Has the guide's thread import the file. False with ret_error: another import runs, or the set is off.
bool keeper_import(std::string path, std::string& ret_error);
void keeper_cancel_import();

// Has the guide's thread look for old events, if an hour has passed since it did.
void keeper_look_for_old();

struct KeeperState {
  std::int64_t events = 0;
  std::uint64_t dropped = 0;  // sections that found the queue full, since the set was switched on
  std::size_t waiting = 0;    // sections that are not in the database yet
};
KeeperState keeper_state();

inline constexpr const char* kLanguageKey = "g_gui_lang__gui_language";
inline constexpr const char* kCountryKey = "g_country__country";
GuideTaste guide_taste();

// ---- import.cpp ----

inline constexpr std::size_t kMostXmltvChannels = 20'000;  // in a file
inline constexpr std::size_t kMostListed = 20;             // unmatched channels and problems that are named
inline constexpr std::int64_t kLongestFile = 4LL << 30;    // bytes

// What became of the latest import.
struct ImportReport {
  std::string path = {};
  std::string state = "none";  // running, done, cancelled, failed
  std::uint64_t bytes = 0;     // read, of size
  std::uint64_t size = 0;
  std::uint64_t events = 0;  // taken
  std::uint64_t past = 0;    // left out: ended long ago, or far in the future
  std::uint64_t kept = 0;    // left out: a broadcast has something for that time
  std::size_t matched = 0;   // channels of the file
  std::size_t unmatched = 0;
  std::uint64_t troubles = 0;                     // programmes that could not be used
  std::vector<std::string> unmatched_names = {};  // the first
  std::vector<std::string> problems = {};         // the first
  std::string error = {};
  std::chrono::steady_clock::time_point begin = {}, end = {};  // end: of one that does not run
};
ImportReport import_report();
void import_forget();
void import_begin(const std::string& path);
void import_end(const std::string& state, const std::string& error);

// On the guide's thread, in a transaction of the caller: reads the file into the database. False with ret_error, which
// is empty if the import was cancelled. room: events that may be added.
bool import_run(Database& database, const std::string& path, std::int64_t room, const std::atomic<bool>& cancelled,
                GuideChanges& ret_changes, std::string& ret_error);

// ---- window.cpp: the active window, its callbacks, the borders between events, and the listeners of guide.h ----

void window_load();
void window_forget();  // the window, with a callback
void window_start();
// Posts callbacks for what a write changed, looks for present events that are others now, and calls the listeners.
void window_changes(const GuideChanges& changes, std::intptr_t reason);
void window_everything_changed(std::intptr_t reason);

// ---- queries.cpp ----

void queries_load();

// ---- commands.cpp ----

inline constexpr std::size_t kMostGuideWords = 12;
boost::json::object guide_command(std::span<const std::string_view> arguments);

// ---- guide.cpp ----

// Events of a service that end after the time and have the text in their titles, in any case; at most `most`.
std::vector<GuideEvent> guide_titles_with(const ServiceKey& key, std::string_view text, std::int64_t from,
                                          std::size_t most);
