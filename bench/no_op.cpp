// A platform that does nothing: every function of the contract answers 0 at once, unless another file defines it.
#include "tvapi/contract.h"

#define NO_OP_PARAM(p) [[maybe_unused]] TVAPI_DECLARE(p)
#define TVAPI_FN(ret, name, ...) \
  __attribute__((weak)) ret name(TVAPI_EACH(NO_OP_PARAM, __VA_ARGS__)) { return ret(); }

#include "tvapi/all.h"
