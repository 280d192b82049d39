// USB mount points, and the events of mounting and unmounting.
#ifndef VEX_TV_CTRL_USB_H
#define VEX_TV_CTRL_USB_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_MOUNT_POINT_INFO {
  char dev[64];
  char path[256];
  char label[64];
  UINT32 port;
};
TVC_RECORD(T_MOUNT_POINT_INFO, dev, path, label, port)

struct T_MOUNT_POINT_LIST {
  INT32 count;  // number of valid entries
  T_MOUNT_POINT_INFO entries[32];
};
TVC_RECORD(T_MOUNT_POINT_LIST, count, entries)

struct T_USB_DETECT_NOTIFY {
  INT32 type;
  INT32 tag;
  T_MOUNT_POINT_INFO mount_point;
};
TVC_RECORD(T_USB_DETECT_NOTIFY, type, tag, mount_point)

#endif
