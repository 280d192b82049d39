/* Network events. */
#ifndef TVAPI_NETWORK_TYPES_H
#define TVAPI_NETWORK_TYPES_H

#include "tvapi/types.h"

/* Events. The platform has more than these. */
enum {
  VEXVAPI_NW_NFY_ID_ETHERNET_UNPLUG = 2,
  VEXVAPI_NW_NFY_ID_ADDRESS_CHANGED = 3,
  VEXVAPI_NW_NFY_ID_WLAN_DEINIT_IND = 15
};

#endif

#include "tvapi/begin.h"

/* Called by the platform, on a thread of its own, after an event. id: the event. pv_param: its parameter; on the
 * virtual television, the index of the network interface. */
TVAPI_CALLBACK(void, a_vextvapi_nw_nfy_fct, TAG(void*, pv_tag), IN(INT32, id), IN(void*, pv_param))

/* Subscribes to every event. nfy_id: receives the subscription's number, which is not 0. Returns 0; anything else on
 * failure. */
TVAPI_FN(INT32, a_vextvapi_nw_register, CALLBACK(a_vextvapi_nw_nfy_fct, callback), TAG(void*, tag), OUT(UINT32, nfy_id))

#include "tvapi/end.h"
