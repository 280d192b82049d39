#include "runner/expand.h"

#include <algorithm>
#include <span>
#include <utility>

#include "runner/raw_json.h"
#include "runner/substitute.h"
#include "runner/symbols.h"
#include "runner/table.h"

namespace runner {
namespace {

constexpr std::size_t kMostTimes = 1000000;

// The place in a file that is being expanded.
struct Place {
  Scope scope;      // first the names of the file itself
  std::string row;  // the current rows, for messages
  std::string error;
};

bool is_table_member(std::string_view key) { return key == "each" || key == "values" || key == "repeat"; }

// Whether an element of "steps" expands to several steps, or defines names of its own.
bool is_repeated(std::string_view element) {
  const auto members = raw_children(element);
  return raw_is_object(element) && std::any_of(members.begin(), members.end(), [](const auto& member) {
           return is_table_member(member.first) || member.first == "times";
         });
}

// Refuses a member that expanding uses and that is there twice: only the first would be seen.
bool has_twice(std::string_view object, std::string_view key) {
  const auto members = raw_children(object);
  return std::count_if(members.begin(), members.end(), [&](const auto& member) { return member.first == key; }) > 1;
}

// Adds the names of an object's member ("values" or "repeat"), which may be missing.
bool add_named(std::string_view object, std::string_view member, Name::Origin origin, Place& place) {
  const std::string_view named = raw_member(object, member);
  const auto names = raw_children(named);
  if (!named.empty() && (!raw_is_object(named) || names.empty())) {
    place.error = in_quotes(member) + " must be an object of names";
    return false;
  }
  return std::all_of(names.begin(), names.end(), [&](const auto& name) {
    if (!is_name(name.first)) {
      place.error = in_quotes(member) + ": " + in_quotes(name.first) + " must be a name of small letters, digits and _";
      return false;
    }
    return add_name({.name = name.first, .origin = origin, .value = name.second}, place.scope, place.error);
  });
}

bool add_values_and_repetitions(std::string_view object, Place& place) {
  return add_named(object, "values", Name::kValue, place) && add_named(object, "repeat", Name::kRepetition, place);
}

// Calls make() for each row of each of the tables, the last one fastest, with the names of their columns. make gives
// false with place.error.
template <class Make>
bool for_rows(std::span<const std::string_view> tables, Place& place, const Make& make) {
  if (tables.empty()) return make();
  Table table;
  SharedTable* shared = nullptr;
  if (!find_table(tables[0], place.scope.tables, table, shared, place.error)) {
    place.error = "\"each\": " + place.error;
    return false;
  }
  std::size_t first = 0;
  if (!add_columns(table, place.scope, first, place.error)) return false;
  const std::string outer_row = place.row;
  for (std::size_t row = 0; row < table.rows.size(); ++row) {
    set_row(table, row, first, place.scope);
    const std::string shown = show_row(table, row);
    place.row = outer_row + (outer_row.empty() ? "" : "; ") + shown;
    if (for_rows(tables.subspan(1), place, make)) continue;
    place.error = shown + ": " + place.error;
    return false;
  }
  place.row = outer_row;
  return remove_names(first, shared, place.scope, place.error);
}

// Calls make() for each combination of rows of the "each" of a case or step, with all its names; once without an
// "each".
template <class Make>
bool for_each_row(std::string_view object, Place& place, const Make& make) {
  for (const std::string_view key : {"each", "values", "repeat", "times", "steps"}) {
    if (!has_twice(object, key)) continue;
    place.error = in_quotes(key) + " stands twice";
    return false;
  }
  std::vector<std::string_view> tables;
  const std::string_view each = raw_member(object, "each");
  for (const auto& [key, table] : raw_children(raw_is_array(each) ? each : "")) tables.push_back(table);
  if (!each.empty() && tables.empty()) tables.push_back(each);
  const std::size_t first = place.scope.names.size();
  return add_values_and_repetitions(object, place) && for_rows(tables, place, make) &&
         remove_names(first, nullptr, place.scope, place.error);
}

// Appends a step as it is in the current rows.
bool append_step(std::string_view step, Place& place, std::string& json, std::vector<std::string>& rows) {
  std::string plain(step);
  if (!place.scope.names.empty()) {
    plain.clear();
    if (!append_substituted(step, place.scope, plain, place.error)) return false;
  }
  if (!rows.empty()) json.append(",\n   ");
  rows.push_back(place.row);
  return append_without_symbols(plain, json, place.error);
}

// Reads "times"; 1 without it.
bool read_times(std::string_view written, Place& place, std::size_t& ret_times) {
  std::string times;
  if (written.empty()) {
    ret_times = 1;
    return true;
  }
  if (!append_substituted(written, place.scope, times, place.error)) return false;
  if (read_count(times, ret_times) && ret_times <= kMostTimes) return true;
  place.error = "\"times\" must be a whole number from 0 to " + std::to_string(kMostTimes);
  return false;
}

bool append_steps(std::string_view steps, Place& place, std::string& json, std::vector<std::string>& rows);

// Appends an element's "steps", or the element itself where it is a step: for each row, as often as "times" says.
bool append_repeated(std::string_view element, Place& place, std::string& json, std::vector<std::string>& rows) {
  const std::string_view group = raw_member(element, "steps");
  std::string step;
  for (const auto& [key, value] : raw_children(element)) {
    if (is_table_member(key) || key == "times" || key == "steps") continue;
    if (!group.empty()) {
      place.error = "unknown member " + in_quotes(key) + R"(; repeated steps have each, times, values, repeat, steps)";
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
    std::size_t times = 0;
    if (!read_times(raw_member(element, "times"), place, times)) return false;
    for (std::size_t i = 0; i < times; ++i) {
      if (!(group.empty() ? append_step(step, place, json, rows) : append_steps(group, place, json, rows)))
        return false;
    }
    return true;
  });
}

bool append_steps(std::string_view steps, Place& place, std::string& json, std::vector<std::string>& rows) {
  std::size_t number = 0;
  for (const auto& [key, element] : raw_children(steps)) {
    ++number;
    if (is_repeated(element) ? append_repeated(element, place, json, rows) : append_step(element, place, json, rows))
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
    } else if (place.scope.names.empty()) {
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

std::vector<PlainCase> expand_case(std::string_view json, Place& place) {
  if (!raw_is_object(json)) return {{.json = std::string(json), .step_rows = {}, .refusal = {}}};
  std::vector<PlainCase> cases;
  place.row.clear();
  const std::size_t outer = place.scope.names.size();
  if (!for_each_row(json, place, [&] { return make_case(json, place, cases.emplace_back()); })) {
    place.scope.names.resize(outer);
    return {{.json = std::string(json), .step_rows = {}, .refusal = std::exchange(place.error, {})}};
  }
  for (std::size_t i = 1; i < cases.size(); ++i) {
    if (raw_member(cases[i].json, "name") == raw_member(cases[0].json, "name")) {
      const std::string refusal =
          "rows 1 and " + std::to_string(i + 1) + R"( have one "name"; it must use the columns that tell them apart)";
      return {{.json = std::string(json), .step_rows = {}, .refusal = refusal}};
    }
  }
  return cases;
}

bool read_tables(std::string_view json, Place& place) {
  for (const auto& [name, written] : raw_children(json)) {
    Table table;
    if (!read_table(written, table, place.error) || has_twice(json, name)) {
      if (place.error.empty()) place.error = "stands twice";
      place.error = "\"tables\": " + in_quotes(name) + ": " + place.error;
      return false;
    }
    place.scope.tables.push_back(
        {.name = name, .json = written, .columns = table.columns, .is_used = false, .used_columns = {}});
  }
  return true;
}

// Which tables or columns no case uses, as a message; empty when all are used.
std::string unused(const std::vector<SharedTable>& tables) {
  for (const SharedTable& shared : tables) {
    const std::string table = "\"tables\": " + in_quotes(shared.name);
    if (!shared.is_used) return table + " is not used";
    for (const std::string_view column : shared.columns) {
      if (!shared.used_columns.contains(column)) return table + ": the column " + in_quotes(column) + " is not used";
    }
  }
  return {};
}

}  // namespace

bool expand_file(std::string_view json, std::vector<PlainCase>& ret_cases, std::string& ret_error) {
  Place place;
  std::vector<PlainCase> cases;
  bool good = read_tables(raw_member(json, "tables"), place) && add_values_and_repetitions(json, place);
  if (good) {
    for (const auto& [key, written] : raw_children(raw_member(json, "cases"))) {
      for (PlainCase& plain : expand_case(written, place)) {
        good = good && plain.refusal.empty();
        cases.push_back(std::move(plain));
      }
    }
    // A case that cannot be expanded has a refusal of its own, and might have used the rest.
    if (good) place.error = unused(place.scope.tables);
    if (good && place.error.empty()) remove_names(0, nullptr, place.scope, place.error);
  }
  if (!place.error.empty()) {
    ret_error = place.error;
    return false;
  }
  ret_cases = std::move(cases);
  return true;
}

}  // namespace runner
