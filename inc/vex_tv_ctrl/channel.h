// Channel list events.
#ifndef VEX_TV_CTRL_CHANNEL_H
#define VEX_TV_CTRL_CHANNEL_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_CHANNEL_LIST_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;  // handle of the service list
  UINT32 conditions;
  UINT32 reason;
  UINT32 data;
};
TVC_RECORD(T_CHANNEL_LIST_NOTIFY, type, tag, h_svl, conditions, reason, data)

#endif
