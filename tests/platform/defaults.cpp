// A weak definition of every function of the TV API, which returns 0 and does nothing: a test or benchmark defines only
// the functions that it is about.
#include "tvapi/contract.h"

#define UNUSED_PARAM(p) [[maybe_unused]] TVAPI_DECLARE(p)
#define TVAPI_FN(ret, name, ...) \
  __attribute__((weak)) ret name(TVAPI_EACH(UNUSED_PARAM, __VA_ARGS__)) { return ret(); }

#include "tvapi/all.h"
