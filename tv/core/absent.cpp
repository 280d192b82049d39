// Media and the playback of recordings have no room, so their functions fail (defaults.h). This
// file defines the exceptions: functions that the plugin's start calls succeed, so that it logs no errors, and
// functions that report a fact report it. No event is raised, and no callback is stored.
#include "core/contract.h"

INT32 a_vextvapi_pus_init() { return 0; }

INT32 a_vextvapi_pus_reg_callback(a_vextvapi_pus_play_nfy_fct callback) { return callback ? 0 : -1; }

// No scan is running, no disk is formatted for recordings, no file has a rating.
UINT8 a_vextvapi_cb_scanDone() { return 1; }

INT32 a_vextvapi_cb_checkDevExt4Status(const T_CBROWSER*) { return 0; }

INT32 a_vextvapi_cb_pb_hasRating(UINT32, INT32*) { return 0; }
