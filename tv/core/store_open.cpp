// Opens the store: the folder, which only its owner may enter and only one process at a time may lock, and the
// database. Any difference between the database and what this file writes is damage, apart from an older or newer
// layout.
//
// The lock is on the folder itself, so it stays in force if the folder or the database is renamed. This file never
// opens the database's file while SQLite has it open, since closing the descriptor would release SQLite's lock.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

#include "core/store_parts.h"
#include "core/timers.h"

namespace {

constexpr const char* kDatabase = "tv.sqlite";
constexpr const char* kLog = "tv.sqlite-wal";
constexpr const char* kOthers = "another process runs the set in this folder";
constexpr std::chrono::milliseconds kWaitForOther(2000);  // a set that is being switched off unlocks it soon
constexpr std::chrono::milliseconds kLockPause(10);

// The step to layout 2 drops the values; write_values writes them again, with their checksums.
constexpr const char* kSteps[] = {
    "CREATE TABLE settings (key TEXT PRIMARY KEY, value) WITHOUT ROWID",
    "DROP TABLE IF EXISTS settings;"
    "CREATE TABLE settings (key TEXT PRIMARY KEY, value, sum INTEGER NOT NULL) WITHOUT ROWID",
};
constexpr std::int64_t kLayout = std::size(kSteps);
constexpr DatabaseLayouts kLayouts{
    .application = 0x64747600, .steps = kSteps, .marked_from = 2};  // "dtv", then the layout

std::string error_text(int number) { return std::generic_category().message(number); }

// ---- The folder ----

// Whether only a set seems to use the folder: the folder has a set's database, or it has nothing except the folder of
// the channels' logos, which dtv-host makes before the set starts.
bool is_for_a_set(const std::string& folder) {
  std::error_code failed;
  if (std::filesystem::exists(std::filesystem::symlink_status(folder + "/" + kDatabase, failed))) return true;
  for (std::filesystem::directory_iterator each(folder, failed), end; !failed && each != end; each.increment(failed))
    if (each->path().filename() != "ChLogo") return false;
  return !failed;
}

// Removes other users' access to the open folder, if only a set uses it: removing it from a folder such as / or a home
// would harm other programs. Returns an error text, empty on success.
std::string close_to_others(const std::string& folder, int opened, const struct stat& info) {
  if (info.st_uid != geteuid()) {
    return "belongs to user " + std::to_string(info.st_uid) + ", but user " + std::to_string(geteuid()) +
           " runs the set; the set needs a folder of its own";
  }
  if (faccessat(opened, ".", W_OK, 0) != 0) return "cannot be written; check its permissions";
  if ((info.st_mode & 077) == 0) return "";
  if ((info.st_mode & S_ISVTX) != 0 || !is_for_a_set(folder)) {
    return "is open to other users and not used by the set alone; the set needs a folder of its own, or one with mode "
           "700";
  }
  return fchmod(opened, info.st_mode & 0700) == 0 ? "" : "cannot be closed to other users: " + error_text(errno);
}

// Opens the folder and locks it. Returns an error text, empty on success.
std::string open_folder(const std::string& folder, StoreFiles& files) {
  files.folder = std::filesystem::absolute(folder).string();
  const std::string name = "the state folder " + folder;
  files.folder_fd = open(files.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (files.folder_fd < 0 && (errno == ENOENT || errno == ENOTDIR)) return name + " does not exist";
  struct stat info {};
  if (files.folder_fd < 0 || fstat(files.folder_fd, &info) != 0) return name + " cannot be read: " + error_text(errno);
  if (const std::string problem = close_to_others(files.folder, files.folder_fd, info); !problem.empty()) {
    return name + " " + problem;
  }
  files.folder_id = {.device = info.st_dev, .inode = info.st_ino};
  const TimerTime end = timer_now() + kWaitForOther;
  while (flock(files.folder_fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) return name + " cannot be locked: " + error_text(errno);
    if (timer_now() >= end) return name + ": " + kOthers;
    timer_pause(kLockPause);
  }
  return "";
}

// Creates the database's file if there is none, and removes other users' access to it and to its journals. SQLite gives
// journals that it creates the same permissions.
std::string protect_files(int folder) {
  const int file = openat(folder, kDatabase, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
  if (file < 0) return errno == EACCES ? "it cannot be written; check its permissions" : error_text(errno);
  struct stat info {};
  const bool known = fstat(file, &info) == 0;
  close(file);
  if (!known || !S_ISREG(info.st_mode)) return "it is not a regular file";
  if (info.st_uid != geteuid()) return "it belongs to user " + std::to_string(info.st_uid);
  for (const char* const name : {kDatabase, kLog, "tv.sqlite-shm", "tv.sqlite-journal"}) {
    if (fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode)) continue;
    if ((info.st_mode & 077) != 0 && fchmodat(folder, name, info.st_mode & 0600, 0) != 0) {
      return std::string(name) + " cannot be closed to other users: " + error_text(errno);
    }
  }
  return "";
}

bool id_of(int folder, const char* name, FileId& ret_id) {
  struct stat info {};
  if (fstatat(folder, name, &info, 0) != 0) return false;
  ret_id = {.device = info.st_dev, .inode = info.st_ino};
  return true;
}

// Records which files SQLite has open. Returns an error text, empty on success.
std::string note_files(StoreFiles& files) {
  files.log_fd = openat(files.folder_fd, kLog, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  int moved = 1;  // SQLite clears it if the database's path still leads to the file that it has open
  if (files.log_fd < 0 || !id_of(files.folder_fd, kLog, files.log_id) ||
      !id_of(files.folder_fd, kDatabase, files.database_id) ||
      sqlite3_file_control(files.database.handle, "main", SQLITE_FCNTL_HAS_MOVED, &moved) != SQLITE_OK || moved != 0) {
    return "it was moved while it was opened";
  }
  if (fsync(files.folder_fd) != 0) return "the folder cannot be synced: " + error_text(errno);
  return "";
}

// ---- The database ----

std::string printable(const std::string& key) {
  std::string text = key.substr(0, 64);
  for (char& c : text)
    if (c < ' ' || c > '~') c = '?';
  return text;
}

// Reads the current row's value. Returns false if it is damaged. A row of layout 1 has no checksum.
bool read_row(sqlite3_stmt* row, const std::string& key, std::int64_t layout, StoredValue& ret_value) {
  const int type = sqlite3_column_type(row, 1);
  if (sqlite3_column_type(row, 0) != SQLITE_TEXT || (type != SQLITE_INTEGER && type != SQLITE_TEXT)) return false;
  StoredValue value = static_cast<std::int64_t>(sqlite3_column_int64(row, 1));
  if (type == SQLITE_TEXT) value = column_text(row, 1);
  const bool whole = layout == 1 || (sqlite3_column_type(row, 2) == SQLITE_INTEGER &&
                                     sqlite3_column_int64(row, 2) == store_checksum(key, store_view(value)));
  if (whole) ret_value = std::move(value);
  return whole;
}

// Reads every row. Reports damaged rows on stderr and leaves them out. ret_damaged: there were damaged rows, or the
// rows are not in the order of their keys, so that look-ups by key would fail.
Found read_values(sqlite3* db, std::int64_t layout, StoredValues& ret_values, bool& ret_damaged) {
  const Statement row =
      database_prepare(db, layout == 1 ? "SELECT key, value FROM settings" : "SELECT * FROM settings");
  if (row == nullptr) return database_error(db);
  StoredValues values;
  std::string before;
  int result = SQLITE_ROW;
  while ((result = sqlite3_step(row.get())) == SQLITE_ROW) {
    const std::string key = column_text(row.get(), 0);
    StoredValue value;
    const bool whole = read_row(row.get(), key, layout, value);
    if (!whole) {
      std::fprintf(stderr, "dtv_tv: the stored %s is damaged; it is reset to its factory value\n",
                   printable(key).c_str());
    } else {
      values[key] = std::move(value);
    }
    if (!whole || key <= before) ret_damaged = true;
    before = key;
  }
  if (result != SQLITE_DONE) return database_error(db);
  ret_values = std::move(values);
  return {};
}

// Replaces the table with one of the newest layout that contains these values.
bool write_values(sqlite3* db, const StoredValues& values) {
  if (database_execute(db, kSteps[kLayout - 1]) != SQLITE_OK) return false;
  const Statement insert = database_prepare(db, kStoreInsert);
  for (const auto& [key, value] : values)
    if (insert == nullptr || store_insert(insert.get(), key, store_view(value)) != SQLITE_DONE) return false;
  return database_mark(db, kLayouts);
}

// Opens the database, reads its values, migrates it to the newest layout, and removes its damaged rows.
Found read_database(const std::string& path, sqlite3*& ret_db, StoredValues& ret_values) {
  std::int64_t layout = 0;
  if (Found found = database_connect(path, kLayouts, DatabaseCheck::kWhole, ret_db, layout);
      found.finding != Finding::kFine)
    return found;
  sqlite3* const db = ret_db;
  bool renew = layout != kLayout;
  if (layout != 0) {
    if (Found found = read_values(db, layout, ret_values, renew); found.finding != Finding::kFine) return found;
  }
  if (database_execute(db, "BEGIN IMMEDIATE") != SQLITE_OK || (renew && !write_values(db, ret_values)) ||
      files_touch(db) != SQLITE_OK || database_execute(db, "COMMIT") != SQLITE_OK) {
    return database_error(db);
  }
  return {};
}

// Opens the database in the locked folder, and reads its values.
Found open_database(StoreFiles& files, StoredValues& ret_values) {
  if (std::string problem = protect_files(files.folder_fd); !problem.empty()) return {Finding::kProblem, problem};
  const std::string path = files.folder + "/" + kDatabase;
  Found found = read_database(path, files.database.handle, ret_values);
  if (found.finding == Finding::kFine) found.why = note_files(files);
  if (!found.why.empty() && found.finding == Finding::kFine) found.finding = Finding::kProblem;
  return found;
}

void close_descriptors(StoreFiles& files) {
  if (files.log_fd >= 0) close(files.log_fd);
  if (files.folder_fd >= 0) {
    flock(files.folder_fd, LOCK_UN);  // a child process may still have the descriptor
    close(files.folder_fd);
  }
  files = {};
}

}  // namespace

int files_touch(sqlite3* handle) {
  return database_execute(handle, ("PRAGMA user_version=" + std::to_string(kLayout)).c_str());
}

std::string files_problem(const StoreFiles& files) {
  const auto is = [](int folder, const std::string& name, const FileId& wanted) {
    FileId found;
    return id_of(folder, name.c_str(), found) && found == wanted;
  };
  std::string missing;
  if (!is(AT_FDCWD, files.folder, files.folder_id)) {
    missing = "the state folder " + files.folder;
  } else if (!is(files.folder_fd, kDatabase, files.database_id)) {
    missing = files.folder + "/" + kDatabase;
  } else if (!is(files.folder_fd, kLog, files.log_id)) {
    missing = files.folder + "/" + kLog;
  }
  if (missing.empty()) return "";
  return missing + " was deleted, renamed or replaced while the set was on; put it back, or start the set again";
}

bool files_open(const std::string& folder, StoreFiles& ret_files, StoredValues& ret_values, std::string& ret_error) {
  StoreFiles files;
  StoredValues values;
  if (std::string problem = open_folder(folder, files); !problem.empty()) {
    close_descriptors(files);
    ret_error = std::move(problem);
    return false;
  }
  const std::string path = files.folder + "/" + kDatabase;
  const Found found = open_database(files, values);
  if (found.finding == Finding::kFine) {
    ret_files = std::move(files);
    ret_values = std::move(values);
    return true;
  }
  ret_error = "cannot use the set's database " + path + ": " + found.why;
  const bool damaged = found.finding == Finding::kDamage;
  if (damaged && files.database.handle != nullptr)
    sqlite3_db_config(files.database.handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1,
                      nullptr);  // leaves the file unchanged
  database_close(files.database);
  if (damaged) {
    const std::string aside = database_set_aside(path);
    ret_error += aside.empty() ? "; move it away to start with a new set"
                               : "; it is damaged and was kept as " + aside + "; start again for a new set";
  }
  close_descriptors(files);
  return false;
}

void files_close(StoreFiles& files) {
  // SQLite does this itself, unless the database was renamed meanwhile.
  sqlite3_wal_checkpoint_v2(files.database.handle, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  database_close(files.database);
  close_descriptors(files);
}
