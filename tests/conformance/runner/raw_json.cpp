#include "runner/raw_json.h"

namespace runner {
namespace {

bool is_space(char c) { return static_cast<unsigned char>(c) <= ' '; }

std::size_t skip_space(std::string_view json, std::size_t at) {
  while (at < json.size() && is_space(json[at])) ++at;
  return at;
}

// The position after the text that begins here with its quote.
std::size_t skip_text(std::string_view json, std::size_t at) {
  for (++at; at < json.size() && json[at] != '"'; ++at) {
    if (json[at] == '\\') ++at;
  }
  return at + 1;
}

std::size_t skip_value(std::string_view json, std::size_t at) {
  int depth = 0;
  while (at < json.size()) {
    const char c = json[at];
    if (c == '"') {
      at = skip_text(json, at);
      if (depth == 0) return at;
      continue;
    }
    if (depth == 0 && (c == ',' || c == '}' || c == ']' || is_space(c))) return at;
    if (c == '{' || c == '[') ++depth;
    if ((c == '}' || c == ']') && --depth == 0) return at + 1;
    ++at;
  }
  return at;
}

}  // namespace

std::vector<std::pair<std::string_view, std::string_view>> raw_children(std::string_view json) {
  std::vector<std::pair<std::string_view, std::string_view>> children;
  std::size_t at = skip_space(json, 0);
  if (json.substr(0, 3) == "\xEF\xBB\xBF") at = skip_space(json, 3);
  if (at >= json.size() || (json[at] != '{' && json[at] != '[')) return children;
  const bool is_object = json[at] == '{';
  for (at = skip_space(json, at + 1); at < json.size() && json[at] != '}' && json[at] != ']';) {
    std::string_view key;
    if (is_object) {
      const std::size_t end = skip_text(json, at);
      key = json.substr(at + 1, end - at - 2);
      at = skip_space(json, skip_space(json, end) + 1);  // over the colon
    }
    const std::size_t end = skip_value(json, at);
    children.emplace_back(key, json.substr(at, end - at));
    at = skip_space(json, end);
    if (at < json.size() && json[at] == ',') at = skip_space(json, at + 1);
  }
  return children;
}

std::string_view raw_member(std::string_view object, std::string_view key) {
  for (const auto& [name, value] : raw_children(object)) {
    if (name == key) return value;
  }
  return {};
}

std::string raw_minified(std::string_view json) {
  std::string text;
  for (std::size_t at = 0; at < json.size();) {
    if (json[at] == '"') {
      const std::size_t end = std::min(skip_text(json, at), json.size());
      text.append(json.substr(at, end - at));
      at = end;
    } else {
      if (!is_space(json[at])) text.push_back(json[at]);
      ++at;
    }
  }
  return text;
}

bool raw_is_text(std::string_view json) { return json.starts_with('"'); }
bool raw_is_object(std::string_view json) { return json.starts_with('{'); }
bool raw_is_array(std::string_view json) { return json.starts_with('['); }

std::string_view raw_content(std::string_view text) { return text.substr(1, text.size() - 2); }

std::string in_quotes(std::string_view content) { return "\"" + std::string(content) + "\""; }

}  // namespace runner
