// SQLite databases that the set alone writes: opened under an exclusive lock, checked whole, and brought to the newest
// layout in steps. The store has one; a room that keeps more than settings opens one of its own. A database is used by
// one thread at a time: its room's lock guards it.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct StatementEnd {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementEnd>;

struct Database {
  sqlite3* handle = nullptr;
  std::map<std::string, Statement, std::less<>> statements;  // by their SQL; see database_statement
};

// A database's layouts. Layout n is what the first n steps make of an empty database; steps are only ever appended. Its
// number is the database's user_version. Its application_id is `application` plus that number, so that no damaged
// number passes for a newer version's.
struct DatabaseLayouts {
  std::int32_t application;
  std::span<const char* const> steps;  // SQL, each from one layout to the next
  std::int64_t marked_from = 1;        // the first layout with an application_id; 0 in those before
};

enum class Finding { kFine, kProblem, kDamage };

struct Found {
  Finding finding = Finding::kFine;
  std::string why = {};
};

// ---- For a room ----

// Opens or creates the database at the path, and brings it to the newest layout in one transaction. A damaged file is
// moved aside, which is reported on stderr, and a new one is made. Returns false with ret_error where the file cannot
// be used: another process has it, it cannot be written, or a newer version of the set made it.
bool database_open(const std::string& path, const DatabaseLayouts& layouts, Database& ret_database,
                   std::string& ret_error);

// Finalizes the statements and closes the file. Also of a database that is not open.
void database_close(Database& database);

// Returns the statement for this SQL, reset and without bindings. It is prepared once and stays the database's own.
// Null where the SQL is wrong or the database damaged.
sqlite3_stmt* database_statement(Database& database, std::string_view sql);

// Steps a statement that returns no rows, and resets it.
bool database_run(sqlite3_stmt* statement);

// ---- The parts, for the store ----

// Opens the file without changing what a damaged one holds. ret_layout: 0 of an empty database. ret_handle may be set
// after a failure too; the caller closes it.
Found database_connect(const std::string& path, const DatabaseLayouts& layouts, sqlite3*& ret_handle,
                       std::int64_t& ret_layout);

// Writes the newest layout's numbers, in the caller's transaction.
bool database_mark(sqlite3* handle, const DatabaseLayouts& layouts);

// Gives the file and its journals another name, "<path>.damaged-<UTC time>". Returns it, or an empty text on failure.
std::string database_set_aside(const std::string& path);

Statement database_prepare(sqlite3* handle, std::string_view sql);
int database_execute(sqlite3* handle, const char* sql);  // SQLite's result

// What SQLite's latest error means.
Found database_error(sqlite3* handle);

// The present row's column as text, whatever its type.
std::string column_text(sqlite3_stmt* statement, int column);
