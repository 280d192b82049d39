// Channels: what a request names, what a response shows, and channel list events.
#ifndef VEX_TV_CTRL_CHANNEL_H
#define VEX_TV_CTRL_CHANNEL_H

#include "tvapi/channel.h"
#include "vex_tv_ctrl/generic.h"

// What a request says of channels, and the counts and indexes that answer it.
struct T_CHANNEL_PARAM {
  INT32 ch_num;  // channels counted
  UINT16 svl_id;
  INT32 index;  // of a channel in its list, from 0
  INT32 index_from;
  INT32 index_to;
  INT32 fav_index;  // which favourite list
  UINT32 ch_id;
  UINT32 ch_id_from;
  UINT32 ch_id_to;
  UINT32 ch_edit_number;
  INT32 is_edit_ch_number;  // 1: a number was given
  char ch_edit_name[65];    // new name, or the name to search for
  INT32 is_edit_ch_name;    // 1: a name was given
  UINT32 ch_freq;
  UINT32 category_mask;
  UINT32 nw_mask;   // network bits that count
  UINT32 nw_value;  // what they are to be
  UINT32 satl_id;
  UINT32 satl_rec_id;
  INT32 is_nw_value_empty;  // 1: no value was given
  INT32 direction;          // 0: the current channel, positive: the next one, negative: the one before
  UINT32 major;
};
TVC_RECORD(T_CHANNEL_PARAM, ch_num, svl_id, index, index_from, index_to, fav_index, ch_id, ch_id_from, ch_id_to,
           ch_edit_number, is_edit_ch_number, ch_edit_name, is_edit_ch_name, ch_freq, category_mask, nw_mask, nw_value,
           satl_id, satl_rec_id, is_nw_value_empty, direction, major)

struct T_BASE_CHANNEL_INFO {
  UINT8 brdcst_type;  // SVL_BRDCST_TYPE_DVB and so on, or another of the platform's
  UINT8 service_type;
  UINT8 brdcst_medium;
  UINT16 svl_id;
  UINT16 svl_rec_id;
  UINT32 frequency;  // 0: not known
  UINT32 channel_id;
  UINT32 nw_mask;
  UINT32 option_mask;
  UINT32 channel_number;
  char service_name[65];
  UINT32 ch_logo_id;  // 0: no logo
  UINT8 custom_data[8];
  char private_data[20];
};
TVC_RECORD(T_BASE_CHANNEL_INFO, brdcst_type, service_type, brdcst_medium, svl_id, svl_rec_id, frequency, channel_id,
           nw_mask, option_mask, channel_number, service_name, ch_logo_id, custom_data, private_data)

struct T_ANALOG_CHANNEL_INFO {
  INT32 scan_idx;
  INT32 central_freq;
  INT32 tv_sys;
  INT32 audio_sys;
  INT32 vid_color_sys;
  INT32 no_aft;
  INT32 sch_blk_type;
  INT32 major_num;
  UINT32 sch_blk_from_time;
  UINT32 sch_blk_to_time;
};
TVC_RECORD(T_ANALOG_CHANNEL_INFO, scan_idx, central_freq, tv_sys, audio_sys, vid_color_sys, no_aft, sch_blk_type,
           major_num, sch_blk_from_time, sch_blk_to_time)

struct T_DVB_CHANNEL_INFO {
  char mod;
  char band_width;
  INT32 ci_tune_service;
  UINT16 nw_id;
  UINT16 on_id;
  UINT16 ts_id;
  UINT16 prog_id;
  UINT16 satl_rec_id;
  UINT32 category_mask;
  UINT32 barker_mask;
  UINT32 sym_rate;
  UINT32 major_num;
  UINT32 minor_num;
  char short_name[17];
  char nw_name[32];
  INT32 b_hbbtv_off;
};
TVC_RECORD(T_DVB_CHANNEL_INFO, mod, band_width, ci_tune_service, nw_id, on_id, ts_id, prog_id, satl_rec_id,
           category_mask, barker_mask, sym_rate, major_num, minor_num, short_name, nw_name, b_hbbtv_off)

struct T_ATSC_CHANNEL_INFO {
  UINT16 prog_id;
  UINT32 major_num;
  UINT32 minor_num;
  INT32 scan_idx;
  INT32 mod;
};
TVC_RECORD(T_ATSC_CHANNEL_INFO, prog_id, major_num, minor_num, scan_idx, mod)

struct T_ISDB_CHANNEL_INFO {
  UINT16 on_id;
  UINT16 ts_id;
  UINT16 prog_id;
  INT32 major_num;
  INT32 minor_num;
  INT32 rf_idx;
  INT32 channel_idx;
  INT32 sch_blk_type;
  UINT32 sch_blk_from_time;
  UINT32 sch_blk_to_time;
  char ts_name[41];
};
TVC_RECORD(T_ISDB_CHANNEL_INFO, on_id, ts_id, prog_id, major_num, minor_num, rf_idx, channel_idx, sch_blk_type,
           sch_blk_from_time, sch_blk_to_time, ts_name)

struct T_CHANNEL_INFO {
  TVC_HEADER
  T_CHANNEL_PARAM t_ch_param;
  T_BASE_CHANNEL_INFO t_base_ch_info;
  // The broadcast type of t_base_ch_info says which one counts.
  T_ANALOG_CHANNEL_INFO t_analog_ch_info;
  T_DVB_CHANNEL_INFO t_dvb_ch_info;
  T_ATSC_CHANNEL_INFO t_atsc_ch_info;
  T_ISDB_CHANNEL_INFO t_isdb_ch_info;
};
TVC_RECORD(T_CHANNEL_INFO, TVC_HEADER_MEMBERS, t_ch_param, t_base_ch_info, t_analog_ch_info, t_dvb_ch_info,
           t_atsc_ch_info, t_isdb_ch_info)

// --- Channel change ---

struct T_CHANNEL_SELECT {
  UINT16 ui2_svl_id;
  UINT16 ui2_svl_rec_id;
  UINT32 ui4_channel_id;
  UINT8 b_check_barker_channel;  // flag
};
TVC_RECORD(T_CHANNEL_SELECT, ui2_svl_id, ui2_svl_rec_id, ui4_channel_id, b_check_barker_channel)

// --- Favourites ---

struct T_FAV_CHANNEL_PARAM {
  INT32 index;
  INT32 fav_index_from;
  INT32 fav_index_to;
};
TVC_RECORD(T_FAV_CHANNEL_PARAM, index, fav_index_from, fav_index_to)

struct T_FAV_CHANNEL_INFO {
  TVC_HEADER
  UINT8 brdcst_type;
  UINT8 service_type;
  UINT16 svl_id;
  UINT16 svl_rec_id;
  INT32 nw_mask;
  INT32 channel_id;
  INT32 input_src_id;
  INT32 ca_system_id;
  char channel_num[11];
  char channel_name[65];
  char short_name[17];
  T_FAV_CHANNEL_PARAM t_fav_param;
};
TVC_RECORD(T_FAV_CHANNEL_INFO, TVC_HEADER_MEMBERS, brdcst_type, service_type, svl_id, svl_rec_id, nw_mask, channel_id,
           input_src_id, ca_system_id, channel_num, channel_name, short_name, t_fav_param)

// --- Satellites ---

struct T_SATL_PARAM {
  INT32 num;  // satellites counted
  INT32 index;
  UINT16 satl_id;
};
TVC_RECORD(T_SATL_PARAM, num, index, satl_id)

struct T_SATL_REC {
  UINT16 ui2_satl_rec_id;
  UINT32 ui4_mask;
  INT16 i2_orb_pos;  // tenths of a degree, east is positive
  char ac_sat_name[65];
  char ac_lnb_config[64];
};
TVC_RECORD(T_SATL_REC, ui2_satl_rec_id, ui4_mask, i2_orb_pos, ac_sat_name, ac_lnb_config)

struct T_SATL_INFO {
  T_SATL_PARAM t_satl_param;
  T_SATL_REC t_satl_rec;
};
TVC_RECORD(T_SATL_INFO, t_satl_param, t_satl_rec)

// --- What a broadcaster sends about its lists ---

struct T_DVBS_TKGS_ONE_CATEGORY {
  UINT16 ui2_category_no;
  char ac_category_name[32];
};
TVC_RECORD(T_DVBS_TKGS_ONE_CATEGORY, ui2_category_no, ac_category_name)

struct T_DVBS_TKGS_CATEGORY_LIST {
  UINT16 ui2_category_num;
  T_DVBS_TKGS_ONE_CATEGORY at_category_arr[20];
};
TVC_RECORD(T_DVBS_TKGS_CATEGORY_LIST, ui2_category_num, at_category_arr)

struct T_LOL_INFO {
  UINT16 ui2_lol_id;
  UINT16 ui2_lol_rec_id;
  UINT32 ui4_lol_data_tag;  // what the record holds: LOL_DATA_TAG_TKGS_CATEGORIES or another of the platform's
  UINT16 ui2_lol_idx;
  union {
    T_DVBS_TKGS_CATEGORY_LIST t_category_list;
  };
};
TVC_UNION(T_LOL_INFO, ui2_lol_id, ui2_lol_rec_id, ui4_lol_data_tag, ui2_lol_idx, t_category_list)

// --- Events ---

struct T_CHANNEL_LIST_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;  // handle of the service list
  UINT32 conditions;
  UINT32 reason;
  UINT32 data;
};
TVC_RECORD(T_CHANNEL_LIST_NOTIFY, type, tag, h_svl, conditions, reason, data)

#endif
