#include "json_text.h"

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/parse.hpp>
#include <cstdint>

#include "base/text.h"

namespace json = boost::json;

namespace {

// The handler that Boost.JSON's parser reports to. It keeps only the facts.
struct FactsHandler {
  static constexpr std::size_t max_object_size = SIZE_MAX;
  static constexpr std::size_t max_array_size = SIZE_MAX;
  static constexpr std::size_t max_key_size = SIZE_MAX;
  static constexpr std::size_t max_string_size = SIZE_MAX;

  JsonFacts facts;

  bool value() { return ++facts.values > 0; }
  bool text(json::string_view part) {
    facts.has_nul = facts.has_nul || part.find('\0') != json::string_view::npos;
    return true;
  }

  bool on_document_begin(json::error_code&) { return true; }
  bool on_document_end(json::error_code&) { return true; }
  bool on_object_begin(json::error_code&) { return value(); }
  bool on_object_end(std::size_t, json::error_code&) { return true; }
  bool on_array_begin(json::error_code&) { return value(); }
  bool on_array_end(std::size_t, json::error_code&) { return true; }
  bool on_key_part(json::string_view part, std::size_t, json::error_code&) { return text(part); }
  bool on_key(json::string_view part, std::size_t, json::error_code&) { return text(part); }
  bool on_string_part(json::string_view part, std::size_t, json::error_code&) { return text(part); }
  bool on_string(json::string_view part, std::size_t, json::error_code&) { return value() && text(part); }
  bool on_number_part(json::string_view, json::error_code&) { return true; }
  bool on_int64(std::int64_t, json::string_view, json::error_code&) { return value(); }
  bool on_uint64(std::uint64_t, json::string_view, json::error_code&) { return value(); }
  bool on_double(double, json::string_view, json::error_code&) { return value(); }
  bool on_bool(bool, json::error_code&) { return value(); }
  bool on_null(json::error_code&) { return value(); }
  bool on_comment_part(json::string_view, json::error_code&) { return true; }
  bool on_comment(json::string_view, json::error_code&) { return true; }
};

json::parse_options options() {
  json::parse_options options;
  options.max_depth = kJsonMaxDepth;
  return options;
}

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

void skip_spaces(std::string_view& text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
}

std::size_t string_length(std::string_view text) {
  std::size_t i = 1;
  while (i < text.size() && text[i] != '"') i += text[i] == '\\' ? 2 : 1;
  return i + 1;
}

// Length of the value at the start of the text.
std::size_t value_length(std::string_view text) {
  if (text.front() == '"') return string_length(text);
  std::size_t i = 0;
  if (text.front() != '{' && text.front() != '[') {
    while (i < text.size() && text[i] != ',' && text[i] != ']' && text[i] != '}' && !is_space(text[i])) ++i;
    return i;
  }
  std::size_t depth = 0;
  do {
    const char c = text[i];
    if (c == '"') {
      i += string_length(text.substr(i));
      continue;
    }
    if (c == '{' || c == '[') ++depth;
    if (c == '}' || c == ']') --depth;
    ++i;
  } while (depth > 0 && i < text.size());
  return i;
}

std::string_view take(std::string_view& text, std::size_t length) {
  const std::string_view taken = text.substr(0, length);
  text.remove_prefix(taken.size());
  return taken;
}

// Moves from the opening bracket, or from the end of a value, to the next value. Returns false at the closing bracket.
bool move_to_next(std::string_view& rest) {
  skip_spaces(rest);
  if (rest.empty() || rest.front() == '}' || rest.front() == ']') return false;
  rest.remove_prefix(1);
  skip_spaces(rest);
  return !rest.empty() && rest.front() != '}' && rest.front() != ']';
}

}  // namespace

bool json_is_whole(std::string_view text, std::string* ret_error, JsonFacts* ret_facts) {
  static thread_local json::basic_parser<FactsHandler> parser(options());
  parser.reset();
  parser.handler().facts = {};
  json::error_code failure;
  const std::size_t read = parser.write_some(false, text.data(), text.size(), failure);
  if (!failure && read < text.size()) failure = json::error::extra_data;
  if (ret_facts != nullptr) *ret_facts = parser.handler().facts;
  if (!failure) return true;
  if (ret_error == nullptr) return false;
  *ret_error = "at byte " + std::to_string(read) + ": ";
  if (failure == json::error::too_deep)
    *ret_error += "nested deeper than " + std::to_string(kJsonMaxDepth) + " levels";
  else
    *ret_error += text.empty() ? "the text is empty" : failure.message();
  return false;
}

JsonKind json_kind(std::string_view value) {
  skip_spaces(value);
  switch (value.front()) {
    case '{':
      return JsonKind::kObject;
    case '[':
      return JsonKind::kArray;
    case '"':
      return JsonKind::kString;
    case 't':
    case 'f':
      return JsonKind::kBoolean;
    case 'n':
      return JsonKind::kNull;
    default:
      return JsonKind::kNumber;
  }
}

std::optional<JsonMember> json_next_member(std::string_view& rest) {
  if (!move_to_next(rest)) return std::nullopt;
  JsonMember member{};
  member.key = take(rest, string_length(rest));
  skip_spaces(rest);
  rest.remove_prefix(1);
  skip_spaces(rest);
  member.value = take(rest, value_length(rest));
  return member;
}

std::optional<std::string_view> json_next_element(std::string_view& rest) {
  if (!move_to_next(rest)) return std::nullopt;
  return take(rest, value_length(rest));
}

std::string json_string(std::string_view value) {
  const std::string_view inner = value.substr(1, value.size() - 2);
  if (inner.find('\\') == std::string_view::npos) return std::string(inner);
  const json::value parsed = json::parse(json::string_view(value.data(), value.size()));
  return std::string(parsed.get_string());
}

bool json_string_is(std::string_view value, std::string_view text) {
  const std::string_view inner = value.substr(1, value.size() - 2);
  return inner == text || (inner.find('\\') != std::string_view::npos && json_string(value) == text);
}

std::string json_quote(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string quoted = "\"";
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const char c = text.front();
    if (length == 0) {
      quoted += "\xEF\xBF\xBD";
    } else if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (length == 1 && static_cast<unsigned char>(c) < 0x20) {
      quoted += "\\u00";
      quoted += kHex[c >> 4];
      quoted += kHex[c & 15];
    } else {
      quoted += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return quoted += '"';
}
