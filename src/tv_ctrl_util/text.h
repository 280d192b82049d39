// Bounded text copies, and comparison without regard to case.
#pragma once

#include <string.h>

#include <cstddef>

// Copies a NUL-terminated text into an array of `size` bytes, cut to size - 1 characters and always terminated.
inline void tvc_copy_text(char* ret_array, std::size_t size, const char* text) {
  const std::size_t length = strnlen(text, size - 1);
  memcpy(ret_array, text, length);
  ret_array[length] = '\0';
}
// Terminates a text that fills its array, as one may that a caller or the platform wrote.
template <std::size_t Size>
void tvc_end_text(char (&array)[Size]) {
  array[Size - 1] = '\0';
}
// Returns the upper case of the letters a to z, whatever the host's locale is; any other character unchanged.
inline char tvc_upper(char character) {
  return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}
// Returns whether two texts are equal except for the case of their letters.
inline bool tvc_same_letters(const char* one, const char* other) {
  while (*one && tvc_upper(*one) == tvc_upper(*other)) ++one, ++other;
  return tvc_upper(*one) == tvc_upper(*other);
}
template <std::size_t Size>
void tvc_copy_text(char (&ret_array)[Size], const char* text) {
  tvc_copy_text(ret_array, Size, text);
}
