// The common interface. The set has a slot and no module in it, so no module has tuned the set.
#include <cstdio>

#include "core/tv.h"

INT32 a_vextvapi_ci_get(INT32 type, void*, INT32* value, UINT32* size) {
  if (type != VEXTVAPI_CI_HOST_TUNE_STATUS && type != VEXTVAPI_CI_HOST_TUNE_BROADCAST_STATUS) {
    std::fprintf(stderr, "dtv_tv: a_vextvapi_ci_get: without a module there is no answer to query %d\n", type);
    return -1;
  }
  if (value == nullptr || size == nullptr || *size == 0) return -1;
  *value = 0;
  *size = 1;
  return 0;
}
