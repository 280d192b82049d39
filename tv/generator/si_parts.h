// What the files that write service information share.
#pragma once

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "broadcast/text.h"

inline constexpr std::string_view kCountry = "DEU";  // of ratings and of the time zone

// Appends the descriptor that `fill` writes into 257 bytes.
template <typename Fill>
void append_descriptor(std::vector<std::uint8_t>& ret_loop, const Fill& fill) {
  std::array<std::uint8_t, 257> descriptor = {};
  fill(descriptor.data());
  ret_loop.insert(ret_loop.end(), descriptor.begin(), descriptor.begin() + 2 + descriptor[1]);
}

// The text of a table row in a character set that has its characters.
inline std::string encoded(std::string_view utf8, std::string_view character_set) {
  std::string text = text_for_broadcast(utf8, character_set);
  if (text.empty() && !utf8.empty())
    throw std::invalid_argument(std::string(character_set) + " cannot say \"" + std::string(utf8) + "\"");
  return text;
}

inline const std::uint8_t* bytes_of(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

inline std::uint8_t length_of(std::string_view text) {
  if (text.size() > 255) throw std::length_error("a text of a table is longer than 255 bytes");
  return static_cast<std::uint8_t>(text.size());
}
