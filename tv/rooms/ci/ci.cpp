// The common interface: a slot without a module. So no module has tuned the set.
#include "core/contract.h"
#include "core/reply.h"
#include "core/room.h"

INT32 a_vextvapi_ci_get(INT32 type, void*, INT32* value, UINT32* size) {
  if (type != VEXTVAPI_CI_HOST_TUNE_STATUS && type != VEXTVAPI_CI_HOST_TUNE_BROADCAST_STATUS) {
    return refuse_call(__func__, "without a module there is no answer to query " + std::to_string(type));
  }
  if (value == nullptr || size == nullptr || *size == 0) return -1;
  *value = 0;
  *size = 1;
  return 0;
}

const Room room_ci = {};
