// The tables of a case file, whose rows repeat a case, a step or a text.
#pragma once

#include <cstddef>
#include <deque>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace runner {

struct Table {
  std::vector<std::string_view> columns;
  std::vector<std::vector<std::string_view>> rows;  // values as written
  std::deque<std::string> numbers;                  // the rows of a range, which rows refers to
};

// A table of the file's "tables".
struct SharedTable {
  std::string_view name;
  std::string_view json;
  std::vector<std::string_view> columns;
  bool is_used = false;
  std::set<std::string_view> used_columns;
};

// Whether a column, a value or a repetition can have this name: small letters, digits and _.
bool is_name(std::string_view text);

// Reads {"column, column": rows}, where rows is an array, or, of a single column, {"from": number, "to": number}. A row
// is an array of the columns' values, or, of a single column, its value. False with ret_error.
bool read_table(std::string_view json, Table& ret_table, std::string& ret_error);

// Reads a table, or finds the shared table of that name, which ret_shared is then. False with ret_error.
bool find_table(std::string_view json, std::vector<SharedTable>& tables, Table& ret_table, SharedTable*& ret_shared,
                std::string& ret_error);

// A row as text for messages; row counts from 0.
std::string show_row(const Table& table, std::size_t row);

// Reads the decimal digits of a whole number from 0 on.
bool read_count(std::string_view digits, std::size_t& ret_count);

}  // namespace runner
