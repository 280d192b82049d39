// Programme guide events.
#ifndef VEX_TV_CTRL_EVENT_H
#define VEX_TV_CTRL_EVENT_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_ACTIVE_WINDOW_INFO_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;  // handle of the service list
  UINT32 conditions;
  UINT32 reason;
  UINT32 data;
};
TVC_RECORD(T_ACTIVE_WINDOW_INFO_NOTIFY, type, tag, h_svl, conditions, reason, data)

struct T_ACTIVE_WINDOW_TIME_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;
};
TVC_RECORD(T_ACTIVE_WINDOW_TIME_NOTIFY, type, tag, h_svl)

#endif
