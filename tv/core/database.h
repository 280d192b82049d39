// SQLite databases of the set: opened under an exclusive lock, checked completely, and migrated to the newest layout in
// steps. The store has one; a room that stores more than settings may open one of its own. The room's lock guards its
// database, so only one thread at a time uses it.
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

// A database's layouts. Layout n is what the first n steps create in an empty database; steps are only ever appended.
// The database's user_version is the layout's number, and its application_id is `application` plus that number: so a
// damaged number is not taken for a newer layout's.
struct DatabaseLayouts {
  std::int32_t application;
  std::span<const char* const> steps;  // SQL, each from one layout to the next
  std::int64_t marked_from = 1;        // the first layout with an application_id; earlier ones have 0 there
};

enum class Finding { kFine, kProblem, kDamage };

struct Found {
  Finding finding = Finding::kFine;
  std::string why = {};
};

// What is checked when a file is opened. kHead: its header, its layout and its tables' definitions, which takes the
// same time for a file of any size; the room has the rest checked later, by database_is_whole on a thread of its own. A
// file that is to be migrated is always checked as a whole.
enum class DatabaseCheck { kWhole, kHead };

// ---- For a room ----

// Opens or creates the database at the path, and migrates it to the newest layout in one transaction. Renames a damaged
// file, reports that on stderr and creates a new one. Returns false with ret_error if the file cannot be used: another
// process has it open, it is not writable, or a newer version of the set created it.
bool database_open(const std::string& path, const DatabaseLayouts& layouts, Database& ret_database,
                   std::string& ret_error, DatabaseCheck check = DatabaseCheck::kWhole);

// Opens a second connection to the file, for reading while `writer` writes. Each connection may be used by one thread
// at a time. The lock of the state folder keeps other processes out. False with ret_error.
bool database_share(const std::string& path, Database& writer, Database& ret_reader, std::string& ret_error);

// Reads the whole file. False with ret_why if it is damaged. `ends` is called now and then; true ends the check, which
// then returns true.
bool database_is_whole(Database& database, bool (*ends)(), std::string& ret_why);

// Closes the damaged database, renames its file, and reports that on stderr. False: the file could not be renamed.
bool database_discard(const std::string& path, Database& database, const std::string& why);

// Finalizes the statements and closes the file. Does nothing if the database is not open.
void database_close(Database& database);

// Returns the statement for this SQL, reset and without bindings; null if the SQL is wrong or the database damaged. The
// database prepares it once and owns it.
sqlite3_stmt* database_statement(Database& database, std::string_view sql);

// Steps a statement that returns no rows, and resets it.
bool database_run(sqlite3_stmt* statement);

// ---- The parts, for the store ----

// Opens the file; does not change a damaged one. ret_layout: 0 for an empty database. ret_handle may be set after a
// failure too; the caller closes it.
Found database_connect(const std::string& path, const DatabaseLayouts& layouts, DatabaseCheck check,
                       sqlite3*& ret_handle, std::int64_t& ret_layout);

// Writes the newest layout's user_version and application_id, in the caller's transaction.
bool database_mark(sqlite3* handle, const DatabaseLayouts& layouts);

// Renames the file and its journals to "<path>.damaged-<UTC time>". Returns the new path, or an empty text on failure.
std::string database_set_aside(const std::string& path);

Statement database_prepare(sqlite3* handle, std::string_view sql);
int database_execute(sqlite3* handle, const char* sql);  // SQLite's result

// Classifies SQLite's latest error.
Found database_error(sqlite3* handle);

// The current row's column as text, whatever its type.
std::string column_text(sqlite3_stmt* statement, int column);
