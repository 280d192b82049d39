// Texts of a constant table in one array, each named by its offset: an address in its place would be one more that the
// loader patches at start-up.
#pragma once

#include <cstddef>

#include "tvapi/types.h"

using TextOffset = UINT16;  // 0: the empty text

// An array of texts, each with its end; the first is empty.
template <std::size_t Size>
struct TextPool {
  static_assert(Size <= UINT16_MAX);
  char texts[Size] = {};
  std::size_t used = 1;
};

// Bytes of a text with its end; an empty text takes none.
constexpr std::size_t tvc_pool_size(const char* text) {
  std::size_t size = 0;
  while (text[size]) ++size;
  return size ? size + 1 : 0;
}

// Bytes of texts that stand one after the other, each with its end, up to an empty one, which counts as well.
constexpr std::size_t tvc_pool_list_size(const char* list) {
  std::size_t size = 0;
  while (list[size]) size += tvc_pool_size(list + size);
  return size ? size + 1 : 0;
}

// Adds `size` bytes, as the functions above count them.
template <std::size_t Size>
constexpr TextOffset tvc_pool_add(TextPool<Size>& pool, const char* text, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t offset = pool.used;
  for (std::size_t i = 0; i < size; ++i) pool.texts[offset + i] = text[i];
  pool.used += size;
  return static_cast<TextOffset>(offset);
}
