#include "tap/json.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "base/text.h"

namespace tap {
namespace {

constexpr std::uint64_t kExactInDouble = std::uint64_t{1} << 53;

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool decimal_to_integer(const char* text, Integer& ret_value) {
  const bool negative = *text == '-';
  const char* digit = negative ? text + 1 : text;
  if (*digit == '\0') return false;
  std::uint64_t magnitude = 0;
  for (; *digit != '\0'; ++digit) {
    if (*digit < '0' || *digit > '9') return false;
    const auto value = static_cast<std::uint64_t>(*digit - '0');
    if (magnitude > (UINT64_MAX - value) / 10) return false;
    magnitude = magnitude * 10 + value;
  }
  if (negative && magnitude > std::uint64_t{1} << 63) return false;
  ret_value = {.negative = negative && magnitude != 0, .bits = negative ? ~magnitude + 1 : magnitude};
  return true;
}

bool is_zero(const cJSON* json) {
  if (cJSON_IsNull(json)) return true;
  if (cJSON_IsString(json) && json->valuestring[0] == '\0') return true;
  if (Integer value; json_to_integer(json, value)) return value.bits == 0;
  if (!cJSON_IsObject(json) && !cJSON_IsArray(json)) return false;
  const cJSON* child = nullptr;
  cJSON_ArrayForEach(child, json) {
    if (!is_zero(child)) return false;
  }
  return true;
}

// The last bit is ignored, since cJSON does not always print it.
bool same_real(double left, double right) {
  return left == right ||
         std::abs(left - right) <= std::min(std::abs(left), std::abs(right)) * std::numeric_limits<double>::epsilon();
}

bool bytes_match(std::string_view expected, const cJSON* came) {
  std::string bytes;
  if (json_to_bytes(came, bytes)) return expected == bytes;
  if (cJSON_IsString(came)) return expected == came->valuestring;
  if (!cJSON_IsArray(came)) return false;
  const cJSON* element = nullptr;
  cJSON_ArrayForEach(element, came) {
    Integer value;
    if (!json_to_integer(element, value)) return false;
    bytes.push_back(static_cast<char>(value.bits));
  }
  return bytes.size() >= expected.size() && bytes.compare(0, expected.size(), expected) == 0 &&
         bytes.find_first_not_of('\0', expected.size()) == std::string::npos;
}

}  // namespace

Json json_parse(std::string_view text, std::string& ret_error) {
  const std::string terminated(text);
  const char* end = nullptr;
  Json json(cJSON_ParseWithOpts(terminated.c_str(), &end, 1));
  if (!json) {
    const std::size_t at = end == nullptr ? 0 : static_cast<std::size_t>(end - terminated.c_str());
    std::size_t line = 1;
    for (std::size_t i = 0; i < at && i < terminated.size(); ++i) line += terminated[i] == '\n';
    ret_error = "not JSON from line " + std::to_string(line) + " (byte " + std::to_string(at) + " of the text) on: \"" +
                terminated.substr(std::min(at, terminated.size()), 40) + "\"";
  }
  return json;
}

// cJSON prints integers from 10^15 on with an exponent, and rounded; this writes all their digits.
static void spell_out_integers(cJSON* json) {
  for (cJSON* item = json; item != nullptr; item = item->next) {
    spell_out_integers(item->child);
    const double value = item->valuedouble;
    if (!cJSON_IsNumber(item) || std::abs(value) < 1e15 || std::abs(value) > static_cast<double>(kExactInDouble))
      continue;
    if (value != std::trunc(value)) continue;
    const std::string digits = std::to_string(static_cast<std::int64_t>(value));
    item->type = (item->type & ~0xFF) | cJSON_Raw;  // the other bits say who owns the key
    item->valuestring = strdup(digits.c_str());
  }
}

std::string json_print(const cJSON* json) {
  const Json copy(cJSON_Duplicate(json, 1));
  spell_out_integers(copy.get());
  const std::unique_ptr<char, decltype(&std::free)> text(cJSON_PrintUnformatted(copy.get()), std::free);
  return text ? text.get() : "";
}

cJSON* json_integer(std::int64_t value) {
  if (value >= 0) return json_unsigned(static_cast<std::uint64_t>(value));
  const std::string digits = std::to_string(value);
  return value < -static_cast<std::int64_t>(kExactInDouble) ? cJSON_CreateString(digits.c_str())
                                                            : cJSON_CreateRaw(digits.c_str());
}

cJSON* json_unsigned(std::uint64_t value) {
  const std::string digits = std::to_string(value);
  return value > kExactInDouble ? cJSON_CreateString(digits.c_str()) : cJSON_CreateRaw(digits.c_str());
}

bool json_to_integer(const cJSON* json, Integer& ret_value) {
  // A raw item holds the digits that json_integer wrote.
  if (cJSON_IsString(json) || cJSON_IsRaw(json)) return decimal_to_integer(json->valuestring, ret_value);
  if (cJSON_IsBool(json)) {
    ret_value = {.negative = false, .bits = cJSON_IsTrue(json) ? 1U : 0U};
    return true;
  }
  if (!cJSON_IsNumber(json)) return false;
  const double value = json->valuedouble;
  if (!(value >= -9223372036854775808.0 && value < 18446744073709551616.0) || std::trunc(value) != value) return false;
  if (value < 0) {
    ret_value = {.negative = true, .bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(value))};
  } else {
    ret_value = {.negative = false, .bits = static_cast<std::uint64_t>(value)};
  }
  return true;
}

bool json_to_bytes(const cJSON* json, std::string& ret_bytes) {
  if (!cJSON_IsObject(json) || json->child == nullptr || json->child->next != nullptr) return false;
  const cJSON* digits = json->child;
  if (std::strcmp(digits->string, "bytes") != 0 && std::strcmp(digits->string, "hex") != 0) return false;
  if (!cJSON_IsString(digits)) return false;
  const std::string_view text = digits->valuestring;
  if (text.size() % 2 != 0) return false;
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int high = hex_digit(text[i]);
    const int low = hex_digit(text[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  ret_bytes = std::move(bytes);
  return true;
}

cJSON* json_bytes(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 15]);
  }
  cJSON* json = cJSON_CreateObject();
  cJSON_AddStringToObject(json, "bytes", text.c_str());
  return json;
}

cJSON* json_text(std::string_view text) {
  return is_utf8(text) ? cJSON_CreateString(std::string(text).c_str()) : json_bytes(text);
}

bool json_matches(const cJSON* expected, const cJSON* came) {
  if (expected == nullptr || cJSON_IsNull(expected)) return true;
  if (came == nullptr) return false;
  if (std::string bytes; json_to_bytes(expected, bytes)) return bytes_match(bytes, came);
  if (cJSON_IsString(expected) && cJSON_IsString(came)) {
    return std::strcmp(expected->valuestring, came->valuestring) == 0;
  }
  if (cJSON_IsObject(expected)) {
    if (!cJSON_IsObject(came)) return false;
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, expected) {
      const cJSON* other = cJSON_GetObjectItemCaseSensitive(came, member->string);
      if (other == nullptr || !json_matches(member, other)) return false;
    }
    return true;
  }
  if (cJSON_IsArray(expected)) {
    if (!cJSON_IsArray(came) || cJSON_GetArraySize(came) < cJSON_GetArraySize(expected)) return false;
    const cJSON* other = came->child;
    for (const cJSON* element = expected->child; element != nullptr; element = element->next, other = other->next) {
      if (!json_matches(element, other)) return false;
    }
    for (; other != nullptr; other = other->next) {
      if (!is_zero(other)) return false;
    }
    return true;
  }
  // Integers are raw digits or texts in what came, so that two numbers are real numbers.
  if (cJSON_IsNumber(expected) && cJSON_IsNumber(came)) return same_real(expected->valuedouble, came->valuedouble);
  Integer left;
  Integer right;
  return json_to_integer(expected, left) && json_to_integer(came, right) && left == right;
}

}  // namespace tap
