// Expands contract statements to weak definitions, so that no symbol is ever missing: a function that no room defines
// fails, and reports that once on stderr. A room's own (strong) definition replaces it at link time. Include this
// before the contract headers, in a file that includes nothing else of the contract.
#pragma once

#include <atomic>
#include <cstdio>
#include <type_traits>

#include "tvapi/contract.h"

// Returns -1 for a signed result, and zero (a null handle, a null pointer) or nothing for any other.
template <typename Result>
Result tv_not_implemented(const char* function, std::atomic_flag& reported) {
  if (!reported.test_and_set()) std::fprintf(stderr, "dtv_tv: %s is not implemented; it fails\n", function);
  if constexpr (std::is_signed_v<Result>) {
    return static_cast<Result>(-1);
  } else if constexpr (!std::is_void_v<Result>) {
    return Result{};
  }
}

#define TVAPI_FN(ret, name, ...)                                                               \
  __attribute__((weak, visibility("default"))) ret name(TVAPI_EACH(TVAPI_TYPE, __VA_ARGS__)) { \
    static std::atomic_flag reported;                                                          \
    return tv_not_implemented<ret>(#name, reported);                                           \
  }
