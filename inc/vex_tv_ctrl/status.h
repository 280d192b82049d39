// Status codes of handlers and requests.
#ifndef VEX_TV_CTRL_STATUS_H
#define VEX_TV_CTRL_STATUS_H

#include "tvapi/types.h"

enum VEX_RET_VALUE : INT32 {
#define TVC_STATUS(name, number, meaning) name = number,
#include "vex_tv_ctrl/status.def"
#undef TVC_STATUS
};

#endif
