/* Playback control library of the platform. */
#include "tvapi/begin.h"

/* Initialises the playback control library. The plugin calls it first at start-up. Returns 0; anything else makes the
 * start-up fail, and the plugin may call it again. */
TVAPI_FN(INT32, IVexPb_Ctrl_Init)

#include "tvapi/end.h"
