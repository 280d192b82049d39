// Input sources and the devices on them.
#ifndef VEX_TV_CTRL_INPUT_H
#define VEX_TV_CTRL_INPUT_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_INPUT_SRC {
  INT32 idx;            // of the source, from 0
  char alias_name[17];  // the name that the viewer gave it
  INT32 dev_type;       // index of the label that the viewer gave it
};
TVC_RECORD(T_INPUT_SRC, idx, alias_name, dev_type)

struct T_CECM_DEV {
  char s_dev_name[15];
  char s_hdmi_port[15];
  char s_osd_name[15];
  UINT8 b_amp_connected;  // flag
  INT32 e_la;             // logical address
  UINT16 ui2_pa;          // physical address
  INT32 dev_type;
  UINT8 ui1_dev_vndr_id[3];
};
TVC_RECORD(T_CECM_DEV, s_dev_name, s_hdmi_port, s_osd_name, b_amp_connected, e_la, ui2_pa, dev_type, ui1_dev_vndr_id)

struct T_INPUT_DEV_INFO {
  INT32 e_la;  // logical address asked for
  T_CECM_DEV dev_info;
};
TVC_RECORD(T_INPUT_DEV_INFO, e_la, dev_info)

#endif
