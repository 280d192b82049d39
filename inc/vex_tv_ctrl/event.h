// The programme guide: its events, the active window, and its notifications. Times are in seconds since 1970, UTC.
#ifndef VEX_TV_CTRL_EVENT_H
#define VEX_TV_CTRL_EVENT_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/generic.h"

struct T_CHANNEL_EVENT_QUERY_FILTER_T {
  UINT16 ui2_svl_id;
  UINT32 ui4_channel_id;
  UINT32 start_time;
  UINT32 end_time;
  UINT32 duration_time;
  INT32 b_caption;         // flag
  UINT8 eventCategoryNum;  // how many of the next are given
  UINT8 eventCategory[8];
  UINT8 ui1_rating_type;
};
TVC_RECORD(T_CHANNEL_EVENT_QUERY_FILTER_T, ui2_svl_id, ui4_channel_id, start_time, end_time, duration_time, b_caption,
           eventCategoryNum, eventCategory, ui1_rating_type)

struct T_CHANNEL_EVENT_QUERY_PARAM_T {
  INT32 e_tv_win_id;
  UINT32 ui4_at_least_secs;
  UINT32 ui4_fake_empty_event_at_least_secs;
  INT32 b_auto_fillin_fake_empty_event;  // flags
  INT32 b_skip_signal_check_when_retrieving_data;
  INT32 b_allow_conflict_event_when_query;
  INT32 b_allow_partial_overlap_event;
};
TVC_RECORD(T_CHANNEL_EVENT_QUERY_PARAM_T, e_tv_win_id, ui4_at_least_secs, ui4_fake_empty_event_at_least_secs,
           b_auto_fillin_fake_empty_event, b_skip_signal_check_when_retrieving_data, b_allow_conflict_event_when_query,
           b_allow_partial_overlap_event)

struct T_EVENT_GROUP {
  UINT32 channel_id;
  UINT16 event_id;
};
TVC_RECORD(T_EVENT_GROUP, channel_id, event_id)

struct T_EVENT_ITEM {
  UINT32 channel_id;
  UINT8 caption;
  UINT8 free_ca_mode;
  UINT16 svl_id;
  UINT32 start_time;
  UINT16 event_id;
  UINT32 duration_time;
  UINT32 block_status;
  INT32 event_category_num;  // 0 to 8
  INT32 event_category[8];
  char event_title[256];
  char event_rating[48];
  T_EVENT_GROUP event_group[32];
  // The three texts come from malloc() or are null. Those of the first item are freed when the request ends.
  char* event_detail;
  UINT16 event_detail_extend_len;
  char* event_detail_extend;
  UINT8 guidanceMode;
  char* guidanceText;
};
TVC_RECORD(T_EVENT_ITEM, channel_id, caption, free_ca_mode, svl_id, start_time, event_id, duration_time, block_status,
           event_category_num, event_category, event_title, event_rating, event_group, event_detail,
           event_detail_extend_len, event_detail_extend, guidanceMode, guidanceText)

struct T_CHANNEL_EVENTS {
  UINT32 channel_id;
  INT32 filter_type;  // not 0: the response is the lists of identifiers
  T_CHANNEL_EVENT_QUERY_FILTER_T filter_info;
  T_CHANNEL_EVENT_QUERY_PARAM_T query_param;
  UINT16 event_num;  // of the identifiers, or of the items
  UINT16 event_id_list[1024];
  UINT32 channel_id_list[1024];
  T_EVENT_ITEM event_info[64];
};
TVC_RECORD(T_CHANNEL_EVENTS, channel_id, filter_type, filter_info, query_param, event_num, event_id_list,
           channel_id_list, event_info)

struct T_ACTIVE_WINDOW_INFO {
  TVC_HEADER
  UINT32 start_time;
  UINT32 duration_time;
  UINT32 end_time;
  UINT32 target_channel_id;
  UINT32 channel_num;
  UINT32 channel_id[7];
};
TVC_RECORD(T_ACTIVE_WINDOW_INFO, TVC_HEADER_MEMBERS, start_time, duration_time, end_time, target_channel_id,
           channel_num, channel_id)

struct T_ACTIVE_WINDOW_INFO_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;  // handle of the service list
  UINT32 conditions;
  UINT32 reason;
  UINT32 data;
};
TVC_RECORD(T_ACTIVE_WINDOW_INFO_NOTIFY, type, tag, h_svl, conditions, reason, data)

struct T_ACTIVE_WINDOW_TIME_NOTIFY {
  INT32 type;
  INT32 tag;
  UINT32 h_svl;
};
TVC_RECORD(T_ACTIVE_WINDOW_TIME_NOTIFY, type, tag, h_svl)

#endif
