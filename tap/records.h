// The records of the TV API, one line each: see "tap/record.h".
#pragma once

#include "tap/record.h"
#include "tvapi/all.h"

DTV_RECORD(VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T, s_cfg)
DTV_RECORD(VEXTVAPI_TIME_DTG_T, ui2_yr, ui1_mo, ui1_day, ui1_dow, ui1_hr, ui1_min, ui1_sec, b_gmt, b_dst)
DTV_RECORD(VEXTVAPI_USB_MOUNT_INFO_T, dev, path, label, port)
DTV_RECORD(VEXTVAPI_HBBTV_DATA_T, ui4_length, ui4_func_type, ui4_value, s_uri, ui4_reserved)
DTV_RECORD(CECM_SET_CEC_FCT_PARAMS_T, b_enable, ui1_hdmi_port_num)
DTV_RECORD(CECM_DEV_DISCOVERY_T, e_start_la, e_stop_la, ui4_itvl, b_batch_polling)
DTV_UNION(CECM_NFY_CODE_T, e_msgcode, e_opcode)
DTV_RECORD(CECM_NFY_T, e_sent_la, e_sent_opcode, e_nfy_type, e_brdcst_type, ui4_attr, u_code, u_data)
