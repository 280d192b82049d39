// Configuration changes.
#ifndef VEX_TV_CTRL_CONFIG_H
#define VEX_TV_CTRL_CONFIG_H

#include "tvapi/types.h"

struct T_CONFIG_NOTIFY {
  INT32 id;  // the platform's notify id
  INT32 tag;
  INT32 arg1;
  char arg2[65];  // the changed key
};

#endif
