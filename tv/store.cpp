// The set's memory. Values are written through: each write is one transaction, in WAL mode with full synchronisation,
// so that neither the end of the process nor a power cut loses what a call has acknowledged.
#include <sqlite3.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <utility>

#include "tv.h"

namespace {

constexpr int kLayout = 1;             // of the tables; kept as the database's user_version
constexpr int kWaitForOtherMs = 2000;  // a set that is just being switched off lets go of its memory soon

std::mutex lock;  // guards the connection and its statements
sqlite3* database = nullptr;

struct StatementEnd {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementEnd>;

Statement prepare(sqlite3* db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
  return Statement(statement);
}

int execute(sqlite3* db, const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

// The first column of the present row as text, whatever its type.
std::string column_text(sqlite3_stmt* statement) {
  const unsigned char* text = sqlite3_column_text(statement, 0);
  const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement, 0));
  return text == nullptr ? "" : std::string(reinterpret_cast<const char*>(text), length);
}

// The first column of the first row, as text; empty where there is none or on an error.
std::string first_text(sqlite3* db, const char* sql) {
  const Statement statement = prepare(db, sql);
  if (statement == nullptr || sqlite3_step(statement.get()) != SQLITE_ROW) return "";
  return column_text(statement.get());
}

// At the row that keeps the key's value; null where none is kept. The caller holds the lock.
Statement kept_value(const char* key) {
  Statement statement = prepare(database, "SELECT value FROM settings WHERE key = ?");
  if (statement == nullptr) return nullptr;
  sqlite3_bind_text(statement.get(), 1, key, -1, SQLITE_STATIC);
  return sqlite3_step(statement.get()) == SQLITE_ROW ? std::move(statement) : nullptr;
}

bool is_damage(int code) { return (code & 0xff) == SQLITE_CORRUPT || (code & 0xff) == SQLITE_NOTADB; }

// Brings a fresh connection into the state that this file relies on. An empty problem: done.
std::string settle(sqlite3* db, bool& ret_damaged) {
  const auto problem = [&] {
    ret_damaged = is_damage(sqlite3_errcode(db));
    const bool busy = (sqlite3_errcode(db) & 0xff) == SQLITE_BUSY;
    return busy ? std::string("another process runs the set in this folder") : std::string(sqlite3_errmsg(db));
  };
  if (sqlite3_db_readonly(db, "main") != 0) return "it cannot be written; check its permissions";
  sqlite3_busy_timeout(db, kWaitForOtherMs);
  // One process at a time owns the set: what it holds in its rooms and what is in the file are the same.
  if (execute(db, "PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL") != SQLITE_OK) {
    return problem();
  }
  std::string check = first_text(db, "PRAGMA quick_check(1)");
  if (check != "ok") {
    if (check.empty()) return problem();
    ret_damaged = true;
    return check;
  }
  const std::string layout = first_text(db, "PRAGMA user_version");
  if (layout != "0" && layout != std::to_string(kLayout)) {
    return "its layout is " + layout + ", but this version knows layout " + std::to_string(kLayout);
  }
  const std::string make =
      "BEGIN IMMEDIATE;"
      "CREATE TABLE IF NOT EXISTS settings (key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
      "PRAGMA user_version=" +
      std::to_string(kLayout) + "; COMMIT";
  if (execute(db, make.c_str()) != SQLITE_OK) return problem();
  if (prepare(db, "SELECT key, value FROM settings") == nullptr) return problem();
  return "";
}

// Gives the damaged database and its journal another name. Returns it, or an empty text when that failed.
std::string set_aside(const std::string& path) {
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
  for (const char* part : {"-wal", "-shm"}) {
    std::error_code none;
    std::filesystem::rename(path + part, aside + part, none);
  }
  return aside;
}

}  // namespace

bool store_open(const std::string& folder, std::string& ret_error) {
  std::error_code failed;
  if (!std::filesystem::is_directory(folder, failed)) {
    ret_error = "the state folder " + folder + " does not exist";
    return false;
  }
  if (access(folder.c_str(), W_OK) != 0) {
    ret_error = "the state folder " + folder + " cannot be written; check its permissions";
    return false;
  }
  const std::string path = folder + "/tv.sqlite";
  sqlite3* db = nullptr;
  std::string problem;
  bool damaged = false;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr) ==
      SQLITE_OK) {
    problem = settle(db, damaged);
  } else {
    problem = db == nullptr ? "out of memory" : sqlite3_errmsg(db);
  }
  if (problem.empty()) {
    const std::lock_guard guard(lock);
    database = db;
    return true;
  }
  sqlite3_close(db);
  ret_error = "cannot use the set's memory " + path + ": " + problem;
  if (damaged) {
    const std::string aside = set_aside(path);
    ret_error += aside.empty() ? "; move it away to start with a new set"
                               : "; it is damaged and was kept as " + aside + "; start again for a new set";
  }
  return false;
}

void store_close() {
  const std::lock_guard guard(lock);
  sqlite3_close(database);
  database = nullptr;
}

bool store_is_text(std::string_view text) {
  boost::json::error_code failed;  // its reader takes valid UTF-8 only
  boost::json::parse(boost::json::serialize(boost::json::string_view(text.data(), text.size())), failed);
  return !failed && text.find('\0') == std::string_view::npos;
}

bool store_is_open() {
  const std::lock_guard guard(lock);
  return database != nullptr;
}

std::int64_t store_read(const Setting& setting) {
  const std::lock_guard guard(lock);
  const Statement statement = kept_value(setting.key);
  if (statement == nullptr) return setting.factory;
  const std::int64_t value = sqlite3_column_int64(statement.get(), 0);
  if (sqlite3_column_type(statement.get(), 0) == SQLITE_INTEGER && value >= setting.minimum &&
      value <= setting.maximum) {
    return value;
  }
  std::fprintf(stderr, "dtv_tv: the kept %s \"%s\" is not within %lld to %lld; it is %lld again\n", setting.key,
               column_text(statement.get()).c_str(), static_cast<long long>(setting.minimum),
               static_cast<long long>(setting.maximum), static_cast<long long>(setting.factory));
  return setting.factory;
}

std::string store_read(const TextSetting& setting) {
  const std::lock_guard guard(lock);
  const Statement statement = kept_value(setting.key);
  if (statement == nullptr) return setting.factory;
  std::string text = column_text(statement.get());
  if (sqlite3_column_type(statement.get(), 0) == SQLITE_TEXT && store_is_text(text) && text.size() <= setting.longest) {
    return text;
  }
  std::fprintf(stderr, "dtv_tv: the kept %s is not a text of at most %zu bytes; it is \"%s\" again\n", setting.key,
               setting.longest, setting.factory);
  return setting.factory;
}

bool store_write(std::span<const SettingValue> values) {
  const std::lock_guard guard(lock);
  if (database == nullptr) {
    std::fprintf(stderr, "dtv_tv: the set is off; nothing is changed\n");
    return false;
  }
  const Statement statement = prepare(database, "INSERT OR REPLACE INTO settings (key, value) VALUES (?, ?)");
  bool kept = statement != nullptr && execute(database, "BEGIN IMMEDIATE") == SQLITE_OK;
  for (const SettingValue& each : values) {
    if (!kept) break;
    sqlite3_reset(statement.get());
    sqlite3_bind_text(statement.get(), 1, each.key, -1, SQLITE_STATIC);
    if (const std::string_view* const text = std::get_if<std::string_view>(&each.value)) {
      sqlite3_bind_text(statement.get(), 2, text->data(), static_cast<int>(text->size()), SQLITE_STATIC);
    } else {
      sqlite3_bind_int64(statement.get(), 2, std::get<std::int64_t>(each.value));
    }
    kept = sqlite3_step(statement.get()) == SQLITE_DONE;
  }
  if (statement != nullptr) sqlite3_reset(statement.get());
  if (kept && execute(database, "COMMIT") == SQLITE_OK) return true;
  std::fprintf(stderr, "dtv_tv: the change is not kept: %s\n", sqlite3_errmsg(database));
  if (sqlite3_get_autocommit(database) == 0) execute(database, "ROLLBACK");
  return false;
}
