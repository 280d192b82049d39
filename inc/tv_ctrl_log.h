// The level of the diagnostics log.
#ifndef TV_CTRL_LOG_H
#define TV_CTRL_LOG_H

#include "dtv_js_plugin.h"
#include "tvapi/types.h"

extern "C" {

// Reads the log level from the last "log=" line of /3rd_rw/tvc_debug. Without the file the level is 0.
TVC_EXPORT void vex_tvc_read_log_lvl(void);

// Returns the log level. A message of level n is printed when the log level is n or above.
TVC_EXPORT INT32 vex_tvc_debug_level(void);
}

#endif
