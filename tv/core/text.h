// Texts as the set keeps them, and as it hands them out in fields of a fixed size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "base/text.h"

// The text's beginning, at most `longest` bytes, cut between characters.
constexpr std::string_view cut_text(std::string_view text, std::size_t longest) {
  if (text.size() <= longest) return text;
  while (longest > 0 && (static_cast<unsigned char>(text[longest]) & 0xC0) == 0x80) --longest;
  return text.substr(0, longest);
}

// The text without control characters and with at most `longest` bytes, cut between characters. Bytes that are not
// UTF-8 become "?". lines: line feeds stay.
enum class Lines { kOne, kMany };
std::string clean_text(std::string_view text, std::size_t longest, Lines lines = Lines::kOne);

// Fills the field with the text, cut between characters, and with zeros behind it.
template <std::size_t Size>
void put_text(char (&ret_text)[Size], std::string_view text) {
  const std::string_view cut = cut_text(text, Size - 1);
  std::fill(std::ranges::copy(cut, ret_text).out, ret_text + Size, '\0');
}

// Fills a caller's buffer of `size` bytes with the text, cut between characters. It is terminated unless it fills the
// buffer.
inline void fill_text(char* ret_text, std::size_t size, std::string_view text) {
  const std::string_view cut = cut_text(text, size);
  std::memcpy(ret_text, cut.data(), cut.size());
  if (cut.size() < size) ret_text[cut.size()] = '\0';
}
