// The set's memory. Values are written through: each write is one transaction in WAL mode, so that the end of the
// process loses nothing. By default SQLite syncs it, so that a power cut loses nothing that a call has acknowledged;
// with dtv_tv_on_kept the sync thread does, and says so.
#include "core/store.h"

#include <algorithm>
#include <boost/crc.hpp>
#include <boost/json.hpp>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr int kCheckpointPages = 1000;  // of the log, at which a change that syncs also brings it into the database

struct State {
  std::mutex lock;  // guards all that follows
  StoreFiles files;
  StoredValues kept;      // what the database holds
  StoredValues factory;   // of the keys that were read
  bool deferred = false;  // SQLite does not sync changes
  int log_pages = 0;
  Statement begin, insert, commit;  // of the open database
};

// Lives until the process ends, whatever thread still writes.
State& state = *new State;

int note_commit(void*, sqlite3* db, const char*, int pages) {
  state.log_pages = pages;
  if (!state.deferred && pages >= kCheckpointPages) {  // what fails stays in the log
    sqlite3_wal_checkpoint_v2(db, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  }
  return SQLITE_OK;
}

bool run(sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  sqlite3_reset(statement);
  return result == SQLITE_DONE;
}

// Whether SQLite leaves it to the sync thread to sync changes. False when that could not be set.
bool set_deferred(bool wanted) {
  if (wanted == state.deferred) return true;
  const char* const sql = wanted ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=FULL";
  if (store_execute(state.files.database, sql) != SQLITE_OK) return false;
  state.deferred = wanted;
  return true;
}

std::string error_text(int number) { return std::generic_category().message(number); }

// The value as the rooms know it; null for a key that no room has read and that is not kept.
const StoredValue* present(std::string_view key) {
  for (const StoredValues* values : {&state.kept, &state.factory})
    if (const auto found = values->find(key); found != values->end()) return &found->second;
  return nullptr;
}

bool is_present(const SettingValue& wanted) {
  const StoredValue* const value = present(wanted.key);
  return value != nullptr && store_view(*value) == wanted.value;
}

// Makes the changes in one transaction, and syncs it unless that is left to the sync thread. Returns what is wrong, or
// an empty text. The caller holds the lock.
template <typename Changes>
std::string transact(Changes changes) {
  sqlite3* const db = state.files.database;
  if (const int failure = sync_failure(); failure != 0) {
    return "the disk has failed (" + error_text(failure) + "); start the set again";
  }
  const bool defer = sync_is_deferred();
  if (!set_deferred(defer)) return sqlite3_errmsg(db);
  std::string problem;
  const bool done =
      run(state.begin.get()) && changes() && (problem = files_problem(state.files)).empty() && run(state.commit.get());
  if (!done && problem.empty()) problem = sqlite3_errmsg(db);
  if (sqlite3_get_autocommit(db) == 0) store_execute(db, "ROLLBACK");
  if (!done) return problem;
  if (const int failure = sync_written(!defer, state.log_pages); failure != 0) return error_text(failure);
  return defer ? "" : files_problem(state.files);  // else the sync thread looks again
}

bool report(const std::string& problem) {
  if (!problem.empty()) std::fprintf(stderr, "dtv_tv: the change is not kept: %s\n", problem.c_str());
  return problem.empty();
}

bool is_off() {
  if (state.files.database == nullptr) std::fprintf(stderr, "dtv_tv: the set is off; nothing is changed\n");
  return state.files.database == nullptr;
}

}  // namespace

Statement store_prepare(sqlite3* db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
  return Statement(statement);
}

int store_execute(sqlite3* db, const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

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
  if (state.files.database == nullptr) return;
  sqlite3_wal_checkpoint_v2(state.files.database, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  // SQLite syncs the first write after this, since that restarts the log: better this one than somebody's change.
  files_touch(state.files.database);
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
  state.begin = store_prepare(state.files.database, "BEGIN IMMEDIATE");
  state.insert = store_prepare(state.files.database, kStoreInsert);
  state.commit = store_prepare(state.files.database, "COMMIT");
  sqlite3_wal_hook(state.files.database, note_commit, nullptr);
  sync_start(state.files);
  return true;
}

void store_close() {
  StoreFiles closing;
  {
    const std::lock_guard guard(state.lock);
    if (state.files.database == nullptr) return;
    for (Statement* const each : {&state.begin, &state.insert, &state.commit}) each->reset();
    closing = state.files;
    state.files.database = nullptr;  // from here on the set is off
  }
  sync_stop();
  files_close(closing);
}

bool store_is_text(std::string_view text) {
  boost::json::error_code failed;  // its reader takes valid UTF-8 only
  boost::json::parse(boost::json::serialize(boost::json::string_view(text.data(), text.size())), failed);
  return !failed && text.find('\0') == std::string_view::npos;
}

bool store_is_open() {
  const std::lock_guard guard(state.lock);
  return state.files.database != nullptr;
}

std::int64_t store_read(const Setting& setting) {
  const std::lock_guard guard(state.lock);
  state.factory[setting.key] = setting.factory;
  const auto found = state.kept.find(setting.key);
  if (found == state.kept.end()) return setting.factory;
  const auto* const number = std::get_if<std::int64_t>(&found->second);
  if (number != nullptr && *number >= setting.minimum && *number <= setting.maximum) return *number;
  std::fprintf(stderr, "dtv_tv: the kept %s \"%s\" is not within %lld to %lld; it is %lld again\n", setting.key,
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
  std::fprintf(stderr, "dtv_tv: the kept %s is not a text of at most %zu bytes; it is \"%s\" again\n", setting.key,
               setting.longest, setting.factory);
  return setting.factory;
}

bool store_write(std::span<const SettingValue> values) {
  const std::lock_guard guard(state.lock);
  if (is_off()) return false;
  std::vector<SettingValue> changes;
  std::ranges::remove_copy_if(values, std::back_inserter(changes), is_present);
  if (changes.empty()) return true;
  const std::string problem = transact([&] {
    return std::ranges::all_of(changes, [](const SettingValue& each) {
      return store_insert(state.insert.get(), each.key, each.value) == SQLITE_DONE;
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
  if (is_off()) return false;
  if (state.kept.empty()) return true;
  if (!report(transact([] { return store_execute(state.files.database, "DELETE FROM settings") == SQLITE_OK; })))
    return false;
  state.kept.clear();
  return true;
}
