// Channels and the guide have no room yet: their functions answer failure. Only a subscription to their events is
// accepted, so that a start has nothing to complain about. Nothing raises such an event, and no callback is kept.
#include "tvapi/broadcast.h"

#include "tv.h"
#include "tvapi/channel.h"
#include "tvapi/guide.h"

INT32 a_vextvapi_channellist_register_callback(a_vextvapi_channellist_nfy_fct callback, void*) {
  return callback ? 0 : -1;
}

INT32 a_vextvapi_broadcast_register_callback(a_vextvapi_broadcast_nfy_fct callback, void*) { return callback ? 0 : -1; }

INT32 a_vextvapi_event_register_callback(a_vextvapi_event_nfy_fct callback, void*) { return callback ? 0 : -1; }

INT32 a_vextvapi_time_register_dt_event_callback(a_vextvapi_time_dt_nfy_fct callback, void*) {
  return callback ? 0 : -1;
}
