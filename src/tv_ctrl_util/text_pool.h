// Keeps the texts of a constant table in one array. Rows hold a text's offset in place of its address, which would be a
// relocation.
#pragma once

#include <cstddef>

#include "tvapi/types.h"

using TextOffset = UINT16;  // 0: the empty text

// An array of texts, each with its terminator. The first text is empty.
template <std::size_t Size>
struct TextPool {
  static_assert(Size <= UINT16_MAX);
  char texts[Size] = {};
  std::size_t used = 1;  // bytes
};

// Returns how many bytes a text takes in the pool, with its terminator; an empty text takes none.
constexpr std::size_t tvc_pool_size(const char* text) {
  std::size_t size = 0;
  while (text[size]) ++size;
  return size ? size + 1 : 0;
}

// Returns the same for a list of texts: they stand one after the other, each with its terminator, up to an empty one,
// whose terminator counts as well.
constexpr std::size_t tvc_pool_list_size(const char* list) {
  std::size_t size = 0;
  while (list[size]) size += tvc_pool_size(list + size);
  return size ? size + 1 : 0;
}

// Adds a text or a list of texts to the pool. size: its bytes, as the functions above return them.
template <std::size_t Size>
constexpr TextOffset tvc_pool_add(TextPool<Size>& pool, const char* text, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t offset = pool.used;
  for (std::size_t i = 0; i < size; ++i) pool.texts[offset + i] = text[i];
  pool.used += size;
  return static_cast<TextOffset>(offset);
}
