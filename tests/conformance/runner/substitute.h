// Replaces "${name}" in a case by the text of the column, value or repetition with this name.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "runner/table.h"

namespace runner {

struct Name {
  enum Origin {
    kColumn,      // of a table: the value in the current row
    kValue,       // of "values"
    kRepetition,  // of "repeat": [text, times or table, separator]
  };
  std::string_view name;
  Origin origin = kColumn;
  std::string_view value;  // as written
  bool is_used = false;    // anywhere so far
};

// The names and tables that can be used in a place of a file.
struct Scope {
  std::vector<SharedTable> tables;
  std::deque<Name> names;  // a deque: a name keeps its address while others are added behind it
};

// False with ret_error when the name is taken.
bool add_name(const Name& name, Scope& scope, std::string& ret_error);

// Adds the names of a table's columns and gives the index of the first. False with ret_error.
bool add_columns(const Table& table, Scope& scope, std::size_t& ret_first, std::string& ret_error);

// Sets the columns from the index first on to their values in a row.
void set_row(const Table& table, std::size_t row, std::size_t first, Scope& scope);

// Removes the names from the index first on. Each must have been used, except columns of a shared table (shared, or
// null), which another use of the table may use: for these, only the use is noted. False with ret_error.
bool remove_names(std::size_t first, SharedTable* shared, Scope& scope, std::string& ret_error);

// Appends a JSON value as written, with its names replaced. A text that is one name and nothing else becomes that
// name's value, of any kind; within a longer text, and in a member's key, the value must be a text or a number. False
// with ret_error.
bool append_substituted(std::string_view value, Scope& scope, std::string& json, std::string& ret_error);

}  // namespace runner
