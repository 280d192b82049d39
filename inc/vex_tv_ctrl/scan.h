// Channel scan: its parameters and its progress.
#ifndef VEX_TV_CTRL_SCAN_H
#define VEX_TV_CTRL_SCAN_H

#include "vex_tv_ctrl/generic.h"

struct T_TUNER_SCAN {
  TVC_HEADER
  int skip_fake;
  int scan_type;  // the platform's: 0 PAL/SECAM, 1 DVB-T, 2 DVB-C, 3 NTSC, 4, 6 and 10 ATSC, 5 and 11 ISDB
  int scan_mode;
  int scan_default_setting;
  struct {
    UINT32 first_scan_index, last_scan_index, mod_mask, freq_plan;
  } atsc_scan_data;
  struct {
    UINT32 first_scan_index, last_scan_index, config_flag;
  } isdb_scan_data;
  struct {
    UINT32 first_scan_index, last_scan_index;
  } ntsc_scan_data;
  struct {
    UINT32 first_scan_index, last_scan_index, scan_index, freq, bandwidth;
    char channel_name[21];
  } dvbt_scan_data;
  struct {
    INT32 network_id, start_freq, end_freq, config_flag;
  } dvbc_scan_data;
  struct {
    UINT32 start_freq, end_freq;
  } pal_scan_data;
};
TVC_RECORD(decltype(T_TUNER_SCAN::atsc_scan_data), first_scan_index, last_scan_index, mod_mask, freq_plan)
TVC_RECORD(decltype(T_TUNER_SCAN::isdb_scan_data), first_scan_index, last_scan_index, config_flag)
TVC_RECORD(decltype(T_TUNER_SCAN::ntsc_scan_data), first_scan_index, last_scan_index)
TVC_RECORD(decltype(T_TUNER_SCAN::dvbt_scan_data), first_scan_index, last_scan_index, scan_index, freq, bandwidth,
           channel_name)
TVC_RECORD(decltype(T_TUNER_SCAN::dvbc_scan_data), network_id, start_freq, end_freq, config_flag)
TVC_RECORD(decltype(T_TUNER_SCAN::pal_scan_data), start_freq, end_freq)
TVC_RECORD(T_TUNER_SCAN, TVC_HEADER_MEMBERS, skip_fake, scan_type, scan_mode, scan_default_setting, atsc_scan_data,
           isdb_scan_data, ntsc_scan_data, dvbt_scan_data, dvbc_scan_data, pal_scan_data)

// Progress of a scan, as notified.
struct T_TUNER_SCAN_NOTIFY {
  INT32 msg_id;
  INT32 progress;  // per cent
  INT32 chan_num;  // channels found
  INT32 reserved;
};
TVC_RECORD(T_TUNER_SCAN_NOTIFY, msg_id, progress, chan_num, reserved)

#endif
