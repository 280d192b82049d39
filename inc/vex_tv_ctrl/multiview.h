// Two pictures at once.
#ifndef VEX_TV_CTRL_MULTIVIEW_H
#define VEX_TV_CTRL_MULTIVIEW_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

// In pixels of the screen.
struct T_REGION {
  UINT32 x;
  UINT32 y;
  UINT32 width;
  UINT32 height;
};
TVC_RECORD(T_REGION, x, y, width, height)

struct T_MULTIVIEW_PARAM {
  INT32 value;
  T_REGION region;
};
TVC_RECORD(T_MULTIVIEW_PARAM, value, region)

#endif
