// The store: the set's settings in a database. Each write is one transaction in WAL mode, so that the end of the
// process loses nothing. By default SQLite syncs each transaction, so that a power cut loses nothing that a call has
// acknowledged; with dtv_tv_on_kept the sync thread syncs, and reports when it has.
#include <algorithm>
#include <boost/crc.hpp>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "base/text.h"
#include "core/store_parts.h"

namespace {

constexpr int kCheckpointPages = 1000;  // at this length of the log, a change that SQLite syncs also makes a checkpoint

struct State {
  std::mutex lock;  // guards all members below
  StoreFiles files;
  StoredValues kept;      // the database's values, perhaps not synced yet
  StoredValues factory;   // of the keys that rooms have read
  bool deferred = false;  // changes are synced by the sync thread instead of by SQLite
  int log_pages = 0;
};

// Never destroyed: other threads may still write when the process exits.
State& state = *new State;

int note_commit(void*, sqlite3* db, const char*, int pages) {
  state.log_pages = pages;
  if (!state.deferred && pages >= kCheckpointPages) {  // on failure the pages stay in the log
    sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  }
  return SQLITE_OK;
}

// Sets whether the sync thread or SQLite syncs changes. Returns false if SQLite does not accept the setting.
bool set_deferred(bool wanted) {
  if (wanted == state.deferred) return true;
  const char* const sql = wanted ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=FULL";
  if (database_execute(state.files.database.handle, sql) != SQLITE_OK) return false;
  state.deferred = wanted;
  return true;
}

std::string error_text(int number) { return std::generic_category().message(number); }

// The stored value, even if it is outside its limits, or else the factory value. Null for a key that is not stored and
// that no room has read.
const StoredValue* present(std::string_view key) {
  for (const StoredValues* values : {&state.kept, &state.factory})
    if (const auto found = values->find(key); found != values->end()) return &found->second;
  return nullptr;
}

bool is_present(const SettingValue& wanted) {
  const StoredValue* const value = present(wanted.key);
  return value != nullptr && store_view(*value) == wanted.value;
}

// Makes the changes in one transaction, and syncs it unless the sync thread does. Returns an error text, empty on
// success. The caller holds the lock.
template <typename Changes>
std::string transact(Changes changes) {
  Database& database = state.files.database;
  sqlite3* const db = database.handle;
  if (const int failure = sync_failure(); failure != 0) {
    return "the disk has failed (" + error_text(failure) + "); start the set again";
  }
  const bool defer = sync_is_deferred();
  if (!set_deferred(defer)) return sqlite3_errmsg(db);
  std::string problem;
  const bool done = database_run(database_statement(database, "BEGIN IMMEDIATE")) && changes() &&
                    (problem = files_problem(state.files)).empty() &&
                    database_run(database_statement(database, "COMMIT"));
  if (!done && problem.empty()) problem = sqlite3_errmsg(db);
  if (sqlite3_get_autocommit(db) == 0) database_execute(db, "ROLLBACK");
  if (!done) return problem;
  if (const int failure = sync_written(!defer, state.log_pages); failure != 0) return error_text(failure);
  return defer ? "" : files_problem(state.files);  // if deferred, the sync thread checks the files
}

bool report(const std::string& problem) {
  if (!problem.empty()) std::fprintf(stderr, "dtv_tv: the change was not saved: %s\n", problem.c_str());
  return problem.empty();
}

bool is_open() { return state.files.database.handle != nullptr; }

// Returns false, and reports it on stderr, when the set is off.
bool can_change() {
  if (!is_open()) std::fprintf(stderr, "dtv_tv: the set is off; nothing was changed\n");
  return is_open();
}

}  // namespace

SettingValue::Value store_view(const StoredValue& value) {
  if (const std::string* const text = std::get_if<std::string>(&value)) return std::string_view(*text);
  return std::get<std::int64_t>(value);
}

std::int64_t store_checksum(std::string_view key, const SettingValue::Value& value) {
  boost::crc_32_type sum;
  const auto add = [&sum](std::string_view bytes) {
    sum.process_bytes(bytes.data(), bytes.size());
    sum.process_byte(0);
  };
  const auto* const text = std::get_if<std::string_view>(&value);
  add(key);
  add(text != nullptr ? "text" : "number");
  add(text != nullptr ? *text : std::string_view(std::to_string(std::get<std::int64_t>(value))));
  return sum.checksum();
}

int store_insert(sqlite3_stmt* insert, std::string_view key, const SettingValue::Value& value) {
  sqlite3_bind_text(insert, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
  if (const auto* const text = std::get_if<std::string_view>(&value)) {
    sqlite3_bind_text(insert, 2, text->data(), static_cast<int>(text->size()), SQLITE_STATIC);
  } else {
    sqlite3_bind_int64(insert, 2, std::get<std::int64_t>(value));
  }
  sqlite3_bind_int64(insert, 3, store_checksum(key, value));
  const int result = sqlite3_step(insert);
  sqlite3_reset(insert);
  sqlite3_clear_bindings(insert);
  return result;
}

void store_checkpoint() {
  const std::lock_guard guard(state.lock);
  if (!is_open()) return;
  sqlite3_wal_checkpoint_v2(state.files.database.handle, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  // The next write restarts the log, for which SQLite syncs it. This write takes that delay, so that no change does.
  files_touch(state.files.database.handle);
}

bool store_open(const std::string& folder, std::string& ret_error) {
  StoreFiles opened;
  StoredValues values;
  if (!files_open(folder, opened, values, ret_error)) return false;
  const std::lock_guard guard(state.lock);
  state.files = std::move(opened);
  state.kept = std::move(values);
  state.factory.clear();
  state.deferred = false;
  sqlite3_wal_hook(state.files.database.handle, note_commit, nullptr);
  sync_start(state.files);
  return true;
}

void store_close() {
  Database database;
  {
    const std::lock_guard guard(state.lock);
    if (!is_open()) return;
    database = std::exchange(state.files.database, {});  // from here on is_open() is false
  }
  sync_stop();  // the sync thread reads the other members
  StoreFiles closing;
  {
    const std::lock_guard guard(state.lock);  // other threads ask whether the store is open
    closing = std::exchange(state.files, {});
  }
  closing.database = std::move(database);
  files_close(closing);
}

bool store_is_text(std::string_view text) { return is_utf8(text) && text.find('\0') == std::string_view::npos; }

bool store_is_open() {
  const std::lock_guard guard(state.lock);
  return is_open();
}

std::int64_t store_read(const Setting& setting) {
  const std::lock_guard guard(state.lock);
  state.factory[setting.key] = setting.factory;
  const auto found = state.kept.find(setting.key);
  if (found == state.kept.end()) return setting.factory;
  const auto* const number = std::get_if<std::int64_t>(&found->second);
  if (number != nullptr && *number >= setting.minimum && *number <= setting.maximum) return *number;
  std::fprintf(stderr, "dtv_tv: the stored %s \"%s\" is not within %lld to %lld; using %lld\n", setting.key,
               number != nullptr ? std::to_string(*number).c_str() : std::get<std::string>(found->second).c_str(),
               static_cast<long long>(setting.minimum), static_cast<long long>(setting.maximum),
               static_cast<long long>(setting.factory));
  return setting.factory;
}

std::string store_read(const TextSetting& setting) {
  const std::lock_guard guard(state.lock);
  state.factory[setting.key] = setting.factory;
  const auto found = state.kept.find(setting.key);
  if (found == state.kept.end()) return setting.factory;
  const auto* const text = std::get_if<std::string>(&found->second);
  if (text != nullptr && store_is_text(*text) && text->size() <= setting.longest) return *text;
  std::fprintf(stderr, "dtv_tv: the stored %s is not a text of at most %zu bytes; using \"%s\"\n", setting.key,
               setting.longest, setting.factory);
  return setting.factory;
}

bool store_write(std::span<const SettingValue> values) {
  const std::lock_guard guard(state.lock);
  if (!can_change()) return false;
  std::vector<SettingValue> changes;
  std::ranges::remove_copy_if(values, std::back_inserter(changes), is_present);
  if (changes.empty()) return true;
  const std::string problem = transact([&] {
    sqlite3_stmt* const insert = database_statement(state.files.database, kStoreInsert);
    return std::ranges::all_of(changes, [insert](const SettingValue& each) {
      return store_insert(insert, each.key, each.value) == SQLITE_DONE;
    });
  });
  if (!report(problem)) return false;
  for (const auto& [key, value] : changes) {
    if (const auto* const text = std::get_if<std::string_view>(&value)) {
      state.kept[key] = std::string(*text);
    } else {
      state.kept[key] = std::get<std::int64_t>(value);
    }
  }
  return true;
}

bool store_reset() {
  const std::lock_guard guard(state.lock);
  if (!can_change()) return false;
  if (state.kept.empty()) return true;
  if (!report(
          transact([] { return database_execute(state.files.database.handle, "DELETE FROM settings") == SQLITE_OK; })))
    return false;
  state.kept.clear();
  return true;
}
