#include "budget_heap.h"

#include <errno.h>
#include <malloc.h>

static HeapCount counted;

HeapCount heap_count() { return counted; }

static void* count(void* memory, std::size_t size) {
  if (!memory) return nullptr;
  ++counted.allocations;
  counted.bytes += size;
  counted.in_use += malloc_usable_size(memory);
  return memory;
}

// The C library's functions, under the names that it has for programs that replace them.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t number, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) noexcept { return count(__libc_malloc(size), size); }

void* calloc(std::size_t number, std::size_t size) noexcept {
  return count(__libc_calloc(number, size), number * size);
}

void* realloc(void* memory, std::size_t size) noexcept {
  const std::size_t before = memory ? malloc_usable_size(memory) : 0;
  void* const moved = __libc_realloc(memory, size);
  if (moved || size == 0) counted.in_use -= before;
  return count(moved, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return count(__libc_memalign(alignment, size), size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept { return memalign(alignment, size); }

int posix_memalign(void** ret_memory, std::size_t alignment, std::size_t size) noexcept {
  void* const memory = memalign(alignment, size);
  if (!memory) return ENOMEM;
  *ret_memory = memory;
  return 0;
}

void free(void* memory) noexcept {
  if (memory) counted.in_use -= malloc_usable_size(memory);
  __libc_free(memory);
}
}
