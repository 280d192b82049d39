// Converts texts and doubles to integers. On every machine the results are those of the 32-bit ARM set: truncated and
// saturated, 0 for NaN.
#pragma once

#include <concepts>
#include <limits>

#include "tvapi/types.h"

template <std::integral T>
constexpr T tvc_double_to(double value) {
  // 2^n is exact as a double; the largest value of a 64-bit type is not.
  constexpr double kBelow = static_cast<double>(std::numeric_limits<T>::min());
  constexpr double kAbove = 2.0 * static_cast<double>(std::numeric_limits<T>::max() / 2 + 1);
  if (!(value == value)) return 0;
  if (value >= kAbove) return std::numeric_limits<T>::max();
  if (value <= kBelow) return std::numeric_limits<T>::min();
  return static_cast<T>(value);
}

// Convert a text, with leading blanks and a sign allowed, up to the first character that does not belong to the number.
// A text without digits gives 0. Results are saturated.
INT32 tvc_text_to_int32(const char* text);    // decimal
UINT32 tvc_text_to_uint32(const char* text);  // "0x" hexadecimal, leading "0" octal, else decimal; "-1" is 4294967295
INT64 tvc_text_to_int64(const char* text);    // base as above
UINT64 tvc_text_to_uint64(const char* text);  // base as above
