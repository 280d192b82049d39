#include "runner/substitute.h"

#include <algorithm>
#include <utility>

#include "runner/raw_json.h"
#include "runner/symbols.h"

namespace runner {
namespace {

constexpr std::size_t kLongestText = 64 << 20;  // bytes
constexpr int kDeepestName = 8;                 // names within the values of names, and so on

// depth: how many names have been replaced on the way here.
bool append_value(std::string_view value, Scope& scope, int depth, std::string& json, std::string& ret_error);
bool append_text(std::string_view text, Scope& scope, int depth, std::string& json, std::string& ret_error);

// Appends a text of a repetition, without quotes.
bool append_part(std::string_view text, Scope& scope, int depth, std::string& content, std::string& ret_error) {
  std::string plain;
  if (!append_text(text, scope, depth, plain, ret_error)) return false;
  if (!raw_is_text(plain)) {
    ret_error = "a repetition repeats a text, not " + plain;
    return false;
  }
  if (content.size() + plain.size() > kLongestText) {
    ret_error = "a repetition is longer than " + std::to_string(kLongestText) + " bytes";
    return false;
  }
  content.append(raw_content(plain));
  return true;
}

bool append_times(std::string_view text, std::string_view separator, std::size_t times, Scope& scope, int depth,
                  std::string& content, std::string& ret_error) {
  std::string once;
  std::string between;
  if (!append_part(text, scope, depth, once, ret_error) || !append_part(separator, scope, depth, between, ret_error))
    return false;
  const std::size_t length = once.size() + between.size();
  if (length > 0 && times > kLongestText / length) {
    ret_error = "a repetition is longer than " + std::to_string(kLongestText) + " bytes";
    return false;
  }
  for (std::size_t i = 0; i < times; ++i) content.append(i > 0 ? between : "").append(once);
  return true;
}

bool append_rows(std::string_view text, std::string_view separator, std::string_view table_or_name, Scope& scope,
                 int depth, std::string& content, std::string& ret_error) {
  Table table;
  SharedTable* shared = nullptr;
  std::size_t first = 0;
  if (!find_table(table_or_name, scope.tables, table, shared, ret_error) ||
      !add_columns(table, scope, first, ret_error))
    return false;
  for (std::size_t row = 0; row < table.rows.size(); ++row) {
    set_row(table, row, first, scope);
    if ((row > 0 && !append_part(separator, scope, depth, content, ret_error)) ||
        !append_part(text, scope, depth, content, ret_error))
      return false;
  }
  return remove_names(first, shared, scope, ret_error);
}

// Appends the text that a repetition makes, with its quotes.
bool append_repetition(const Name& name, Scope& scope, int depth, std::string& json, std::string& ret_error) {
  const auto parts = raw_children(name.value);
  const bool good = raw_is_array(name.value) && (parts.size() == 2 || parts.size() == 3) &&
                    raw_is_text(parts[0].second) && (parts.size() == 2 || raw_is_text(parts[2].second));
  const std::string_view separator = parts.size() == 3 ? parts[2].second : "\"\"";
  std::string times;  // or a table, or its name
  if (good && raw_is_object(parts[1].second)) {
    times = parts[1].second;
  } else if (good && !append_value(parts[1].second, scope, depth, times, ret_error)) {
    return false;
  }
  std::string content;
  std::size_t count = 0;
  bool is_made = false;
  if (read_count(times, count)) {
    is_made = append_times(parts[0].second, separator, count, scope, depth, content, ret_error);
  } else if (raw_is_object(times) || raw_is_text(times)) {
    is_made = append_rows(parts[0].second, separator, times, scope, depth, content, ret_error);
  } else {
    ret_error = "it must be [text, times] or [text, table], perhaps with a text between";
  }
  if (!is_made) {
    ret_error = "the repetition " + in_quotes(name.name) + ": " + ret_error;
    return false;
  }
  json.append("\"").append(content).append("\"");
  return true;
}

bool append_named(std::string_view name, Scope& scope, int depth, std::string& json, std::string& ret_error) {
  std::vector<std::string_view> names;
  for (Name& known : scope.names) {
    names.push_back(known.name);
    if (known.name != name) continue;
    if (depth == kDeepestName) {
      ret_error = in_quotes(name) + " is used in its own value";
      return false;
    }
    known.is_used = true;
    return known.origin == Name::kRepetition ? append_repetition(known, scope, depth + 1, json, ret_error)
                                             : append_value(known.value, scope, depth + 1, json, ret_error);
  }
  ret_error = "there is no column, value or repetition " + in_quotes(name);
  if (!names.empty()) ret_error += "; the nearest is " + in_quotes(nearest_name(name, names));
  return false;
}

bool append_text(std::string_view text, Scope& scope, int depth, std::string& json, std::string& ret_error) {
  const std::string_view content = raw_content(text);
  std::string plain = "\"";
  for (std::size_t at = 0; at < content.size();) {
    const std::size_t begin = std::min(content.find("${", at), content.size());
    plain.append(content.substr(at, begin - at));
    if (begin == content.size()) break;
    const std::size_t end = content.find('}', begin);
    if (end == std::string_view::npos) {
      ret_error = R"("${" without "}"; a text that has "${" and no name says "\u0024{")";
      return false;
    }
    const std::string_view name = content.substr(begin + 2, end - begin - 2);
    std::string value;
    if (!append_named(name, scope, depth, value, ret_error)) return false;
    if (begin == 0 && end + 1 == content.size()) {
      json.append(value);
      return true;
    }
    if (raw_is_object(value) || raw_is_array(value)) {
      ret_error = in_quotes(name) + " is neither text nor number, so that it cannot be part of a text";
      return false;
    }
    plain.append(raw_is_text(value) ? raw_content(value) : std::string_view(value));
    at = end + 1;
  }
  json.append(plain).push_back('"');
  return true;
}

bool append_key(std::string_view key, Scope& scope, int depth, std::string& json, std::string& ret_error) {
  std::string plain;
  if (!append_text(in_quotes(key), scope, depth, plain, ret_error)) return false;
  if (raw_is_object(plain) || raw_is_array(plain)) {
    ret_error = in_quotes(key) + " is neither text nor number, so that it cannot be a member's key";
    return false;
  }
  json.append(raw_is_text(plain) ? plain : in_quotes(plain)).push_back(':');
  return true;
}

bool append_value(std::string_view value, Scope& scope, int depth, std::string& json, std::string& ret_error) {
  if (raw_is_text(value)) return append_text(value, scope, depth, json, ret_error);
  if (!raw_is_object(value) && !raw_is_array(value)) {
    json.append(value);
    return true;
  }
  json.push_back(value.front());
  const char* separator = "";
  for (const auto& [key, child] : raw_children(value)) {
    json.append(std::exchange(separator, ","));
    if (raw_is_object(value) && !append_key(key, scope, depth, json, ret_error)) return false;
    if (!append_value(child, scope, depth, json, ret_error)) return false;
  }
  json.push_back(raw_is_object(value) ? '}' : ']');
  return true;
}

}  // namespace

bool add_name(const Name& name, Scope& scope, std::string& ret_error) {
  const bool is_new =
      std::none_of(scope.names.begin(), scope.names.end(), [&](const Name& known) { return known.name == name.name; });
  if (is_new) {
    scope.names.push_back(name);
  } else {
    ret_error = in_quotes(name.name) + " is a name twice";
  }
  return is_new;
}

bool add_columns(const Table& table, Scope& scope, std::size_t& ret_first, std::string& ret_error) {
  ret_first = scope.names.size();
  return std::all_of(table.columns.begin(), table.columns.end(), [&](std::string_view column) {
    return add_name({.name = column, .origin = Name::kColumn, .value = {}}, scope, ret_error);
  });
}

void set_row(const Table& table, std::size_t row, std::size_t first, Scope& scope) {
  for (std::size_t i = 0; i < table.columns.size(); ++i) scope.names[first + i].value = table.rows[row][i];
}

bool remove_names(std::size_t first, SharedTable* shared, Scope& scope, std::string& ret_error) {
  for (; scope.names.size() > first; scope.names.pop_back()) {
    const Name& name = scope.names.back();
    if (name.is_used && shared != nullptr) shared->used_columns.insert(name.name);
    if (name.is_used || (shared != nullptr && name.origin == Name::kColumn)) continue;
    constexpr const char* kKinds[] = {"the column ", "the value ", "the repetition "};
    ret_error = kKinds[name.origin] + in_quotes(name.name) + " is not used";
    return false;
  }
  return true;
}

bool append_substituted(std::string_view value, Scope& scope, std::string& json, std::string& ret_error) {
  return append_value(value, scope, 0, json, ret_error);
}

}  // namespace runner
