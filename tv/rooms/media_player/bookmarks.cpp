// Stores the positions at which files were left, in the database "positions.sqlite" of the state folder.
#include "rooms/media_player/bookmarks.h"

#include <cstdio>
#include <mutex>
#include <utility>

#include "core/database.h"
#include "core/set.h"

namespace {

constexpr const char* kSteps[] = {
    "CREATE TABLE place (path TEXT PRIMARY KEY, size INTEGER NOT NULL, changed INTEGER NOT NULL, seconds REAL NOT "
    "NULL, "
    "turn INTEGER NOT NULL) STRICT, WITHOUT ROWID;"
    "CREATE INDEX place_turn ON place (turn);"};
constexpr DatabaseLayouts kLayouts{.application = 0x504F5300, .steps = kSteps};

struct Bookmarks {
  std::mutex lock;  // guards the database; no other lock is taken under it
  Database database;
};

// Never destroyed: other threads may still use it when the process exits.
Bookmarks& bookmarks = *new Bookmarks;

void bind_text(sqlite3_stmt* statement, int column, std::string_view text) {
  sqlite3_bind_text(statement, column, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

sqlite3_stmt* prepare(std::string_view sql) {
  return bookmarks.database.handle == nullptr ? nullptr : database_statement(bookmarks.database, sql);
}

bool run(sqlite3_stmt* statement) {
  if (statement != nullptr && database_run(statement)) return true;
  std::fprintf(
      stderr, "dtv_tv: the position in a file could not be saved: %s\n",
      bookmarks.database.handle == nullptr ? "there is no database" : sqlite3_errmsg(bookmarks.database.handle));
  return false;
}

bool forget(const FileIdentity& file) {
  sqlite3_stmt* const statement = prepare("DELETE FROM place WHERE path = ?");
  if (statement != nullptr) bind_text(statement, 1, file.path);
  return run(statement);
}

}  // namespace

void bookmarks_load() {
  const std::lock_guard guard(bookmarks.lock);
  database_close(bookmarks.database);
  Database opened;
  std::string why;
  if (database_open(set_folder() + "/positions.sqlite", kLayouts, opened, why)) {
    bookmarks.database = std::move(opened);
  } else {
    std::fprintf(stderr, "dtv_tv: positions in files will not be saved: %s\n", why.c_str());
  }
}

void bookmarks_close() {
  const std::lock_guard guard(bookmarks.lock);
  database_close(bookmarks.database);
}

std::optional<double> bookmark_read(const FileIdentity& file) {
  const std::lock_guard guard(bookmarks.lock);
  sqlite3_stmt* const statement = prepare("SELECT seconds FROM place WHERE path = ? AND size = ? AND changed = ?");
  if (statement == nullptr) return std::nullopt;
  bind_text(statement, 1, file.path);
  sqlite3_bind_int64(statement, 2, file.size);
  sqlite3_bind_int64(statement, 3, file.changed);
  std::optional<double> seconds;
  if (sqlite3_step(statement) == SQLITE_ROW) seconds = sqlite3_column_double(statement, 0);
  sqlite3_reset(statement);
  return seconds && *seconds > 0 ? seconds : std::nullopt;
}

bool bookmark_save(const FileIdentity& file, double seconds) {
  const std::lock_guard guard(bookmarks.lock);
  if (!(seconds > 0)) return forget(file);
  sqlite3_stmt* const statement =
      prepare("INSERT OR REPLACE INTO place VALUES (?1, ?2, ?3, ?4, (SELECT ifnull(max(turn), 0) + 1 FROM place))");
  if (statement != nullptr) {
    bind_text(statement, 1, file.path);
    sqlite3_bind_int64(statement, 2, file.size);
    sqlite3_bind_int64(statement, 3, file.changed);
    sqlite3_bind_double(statement, 4, seconds);
  }
  if (!run(statement)) return false;
  sqlite3_stmt* const drop =
      prepare("DELETE FROM place WHERE turn <= (SELECT turn FROM place ORDER BY turn DESC LIMIT 1 OFFSET ?)");
  if (drop != nullptr) sqlite3_bind_int64(drop, 1, kMostBookmarks);
  return run(drop);
}

bool bookmarks_forget(std::string_view folder) {
  while (folder.ends_with('/')) folder.remove_suffix(1);
  const std::string below = std::string(folder) + "/";
  const std::lock_guard guard(bookmarks.lock);
  sqlite3_stmt* const statement = prepare("DELETE FROM place WHERE substr(path, 1, length(?1)) = ?1");
  if (statement != nullptr) bind_text(statement, 1, below);
  return run(statement);
}

bool bookmarks_reset() {
  const std::lock_guard guard(bookmarks.lock);
  return run(prepare("DELETE FROM place"));
}
