// The form of the host's token, which dtv-host writes and dtvctl reads.
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr std::string_view kTokenAlphabet = "0123456789abcdef";
inline constexpr std::size_t kTokenDigits = 64;

constexpr bool is_token(std::string_view text) {
  return text.size() == kTokenDigits && text.find_first_not_of(kTokenAlphabet) == std::string_view::npos;
}
