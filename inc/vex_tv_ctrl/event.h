// Programme guide events.
#ifndef VEX_TV_CTRL_EVENT_H
#define VEX_TV_CTRL_EVENT_H

#include "tvapi/types.h"

struct T_ACTIVE_WINDOW_INFO_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;  // handle of the service list
  UINT32 conditions;
  UINT32 reason;
  UINT32 data;
};

struct T_ACTIVE_WINDOW_TIME_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;
};

#endif
