// What the store's three files share: store.cpp keeps the values, store_open.cpp puts the folder and the database in
// order, store_sync.cpp brings what is written onto the disk.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>

#include "core/database.h"
#include "core/store.h"

using StoredValue = std::variant<std::int64_t, std::string>;
using StoredValues = std::map<std::string, StoredValue, std::less<>>;  // by key

// ---- store.cpp ----

// Takes a key, a value and their checksum, in this order.
constexpr const char* kStoreInsert = "INSERT OR REPLACE INTO settings (key, value, sum) VALUES (?, ?, ?)";

// Runs that statement; SQLite's result, SQLITE_DONE when it is done.
int store_insert(sqlite3_stmt* insert, std::string_view key, const SettingValue::Value& value);

// Of a row: its key, its value's type and the value.
std::int64_t store_checksum(std::string_view key, const SettingValue::Value& value);

SettingValue::Value store_view(const StoredValue& value);

// Writes the log's pages into the database, which syncs both. For the sync thread: takes the store's lock.
void store_checkpoint();

// ---- store_open.cpp ----

struct FileId {
  dev_t device = 0;
  ino_t inode = 0;
  bool operator==(const FileId&) const = default;
};

// An open store. Only its statements change until it is closed.
struct StoreFiles {
  std::string folder;  // its whole path, as it was given
  int folder_fd = -1;  // holds the lock that keeps other processes out, by whatever path they come
  int log_fd = -1;     // SQLite's write-ahead log, to sync it
  Database database;
  FileId folder_id;
  FileId database_id;
  FileId log_id;
};

// Opens everything, waits up to 2 s for a process that is about to unlock the folder, and reads all values. Reports
// each damaged row on stderr and removes it. Returns false with ret_error; a damaged database is moved aside.
bool files_open(const std::string& folder, StoreFiles& ret_files, StoredValues& ret_values, std::string& ret_error);

// Brings the log into the database and unlocks the folder.
void files_close(StoreFiles& files);

// What has become of the folder or of a file in it, seen from the path that the next start would take. Empty: all are
// in their places. From any thread.
std::string files_problem(const StoreFiles& files);

// Writes what the database's head says already, for a write that changes nothing. SQLite's result.
int files_touch(sqlite3* handle);

// ---- store_sync.cpp: the thread that makes changes durable, and dtv_tv_on_kept ----

// files must stay until sync_stop has returned.
void sync_start(const StoreFiles& files);

// Makes durable what is written, reports it, and ends the thread.
void sync_stop();

// Whether a change may return before it is on the disk.
bool sync_is_deferred();

// Why nothing more can be kept: the errno with which a sync has failed. 0: none has.
int sync_failure();

// Counts a change that has been written; durable: it is on the disk already. log_pages: how long the log is now. Where
// dtv_tv_on_kept has no function to call, the change is on the disk when this returns. Returns 0, or an errno.
int sync_written(bool durable, int log_pages);
