#include "runner/expand.h"

#include <algorithm>
#include <set>
#include <utility>

#include "runner/raw_json.h"
#include "runner/substitute.h"
#include "runner/symbols.h"

namespace runner {
namespace {

constexpr std::size_t LONGEST_ROW_SHOWN = 100;  // bytes

struct Table {
  std::vector<std::string_view> columns;
  std::vector<std::vector<std::string_view>> rows;  // values as written
};

// A table of the file's "tables".
struct SharedTable {
  std::string_view name;
  Table table;
  bool is_used = false;
  std::set<std::string_view> used_columns;
};

// The place in a file that is being expanded.
struct Place {
  std::vector<SharedTable>& tables;
  Scope scope;
  std::string row;  // the rows that the names have their values of, for messages
  std::string error;
};

std::string in_quotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

bool is_column_name(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
  });
}

// "a, b" as its names.
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

// {"column, column": [row, ...]}: a row is an array of the columns' values, or, of a single column, its value.
bool read_table(std::string_view json, Table& ret_table, std::string& ret_error) {
  const auto members = raw_children(json);
  if (!raw_is_object(json) || members.size() != 1 || !raw_is_array(members[0].second)) {
    ret_error = R"(a table is {"column, column": [row, ...]})";
    return false;
  }
  Table table{.columns = split_names(members[0].first), .rows = {}};
  for (const std::string_view name : table.columns) {
    if (!is_column_name(name)) {
      ret_error = "the column " + in_quotes(name) + " must have a name of small letters, digits and _";
      return false;
    }
  }
  for (const auto& [key, row] : raw_children(members[0].second)) {
    std::vector<std::string_view>& values = table.rows.emplace_back();
    if (table.columns.size() == 1) {
      values.push_back(row);
      continue;
    }
    const auto elements = raw_children(row);
    if (!raw_is_array(row) || elements.size() != table.columns.size()) {
      const std::string count = std::to_string(elements.size()) + (elements.size() == 1 ? " value" : " values");
      ret_error = "row " + std::to_string(table.rows.size()) + (raw_is_array(row) ? " has " + count : " is no array") +
                  "; the columns " + in_quotes(members[0].first) + " need " + std::to_string(table.columns.size());
      return false;
    }
    for (const auto& [no_key, value] : elements) values.push_back(value);
  }
  if (table.rows.empty()) {
    ret_error = "a table must have rows";
    return false;
  }
  ret_table = std::move(table);
  return true;
}

std::string show_row(const Table& table, std::size_t row) {
  std::string text;
  for (const std::string_view value : table.rows[row]) text += (text.empty() ? "" : ", ") + raw_minified(value);
  if (text.size() > LONGEST_ROW_SHOWN) text = text.substr(0, LONGEST_ROW_SHOWN) + "...";
  return "row " + std::to_string(row + 1) + ": " + text;
}

// Reads "each": a table, or the name of one of the file's tables, which ret_shared is then.
bool read_each(std::string_view each, Place& place, Table& ret_table, SharedTable*& ret_shared) {
  if (!raw_is_text(each)) {
    if (read_table(each, ret_table, place.error)) return true;
    place.error = "\"each\": " + place.error;
    return false;
  }
  const std::string_view name = raw_content(each);
  for (SharedTable& shared : place.tables) {
    if (shared.name != name) continue;
    shared.is_used = true;
    ret_table = shared.table;
    ret_shared = &shared;
    return true;
  }
  place.error = "\"each\": the file has no table " + in_quotes(name);
  std::vector<std::string_view> names;
  for (const SharedTable& shared : place.tables) names.push_back(shared.name);
  if (!names.empty()) place.error += "; the nearest is " + in_quotes(nearest_name(name, names));
  return false;
}

bool add_name(const Name& name, Place& place) {
  for (const Name& known : place.scope) {
    if (known.name != name.name) continue;
    place.error = in_quotes(name.name) + " is the name of two columns or repetitions";
    return false;
  }
  place.scope.push_back(name);
  return true;
}

bool is_table_member(std::string_view key) { return key == "each" || key == "repeat"; }

bool has_table(std::string_view object) {
  const auto members = raw_children(object);
  return raw_is_object(object) &&
         std::any_of(members.begin(), members.end(), [](const auto& member) { return is_table_member(member.first); });
}

// What expanding uses must not be there twice, since it would see only the first.
bool has_twice(std::string_view object, std::string_view key) {
  const auto members = raw_children(object);
  return std::count_if(members.begin(), members.end(), [&](const auto& member) { return member.first == key; }) > 1;
}

// Removes the names behind the first ones, which must have been used.
bool remove_names(std::size_t first, SharedTable* shared, Place& place) {
  for (; place.scope.size() > first; place.scope.pop_back()) {
    const Name& name = place.scope.back();
    if (name.is_used && shared != nullptr) shared->used_columns.insert(name.name);
    if (name.is_used || (shared != nullptr && !name.is_repetition)) continue;
    place.error =
        std::string(name.is_repetition ? "the repetition " : "the column ") + in_quotes(name.name) + " is not used";
    return false;
  }
  return true;
}

// Calls make() for each row of the table of a case or step, with the names of its columns and repetitions; once where
// it has no table. make gives false with place.error.
template <class Make>
bool for_each_row(std::string_view object, Place& place, const Make& make) {
  for (const std::string_view key : {"each", "repeat", "steps"}) {
    if (!has_twice(object, key)) continue;
    place.error = in_quotes(key) + " stands twice";
    return false;
  }
  Table table{.columns = {}, .rows = {{}}};
  SharedTable* shared = nullptr;
  const std::string_view each = raw_member(object, "each");
  if (!each.empty() && !read_each(each, place, table, shared)) return false;
  const std::string_view repeat = raw_member(object, "repeat");
  if (!repeat.empty() && (!raw_is_object(repeat) || raw_children(repeat).empty())) {
    place.error = R"("repeat" must be {name: [text, times], ...})";
    return false;
  }
  const std::size_t outer = place.scope.size();
  for (const std::string_view column : table.columns) {
    if (!add_name({.name = column, .value = {}}, place)) return false;
  }
  for (const auto& [name, value] : raw_children(repeat)) {
    if (!add_name({.name = name, .value = value, .is_repetition = true}, place)) return false;
  }
  const std::string outer_row = place.row;
  for (std::size_t row = 0; row < table.rows.size(); ++row) {
    for (std::size_t i = 0; i < table.columns.size(); ++i) place.scope[outer + i].value = table.rows[row][i];
    const std::string shown = each.empty() ? "" : show_row(table, row);
    place.row = outer_row + (outer_row.empty() || shown.empty() ? "" : "; ") + shown;
    if (!make()) {
      if (!shown.empty()) place.error = shown + ": " + place.error;
      return false;
    }
  }
  place.row = outer_row;
  return remove_names(outer, shared, place);
}

// Appends a step that has no table of its own.
bool append_step(std::string_view step, Place& place, std::string& json, std::vector<std::string>& rows) {
  std::string plain(step);
  if (!place.scope.empty()) {
    plain.clear();
    if (!append_substituted(step, place.scope, plain, place.error)) return false;
  }
  if (!rows.empty()) json.append(",\n   ");
  rows.push_back(place.row);
  return append_without_symbols(plain, json, place.error);
}

bool append_steps(std::string_view steps, Place& place, std::string& json, std::vector<std::string>& rows);

// Appends, for each row, the steps of an element's "steps", or the step that the element is.
bool append_repeated(std::string_view element, Place& place, std::string& json, std::vector<std::string>& rows) {
  const std::string_view group = raw_member(element, "steps");
  std::string step;
  for (const auto& [key, value] : raw_children(element)) {
    if (is_table_member(key) || key == "steps") continue;
    if (!group.empty()) {
      place.error = "unknown member " + in_quotes(key) + R"(; repeated steps have "each", "repeat" and "steps")";
      return false;
    }
    step += (step.empty() ? "{" : ",") + in_quotes(key) + ":" + std::string(value);
  }
  step += step.empty() ? "{}" : "}";
  if (!group.empty() && (!raw_is_array(group) || raw_children(group).empty())) {
    place.error = R"("steps" must be an array of steps)";
    return false;
  }
  return for_each_row(element, place, [&] {
    return group.empty() ? append_step(step, place, json, rows) : append_steps(group, place, json, rows);
  });
}

bool append_steps(std::string_view steps, Place& place, std::string& json, std::vector<std::string>& rows) {
  std::size_t number = 0;
  for (const auto& [key, element] : raw_children(steps)) {
    ++number;
    if (has_table(element) ? append_repeated(element, place, json, rows) : append_step(element, place, json, rows))
      continue;
    place.error = "steps, element " + std::to_string(number) + ": " + place.error;
    return false;
  }
  return true;
}

// Makes the case of the current row.
bool make_case(std::string_view json, Place& place, PlainCase& ret_case) {
  PlainCase plain;
  plain.json = "{";
  for (const auto& [key, value] : raw_children(json)) {
    if (is_table_member(key)) continue;
    plain.json.append(plain.json.size() > 1 ? ",\n  " : "").append(in_quotes(key)).append(":");
    if (key == "steps" && raw_is_array(value)) {
      place.row.clear();  // the case's own row is in its name
      plain.json.append("[\n   ");
      if (!append_steps(value, place, plain.json, plain.step_rows)) return false;
      plain.json.append("]");
    } else if (place.scope.empty()) {
      plain.json.append(value);
    } else if (!append_substituted(value, place.scope, plain.json, place.error)) {
      place.error = in_quotes(key) + ": " + place.error;
      return false;
    }
  }
  plain.json.append("}");
  ret_case = std::move(plain);
  return true;
}

std::vector<PlainCase> expand_case(std::string_view json, std::vector<SharedTable>& tables) {
  if (!raw_is_object(json)) return {{.json = std::string(json), .step_rows = {}, .refusal = {}}};
  std::vector<PlainCase> cases;
  Place place{.tables = tables, .scope = {}, .row = {}, .error = {}};
  if (!for_each_row(json, place, [&] { return make_case(json, place, cases.emplace_back()); }))
    return {{.json = std::string(json), .step_rows = {}, .refusal = place.error}};
  for (std::size_t i = 1; i < cases.size(); ++i) {
    if (raw_member(cases[i].json, "name") == raw_member(cases[0].json, "name")) {
      const std::string refusal = "rows 1 and " + std::to_string(i + 1) + R"( have one "name"; it must use a column)";
      return {{.json = std::string(json), .step_rows = {}, .refusal = refusal}};
    }
  }
  return cases;
}

bool read_tables(std::string_view json, std::vector<SharedTable>& ret_tables, std::string& ret_error) {
  for (const auto& [name, value] : raw_children(json)) {
    if (!read_table(value, ret_tables.emplace_back(SharedTable{.name = name, .table = {}, .used_columns = {}}).table,
                    ret_error)) {
      ret_error = "\"tables\": " + in_quotes(name) + ": " + ret_error;
      return false;
    }
    if (has_twice(json, name)) {
      ret_error = "\"tables\": " + in_quotes(name) + " stands twice";
      return false;
    }
  }
  return true;
}

// What no case uses of the tables; empty when there is nothing.
std::string unused(const std::vector<SharedTable>& tables) {
  for (const SharedTable& shared : tables) {
    const std::string table = "\"tables\": " + in_quotes(shared.name);
    if (!shared.is_used) return table + " is not used";
    for (const std::string_view column : shared.table.columns) {
      if (!shared.used_columns.contains(column)) return table + ": the column " + in_quotes(column) + " is not used";
    }
  }
  return {};
}

}  // namespace

bool expand_file(std::string_view json, std::vector<PlainCase>& ret_cases, std::string& ret_error) {
  std::vector<SharedTable> tables;
  if (!read_tables(raw_member(json, "tables"), tables, ret_error)) return false;
  std::vector<PlainCase> cases;
  bool good = true;
  for (const auto& [key, written] : raw_children(raw_member(json, "cases"))) {
    for (PlainCase& plain : expand_case(written, tables)) {
      good = good && plain.refusal.empty();
      cases.push_back(std::move(plain));
    }
  }
  if (good) ret_error = unused(tables);
  if (!ret_error.empty()) return false;
  ret_cases = std::move(cases);
  return true;
}

}  // namespace runner
