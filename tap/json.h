// cJSON with an owner, whole numbers without loss, and the comparison of expected with actual values.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace tap {

struct JsonDelete {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDelete>;

// A whole number from -2^63 to 2^64 - 1: bits holds it in two's complement.
struct Integer {
  bool negative = false;
  std::uint64_t bits = 0;
  bool operator==(const Integer&) const = default;
};

// Parses a whole text; null with ret_error, which says where it is wrong.
Json json_parse(std::string_view text, std::string& ret_error);
std::string json_print(const cJSON* json);

// As a JSON number, or as a decimal text beyond 2^53, where a double would lose digits.
cJSON* json_integer(std::int64_t value);
cJSON* json_unsigned(std::uint64_t value);

// Reads a whole number, or a text of decimal digits with an optional sign. False for everything else.
bool json_to_integer(const cJSON* json, Integer& ret_value);

// Reads {"bytes": "414243"} or {"hex": "414243"}. False when json is something else, or the digits are not hexadecimal.
bool json_to_bytes(const cJSON* json, std::string& ret_bytes);

// {"bytes": "..."} of raw bytes.
cJSON* json_bytes(std::string_view bytes);

// A text as a JSON string, or as {"bytes": ...} where it is not valid UTF-8.
cJSON* json_text(std::string_view text);

// Whether a value is as expected: null in expected matches anything, only the members of an object that expected has
// are compared, elements of an array beyond those of expected must be zero, and numbers may be decimal texts.
bool json_matches(const cJSON* expected, const cJSON* came);

}  // namespace tap
