/* Tuning: the channel that a picture shows. */
#ifndef TVAPI_BROADCAST_TYPES_H
#define TVAPI_BROADCAST_TYPES_H

#include "tvapi/types.h"

/* callback_type: a change of channel has ended, well or not. */
enum { VEXTVAPI_BROADCAST_CHANNEL_CHANGED = 4 };

/* Results of a change of channel. They are reported again when they change while the channel is shown. */
enum {
  VEXTVAPI_BROADCAST_RESULT_PICTURE = 0,
  VEXTVAPI_BROADCAST_RESULT_NO_SIGNAL = 1,
  VEXTVAPI_BROADCAST_RESULT_SCRAMBLED = 2,
  VEXTVAPI_BROADCAST_RESULT_BLOCKED_CHANNEL = 3, /* until the PIN is given */
  VEXTVAPI_BROADCAST_RESULT_BLOCKED_EVENT = 4,   /* by its age rating, until the PIN is given */
  VEXTVAPI_BROADCAST_RESULT_AUDIO_ONLY = 5,
  VEXTVAPI_BROADCAST_RESULT_NO_TUNER = 6, /* recordings use all tuners */
  VEXTVAPI_BROADCAST_RESULT_NOT_FOUND = 7 /* no such channel */
};

#endif

#include "tvapi/begin.h"

/* Called by the platform, on a thread of its own, after an event. A change of channel: pv_arg1 is the service list,
 * pv_arg2 the result, pv_arg3 the channel's identifier. */
TVAPI_CALLBACK(INT32, a_vextvapi_broadcast_nfy_fct, IN(INT32, callback_type), TAG(void*, pv_tag), IN(void*, pv_arg1),
               IN(void*, pv_arg2), IN(void*, pv_arg3), IN(void*, pv_arg4))

/* All return 0, negative on failure. */

/* Registers the callback. One subscriber; a later call replaces the earlier. */
TVAPI_FN(INT32, a_vextvapi_broadcast_register_callback, CALLBACK(a_vextvapi_broadcast_nfy_fct, callback),
         TAG(void*, tag))

/* Tunes the main picture; the result comes as an event. flags: 0. */
TVAPI_FN(INT32, a_vextvapi_broadcast_select_channel_by_chan_id, IN(UINT32, channel_id), IN(UINT32, flags))
TVAPI_FN(INT32, a_vextvapi_broadcast_select_channel, IN(UINT16, svl_id), IN(UINT16, svl_rec_id), IN(UINT32, channel_id),
         IN(UINT8, check_barker_channel))

/* Shifts an analogue channel's frequency. path: "main"; finished: 1 keeps the frequency and ends the tuning. */
TVAPI_FN(INT32, a_vextvapi_broadcast_ana_channel_fine_tune, IN_TEXT(path), IN(UINT32, frequency), IN(UINT8, finished))

#include "tvapi/end.h"
