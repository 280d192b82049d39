// Requests to HbbTV and to the internet portal.
#ifndef VEX_TV_CTRL_APPS_H
#define VEX_TV_CTRL_APPS_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_HBBTV {
  INT32 is_enable;
  INT32 func_type;  // the requested function; VEXTVAPI_HBBTV_FUNC_... or another number of the platform
  INT32 app_type;
  char uri[256];
};
TVC_RECORD(T_HBBTV, is_enable, func_type, app_type, uri)

enum PORTAL_MODE : UINT8 {
#define TVC_PORTAL_MODE(name, number) PORTAL_MODE_##name = number,
#include "vex_tv_ctrl/apps.def"
};

struct T_PORTAL {
  char app_mode[32];
  char edfu_url[256];
  char exit_reason[32];
};
TVC_RECORD(T_PORTAL, app_mode, edfu_url, exit_reason)

#endif
