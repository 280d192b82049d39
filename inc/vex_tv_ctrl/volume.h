// Volume changes.
#ifndef VEX_TV_CTRL_VOLUME_H
#define VEX_TV_CTRL_VOLUME_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_VOL_CTRL_NOTIFY {
  INT32 vol_value;    // the platform's scale
  INT32 mute_status;  // 0: not muted
};
TVC_RECORD(T_VOL_CTRL_NOTIFY, vol_value, mute_status)

#endif
