// What a case file says once although it happens often: tables of rows ("tables", "each", "times"), values ("values"),
// long texts ("repeat") and names for numbers. Expanding makes plain cases of it, which have none of these.
// docs/testing.md describes the form.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace runner {

struct PlainCase {
  std::string json;                    // a case that has none of these
  std::vector<std::string> step_rows;  // per step, the row that it comes from; empty for a step outside of tables
  std::string refusal;                 // why the case cannot be expanded; json is then the case as written
};

// The cases that a file stands for, in the order of their rows. json: an object with the array "cases" and, perhaps,
// "tables", "values" and "repeat". False with ret_error when these are wrong, or, where every case could be expanded,
// not all used.
bool expand_file(std::string_view json, std::vector<PlainCase>& ret_cases, std::string& ret_error);

}  // namespace runner
