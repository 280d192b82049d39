// Helpers for the library's SQL statements: they bind values in order, and read rows.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "core/database.h"

inline void bind_value(sqlite3_stmt* statement, int place, std::int64_t value) {
  sqlite3_bind_int64(statement, place, value);
}

inline void bind_value(sqlite3_stmt* statement, int place, std::string_view text) {
  sqlite3_bind_text(statement, place, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

// The prepared statement with these values bound; null under the same conditions as for database_statement.
template <typename... Values>
sqlite3_stmt* bound(Database& database, std::string_view sql, const Values&... values) {
  sqlite3_stmt* const statement = database_statement(database, sql);
  if (statement == nullptr) return nullptr;
  int place = 0;
  (bind_value(statement, ++place, values), ...);
  return statement;
}

template <typename... Values>
bool run_bound(Database& database, std::string_view sql, const Values&... values) {
  sqlite3_stmt* const statement = bound(database, sql, values...);
  return statement != nullptr && database_run(statement);
}

template <typename Record>
std::vector<Record> read_all(sqlite3_stmt* statement, Record (*read)(sqlite3_stmt*)) {
  std::vector<Record> rows;
  if (statement == nullptr) return rows;
  while (sqlite3_step(statement) == SQLITE_ROW) rows.push_back(read(statement));
  sqlite3_reset(statement);  // ends the read transaction
  return rows;
}

template <typename Record>
std::optional<Record> read_first(sqlite3_stmt* statement, Record (*read)(sqlite3_stmt*)) {
  std::optional<Record> row;
  if (statement == nullptr) return row;
  if (sqlite3_step(statement) == SQLITE_ROW) row = read(statement);
  sqlite3_reset(statement);
  return row;
}

// The only number of the only row; 0 without one.
inline std::int64_t read_number(sqlite3_stmt* statement) {
  return read_first(
             statement, +[](sqlite3_stmt* row) -> std::int64_t { return sqlite3_column_int64(row, 0); })
      .value_or(0);
}
