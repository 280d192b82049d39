// Channel list events.
#ifndef VEX_TV_CTRL_CHANNEL_H
#define VEX_TV_CTRL_CHANNEL_H

#include "tvapi/types.h"

struct T_CHANNEL_LIST_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;  // handle of the service list
  UINT32 conditions;
  UINT32 reason;
  UINT32 data;
};

#endif
