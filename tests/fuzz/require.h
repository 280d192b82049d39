// A condition that must hold for every input. When it does not, the fuzzer keeps the input.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

// Called before the process ends, to print what the input did. May be null.
inline void (*require_tell)() = nullptr;

inline void require(bool holds, const char* what, std::string_view text = {}) {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n  text: %.*s\n", what, static_cast<int>(text.size()), text.data());
  if (require_tell) require_tell();
  abort();
}
