// JSON as text. Boost.JSON says whether a text is whole; members are then cut out of it as they were written, so that
// a client's parameter and id pass through this host byte for byte.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Deepest nesting that is read. The plugin's own parser stops at 1000, so that nothing it could accept is refused here.
inline constexpr std::size_t kJsonMaxDepth = 1024;

// What is to be known of a text before it goes to the plugin.
struct JsonFacts {
  std::size_t values = 0;  // objects, arrays, texts, numbers, true, false and null, at all depths
  bool has_nul = false;    // U+0000 stands in a text or a key: the plugin's parser would end the text there
};

// Whether the text is one whole JSON value in valid UTF-8. ret_error (may be null) says where and why not.
bool json_is_whole(std::string_view text, std::string* ret_error = nullptr, JsonFacts* ret_facts = nullptr);

// The rest of this header expects texts that json_is_whole has accepted, or parts of them.

enum class JsonKind { kObject, kArray, kString, kNumber, kBoolean, kNull };
JsonKind json_kind(std::string_view value);

struct JsonMember {
  std::string_view key;    // as written, with its quotation marks
  std::string_view value;  // as written
};

// Steps through an object or an array: takes the next member or element from rest, which starts as the whole value.
// nullopt at the end.
std::optional<JsonMember> json_next_member(std::string_view& rest);
std::optional<std::string_view> json_next_element(std::string_view& rest);

// The text that a JSON string stands for.
std::string json_string(std::string_view value);

// Whether a JSON string, as written, stands for the plain text.
bool json_string_is(std::string_view value, std::string_view text);

// The text as a JSON string. Invalid UTF-8 becomes U+FFFD, so that the result is always valid.
std::string json_quote(std::string_view text);
