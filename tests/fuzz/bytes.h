// Reads decisions from the front of a fuzzer's input. An input that has ended gives zeros, so that every prefix of an
// input is an input and the fuzzer may cut and extend it anywhere. The functions read from anything that has a
// take_byte; the platform's answers are another such source.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

struct Bytes {
  const std::uint8_t* next;
  std::size_t left;
};

inline std::uint8_t take_byte(Bytes& bytes) {
  if (bytes.left == 0) return 0;
  --bytes.left;
  return *bytes.next++;
}

template <std::integral T>
T take_number(auto& bytes) {
  std::uint8_t raw[sizeof(T)];
  for (std::uint8_t& byte : raw) byte = take_byte(bytes);
  T value;
  std::memcpy(&value, raw, sizeof value);
  return value;
}

// 0 to count - 1; count is not 0.
inline std::size_t take_below(auto& bytes, std::size_t count) {
  return (count <= 256 ? take_byte(bytes) : take_number<std::uint16_t>(bytes)) % count;
}

inline bool take_chance(auto& bytes, std::size_t one_in) { return take_below(bytes, one_in) == 1; }

// Up to 255 bytes of any value.
inline std::string take_text(Bytes& bytes) {
  const std::size_t length = std::min<std::size_t>(take_byte(bytes), bytes.left);
  std::string text(reinterpret_cast<const char*>(bytes.next), length);
  bytes.next += length;
  bytes.left -= length;
  return text;
}

// An integer that is often at an edge.
template <std::integral T>
T take_integer(auto& bytes) {
  switch (take_below(bytes, 8)) {
    case 0:
      return 0;
    case 1:
      return 1;
    case 2:
      return static_cast<T>(-1);
    case 3:
      return std::numeric_limits<T>::min();
    case 4:
      return std::numeric_limits<T>::max();
    case 5:
      return static_cast<T>(take_number<std::int8_t>(bytes));
    default:
      return take_number<T>(bytes);
  }
}

// Fills an array of characters as senders do: not at all, empty, whole without a terminator, whole with one, anyhow.
// What follows the first characters of a long array repeats them.
void take_characters(auto& bytes, char* ret_text, std::size_t size) {
  if (size == 0) return;
  const std::size_t form = take_below(bytes, 6);
  if (form == 0) return;
  if (form == 1) {
    ret_text[0] = '\0';
    return;
  }
  const bool whole = form == 2 || form == 3;
  static constexpr std::size_t kDifferent = 256;
  for (std::size_t i = 0; i < size; ++i) {
    const char character = i < kDifferent ? static_cast<char>(take_byte(bytes)) : ret_text[i - kDifferent];
    ret_text[i] = whole && character == '\0' ? 'x' : character;
  }
  if (form == 3) ret_text[size - 1] = '\0';
}
