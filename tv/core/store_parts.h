// What the store's three files share: store.cpp reads and writes the values, store_open.cpp opens the folder and the
// database, store_sync.cpp syncs changes to the disk.
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

// Its parameters: a key, a value and their checksum, in this order.
constexpr const char* kStoreInsert = "INSERT OR REPLACE INTO settings (key, value, sum) VALUES (?, ?, ?)";

// Runs that statement. Returns SQLite's result, SQLITE_DONE on success.
int store_insert(sqlite3_stmt* insert, std::string_view key, const SettingValue::Value& value);

// The checksum of a row's key, its value's type and its value.
std::int64_t store_checksum(std::string_view key, const SettingValue::Value& value);

SettingValue::Value store_view(const StoredValue& value);

// Checkpoint: writes the log's pages into the database and syncs both. For the sync thread; takes the store's lock.
void store_checkpoint();

// ---- store_open.cpp ----

struct FileId {
  dev_t device = 0;
  ino_t inode = 0;
  bool operator==(const FileId&) const = default;
};

// An open store. Until it is closed, only the database's statements change.
struct StoreFiles {
  std::string folder;  // its absolute path, links not resolved
  int folder_fd = -1;  // has the lock that excludes other processes, whatever path they use
  int log_fd = -1;     // SQLite's write-ahead log, to sync it
  Database database;
  FileId folder_id;
  FileId database_id;
  FileId log_id;
};

// Opens everything and reads all values; waits up to 2 s if another process has locked the folder. Reports each damaged
// row on stderr and removes it. Returns false with ret_error on failure; renames a damaged database.
bool files_open(const std::string& folder, StoreFiles& ret_files, StoredValues& ret_values, std::string& ret_error);

// Makes a checkpoint, closes the database and unlocks the folder.
void files_close(StoreFiles& files);

// Checks that the folder and the files are still in their places, by the path that the next start would use. Returns an
// error text, empty if they are. From any thread.
std::string files_problem(const StoreFiles& files);

// A write that changes nothing: writes the user_version that the database has already. Returns SQLite's result.
int files_touch(sqlite3* handle);

// ---- store_sync.cpp: the sync thread, and dtv_tv_on_kept ----

// files must remain valid until sync_stop has returned.
void sync_start(const StoreFiles& files);

// Syncs all changes, reports them, and ends the thread.
void sync_stop();

// Whether a change may return before it is on the disk.
bool sync_is_deferred();

// The errno of a failed sync, after which the store refuses all changes; 0: no sync has failed.
int sync_failure();

// Counts a change that has been written. durable: it is on the disk already. log_pages: the log's length now. If no
// function is registered with dtv_tv_on_kept, the change is on the disk when this returns. Returns 0, or an errno.
int sync_written(bool durable, int log_pages);
