/* The programme guide: a broadcaster's events, and the active window, which is the time and the channels that a guide
 * on the screen shows. Times are in seconds since 1970, UTC. */
#ifndef TVAPI_GUIDE_TYPES_H
#define TVAPI_GUIDE_TYPES_H

#include "tvapi/types.h"

/* Which of a channel's two nearest events. */
enum { VEXTVAPI_EVENT_FOLLOWING = 0, VEXTVAPI_EVENT_PRESENT = 1 };

/* What the virtual television reports by a_vextvapi_event_nfy_fct, as pv_arg2. A set may have other numbers. */
enum {
  VEXTVAPI_EVENT_CONDITION_WINDOW = 1,  /* the active window was set to another one, or cleared */
  VEXTVAPI_EVENT_CONDITION_UPDATED = 2, /* events of a channel of the active window changed in the window's time, or the
                                         * present or following event of the channel that the main picture shows */
  VEXTVAPI_EVENT_CONDITION_PRESENT = 3  /* another event is the present one, of a channel of the active window or of the
                                         * channel that the main picture shows */
};

/* Why, as pv_arg3. */
enum {
  VEXTVAPI_EVENT_REASON_REQUEST = 1,   /* the application or the viewer wanted it */
  VEXTVAPI_EVENT_REASON_BROADCAST = 2, /* a broadcast said so */
  VEXTVAPI_EVENT_REASON_IMPORT = 3,    /* a guide was imported */
  VEXTVAPI_EVENT_REASON_TIME = 4       /* an event ended or began */
};

/* Results of a_vextvapi_event_check_block of the virtual television. */
enum { VEXTVAPI_EVENT_FREE = 0, VEXTVAPI_EVENT_BLOCKED_BY_AGE = 1 };

typedef struct {
  UINT16 svl_id;
  UINT16 event_id;
  UINT32 channel_id;
  UINT32 start_time;
  UINT32 duration_time; /* s */
  UINT8 caption;        /* 1: it has captions */
  UINT8 free_ca_mode;   /* 1: it is scrambled */
  INT32 event_category_num;
  INT32 event_category[8];
  char event_title[256];
  char event_rating[48];
  UINT32 event_detail_len; /* in bytes; 0: there is no such text */
  UINT32 event_detail_extend_len;
  UINT8 guidanceMode; /* in the virtual television 0, and without a text: the standard tables of DVB have no guidance */
  UINT32 guidance_len;
} VEXTVAPI_EVENT_GENERAL_INFO_T;

/* What a query by filter looks for; 0: any. A channel of another service list than ui2_svl_id has no events. */
typedef struct {
  UINT16 ui2_svl_id;
  UINT32 ui4_channel_id;
  UINT32 start_time; /* events that overlap this time */
  UINT32 end_time;
  UINT32 duration_time; /* s; with start_time and without end_time the length of the time, else that of the shortest
                         * events */
  INT32 b_caption;
  UINT8 eventCategoryNum;
  UINT8 eventCategory[8];
  UINT8 ui1_rating_type;
} VEXTVAPI_EVENT_FILTER_T;

/* How queries answer. */
typedef struct {
  INT32 e_tv_win_id;        /* main or sub picture, in the platform's numbers */
  UINT32 ui4_at_least_secs; /* shorter events are left out */
  UINT32 ui4_fake_empty_event_at_least_secs;
  /* Gaps become events without a title, of at least the above duration. Each has an identifier of its own, by which
   * a_vextvapi_event_get_general_info answers its beginning and duration. */
  UINT8 b_auto_fillin_fake_empty_event;
  UINT8 b_skip_signal_check_when_retrieving_data;
  UINT8 b_allow_conflict_event_when_query;
  UINT8 b_allow_partial_overlap_event;
} VEXTVAPI_EVENT_QUERY_PARAM_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(VEXTVAPI_EVENT_GENERAL_INFO_T, svl_id, event_id, channel_id, start_time, duration_time, caption,
             free_ca_mode, event_category_num, event_category, event_title, event_rating, event_detail_len,
             event_detail_extend_len, guidanceMode, guidance_len)
TVAPI_RECORD(VEXTVAPI_EVENT_FILTER_T, ui2_svl_id, ui4_channel_id, start_time, end_time, duration_time, b_caption,
             eventCategoryNum, eventCategory, ui1_rating_type)
TVAPI_RECORD(VEXTVAPI_EVENT_QUERY_PARAM_T, e_tv_win_id, ui4_at_least_secs, ui4_fake_empty_event_at_least_secs,
             b_auto_fillin_fake_empty_event, b_skip_signal_check_when_retrieving_data,
             b_allow_conflict_event_when_query, b_allow_partial_overlap_event)

/* All return 0, negative on failure, where they do not say otherwise. */

/* Called by the platform, on a thread of its own, after events or the active window changed. What the numbers mean is
 * the platform's. In the virtual television callback_type and pv_arg1 are 0, pv_arg2 is a
 * VEXTVAPI_EVENT_CONDITION_, pv_arg3 a VEXTVAPI_EVENT_REASON_, and pv_arg4 the channel's identifier, of the window 0.
 */
TVAPI_CALLBACK(INT32, a_vextvapi_event_nfy_fct, IN(INT32, callback_type), TAG(void*, pv_tag), IN(void*, pv_arg1),
               IN(void*, pv_arg2), IN(void*, pv_arg3), IN(void*, pv_arg4))

/* Called by the platform, on a thread of its own, after the date or time changed. In the virtual television: after the
 * clock was set, and after the time zone or daylight saving time became another one. callback_type and handle are 0. */
TVAPI_CALLBACK(INT32, a_vextvapi_time_dt_nfy_fct, IN(INT32, callback_type), TAG(void*, pv_tag), IN(UINT32, handle))

/* Register a callback. One subscriber each; a later call replaces the earlier. */
TVAPI_FN(INT32, a_vextvapi_event_register_callback, CALLBACK(a_vextvapi_event_nfy_fct, callback), TAG(void*, tag))
TVAPI_FN(INT32, a_vextvapi_time_register_dt_event_callback, CALLBACK(a_vextvapi_time_dt_nfy_fct, callback),
         TAG(void*, tag))

TVAPI_FN(INT32, a_vextvapi_event_get_general_info, IN(UINT32, channel_id), IN(UINT16, event_id),
         OUT(VEXTVAPI_EVENT_GENERAL_INFO_T, info))

/* Returns the block status of an event, in the platform's numbers. */
TVAPI_FN(UINT32, a_vextvapi_event_check_block, IN(UINT32, channel_id), IN(UINT16, event_id))

/* Texts of an event; size: room in bytes. A text need not be terminated. */
TVAPI_FN(INT32, a_vextvapi_event_get_details_info, IN(UINT16, event_id), IN(UINT32, channel_id), OUT_TEXT(text, size),
         IN(UINT32, size))
TVAPI_FN(INT32, a_vextvapi_event_get_details_extend_info, IN(UINT16, event_id), IN(UINT32, channel_id),
         OUT_TEXT(text, size), IN(UINT32, size))
TVAPI_FN(INT32, a_vextvapi_event_get_guidance_info, IN(UINT16, event_id), IN(UINT32, channel_id), OUT_TEXT(text, size),
         IN(UINT32, size))

/* which: VEXTVAPI_EVENT_PRESENT or VEXTVAPI_EVENT_FOLLOWING. */
TVAPI_FN(INT32, a_vextvapi_event_get_pf_event_id, IN(UINT32, channel_id), OUT(UINT16, event_id), IN(UINT8, which))

/* Queries. event_num: room going in, events coming out. */
TVAPI_FN(INT32, a_vextvapi_event_query_event_id_by_range, IN(UINT32, channel_id), IN(UINT32, start_time),
         IN(UINT32, duration), INOUT(UINT16, event_num), OUT_ARRAY(UINT16, event_ids, event_num))
TVAPI_FN(INT32, a_vextvapi_event_query_event_id_by_filter, IN(UINT32, channel_id),
         IN_RECORD(VEXTVAPI_EVENT_FILTER_T, filter), INOUT(UINT16, event_num), OUT_ARRAY(UINT16, event_ids, event_num),
         OUT_ARRAY(UINT32, channel_ids, event_num))
TVAPI_FN(INT32, a_vextvapi_event_set_query_parameter, IN_RECORD(VEXTVAPI_EVENT_QUERY_PARAM_T, parameter))

/* The active window. */
TVAPI_FN(INT32, a_vextvapi_event_setCurrentActiveWindow, IN_ARRAY(UINT32, channel_ids, channel_num),
         IN(UINT32, start_time), IN(UINT32, channel_num))
TVAPI_FN(INT32, a_vextvapi_event_get_active_win_channel_num, OUT(INT32, channel_num))

/* Each output may be null. */
TVAPI_FN(INT32, a_vextvapi_event_get_active_win_list, OUT_ARRAY(UINT32, channel_ids, channel_num),
         IN(UINT32, channel_num), OUT(UINT32, start_time), OUT(UINT32, end_time))
TVAPI_FN(INT32, a_vextvapi_event_clear_active_win)

#include "tvapi/end.h"
