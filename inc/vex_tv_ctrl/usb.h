// USB mount points and their coming and going.
#ifndef VEX_TV_CTRL_USB_H
#define VEX_TV_CTRL_USB_H

#include "tvapi/types.h"

struct T_MOUNT_POINT_INFO {
  char dev[64];
  char path[256];
  char label[64];
  UINT32 port;
};

struct T_MOUNT_POINT_LIST {
  INT32 count;  // of the entries that hold something
  T_MOUNT_POINT_INFO entries[32];
};

struct T_USB_DETECT_NOTIFY {
  INT32 type;
  INT32 tag;
  T_MOUNT_POINT_INFO mount_point;
};

#endif
