// The recorder's database: what is planned, and what was recorded. A recording's row is there before its file.
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <system_error>
#include <utility>

#include "base/text.h"
#include "rooms/recorder/parts.h"

namespace {

constexpr const char* kSteps[] = {
    "CREATE TABLE plan (id INTEGER PRIMARY KEY, mode INTEGER NOT NULL, service INTEGER NOT NULL, channel_id INTEGER "
    "NOT "
    "NULL, channel TEXT NOT NULL, event INTEGER NOT NULL, start INTEGER NOT NULL, duration INTEGER NOT NULL, lead "
    "INTEGER NOT NULL, trail INTEGER NOT NULL, title TEXT NOT NULL, series INTEGER NOT NULL) STRICT;"
    "CREATE TABLE recording (id INTEGER PRIMARY KEY, service INTEGER NOT NULL, channel_id INTEGER NOT NULL, channel "
    "TEXT NOT NULL, event INTEGER NOT NULL, start INTEGER NOT NULL, duration INTEGER NOT NULL, title TEXT NOT NULL, "
    "status INTEGER NOT NULL, reason INTEGER NOT NULL, resume INTEGER NOT NULL, bytes INTEGER NOT NULL, lost INTEGER "
    "NOT NULL, kept INTEGER NOT NULL, scrambled INTEGER NOT NULL, version INTEGER NOT NULL) STRICT;"
    "CREATE TABLE taken (series INTEGER NOT NULL, service INTEGER NOT NULL, event INTEGER NOT NULL, start INTEGER NOT "
    "NULL, PRIMARY KEY (series, service, event, start)) STRICT, WITHOUT ROWID;",
    "ALTER TABLE plan ADD COLUMN genre INTEGER NOT NULL DEFAULT 0;"
    "CREATE TABLE played (one INTEGER PRIMARY KEY CHECK (one = 1), recording INTEGER NOT NULL) STRICT;"};
constexpr DatabaseLayouts kLayouts{.application = 0x52454300, .steps = kSteps};

constexpr std::int64_t kSameEvent = 12 * 60 * 60;         // s, within which an event's id is not used again
constexpr std::int64_t kForgetTaken = 30 * 24 * 60 * 60;  // s after an event's beginning
constexpr std::int64_t kLastSecond = 253402300799;        // of 9999

sqlite3_stmt* prepare(std::string_view sql, std::initializer_list<Cell> cells) {
  sqlite3_stmt* const statement = database_statement(recorder.database, sql);
  int column = 0;
  for (const Cell& cell : cells) {
    ++column;
    if (const auto* const text = std::get_if<std::string_view>(&cell)) {
      sqlite3_bind_text(statement, column, text->data(), static_cast<int>(text->size()), SQLITE_TRANSIENT);
    } else {
      sqlite3_bind_int64(statement, column, std::get<std::int64_t>(cell));
    }
  }
  return statement;
}

bool run(std::string_view sql, std::initializer_list<Cell> cells) {
  sqlite3_stmt* const statement = prepare(sql, cells);
  return statement != nullptr && database_run(statement);
}

// Reads a row's columns one after the other, and notes a number that is out of its range.
struct RowReader {
  sqlite3_stmt* statement;
  int column = 0;
  bool valid = true;
};

template <typename Number>
void read_number(RowReader& row, Number& ret_number, std::int64_t least, std::int64_t most) {
  const std::int64_t value = sqlite3_column_int64(row.statement, row.column++);
  row.valid = row.valid && value >= least && value <= most;
  ret_number = static_cast<Number>(value);
}

void read_text(RowReader& row, std::string& ret_text) {
  ret_text = column_text(row.statement, row.column++);
  row.valid = row.valid && is_utf8(ret_text);
}

void read_key(RowReader& row, ServiceKey& ret_key) {
  std::int64_t service = 0;
  read_number(row, service, 0, 0xFFFFFFFFFFFF);
  ret_key = unpacked(service);
}

bool read_plan(sqlite3_stmt* statement, Plan& ret_plan) {
  RowReader row{statement};
  Plan plan;
  read_number(row, plan.id, 1, kLastId);
  read_number(row, plan.mode, RMDR_MODE_REMIND, RMDR_MODE_SERIES);
  read_key(row, plan.key);
  read_number(row, plan.channel_id, 0, UINT32_MAX);
  read_text(row, plan.channel);
  read_number(row, plan.event, -1, UINT16_MAX);
  read_number(row, plan.start, 0, kLastSecond);
  read_number(row, plan.duration, 0, kLongestEvent);
  read_number(row, plan.before, -std::int64_t{kLongestEvent}, kLongestEvent);
  read_number(row, plan.after, -std::int64_t{kLongestEvent}, kLongestEvent);
  read_text(row, plan.title);
  read_number(row, plan.series, 0, kLastId);
  read_number(row, plan.genre, 0, UINT8_MAX);
  if (row.valid) ret_plan = std::move(plan);
  return row.valid;
}

bool read_recording(sqlite3_stmt* statement, Recording& ret_recording) {
  RowReader row{statement};
  Recording recording;
  read_number(row, recording.id, 1, kLastId);
  read_key(row, recording.key);
  read_number(row, recording.channel_id, 0, UINT32_MAX);
  read_text(row, recording.channel);
  read_number(row, recording.event, -1, UINT16_MAX);
  read_number(row, recording.start, 0, kLastSecond);
  read_number(row, recording.duration, 0, UINT32_MAX);
  read_text(row, recording.title);
  read_number(row, recording.status, RECLIST_STATUS_RECORDING, RECLIST_STATUS_FAILED);
  read_number(row, recording.reason, RECLIST_REASON_NONE, RECLIST_REASON_MISSED);
  read_number(row, recording.resume, 0, UINT32_MAX);
  read_number(row, recording.bytes, 0, INT64_MAX);
  read_number(row, recording.lost, 0, INT64_MAX);
  read_number(row, recording.kept, 0, 1);
  read_number(row, recording.scrambled, 0, 1);
  read_number(row, recording.version, 0, UINT32_MAX);
  if (row.valid) ret_recording = std::move(recording);
  return row.valid;
}

// Reads at most `most` rows.
template <typename Row>
std::vector<Row> read_rows(const char* sql, std::size_t most, bool (*read)(sqlite3_stmt* statement, Row& ret_row)) {
  std::vector<Row> rows;
  sqlite3_stmt* const statement = database_statement(recorder.database, sql);
  std::size_t wrong = 0;
  while (statement != nullptr && rows.size() < most && sqlite3_step(statement) == SQLITE_ROW) {
    Row row;
    if (read(statement, row)) {
      rows.push_back(std::move(row));
    } else {
      ++wrong;
    }
  }
  if (statement != nullptr) sqlite3_reset(statement);
  if (wrong > 0) std::fprintf(stderr, "dtv_tv: the recorder ignores %zu rows that cannot be right\n", wrong);
  return rows;
}

// The recording that was played last; 0: none.
int read_played() {
  sqlite3_stmt* const statement = database_statement(recorder.database, "SELECT recording FROM played");
  if (statement == nullptr) return 0;
  const std::int64_t id = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
  sqlite3_reset(statement);
  return id > 0 && id <= kLastId ? static_cast<int>(id) : 0;
}

}  // namespace

bool database_change(const std::function<bool()>& changes) {
  sqlite3* const db = recorder.database.handle;
  if (db == nullptr) {
    std::fprintf(stderr, "dtv_tv: the recorder has no database; nothing was changed\n");
    return false;
  }
  const bool done = run("BEGIN IMMEDIATE", {}) && changes() && run("COMMIT", {});
  if (!done) std::fprintf(stderr, "dtv_tv: the recorder's change was not saved: %s\n", sqlite3_errmsg(db));
  if (sqlite3_get_autocommit(db) == 0) database_execute(db, "ROLLBACK");
  return done;
}

bool plan_store(const Plan& plan) {
  return run(
      "INSERT OR REPLACE INTO plan VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
      {plan.id, plan.mode, packed(plan.key), plan.channel_id, std::string_view(plan.channel), plan.event, plan.start,
       plan.duration, plan.before, plan.after, std::string_view(plan.title), plan.series, plan.genre});
}

bool plan_erase(int id) {
  return run("DELETE FROM plan WHERE id = ?1 OR series = ?1", {id}) && run("DELETE FROM taken WHERE series = ?", {id});
}

bool recording_store(const Recording& recording) {
  return run(
      "INSERT OR REPLACE INTO recording VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
      {recording.id, packed(recording.key), recording.channel_id, std::string_view(recording.channel), recording.event,
       recording.start, recording.duration, std::string_view(recording.title), recording.status, recording.reason,
       recording.resume, static_cast<std::int64_t>(recording.bytes), static_cast<std::int64_t>(recording.lost),
       std::int64_t{recording.kept}, std::int64_t{recording.scrambled}, recording.version});
}

bool recording_erase(int id) {
  return run("DELETE FROM recording WHERE id = ?", {id}) && run("DELETE FROM played WHERE recording = ?", {id});
}

bool played_store(int recording) { return run("INSERT OR REPLACE INTO played VALUES (1, ?)", {recording}); }

bool taken_store(int series, const Plan& plan) {
  return run("DELETE FROM taken WHERE start < ?", {plan.start - kForgetTaken}) &&
         run("INSERT OR REPLACE INTO taken VALUES (?, ?, ?, ?)", {series, packed(plan.key), plan.event, plan.start});
}

bool taken_find(int series, const ServiceKey& key, int event, std::int64_t start) {
  sqlite3_stmt* const find =
      prepare("SELECT 1 FROM taken WHERE series = ? AND service = ? AND event = ? AND start BETWEEN ? AND ?",
              {series, packed(key), event, start - kSameEvent, start + kSameEvent});
  const bool found = find != nullptr && sqlite3_step(find) == SQLITE_ROW;
  if (find != nullptr) sqlite3_reset(find);
  return found;
}

bool recorder_open(const std::string& folder, std::string& ret_error) {
  const std::string recordings = folder + "/" + kRecordingsFolder;
  std::error_code failed;
  std::filesystem::create_directory(recordings, failed);
  if (!std::filesystem::is_directory(std::filesystem::symlink_status(recordings, failed))) {
    ret_error = "cannot use the folder " + recordings;
    return false;
  }
  Database opened;
  if (!database_open(folder + "/recorder.sqlite", kLayouts, opened, ret_error)) return false;
  recorder.database = std::move(opened);
  std::vector<Plan> plans = read_rows("SELECT * FROM plan ORDER BY id", kMostPlans, read_plan);
  std::vector<Recording> rows = read_rows("SELECT * FROM recording ORDER BY id", kMostRecordings, read_recording);
  const int played = read_played();
  const std::lock_guard guard(recorder.lock);
  recorder.folder = recordings;
  recorder.plans = std::move(plans);
  recorder.recordings = std::move(rows);
  recorder.last_played = find_recording(played) == nullptr ? 0 : played;
  return true;
}
