// JSON as text. Boost.JSON checks that a text is valid; members are then cut out of it as they are written, so that a
// client's parameter and id pass through the host unchanged.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Deepest accepted nesting. The plugin's own parser stops at 1000, so the host refuses nothing that the plugin would
// accept.
inline constexpr std::size_t kJsonMaxDepth = 1024;

// What the host checks of a text before it passes it to the plugin.
struct JsonFacts {
  std::size_t values = 0;  // objects, arrays, texts, numbers, true, false and null, at all depths
  bool has_nul = false;    // a string or key contains U+0000, at which the plugin's parser would end it
};

// Whether the text is one complete JSON value in valid UTF-8. ret_error (may be null) receives position and reason.
bool json_is_whole(std::string_view text, std::string* ret_error = nullptr, JsonFacts* ret_facts = nullptr);

// The following functions expect texts that json_is_whole has accepted, or parts of them.

enum class JsonKind { kObject, kArray, kString, kNumber, kBoolean, kNull };
JsonKind json_kind(std::string_view value);

struct JsonMember {
  std::string_view key;    // as written, with its quotation marks
  std::string_view value;  // as written
};

// Iterate over an object or an array: each call takes the next member or element from rest, which is the whole value at
// first. nullopt at the end.
std::optional<JsonMember> json_next_member(std::string_view& rest);
std::optional<std::string_view> json_next_element(std::string_view& rest);

// The decoded text of a JSON string.
std::string json_string(std::string_view value);

// Whether a JSON string, as written, decodes to the text.
bool json_string_is(std::string_view value, std::string_view text);

// The text as a JSON string. Invalid UTF-8 becomes U+FFFD, so the result is always valid.
std::string json_quote(std::string_view text);
