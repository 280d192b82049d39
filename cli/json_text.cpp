#include <boost/json.hpp>

#include "dtvctl.h"

namespace {

// Where the value (or string) that starts at position ends. The text is known to be valid.
std::size_t end_of_string(std::string_view text, std::size_t position) {
  for (++position; text[position] != '"'; ++position) {
    if (text[position] == '\\') ++position;
  }
  return position + 1;
}

std::size_t end_of_value(std::string_view text, std::size_t position) {
  std::size_t depth = 0;
  while (position < text.size()) {
    const char c = text[position];
    if (c == '"') {
      position = end_of_string(text, position);
      if (depth == 0) return position;
      continue;
    }
    if (depth == 0 && (c == ',' || c == '}' || c == ']' || c == ' ' || c == '\n' || c == '\r' || c == '\t')) {
      return position;
    }
    if (c == '{' || c == '[') ++depth;
    ++position;
    if ((c == '}' || c == ']') && --depth == 0) return position;
  }
  return position;
}

std::size_t skip_space(std::string_view text, std::size_t position) {
  const std::size_t found = text.find_first_not_of(" \t\r\n", position);
  return found == std::string_view::npos ? text.size() : found;
}

std::optional<std::string_view> member(std::string_view text, std::string_view key) {
  std::size_t position = skip_space(text, 0);
  if (position >= text.size() || text[position] != '{') return std::nullopt;
  position = skip_space(text, position + 1);
  while (position < text.size() && text[position] == '"') {
    const std::size_t key_end = end_of_string(text, position);
    const std::string_view found = text.substr(position + 1, key_end - position - 2);
    const std::size_t value = skip_space(text, skip_space(text, key_end) + 1);  // past the colon
    const std::size_t value_end = end_of_value(text, value);
    if (found == key) return text.substr(value, value_end - value);
    position = skip_space(text, value_end);
    if (position < text.size() && text[position] == ',') position = skip_space(text, position + 1);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string_view> json_member(std::string_view object, std::initializer_list<std::string_view> path) {
  std::optional<std::string_view> found = object;
  for (const std::string_view key : path) {
    found = member(*found, key);
    if (!found) break;
  }
  return found;
}

bool json_parse(std::string_view text, boost::json::value& ret_value) {
  boost::json::parse_options options;
  options.max_depth = 2000;  // twice what the plugin's own parser takes
  boost::json::error_code failed;
  boost::json::value value = boost::json::parse(text, failed, {}, options);
  if (failed) return false;
  ret_value = std::move(value);
  return true;
}
