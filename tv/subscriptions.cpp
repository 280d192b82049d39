// Channels, the guide and the playback of recordings have no room: their functions answer failure. Only what a start
// needs is accepted, so that it has nothing to complain about. Nothing raises such an event, and no callback is kept.
#include "tvapi/broadcast.h"

#include "tv.h"
#include "tvapi/channel.h"
#include "tvapi/guide.h"
#include "tvapi/pus.h"

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
