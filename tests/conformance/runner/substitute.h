// "${name}" in a case: the names of a table's columns and of repetitions, and what they stand for.
#pragma once

#include <deque>
#include <string>
#include <string_view>

namespace runner {

struct Name {
  std::string_view name;
  std::string_view value;  // JSON as written: of a column, its value in the current row; of a repetition, [text, times]
  bool is_repetition = false;
  bool is_used = false;  // by anything yet
};

// The names that can be used in a place. A deque: a name keeps its address while others are added behind it.
using Scope = std::deque<Name>;

// Appends a JSON value as written, with what its names stand for. A text that is one name and nothing else becomes that
// name's value, of any kind; within a longer text, and in a member's key, a name stands for a text or a number. False
// with ret_error.
bool append_substituted(std::string_view value, Scope& scope, std::string& json, std::string& ret_error);

}  // namespace runner
