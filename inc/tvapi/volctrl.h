/* Master volume and mute. The platform chooses the scale of the volume, and the meaning of mute values other than 0 and
 * 1. */
#include "tvapi/begin.h"

/* Called by the platform, on a thread of its own, after the volume or the mute state changed for any reason. pv_arg1:
 * volume level; pv_arg2: mute state (0: not muted); both are 32-bit integers in a pointer-sized word. The other
 * arguments are reserved. Returns 0. */
TVAPI_CALLBACK(INT32, a_vextvapi_volctrl_nfy_fct, IN(INT32, callback_type), TAG(void*, pv_tag), IN(void*, pv_arg1),
               IN(void*, pv_arg2), IN(void*, pv_arg3), IN(void*, pv_arg4))

/* Returns the volume level. */
TVAPI_FN(INT32, a_vextvapi_volctrl_getVolume)

/* Returns the mute state: 0 not muted, 1 muted. */
TVAPI_FN(INT32, a_vextvapi_volctrl_getMute)

/* Sets the volume level. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_volctrl_setVolume, IN(INT16, volume))

/* Raises the volume by one step. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_volctrl_incrVolume)

/* Lowers the volume by one step. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_volctrl_decrVolume)

/* Mutes (1) or unmutes (0). Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_volctrl_setMute, IN(UINT8, mute))

/* Registers the callback for changes of the volume and the mute state. A later call replaces it. Returns 0, negative on
 * failure. */
TVAPI_FN(INT32, a_vextvapi_volctrl_reg_callback, CALLBACK(a_vextvapi_volctrl_nfy_fct, callback), TAG(void*, tag))

#include "tvapi/end.h"
