// Event group: the programme guide's events, its queries, the active window, and updates of the guide.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "tv_ctrl_util/log.h"
#include "tvapi/config.h"
#include "tvapi/guide.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

static constexpr uintptr_t kCallbackTag = 0xF423F;
static constexpr UINT16 kMostIdentifiers = std::size(T_CHANNEL_EVENTS{}.event_id_list);
static constexpr UINT16 kMostItems = std::size(T_CHANNEL_EVENTS{}.event_info);

// --- One event ---

// Reads what the platform says of an event. False, after a message, when the call fails.
static bool read_general(const char* operation, UINT32 channel_id, UINT16 event_id,
                         VEXTVAPI_EVENT_GENERAL_INFO_T& ret_info) {
  ret_info = {};
  return !tvc_failed(a_vextvapi_event_get_general_info(channel_id, event_id, &ret_info), operation);
}

static void fill_item(const VEXTVAPI_EVENT_GENERAL_INFO_T& info, T_EVENT_ITEM& item) {
  item.svl_id = info.svl_id;
  item.event_id = info.event_id;
  item.channel_id = info.channel_id;
  item.start_time = info.start_time;
  item.duration_time = info.duration_time;
  item.caption = info.caption;
  item.free_ca_mode = info.free_ca_mode;
  constexpr INT32 kMost = std::size(T_EVENT_ITEM{}.event_category);
  item.event_category_num = std::clamp(info.event_category_num, 0, kMost);
  std::copy_n(info.event_category, item.event_category_num, item.event_category);
  tvc_copy_text(item.event_title, info.event_title);
  tvc_copy_text(item.event_rating, info.event_rating);
  item.event_detail_extend_len = static_cast<UINT16>(std::min(info.event_detail_extend_len, 0xFFFFU));
}

// How the platform delivers a text of an event.
using ReadText = INT32 (*)(UINT16 event_id, UINT32 channel_id, char* text, UINT32 size);

// Reads a text into memory of its own, which the caller frees with free(). Null without memory, or when the call fails.
// The platform gets `length` bytes at most; one byte more ends the text.
static char* read_text(const char* operation, ReadText read, UINT16 event_id, UINT32 channel_id, UINT32 length) {
  char* const text = static_cast<char*>(calloc(1, length + 1));
  if (!text) return nullptr;
  if (!tvc_failed(read(event_id, channel_id, text, length), operation)) {
    text[length] = '\0';
    return text;
  }
  free(text);
  return nullptr;
}

static constexpr UINT32 kLongestDetail = 4095;
static constexpr UINT32 kLongestGuidance = 1023;

// Fills the first item. The texts belong to the record, also when the function fails.
static INT32 get_whole_event(const RecordRequest& request, UINT16 event_id) {
  T_CHANNEL_EVENTS& events = tvc_content<T_CHANNEL_EVENTS>(request);
  T_EVENT_ITEM& item = events.event_info[0];
  const UINT32 channel_id = events.channel_id;
  VEXTVAPI_EVENT_GENERAL_INFO_T info;
  if (!read_general(request.operation, channel_id, event_id, info)) return VEXTVCTRLR_FAIL;
  item.block_status = a_vextvapi_event_check_block(channel_id, event_id);
  fill_item(info, item);
  if (info.event_detail_len != 0) {
    item.event_detail = read_text(request.operation, a_vextvapi_event_get_details_info, event_id, channel_id,
                                  std::min(info.event_detail_len, kLongestDetail));
    if (!item.event_detail) return VEXTVCTRLR_FAIL;
  }
  item.guidanceMode = info.guidanceMode;
  if (info.guidance_len != 0) {
    item.guidanceText = read_text(request.operation, a_vextvapi_event_get_guidance_info, event_id, channel_id,
                                  std::min(info.guidance_len, kLongestGuidance));
    if (!item.guidanceText) return VEXTVCTRLR_FAIL;
  }
  events.event_num = 1;
  return VEXTVCTRLR_OK;
}

static INT32 get_event(const RecordRequest& request) {
  return get_whole_event(request, tvc_content<T_CHANNEL_EVENTS>(request).event_info[0].event_id);
}

static INT32 get_extended(const RecordRequest& request) {
  T_CHANNEL_EVENTS& events = tvc_content<T_CHANNEL_EVENTS>(request);
  T_EVENT_ITEM& item = events.event_info[0];
  VEXTVAPI_EVENT_GENERAL_INFO_T info;
  if (!read_general(request.operation, events.channel_id, item.event_id, info)) return VEXTVCTRLR_FAIL;
  if (info.event_detail_extend_len == 0) return VEXTVCTRLR_FAIL;
  item.event_detail_extend = read_text(request.operation, a_vextvapi_event_get_details_extend_info, item.event_id,
                                       events.channel_id, std::min(info.event_detail_extend_len, kLongestDetail));
  if (!item.event_detail_extend) return VEXTVCTRLR_FAIL;
  events.event_num = 1;
  return VEXTVCTRLR_OK;
}

static INT32 get_near_event(const RecordRequest& request, UINT8 which) {
  UINT16 event_id = 0;
  const INT32 ret =
      a_vextvapi_event_get_pf_event_id(tvc_content<T_CHANNEL_EVENTS>(request).channel_id, &event_id, which);
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : get_whole_event(request, event_id);
}

static INT32 get_present_event(const RecordRequest& request) { return get_near_event(request, VEXTVAPI_EVENT_PRESENT); }

static INT32 get_following_event(const RecordRequest& request) {
  return get_near_event(request, VEXTVAPI_EVENT_FOLLOWING);
}

// --- Queries ---

static INT32 get_events_of_range(const RecordRequest& request) {
  T_CHANNEL_EVENTS& events = tvc_content<T_CHANNEL_EVENTS>(request);
  events.event_num = kMostIdentifiers;
  std::ranges::fill(events.event_id_list, 0);
  const INT32 ret = a_vextvapi_event_query_event_id_by_range(events.channel_id, events.filter_info.start_time,
                                                             events.filter_info.duration_time, &events.event_num,
                                                             events.event_id_list);
  if (tvc_failed(ret, request.operation)) events.event_num = 0;  // which was the room until now
  if (events.event_num == 0) return VEXTVCTRLR_FAIL;
  events.event_num = std::min(events.event_num, kMostItems);
  for (UINT16 i = 0; i < events.event_num; ++i) {
    VEXTVAPI_EVENT_GENERAL_INFO_T info;
    if (!read_general(request.operation, events.channel_id, events.event_id_list[i], info)) {
      events.event_num = i;  // the response shows those that were read
      return VEXTVCTRLR_FAIL;
    }
    events.event_info[i].block_status = 0;
    fill_item(info, events.event_info[i]);
  }
  return VEXTVCTRLR_OK;
}

static VEXTVAPI_EVENT_FILTER_T filter_of(const T_CHANNEL_EVENT_QUERY_FILTER_T& wanted) {
  constexpr std::size_t kMost = std::size(VEXTVAPI_EVENT_FILTER_T{}.eventCategory);
  VEXTVAPI_EVENT_FILTER_T filter = {.ui2_svl_id = wanted.ui2_svl_id,
                                    .ui4_channel_id = wanted.ui4_channel_id,
                                    .start_time = wanted.start_time,
                                    .end_time = wanted.end_time,
                                    .duration_time = wanted.duration_time,
                                    .b_caption = wanted.b_caption,
                                    .eventCategoryNum = std::min<UINT8>(wanted.eventCategoryNum, kMost),
                                    .eventCategory = {},
                                    .ui1_rating_type = wanted.ui1_rating_type};
  std::copy_n(wanted.eventCategory, filter.eventCategoryNum, filter.eventCategory);
  return filter;
}

static INT32 get_events_of_filter(const RecordRequest& request) {
  T_CHANNEL_EVENTS& events = tvc_content<T_CHANNEL_EVENTS>(request);
  const VEXTVAPI_EVENT_FILTER_T filter = filter_of(events.filter_info);
  events.event_num = kMostIdentifiers;
  std::ranges::fill(events.event_id_list, 0);
  const INT32 ret = a_vextvapi_event_query_event_id_by_filter(events.channel_id, &filter, &events.event_num,
                                                              events.event_id_list, events.channel_id_list);
  if (tvc_failed(ret, request.operation)) {
    events.event_num = 0;
    return VEXTVCTRLR_FAIL;
  }
  events.event_num = std::min(events.event_num, kMostIdentifiers);
  return VEXTVCTRLR_OK;
}

static INT32 set_query_parameter(const RecordRequest& request) {
  const T_CHANNEL_EVENT_QUERY_PARAM_T& wanted = tvc_content<T_CHANNEL_EVENTS>(request).query_param;
  const auto byte = [](INT32 flag) { return static_cast<UINT8>(flag); };
  const VEXTVAPI_EVENT_QUERY_PARAM_T parameter = {
      .e_tv_win_id = wanted.e_tv_win_id,
      .ui4_at_least_secs = wanted.ui4_at_least_secs,
      .ui4_fake_empty_event_at_least_secs = wanted.ui4_fake_empty_event_at_least_secs,
      .b_auto_fillin_fake_empty_event = byte(wanted.b_auto_fillin_fake_empty_event),
      .b_skip_signal_check_when_retrieving_data = byte(wanted.b_skip_signal_check_when_retrieving_data),
      .b_allow_conflict_event_when_query = byte(wanted.b_allow_conflict_event_when_query),
      .b_allow_partial_overlap_event = byte(wanted.b_allow_partial_overlap_event)};
  const INT32 ret = a_vextvapi_event_set_query_parameter(&parameter);
  tvc_failed(ret, request.operation);
  return ret == 0 ? VEXTVCTRLR_OK : VEXTVCTRLR_FAIL;
}

// --- The active window ---

static constexpr INT32 kMostChannels = std::size(T_ACTIVE_WINDOW_INFO{}.channel_id);

static INT32 set_active_window(const RecordRequest& request) {
  const T_ACTIVE_WINDOW_INFO& window = tvc_content<T_ACTIVE_WINDOW_INFO>(request);
  return a_vextvapi_event_setCurrentActiveWindow(window.channel_id, window.start_time,
                                                 std::min<UINT32>(window.channel_num, kMostChannels));
}

static INT32 get_start_time(const RecordRequest& request) {
  UINT32 start_time = 0;
  const INT32 ret = a_vextvapi_event_get_active_win_list(nullptr, 0, &start_time, nullptr);
  tvc_content<T_ACTIVE_WINDOW_INFO>(request).start_time = tvc_failed(ret, request.operation) ? 0 : start_time;
  return VEXTVCTRLR_OK;
}

static INT32 get_end_time(const RecordRequest& request) {
  UINT32 end_time = 0;
  const INT32 ret = a_vextvapi_event_get_active_win_list(nullptr, 0, nullptr, &end_time);
  tvc_content<T_ACTIVE_WINDOW_INFO>(request).end_time = tvc_failed(ret, request.operation) ? 0 : end_time;
  return VEXTVCTRLR_OK;
}

static INT32 get_window_channels(const RecordRequest& request) {
  T_ACTIVE_WINDOW_INFO& window = tvc_content<T_ACTIVE_WINDOW_INFO>(request);
  INT32 number = 0;
  INT32 ret = a_vextvapi_event_get_active_win_channel_num(&number);
  if (tvc_failed(ret, request.operation)) return ret;
  window.channel_num = static_cast<UINT32>(std::clamp(number, 0, kMostChannels));
  if (window.channel_num == 0) return VEXTVCTRLR_OK;
  ret = a_vextvapi_event_get_active_win_list(window.channel_id, window.channel_num, nullptr, nullptr);
  tvc_failed(ret, request.operation);
  return ret;
}

static INT32 clear_active_window(const RecordRequest&) { return a_vextvapi_event_clear_active_win(); }

// --- Updates of the guide ---

static INT32 get_update(const RecordRequest& request) {
  UINT32 length = sizeof(PpgUpdateGuide_T);
  return getConfigValueStruct(VEXTVAPI_CONFIG_ITEM_GUIDE_UPDATE, &length, &tvc_content<PpgUpdateGuide_T>(request));
}

static INT32 set_update(const RecordRequest& request) {
  return setConfigValueStruct(VEXTVAPI_CONFIG_ITEM_GUIDE_UPDATE, sizeof(PpgUpdateGuide_T),
                              &tvc_content<PpgUpdateGuide_T>(request));
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_EVENT_INFORMATION,
     .type = TYPE_EVENT_INFO,
     .get = get_event,
     .get_operation = "_tvc_event_get_event_info",
     .get_needs = "CH_ID EVENT_ID",
     .help = "An event of a channel, by its identifier, with its texts."},
    {.record = TV_CTRL_RECID_EVENT_EXTEND_INFORMATION,
     .type = TYPE_EVENT_INFO,
     .get = get_extended,
     .get_operation = "_tvc_event_get_extend_event_info",
     .get_needs = "CH_ID EVENT_ID",
     .help = "The extended description of an event."},
    {.record = TV_CTRL_RECID_ACTIVE_WINDOW_INFORMATION,
     .type = TYPE_ACTIVE_WINDOW_INFO,
     .set = set_active_window,
     .set_needs = "START_TIME CHANNEL_NUM CHANNEL_ID",
     .help = "The beginning and the channels that a guide on the screen shows."},
    {.record = TV_CTRL_RECID_ACTIVE_WINDOW_START_TIME,
     .type = TYPE_ACTIVE_WINDOW_INFO,
     .get = get_start_time,
     .get_operation = "_tvc_event_get_active_window_start_time",
     .help = "When the active window begins; no response shows it."},
    {.record = TV_CTRL_RECID_ACTIVE_WINDOW_END_TIME,
     .type = TYPE_ACTIVE_WINDOW_INFO,
     .get = get_end_time,
     .get_operation = "_tvc_event_get_active_window_end_time",
     .help = "When the active window ends; no response shows it."},
    {.record = TV_CTRL_RECID_ACTIVE_WINDOW_CHANNEL_IDS,
     .type = TYPE_ACTIVE_WINDOW_INFO,
     .get = get_window_channels,
     .get_operation = "_tvc_event_get_active_window_channel_ids",
     .help = "The channels of the active window; no response shows them."},
    {.record = TV_CTRL_RECID_CHANNEL_WITH_EVENT_IDS,
     .type = TYPE_EVENT_INFO,
     .get = get_events_of_range,
     .get_operation = "_tvc_event_get_events_by_range",
     .get_needs = "CH_ID START_TIME DURATION",
     .help = "A channel's events in a range of time, the first 64."},
    {.record = TV_CTRL_RECID_CHANNEL_EVENT_NUM_BY_FILTER,
     .type = TYPE_EVENT_INFO,
     .get = get_events_of_filter,
     .get_operation = "_tvc_get_channel_event_num_by_filter",
     .help = "The identifiers of the events that a filter finds."},
    {.record = TV_CTRL_RECID_SET_QUERY_PARAMETER,
     .type = TYPE_EVENT_INFO,
     .set = set_query_parameter,
     .set_operation = "_tvc_event_set_query_parameter",
     .help = "How queries for events answer."},
    {.record = TV_CTRL_RECID_EVENT_CURRENT_INFORMATION,
     .type = TYPE_EVENT_INFO,
     .get = get_present_event,
     .get_operation = "_tvc_event_get_event_info",
     .get_needs = "CH_ID",
     .help = "The present event of a channel, with its texts."},
    {.record = TV_CTRL_RECID_EVENT_NEXT_INFORMATION,
     .type = TYPE_EVENT_INFO,
     .get = get_following_event,
     .get_operation = "_tvc_event_get_event_info",
     .get_needs = "CH_ID",
     .help = "The following event of a channel, with its texts."},
    {.record = TV_CTRL_RECID_CLEAR_ACTIVE_WINDOW,
     .type = TYPE_ACTIVE_WINDOW_INFO,
     .set = clear_active_window,
     .help = "Ends the active window."},
    {.record = TV_CTRL_RECID_UPDATE_EPG,
     .type = TYPE_UPDATE_EPG,
     .get = get_update,
     .set = set_update,
     .get_needs = "operation",
     .set_needs = "operation",
     .help = "The update of the guide: starts or stops it, or tells how far it is."},
};

constinit const Handler handler_EVENT = {.group = TV_CTRL_GRPID_EVENT,
                                         .records = tvc_records<kRows>(),
                                         .set_without_record = WithoutRecord::kRefused,
                                         .set_needs_record = true,
                                         .start = tv_ctrl_event_info_init,
                                         .start_turn = 4};

INT32 tv_ctrl_get_event_info(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_get(handler_EVENT, ui2_id, pv_content);
}

INT32 tv_ctrl_set_event_info(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_set(handler_EVENT, ui2_id, pv_content);
}

// --- Events of the platform, on its threads ---

static INT32 _tvc_event_nfy_fct(INT32 callback_type, void* pv_tag, void* pv_arg1, void* pv_arg2, void* pv_arg3,
                                void* pv_arg4) {
  T_ACTIVE_WINDOW_INFO_NOTIFY notify = {.type = callback_type,
                                        .tag = tvc_number_of(pv_tag),
                                        .h_svl = tvc_unsigned_of(pv_arg1),
                                        .conditions = tvc_unsigned_of(pv_arg2),
                                        .reason = tvc_unsigned_of(pv_arg3),
                                        .data = tvc_unsigned_of(pv_arg4)};
  tvc_notify(TV_CTRL_RECID_WS_NFY_ACTIVE_WINDOW_INFO, &notify);
  return 0;
}

static INT32 _tvc_event_time_nfy_fct(INT32 callback_type, void* pv_tag, UINT32 handle) {
  T_ACTIVE_WINDOW_TIME_NOTIFY notify = {.type = callback_type, .tag = tvc_number_of(pv_tag), .h_svl = handle};
  tvc_notify(TV_CTRL_RECID_WS_NFY_ACTIVE_WINDOW_TIME, &notify);
  return 0;
}

INT32 tv_ctrl_event_info_init(void) {
  void* const tag = reinterpret_cast<void*>(kCallbackTag);
  const bool no_events = tvc_failed(a_vextvapi_event_register_callback(_tvc_event_nfy_fct, tag));
  const bool no_times = tvc_failed(a_vextvapi_time_register_dt_event_callback(_tvc_event_time_nfy_fct, tag));
  return no_events || no_times ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}
