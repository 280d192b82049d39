// Expands what a case file writes once for several uses: tables of rows ("tables", "each", "times"), values ("values"),
// long texts ("repeat") and names for numbers. The results are plain cases, which have none of these.
// docs/testing.md describes the form.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace runner {

struct PlainCase {
  std::string json;                    // a plain case
  std::vector<std::string> step_rows;  // per step, the row that it comes from; empty for a step outside of tables
  std::string refusal;                 // why the case cannot be expanded; json is then the case as written
};

// Expands the cases of a file, in the order of their rows. json: an object with the array "cases" and, perhaps,
// "tables", "values" and "repeat". False with ret_error when these are wrong, or, where every case could be expanded,
// not all used.
bool expand_file(std::string_view json, std::vector<PlainCase>& ret_cases, std::string& ret_error);

}  // namespace runner
