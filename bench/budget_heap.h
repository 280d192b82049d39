// Counts what the process takes from the heap: budget_heap.cpp replaces the C library's functions.
#pragma once

#include <cstddef>

struct HeapCount {
  std::size_t allocations;  // calls that gave memory, reallocations included
  std::size_t bytes;        // as requested
  std::size_t in_use;       // as the allocator rounds them, what was freed taken off
};

// Since the process began. Not guarded: the caller makes sure that no other thread allocates.
HeapCount heap_count();
