#include "runner/substitute.h"

#include <algorithm>
#include <charconv>
#include <utility>
#include <vector>

#include "runner/raw_json.h"
#include "runner/symbols.h"

namespace runner {
namespace {

constexpr std::size_t LONGEST_TEXT = 64 << 20;  // bytes
constexpr int DEEPEST_NAME = 8;                 // values that use names whose values use names, and so on

std::string in_quotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

// depth: how many names lead to this value.
bool append_value(std::string_view value, Scope& scope, int depth, std::string& json, std::string& ret_error);

bool read_times(std::string_view digits, std::size_t& ret_times) {
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, ret_times);
  return error == std::errc() && stop == end;
}

// Appends the text that a repetition makes, with its quotes.
bool append_repetition(const Name& name, Scope& scope, int depth, std::string& json, std::string& ret_error) {
  std::string plain;
  if (!append_value(name.value, scope, depth, plain, ret_error)) return false;
  const auto parts = raw_children(plain);
  std::size_t times = 0;
  if (!raw_is_array(plain) || parts.size() != 2 || !raw_is_text(parts[0].second) ||
      !read_times(parts[1].second, times)) {
    ret_error = "the repetition " + in_quotes(name.name) + " must be [text, times], with a whole number from 0 on";
    return false;
  }
  const std::string_view text = raw_content(parts[0].second);
  if (!text.empty() && times > LONGEST_TEXT / text.size()) {
    ret_error = "the repetition " + in_quotes(name.name) + " is longer than " + std::to_string(LONGEST_TEXT) + " bytes";
    return false;
  }
  json.reserve(json.size() + text.size() * times + 2);
  json.push_back('"');
  for (std::size_t i = 0; i < times; ++i) json.append(text);
  json.push_back('"');
  return true;
}

bool append_named(std::string_view name, Scope& scope, int depth, std::string& json, std::string& ret_error) {
  const auto found = std::find_if(scope.begin(), scope.end(), [&](const Name& known) { return known.name == name; });
  if (found == scope.end()) {
    std::vector<std::string_view> names;
    for (const Name& known : scope) names.push_back(known.name);
    ret_error = "there is no column or repetition " + in_quotes(name) + "; the nearest is " +
                in_quotes(nearest_name(name, names));
    return false;
  }
  if (depth == DEEPEST_NAME) {
    ret_error = in_quotes(name) + " stands for itself";
    return false;
  }
  found->is_used = true;
  return found->is_repetition ? append_repetition(*found, scope, depth + 1, json, ret_error)
                              : append_value(found->value, scope, depth + 1, json, ret_error);
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
    if (raw_is_object(value)) {
      std::string plain_key;
      if (!append_text(in_quotes(key), scope, depth, plain_key, ret_error)) return false;
      if (raw_is_object(plain_key) || raw_is_array(plain_key)) {
        ret_error = in_quotes(key) + " is neither text nor number, so that it cannot be a member's key";
        return false;
      }
      json.append(raw_is_text(plain_key) ? plain_key : in_quotes(plain_key)).push_back(':');
    }
    if (!append_value(child, scope, depth, json, ret_error)) return false;
  }
  json.push_back(raw_is_object(value) ? '}' : ']');
  return true;
}

}  // namespace

bool append_substituted(std::string_view value, Scope& scope, std::string& json, std::string& ret_error) {
  return append_value(value, scope, 0, json, ret_error);
}

}  // namespace runner
