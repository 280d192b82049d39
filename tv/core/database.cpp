#include "core/database.h"

#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <system_error>

namespace {

constexpr int kWaitForOther = 2000;   // milliseconds: a process that is exiting unlocks the file soon
constexpr off_t kSmallestPage = 512;  // in bytes; any non-empty database is at least that long
constexpr const char* kOthers = "another process runs the set in this folder";

using Rows = std::vector<std::vector<std::string>>;

// Reads all rows, with their columns as text. Returns false on an error.
bool read_texts(sqlite3* handle, const char* sql, Rows& ret_rows) {
  const Statement statement = database_prepare(handle, sql);
  if (statement == nullptr) return false;
  Rows rows;
  int result = SQLITE_ROW;
  while ((result = sqlite3_step(statement.get())) == SQLITE_ROW) {
    std::vector<std::string>& row = rows.emplace_back();
    for (int column = 0; column < sqlite3_column_count(statement.get()); ++column)
      row.push_back(column_text(statement.get(), column));
  }
  if (result != SQLITE_DONE) return false;
  ret_rows = std::move(rows);
  return true;
}

bool read_tables(sqlite3* handle, Rows& ret_tables) {
  return read_texts(handle, "SELECT type, name, tbl_name, sql FROM sqlite_schema", ret_tables);
}

// Reads the tables that the layout's steps create in an empty database.
bool tables_of(const DatabaseLayouts& layouts, std::int64_t layout, Rows& ret_tables) {
  sqlite3* handle = nullptr;
  bool made = sqlite3_open(":memory:", &handle) == SQLITE_OK;
  for (std::int64_t i = 0; i < layout; ++i)
    made = made && database_execute(handle, layouts.steps[static_cast<std::size_t>(i)]) == SQLITE_OK;
  made = made && read_tables(handle, ret_tables);
  sqlite3_close(handle);
  return made;
}

std::int64_t application_of(const DatabaseLayouts& layouts, std::int64_t layout) {
  return layout == 0 || layout < layouts.marked_from ? 0 : layouts.application + layout;
}

Found read_layout(sqlite3* handle, const DatabaseLayouts& layouts, std::int64_t& ret_layout) {
  const auto newest = static_cast<std::int64_t>(layouts.steps.size());
  Rows head, tables, expected;
  if (!read_texts(handle, "SELECT user_version, application_id FROM pragma_user_version, pragma_application_id",
                  head) ||
      !read_tables(handle, tables)) {
    return database_error(handle);
  }
  const std::int64_t layout = std::stoll(head[0][0]), application = std::stoll(head[0][1]);
  if (layout > newest && application == layouts.application + layout) {
    return {Finding::kProblem,
            "its layout is " + std::to_string(layout) + ", but this version knows layout " + std::to_string(newest)};
  }
  if (layout < 0 || layout > newest || application != application_of(layouts, layout) ||
      !tables_of(layouts, layout, expected) || tables != expected) {
    return {Finding::kDamage, "its tables are not those that the set creates"};
  }
  ret_layout = layout;
  return {};
}

// Runs the missing steps. The caller has begun a transaction.
bool migrate(sqlite3* handle, const DatabaseLayouts& layouts, std::int64_t layout) {
  for (const char* const step : layouts.steps.subspan(static_cast<std::size_t>(layout)))
    if (database_execute(handle, step) != SQLITE_OK) return false;
  return database_mark(handle, layouts);
}

Found connect_and_migrate(const std::string& path, const DatabaseLayouts& layouts, DatabaseCheck check,
                          sqlite3*& ret_handle) {
  std::int64_t layout = 0;
  if (Found found = database_connect(path, layouts, check, ret_handle, layout); found.finding != Finding::kFine)
    return found;
  if (layout == static_cast<std::int64_t>(layouts.steps.size())) return {};
  if (database_execute(ret_handle, "BEGIN IMMEDIATE") != SQLITE_OK || !migrate(ret_handle, layouts, layout) ||
      database_execute(ret_handle, "COMMIT") != SQLITE_OK) {
    return {Finding::kProblem, sqlite3_errmsg(ret_handle)};  // a step is wrong, or the disk is full; the file is intact
  }
  return {};
}

// Reads the whole file.
Found check_whole(sqlite3* handle) {
  Rows check;
  if (!read_texts(handle, "PRAGMA quick_check(1)", check)) return database_error(handle);
  if (check != Rows{{"ok"}}) return {Finding::kDamage, check.empty() ? "it cannot be checked" : check[0][0]};
  return {};
}

}  // namespace

std::string column_text(sqlite3_stmt* statement, int column) {
  const unsigned char* text = sqlite3_column_text(statement, column);
  const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  return text == nullptr ? "" : std::string(reinterpret_cast<const char*>(text), length);
}

// SQLITE_READONLY is damage: SQLite has opened the file for writing, so only a damaged header can make it read-only.
Found database_error(sqlite3* handle) {
  const int code = sqlite3_extended_errcode(handle);
  if ((code & 0xff) == SQLITE_BUSY) return {Finding::kProblem, kOthers};
  const bool damage =
      (code & 0xff) == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_ERROR || code == SQLITE_READONLY;
  return {damage ? Finding::kDamage : Finding::kProblem, sqlite3_errmsg(handle)};
}

Statement database_prepare(sqlite3* handle, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(handle, sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  return Statement(statement);
}

int database_execute(sqlite3* handle, const char* sql) { return sqlite3_exec(handle, sql, nullptr, nullptr, nullptr); }

bool database_mark(sqlite3* handle, const DatabaseLayouts& layouts) {
  const auto newest = static_cast<std::int64_t>(layouts.steps.size());
  const std::string marks = "PRAGMA user_version=" + std::to_string(newest) +
                            "; PRAGMA application_id=" + std::to_string(application_of(layouts, newest));
  return database_execute(handle, marks.c_str()) == SQLITE_OK;
}

Found database_connect(const std::string& path, const DatabaseLayouts& layouts, DatabaseCheck check,
                       sqlite3*& ret_handle, std::int64_t& ret_layout) {
  struct stat info {};
  if (stat(path.c_str(), &info) == 0) {
    if (!S_ISREG(info.st_mode)) return {Finding::kProblem, "it is not a regular file"};
    if (info.st_size > 0 && info.st_size < kSmallestPage) {
      return {Finding::kDamage, "it is truncated"};  // SQLite would treat it as a new one
    }
  }
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(path.c_str(), &ret_handle, kFlags, nullptr) != SQLITE_OK) {
    return ret_handle == nullptr ? Found{Finding::kProblem, "out of memory"} : database_error(ret_handle);
  }
  sqlite3* const handle = ret_handle;
  if (sqlite3_db_readonly(handle, "main") != 0) {
    return {Finding::kProblem, "it cannot be written; check its permissions"};
  }
  sqlite3_busy_timeout(handle, kWaitForOther);
  // Only one process at a time uses the file, so its values in memory cannot become stale.
  if (database_execute(handle, "PRAGMA locking_mode=EXCLUSIVE; PRAGMA cell_size_check=ON") != SQLITE_OK) {
    return database_error(handle);
  }
  std::int64_t layout = 0;
  if (Found found = read_layout(handle, layouts, layout); found.finding != Finding::kFine) return found;
  const bool is_newest = layout == static_cast<std::int64_t>(layouts.steps.size());
  if (check == DatabaseCheck::kWhole || !is_newest)
    if (Found found = check_whole(handle); found.finding != Finding::kFine) return found;
  if (database_execute(handle, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL") != SQLITE_OK) {
    return database_error(handle);
  }
  ret_layout = layout;
  return {};
}

std::string database_set_aside(const std::string& path) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char stamp[sizeof "20000101-000000"];
  std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &utc);
  std::string aside = path + ".damaged-" + stamp;
  std::error_code failed;
  for (int copy = 2; std::filesystem::exists(aside, failed); ++copy) {
    aside = path + ".damaged-" + stamp + "-" + std::to_string(copy);
  }
  std::filesystem::rename(path, aside, failed);
  if (failed) return "";
  for (const char* part : {"-wal", "-shm", "-journal"}) {
    std::error_code none;
    std::filesystem::rename(path + part, aside + part, none);
  }
  return aside;
}

bool database_is_whole(Database& database, bool (*ends)(), std::string& ret_why) {
  constexpr int kSteps = 1000;  // of SQLite's, from one call of `ends` to the next
  sqlite3_progress_handler(
      database.handle, kSteps, [](void* asks) { return (*static_cast<bool (**)()>(asks))() ? 1 : 0; }, &ends);
  const Found found = check_whole(database.handle);
  sqlite3_progress_handler(database.handle, 0, nullptr, nullptr);
  if (found.finding != Finding::kDamage) return true;
  ret_why = found.why;
  return false;
}

bool database_discard(const std::string& path, Database& database, const std::string& why) {
  database.statements.clear();
  if (database.handle != nullptr)
    sqlite3_db_config(database.handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);  // leaves the file unchanged
  database_close(database);
  const std::string aside = database_set_aside(path);
  if (aside.empty()) return false;
  std::fprintf(stderr, "dtv_tv: %s is damaged (%s); it was kept as %s, and a new one is made\n", path.c_str(),
               why.c_str(), aside.c_str());
  return true;
}

bool database_open(const std::string& path, const DatabaseLayouts& layouts, Database& ret_database,
                   std::string& ret_error, DatabaseCheck check) {
  Database database;
  Found found = connect_and_migrate(path, layouts, check, database.handle);
  if (found.finding == Finding::kDamage && database_discard(path, database, found.why))
    found = connect_and_migrate(path, layouts, check, database.handle);
  if (found.finding != Finding::kFine) {
    ret_error = "cannot use " + path + ": " + found.why;
    database_close(database);
    return false;
  }
  ret_database = std::move(database);
  return true;
}

// database_open opens the file for one connection only, which SQLite does not undo while the write-ahead log exists.
bool database_share(const std::string& path, Database& writer, Database& ret_reader, std::string& ret_error) {
  constexpr const char* kShared =
      "PRAGMA journal_mode=DELETE; PRAGMA locking_mode=NORMAL; PRAGMA journal_mode=WAL;"
      "PRAGMA journal_size_limit=16777216";
  sqlite3* handle = nullptr;
  const bool opened =
      database_execute(writer.handle, kShared) == SQLITE_OK &&
      sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK &&
      database_execute(handle,
                       "PRAGMA query_only=ON; PRAGMA cell_size_check=ON; PRAGMA cache_size=-4000; "
                       "SELECT count(*) FROM sqlite_schema") == SQLITE_OK;
  if (!opened) {
    ret_error = "cannot use " + path + ": " + sqlite3_errmsg(handle == nullptr ? writer.handle : handle);
    sqlite3_close(handle);
    return false;
  }
  ret_reader = {.handle = handle, .statements = {}};
  return true;
}

void database_close(Database& database) {
  database.statements.clear();
  sqlite3_close(database.handle);
  database.handle = nullptr;
}

sqlite3_stmt* database_statement(Database& database, std::string_view sql) {
  auto found = database.statements.find(sql);
  if (found == database.statements.end()) {
    Statement made = database_prepare(database.handle, sql);
    if (made == nullptr) return nullptr;
    found = database.statements.emplace(sql, std::move(made)).first;
  }
  sqlite3_reset(found->second.get());
  sqlite3_clear_bindings(found->second.get());
  return found->second.get();
}

bool database_run(sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  sqlite3_reset(statement);
  return result == SQLITE_DONE;
}
