// The common interface: an empty slot. Without a module, no module has tuned the set.
#include "core/contract.h"
#include "core/reply.h"
#include "core/room.h"

INT32 a_vextvapi_ci_get(INT32 type, void*, INT32* value, UINT32* size) {
  if (type != VEXTVAPI_CI_HOST_TUNE_STATUS && type != VEXTVAPI_CI_HOST_TUNE_BROADCAST_STATUS) {
    return refuse_call(__func__, "without a module, query " + std::to_string(type) + " has no answer");
  }
  if (value == nullptr || size == nullptr || *size == 0) return -1;
  *value = 0;
  *size = 1;
  return 0;
}

const Room room_ci = {};
