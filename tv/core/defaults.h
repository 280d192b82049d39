// Expands contract statements to weak definitions: a function that no room defines answers failure and says so once on
// stderr, so that no symbol is ever missing. A room's own (strong) definition replaces it at link time. Include this
// before the contract headers, in a file that includes nothing else of the contract.
#pragma once

#include <atomic>
#include <cstdio>
#include <type_traits>

#include "tvapi/contract.h"

// -1 for a signed result, nothing or zero (the null handle, the null pointer) for any other.
template <typename Result>
Result tv_not_built(const char* function, std::atomic_flag& said) {
  if (!said.test_and_set()) std::fprintf(stderr, "dtv_tv: %s is not built; it answers failure\n", function);
  if constexpr (std::is_signed_v<Result>) {
    return static_cast<Result>(-1);
  } else if constexpr (!std::is_void_v<Result>) {
    return Result{};
  }
}

#define TVAPI_FN(ret, name, ...)                                                               \
  __attribute__((weak, visibility("default"))) ret name(TVAPI_EACH(TVAPI_TYPE, __VA_ARGS__)) { \
    static std::atomic_flag said;                                                              \
    return tv_not_built<ret>(#name, said);                                                     \
  }
