#include "plugin_floor.h"

#include <utility>

#include "floor_text.h"

void floor_get_plain() {
  floor_get<T_VALUE>(
      [](T_VALUE& value) {
        strcpy(value.name, "Volume");
        value.group = 4;
        value.state = value.increment = 1;
        value.value = a_vextvapi_volctrl_getVolume();
      },
      [](char* at, const T_VALUE& value) {
        put(at, R"({"URI":")");
        put_text(at, kVolume);
        put(at, R"(","STATUS":)");
        put_number(at, 0);
        put(at, R"(,"ITEMS":[{"NAME":")");
        put_text(at, value.name);
        put(at, R"(","TYPE":"TYPE_VALUE","GROUP":)");
        put_number(at, value.group);
        put(at, R"(,"STATE":)");
        put_number(at, value.state);
        put(at, R"(,"MINIMUM":)");
        put_number(at, value.min_value);
        put(at, R"(,"MAXIMUM":)");
        put_number(at, value.max_value);
        put(at, R"(,"INCREMENT":)");
        put_number(at, value.increment);
        put(at, R"(,"VALUE":)");
        put_number(at, value.value);
        put(at, "}]}");
        return at;
      });
}
void floor_get_request() {
  floor_read(kGetRequest);
  floor_get_plain();
}
void floor_get_number() {
  floor_read(kNumberRequest);
  floor_get<T_CONFIG>(
      [](T_CONFIG& config) {
        strcpy(config.cfg_id, "g_audio__balance");
        a_vextvapi_config_get_value(0, config.cfg_id, &config.valueint);
      },
      [](char* at, const T_CONFIG& config) {
        put(at, R"({"URI":")");
        put_text(at, kNumber);
        put(at, R"(","STATUS":)");
        put_number(at, 0);
        put(at, R"(,"ITEMS":[{"cfgId":")");
        put_text(at, config.cfg_id);
        put(at, R"(","valueString":")");
        put_text(at, config.valuestring);
        put(at, R"(","valueInt":)");
        put_number(at, config.valueint);
        put(at, R"(,"valueMin":)");
        put_number(at, config.valuemin);
        put(at, R"(,"valueMax":)");
        put_number(at, config.valuemax);
        put(at, "}]}");
        return at;
      });
}
void floor_get_text() {
  floor_read(kTextRequest);
  floor_get<T_LANG_STRING>(
      [](T_LANG_STRING& string) {
        strcpy(string.lang_id, "IDS_VOLUME");
        strcpy(string.lang_string, "Volume");
      },
      [](char* at, const T_LANG_STRING& string) {
        put(at, R"({"URI":")");
        put_text(at, kText);
        put(at, R"(","STATUS":)");
        put_number(at, 0);
        put(at, R"(,"ITEMS":[{"langId":")");
        put_text(at, string.lang_id);
        put(at, R"(","langString":")");
        put_text(at, string.lang_string);
        put(at, R"("}]})");
        return at;
      });
}
// Reads the current channel from the platform, as a DVB channel, and whether logos are wanted.
static void fill_channel(T_CHANNEL_INFO& channel) {
  UINT16 svl_id = 0;
  SVL_REC_T svl;
  TSL_REC_T tsl;
  INT32 shows_logos = 0;
  a_vextvapi_channellist_get_current_channel(&svl_id, &svl, &tsl);
  a_vextvapi_config_get_value(0, "g_misc__ch_logos_status", &shows_logos);
  T_BASE_CHANNEL_INFO& base = channel.t_base_ch_info;
  base.brdcst_type = svl.t_rec_hdr.e_brdcst_type;
  base.service_type = svl.t_rec_hdr.e_serv_type;
  base.brdcst_medium = tsl.brdcst_medium;
  base.svl_id = svl_id;
  base.svl_rec_id = svl.ui2_svl_rec_id;
  base.channel_id = svl.t_rec_hdr.ui4_channel_id;
  base.nw_mask = svl.t_rec_hdr.ui4_nw_mask;
  base.frequency = tsl.frequency;
  strcpy(base.service_name, svl.t_rec_hdr.ac_name);
  const UINT8* const logo = svl.t_rec_hdr.aui1_custom_data;
  base.ch_logo_id = shows_logos ? static_cast<UINT32>(logo[0] | logo[1] << 8) : 0;
  T_DVB_CHANNEL_INFO& dvb = channel.t_dvb_ch_info;
  dvb.barker_mask = (svl.t_dvb.ui4_linkage_descr_mask & SVL_LINKAGE_BARKER) != 0;
  dvb.ci_tune_service = svl.t_dvb.b_ci_tune_service;
  dvb.category_mask = svl.t_dvb.ui4_category_mask;
  dvb.major_num = svl.t_rec_hdr.ui4_channel_id >> 18;
  strcpy(dvb.short_name, svl.t_dvb.s_svc_name);
  dvb.b_hbbtv_off = svl.t_dvb.b_hbbtv_off;
}
static char* put_channel(char* at, const T_CHANNEL_INFO& channel) {
  const T_BASE_CHANNEL_INFO& base = channel.t_base_ch_info;
  const T_DVB_CHANNEL_INFO& dvb = channel.t_dvb_ch_info;
  put(at, R"({"URI":")");
  put_text(at, kChannel);
  put(at, R"(","STATUS":)");
  put_number(at, 0);
  put(at, R"(,"ITEMS":[{"NAME":")");
  put_text(at, channel.name);
  put(at, R"(","TYPE":"CHANNEL_INFO","GROUP":)");
  put_number(at, channel.group);
  put(at, R"(,"STATE":)");
  put_number(at, channel.state);
  put(at, R"(,"BRDCST_TYPE":)");
  put_number(at, base.brdcst_type);
  put(at, R"(,"SERVICE_TYPE":)");
  put_number(at, base.service_type);
  put(at, R"(,"BRDCST_MEDIUM":)");
  put_number(at, base.brdcst_medium);
  put(at, R"(,"SVL_ID":)");
  put_number(at, base.svl_id);
  put(at, R"(,"SVL_REC_ID":)");
  put_number(at, base.svl_rec_id);
  put(at, R"(,"CHANNEL_ID":)");
  put_number(at, base.channel_id);
  put(at, R"(,"NW_MASK":)");
  put_number(at, base.nw_mask);
  put(at, R"(,"INDEX":)");
  put_number(at, channel.t_ch_param.index);
  put(at, R"(,"CH_TOTAL_NUM":)");
  put_number(at, channel.t_ch_param.ch_num);
  put(at, R"(,"FREQUENCY":)");
  put_number(at, base.frequency);
  put(at, R"(,"SERVICE_NAME":")");
  put_text(at, base.service_name);
  put(at, R"(","CH_LOGO_ID":)");
  put_number(at, base.ch_logo_id);
  put(at, R"(,"BARKER_MASK":)");
  put_number(at, dvb.barker_mask);
  put(at, R"(,"CI_TUNE_SERVICE":)");
  put_number(at, dvb.ci_tune_service);
  put(at, R"(,"CATEGORY_MASK":)");
  put_number(at, dvb.category_mask);
  put(at, R"(,"MAJOR_NUM":)");
  put_number(at, dvb.major_num);
  put(at, R"(,"MINOR_NUM":)");
  put_number(at, dvb.minor_num);
  put(at, R"(,"SHORT_NAME":")");
  put_text(at, dvb.short_name);
  put(at, R"(","HBBTV_OFF":)");
  put_number(at, dvb.b_hbbtv_off);
  put(at, "}]}");
  return at;
}
void floor_get_channel() {
  floor_read(kChannelRequest);
  floor_get<T_CHANNEL_INFO>(fill_channel, put_channel);
}

// Reads a channel's events from the platform, and keeps everything about the wanted ones.
static void fill_events(T_CHANNEL_EVENTS& events) {
  events.event_num = static_cast<UINT16>(std::size(events.event_id_list));
  a_vextvapi_event_query_event_id_by_range(66048, 1700000000, 86400, &events.event_num, events.event_id_list);
  for (UINT16 i = 0; i < events.event_num; ++i) {
    VEXTVAPI_EVENT_GENERAL_INFO_T info;
    a_vextvapi_event_get_general_info(66048, events.event_id_list[i], &info);
    T_EVENT_ITEM& item = events.event_info[i];
    item.channel_id = info.channel_id;
    item.caption = info.caption;
    item.free_ca_mode = info.free_ca_mode;
    item.svl_id = info.svl_id;
    item.start_time = info.start_time;
    item.event_id = info.event_id;
    item.duration_time = info.duration_time;
    item.event_category_num = info.event_category_num;
    memcpy(item.event_category, info.event_category, sizeof item.event_category);
    strcpy(item.event_title, info.event_title);
    strcpy(item.event_rating, info.event_rating);
  }
}
static char* put_events(char* at, const T_CHANNEL_EVENTS& events) {
  put(at, R"({"URI":")");
  put_text(at, kEvents);
  put(at, R"(","STATUS":)");
  put_number(at, 0);
  put(at, R"(,"ITEMS":[)");
  for (UINT16 i = 0; i < events.event_num; ++i) {
    const T_EVENT_ITEM& item = events.event_info[i];
    if (i > 0) put(at, ",");
    put(at, R"({"EVENT_ID":)");
    put_number(at, item.event_id);
    put(at, R"(,"EVENT_NAME":")");
    put_text(at, item.event_title);
    put(at, R"(","START_TIME":)");
    put_number(at, item.start_time);
    put(at, R"(,"DURATION":)");
    put_number(at, item.duration_time);
    put(at, "}");
  }
  put(at, "]}");
  return at;
}
void floor_get_events() {
  static constexpr std::size_t kLongest = 64 + kListed * 384;
  floor_read(kEventsRequest);
  floor_get<T_CHANNEL_EVENTS, kLongest>(fill_events, put_events);
}
void floor_set() {
  static T_VALUE value;
  const std::lock_guard guard(floor_mutex);
  floor_read(kSetRequest);
  memset(&value, 0, sizeof value);
  keep(&value);
}

static char* floor_pending;  // its block has room for the longest text
static char* floor_pending_end;

void floor_notify_single() {
  const T_VOL_CTRL_NOTIFY notify = {.vol_value = 23, .mute_status = 0};
  keep(const_cast<T_VOL_CTRL_NOTIFY*>(&notify));
  char* const text = static_cast<char*>(malloc(kFloorText));
  char* at = text;
  put(at, R"({"URI":")");
  put_text(at, kVolumeEvent);
  put(at, R"(","REQUEST":"NOTIFY","ITEMS":[{"volValue":)");
  put_number(at, notify.vol_value);
  put(at, R"(,"muteStatus":)");
  put_number(at, notify.mute_status);
  put(at, "}]}");
  const std::lock_guard guard(floor_mutex);
  free(std::exchange(floor_pending, text));
  floor_pending_end = at;
}
// The place of the next pending item. The caller holds the lock.
static char* floor_begin_item(const char* uri) {
  if (!floor_pending) {
    floor_pending = floor_pending_end = static_cast<char*>(malloc(kFloorText));
    put(floor_pending_end, R"({"URI":")");
    put_text(floor_pending_end, uri);
    put(floor_pending_end, R"(","REQUEST":"NOTIFY","ITEMS":[)");
  } else {
    floor_pending_end -= 2;
    put(floor_pending_end, ",");
  }
  return floor_pending_end;
}

void floor_notify_queued() {
  T_CBROWSER_PB_NOTIFY notify = {.type = 1, .tag = 2, .arg1 = 3, .arg2 = 4, .arg3 = 5, .arg4 = 6};
  keep(&notify);
  const std::lock_guard guard(floor_mutex);
  char* at = floor_begin_item(kPlayerEvent);
  put(at, R"({"TYPE":)");
  put_number(at, notify.type);
  put(at, R"(,"TAG":)");
  put_number(at, notify.tag);
  put(at, R"(,"ARG1":)");
  put_number(at, notify.arg1);
  put(at, R"(,"ARG2":)");
  put_number(at, notify.arg2);
  put(at, R"(,"ARG3":)");
  put_number(at, notify.arg3);
  put(at, R"(,"ARG4":)");
  put_number(at, notify.arg4);
  put(at, "}]}");
  floor_pending_end = at;
}

static void floor_notify_channel() {
  T_CHANNEL_LIST_NOTIFY notify = {.type = 1, .tag = 55555, .h_svl = 3, .conditions = 2, .reason = 5, .data = 6};
  keep(&notify);
  const std::lock_guard guard(floor_mutex);
  char* at = floor_begin_item(kChannelEvent);
  put(at, R"({"TYPE":)");
  put_number(at, notify.type);
  put(at, R"(,"TAG":)");
  put_number(at, notify.tag);
  put(at, R"(,"SVL_HANDLE":)");
  put_number(at, notify.h_svl);
  put(at, R"(,"CONDITIONS":)");
  put_number(at, notify.conditions);
  put(at, R"(,"REASON":)");
  put_number(at, notify.reason);
  put(at, R"(,"DATA":)");
  put_number(at, notify.data);
  put(at, "}]}");
  floor_pending_end = at;
}
void floor_fetch() {
  const std::lock_guard guard(floor_mutex);
  if (!floor_pending) return;
  memcpy(host_buffer, floor_pending, static_cast<std::size_t>(floor_pending_end - floor_pending));
  keep(host_buffer);
  free(std::exchange(floor_pending, nullptr));
}
void floor_notify_and_fetch() {
  floor_notify_single();
  floor_fetch();
}

void floor_start_queue() {
  floor_fetch();
  floor_notify_queued();
}
void floor_append() {
  for (int i = 0; i < kAppended; ++i) floor_notify_queued();
}

void floor_start_channels() {
  floor_fetch();
  floor_notify_channel();
}
void floor_append_channels() {
  for (int i = 0; i < kAppended; ++i) floor_notify_channel();
}
