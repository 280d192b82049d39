// Text functions that the tap, the virtual television, the host and the command line share. The plugin has its own: it
// follows a set's rules for numbers and texts.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>

// The number that the whole text is, in the given base; nullopt for any other text and for a number out of range.
template <typename Number>
std::optional<Number> parse_number(std::string_view text, int base = 10) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stopped, failure] = std::from_chars(text.data(), end, number, base);
  if (failure != std::errc() || stopped != end) return std::nullopt;
  return number;
}

// The same, for a number that has to be within two limits.
template <typename Number>
std::optional<Number> parse_number_within(std::string_view text, Number minimum, Number maximum) {
  const std::optional<Number> number = parse_number<Number>(text);
  return number && *number >= minimum && *number <= maximum ? number : std::nullopt;
}

// Length in bytes of the UTF-8 character at the start of the text. 0 where the bytes are not a valid one: cut,
// overlong, a surrogate, beyond U+10FFFF. The text is not empty.
constexpr std::size_t utf8_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(i < text.size() ? text[i] : '\0'); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  for (std::size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
  const bool surrogate = lead == 0xED && byte(1) > 0x9F;
  const bool beyond = lead == 0xF4 && byte(1) > 0x8F;
  return overlong || surrogate || beyond ? 0 : length;
}

// The beginning of a UTF-8 text, at most this many bytes. No character is cut in two.
constexpr std::string_view utf8_cut(std::string_view text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80) --bytes;
  return text.substr(0, bytes);
}

constexpr bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

// A to Z count as a to z; every other byte counts as itself, whatever the locale is.
constexpr char ascii_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr bool same_letter(char left, char right) { return ascii_lower(left) == ascii_lower(right); }

constexpr bool equal_ignoring_case(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(), same_letter);
}

constexpr bool contains_ignoring_case(std::string_view text, std::string_view word) {
  return std::search(text.begin(), text.end(), word.begin(), word.end(), same_letter) != text.end() || word.empty();
}
