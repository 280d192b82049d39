#include "runner/table.h"

#include <algorithm>
#include <charconv>

#include "runner/raw_json.h"
#include "runner/symbols.h"

namespace runner {
namespace {

constexpr std::size_t kLongestRowShown = 100;   // bytes
constexpr std::size_t kLongestRange = 1000000;  // rows

// Splits "a, b" into names.
std::vector<std::string_view> split_names(std::string_view text) {
  std::vector<std::string_view> names;
  for (bool more = true; more;) {
    const std::size_t comma = text.find(',');
    std::string_view name = text.substr(0, comma);
    more = comma != std::string_view::npos;
    if (more) text.remove_prefix(comma + 1);
    name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
    names.push_back(name.substr(0, name.find_last_not_of(' ') + 1));
  }
  return names;
}

bool read_range(std::string_view range, Table& table) {
  std::size_t from = 0;
  std::size_t to = 0;
  if (raw_children(range).size() != 2 || !read_count(raw_member(range, "from"), from) ||
      !read_count(raw_member(range, "to"), to) || from > to || to - from >= kLongestRange)
    return false;
  for (; from <= to; ++from) table.rows.push_back({table.numbers.emplace_back(std::to_string(from))});
  return true;
}

bool read_rows(std::string_view rows, Table& table, std::string_view names, std::string& ret_error) {
  for (const auto& [key, row] : raw_children(rows)) {
    std::vector<std::string_view>& values = table.rows.emplace_back();
    if (table.columns.size() == 1) {
      values.push_back(row);
      continue;
    }
    const auto elements = raw_children(row);
    if (!raw_is_array(row) || elements.size() != table.columns.size()) {
      const std::string count = std::to_string(elements.size()) + (elements.size() == 1 ? " value" : " values");
      ret_error = "row " + std::to_string(table.rows.size()) + (raw_is_array(row) ? " has " + count : " is no array") +
                  "; the columns " + in_quotes(names) + " need " + std::to_string(table.columns.size());
      return false;
    }
    for (const auto& [no_key, value] : elements) values.push_back(value);
  }
  if (table.rows.empty()) ret_error = "a table must have rows";
  return !table.rows.empty();
}

}  // namespace

bool is_name(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
  });
}

bool read_table(std::string_view json, Table& ret_table, std::string& ret_error) {
  const auto members = raw_children(json);
  if (!raw_is_object(json) || members.size() != 1 ||
      !(raw_is_array(members[0].second) || raw_is_object(members[0].second))) {
    ret_error = R"(a table is {"column, column": [row, ...]})";
    return false;
  }
  const auto& [names, rows] = members[0];
  Table table{.columns = split_names(names), .rows = {}, .numbers = {}};
  for (const std::string_view name : table.columns) {
    if (!is_name(name)) {
      ret_error = in_quotes(name) + " must be a name of small letters, digits and _";
      return false;
    }
  }
  if (raw_is_object(rows) && (table.columns.size() != 1 || !read_range(rows, table))) {
    ret_error = R"(a range is {"column": {"from": number, "to": number}}, of whole numbers from 0 on)";
    return false;
  }
  if (raw_is_array(rows) && !read_rows(rows, table, names, ret_error)) return false;
  ret_table = std::move(table);
  return true;
}

bool find_table(std::string_view json, std::vector<SharedTable>& tables, Table& ret_table, SharedTable*& ret_shared,
                std::string& ret_error) {
  if (!raw_is_text(json)) return read_table(json, ret_table, ret_error);
  const std::string_view name = raw_content(json);
  std::vector<std::string_view> names;
  for (SharedTable& shared : tables) {
    names.push_back(shared.name);
    if (shared.name != name) continue;
    shared.is_used = true;
    ret_shared = &shared;
    return read_table(shared.json, ret_table, ret_error);
  }
  ret_error = "the file has no table " + in_quotes(name);
  if (!names.empty()) ret_error += "; the nearest is " + in_quotes(nearest_name(name, names));
  return false;
}

std::string show_row(const Table& table, std::size_t row) {
  std::string text;
  for (const std::string_view value : table.rows[row]) text += (text.empty() ? "" : ", ") + raw_minified(value);
  if (text.size() > kLongestRowShown) text = text.substr(0, kLongestRowShown) + "...";
  return "row " + std::to_string(row + 1) + ": " + text;
}

bool read_count(std::string_view digits, std::size_t& ret_count) {
  const char* end = digits.data() + digits.size();
  std::size_t count = 0;
  const auto [stop, error] = std::from_chars(digits.data(), end, count);
  if (error != std::errc() || stop != end || digits.empty()) return false;
  ret_count = count;
  return true;
}

}  // namespace runner
