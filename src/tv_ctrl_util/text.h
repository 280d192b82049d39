// Bounded text copies.
#pragma once

#include <string.h>

#include <cstddef>

// Copies a NUL-terminated text into an array, cut to the array's size minus one, always terminated.
template <std::size_t N>
void tvc_copy_text(char (&ret_array)[N], const char* text) {
  const std::size_t length = strnlen(text, N - 1);
  memcpy(ret_array, text, length);
  ret_array[length] = '\0';
}
