// Channels, the guide, media and the playback of recordings have no room: their functions answer failure. The
// exceptions are here: what a start needs is accepted, so that it has nothing to complain about, and functions whose
// result is a fact say what is so. Nothing raises an event, and no callback is kept.
#include "core/contract.h"

INT32 a_vextvapi_channellist_register_callback(a_vextvapi_channellist_nfy_fct callback, void*) {
  return callback ? 0 : -1;
}

INT32 a_vextvapi_broadcast_register_callback(a_vextvapi_broadcast_nfy_fct callback, void*) { return callback ? 0 : -1; }

INT32 a_vextvapi_event_register_callback(a_vextvapi_event_nfy_fct callback, void*) { return callback ? 0 : -1; }

INT32 a_vextvapi_time_register_dt_event_callback(a_vextvapi_time_dt_nfy_fct callback, void*) {
  return callback ? 0 : -1;
}

INT32 a_vextvapi_pus_init() { return 0; }

INT32 a_vextvapi_pus_reg_callback(a_vextvapi_pus_play_nfy_fct callback) { return callback ? 0 : -1; }

// No scan is running, no disk is the recorder's, no file has a rating.
UINT8 a_vextvapi_cb_scanDone() { return 1; }

INT32 a_vextvapi_cb_checkDevExt4Status(const T_CBROWSER*) { return 0; }

INT32 a_vextvapi_cb_pb_hasRating(UINT32, INT32*) { return 0; }
