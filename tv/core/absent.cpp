// Media have no room, so their functions fail (defaults.h). This file defines the exceptions: functions that report a
// fact report it.
#include "core/contract.h"

// No scan is running, no disk is formatted for recordings, no file has a rating.
UINT8 a_vextvapi_cb_scanDone() { return 1; }

INT32 a_vextvapi_cb_checkDevExt4Status(const T_CBROWSER*) { return 0; }

INT32 a_vextvapi_cb_pb_hasRating(UINT32, INT32*) { return 0; }
