#include "tv_ctrl_util/number.h"

#include <stdlib.h>

#include <algorithm>

static constexpr int kBaseFromText = 0;

INT32 tvc_text_to_int32(const char* text) {
  return static_cast<INT32>(std::clamp<long long>(strtoll(text, nullptr, 10), INT32_MIN, INT32_MAX));
}

UINT32 tvc_text_to_uint32(const char* text) {
  // strtoull negates modulo 2^64. With the set's 32 bits, the magnitude is saturated before it is negated.
  const bool negative = strtoll(text, nullptr, kBaseFromText) < 0;
  const unsigned long long value = strtoull(text, nullptr, kBaseFromText);
  const unsigned long long magnitude = negative ? 0 - value : value;
  if (magnitude > UINT32_MAX) return UINT32_MAX;
  return static_cast<UINT32>(negative ? 0 - magnitude : magnitude);
}

INT64 tvc_text_to_int64(const char* text) { return strtoll(text, nullptr, kBaseFromText); }

UINT64 tvc_text_to_uint64(const char* text) { return strtoull(text, nullptr, kBaseFromText); }
