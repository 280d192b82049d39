/* Playback control library of the platform. */
#include "tvapi/begin.h"

/* Makes the playback control library ready. Called once at start-up, before everything else.
 * Returns 0; anything else aborts the plugin's start-up, which may be tried again. */
TVAPI_FN(INT32, IVexPb_Ctrl_Init)

#include "tvapi/end.h"
