// Common-setting group: languages, country, clocks, the sleep timer, CI tuning, network events. The group's other
// records are accepted and do nothing.
#include <string.h>

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/text.h"
#include "tvapi/ci.h"
#include "tvapi/config.h"
#include "tvapi/network.h"
#include "tvapi/time.h"
#include "tvctl_common/record.h"

static constexpr uintptr_t kNetworkTag = 0x118224;
static constexpr const char* kRegionKey = "g_country__country_rid";

// Of the network subscription; 0: none. Written at start-up and under the request lock.
static UINT32 ui4_tvc_nw_nfy_id;

// --- Three-letter codes ---

static INT32 get_code(UINT16 ui2_id, const char* key, void* pv_content) {
  if (tv_ctrl_get_type_by_id(ui2_id) != TYPE_TEXT) return VEXTVCTRLR_INV_ARG;
  INT32 value = 0;
  if (a_vextvapi_config_get_value(kEveryInput, key, &value) != 0) return VEXTVCTRLR_FAIL;
  T_TEXT& text = tvc_fill_header<T_TEXT>(pv_content, ui2_id, "", TV_CTRL_GRPID_COMMON_SETTING);
  const UINT32 bits = static_cast<UINT32>(value);
  const char code[] = {static_cast<char>(bits >> 24), static_cast<char>(bits >> 16), static_cast<char>(bits >> 8),
                       '\0'};
  tvc_copy_text(text.value, code);
  return VEXTVCTRLR_OK;
}

static INT32 set_code(UINT16 ui2_id, const char* key, const void* pv_content) {
  if (tv_ctrl_get_type_by_id(ui2_id) != TYPE_TEXT) return VEXTVCTRLR_INV_ARG;
  if (!pv_content) return VEXTVCTRLR_INV_ARG;
  const T_TEXT& text = *static_cast<const T_TEXT*>(pv_content);
  UINT32 bits = 0;
  const std::size_t length = strnlen(text.value, 3);
  for (std::size_t i = 0; i < length; ++i)
    bits |= static_cast<UINT32>(static_cast<UINT8>(text.value[i])) << (24 - 8 * i);
  const INT32 ret = a_vextvapi_config_set_value(kEveryInput, key, static_cast<INT32>(bits), kNoUpdate);
  return ret == 0 ? VEXTVCTRLR_OK : static_cast<INT32>(VEXTVCTRLR_FAIL);
}

#define CODE_ITEM(name, key)                                                                                         \
  static INT32 _tvc_common_get_##name(UINT16 ui2_id, void* pv_content) { return get_code(ui2_id, key, pv_content); } \
  static INT32 _tvc_common_set_##name(UINT16 ui2_id, const void* pv_content) {                                       \
    return set_code(ui2_id, key, pv_content);                                                                        \
  }
CODE_ITEM(gui_language, "g_gui_lang__gui_language")
CODE_ITEM(country, "g_country__country")
CODE_ITEM(subtitle_lang, "g_subtitle__subtitle_lang")
CODE_ITEM(subtitle_2nd_lang, "g_subtitle__subtitle_lang_2nd")

// A record of three letters.
struct CodeItem {
  UINT8 record;
  INT32 (*get)(UINT16 ui2_id, void* pv_content);
  INT32 (*set)(UINT16 ui2_id, const void* pv_content);
  bool answers_failure;  // of a set
};

static constexpr CodeItem kCodeItems[] = {
    {TV_CTRL_RECID_GUI_LANGUAGE, _tvc_common_get_gui_language, _tvc_common_set_gui_language, false},
    {TV_CTRL_RECID_COUNTRY, _tvc_common_get_country, _tvc_common_set_country, true},
    {TV_CTRL_RECID_SUBTITLE_LANG, _tvc_common_get_subtitle_lang, _tvc_common_set_subtitle_lang, true},
    {TV_CTRL_RECID_SUBTITLE_2ND_LANG, _tvc_common_get_subtitle_2nd_lang, _tvc_common_set_subtitle_2nd_lang, true},
};

static const CodeItem* find_code_item(UINT16 ui2_id) {
  for (const CodeItem& item : kCodeItems)
    if (item.record == tvc_record(ui2_id)) return &item;
  return nullptr;
}

// --- Clocks ---

static INT64 utc_to_local(INT64 utc) {
  INT64 local = 0;
  a_vextvapi_time_convert_utc_to_local_time(utc, &local);
  return local;
}

static INT64 to_millis(const T_TIME_DTG& dtg) {
  const VEXTVAPI_TIME_DTG_T local = {.ui2_yr = dtg.ui2_yr,
                                     .ui1_mo = dtg.ui1_mo,
                                     .ui1_day = dtg.ui1_day,
                                     .ui1_dow = dtg.ui1_dow,
                                     .ui1_hr = dtg.ui1_hr,
                                     .ui1_min = dtg.ui1_min,
                                     .ui1_sec = dtg.ui1_sec,
                                     .b_gmt = dtg.b_gmt,
                                     .b_dst = dtg.b_dst};
  INT64 millis = 0;
  a_vextvapi_time_convert_local_time_to_millis(&local, &millis);
  return millis;
}

static T_TIME_DTG from_millis(INT64 millis) {
  VEXTVAPI_TIME_DTG_T local = {};
  a_vextvapi_time_convert_millis_to_local_time(millis, &local);
  return {.ui2_yr = local.ui2_yr,
          .ui1_mo = local.ui1_mo,
          .ui1_day = local.ui1_day,
          .ui1_dow = local.ui1_dow,
          .ui1_hr = local.ui1_hr,
          .ui1_min = local.ui1_min,
          .ui1_sec = local.ui1_sec,
          .b_gmt = local.b_gmt,
          .b_dst = local.b_dst};
}

// A record of time: its name, and how its value comes about.
struct TimeItem {
  UINT8 record;
  const char* name;
  void (*fill)(T_TIME& time);
};

static constexpr TimeItem kTimeItems[] = {
    {TV_CTRL_RECID_TIME_ZONE, "Time Zone", [](T_TIME& time) { time.value = a_vextvapi_time_get_time_zone(); }},
    {TV_CTRL_RECID_TIME_OFFSET, "Time Offset", [](T_TIME& time) { time.value = a_vextvapi_time_get_time_offset(); }},
    {TV_CTRL_RECID_UTC_TIME, "", [](T_TIME& time) { time.value = a_vextvapi_time_get_utc_time(); }},
    {TV_CTRL_RECID_BROADCAST_TIME, "Broadcast Time",
     [](T_TIME& time) { time.value = a_vextvapi_time_get_broadcast_time(); }},
    {TV_CTRL_RECID_LOCAL_TIME, "Local Time",
     [](T_TIME& time) { time.value = utc_to_local(a_vextvapi_time_get_utc_time()); }},
    {TV_CTRL_RECID_CONVERT_LOCAL_TIME_TO_MILLIS, "", [](T_TIME& time) { time.value = to_millis(time.dtg); }},
    {TV_CTRL_RECID_CONVERT_MILLIS_TO_LOCAL_TIME, "", [](T_TIME& time) { time.dtg = from_millis(time.value); }},
    {TV_CTRL_RECID_CONVERT_UTC_TO_LOCAL_TIME, "", [](T_TIME& time) { time.value = utc_to_local(time.value); }},
};

static bool get_time(UINT16 ui2_id, void* pv_content) {
  for (const TimeItem& item : kTimeItems) {
    if (item.record != tvc_record(ui2_id)) continue;
    item.fill(tvc_fill_header<T_TIME>(pv_content, ui2_id, item.name, 0));
    return true;
  }
  return false;
}

// --- Values ---

// The part of a value's record that is not the value.
static T_VALUE& value_record(UINT16 ui2_id, const char* name, void* pv_content) {
  T_VALUE& value = tvc_fill_header<T_VALUE>(pv_content, ui2_id, name, 0);
  value.min_value = 0;
  value.max_value = 0;
  value.increment = 1;
  return value;
}

static INT32 _tvc_common_get_country_region_id(UINT16 ui2_id, void* pv_content) {
  T_VALUE& value = value_record(ui2_id, "Country Region ID", pv_content);
  INT32 region = 0;
  if (const INT32 ret = a_vextvapi_config_get_value(kEveryInput, kRegionKey, &region); ret < 0) {
    TVC_LOG_FAIL(ret);
    return VEXTVCTRLR_FAIL;
  }
  value.value = region;
  return VEXTVCTRLR_OK;
}

static INT32 _tvc_common_set_country_region_id(const T_VALUE& value) {
  const INT32 ret = a_vextvapi_config_set_value(kEveryInput, kRegionKey, value.value, kNoUpdate);
  if (ret >= 0) return VEXTVCTRLR_OK;
  TVC_LOG_FAIL(ret);
  return VEXTVCTRLR_FAIL;
}

static INT32 get_sleep_timer(UINT16 ui2_id, void* pv_content) {
  INT32 remaining = 0;
  T_VALUE& value = value_record(ui2_id, "Sleep timer", pv_content);
  a_vextvapi_time_get_sleep_timer_remaining_time(&remaining);
  value.value = remaining;
  return VEXTVCTRLR_OK;
}

// Whether a module has tuned the set; `query` is the platform's number of the question.
static INT32 get_ci_host_tune(UINT16 ui2_id, const char* name, INT32 query, const char* operation, void* pv_content) {
  T_VALUE& value = value_record(ui2_id, name, pv_content);
  INT32 answer = 0;
  UINT32 size = 1;
  const INT32 ret = a_vextvapi_ci_get(query, nullptr, &answer, &size);
  if (ret < 0) tvc_log_fail(operation, __LINE__, ret);
  value.value = answer;
  return ret < 0 ? ret : static_cast<INT32>(VEXTVCTRLR_OK);
}

// --- Network events ---

// Runs on the platform's thread.
static void _tvc_common_nw_nfy(void* pv_tag, INT32 id, void* pv_param) {
  if (id != VEXVAPI_NW_NFY_ID_ETHERNET_UNPLUG && id != VEXVAPI_NW_NFY_ID_ADDRESS_CHANGED &&
      id != VEXVAPI_NW_NFY_ID_WLAN_DEINIT_IND) {
    tvc_log_progress("[TVC_MAIN] ignore network notify id: [%d]\n", id);
    return;
  }
  T_NW_NOTIFY notify = {
      .tag = reinterpret_cast<uintptr_t>(pv_tag), .id = id, .param = reinterpret_cast<uintptr_t>(pv_param)};
  tvc_log_progress("[TVC_MAIN] network notify data: tag: [%d], id: [%d], param: [%d]\n", static_cast<INT32>(notify.tag),
                   id, static_cast<INT32>(notify.param));
  const INT32 ret = tv_ctrl_notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_NETWORK), &notify);
  if (ret < 0) TVC_LOG_FAIL(ret);
}

static INT32 _tvc_common_set_nw_register() {
  if (ui4_tvc_nw_nfy_id != 0) {
    tvc_log_progress("[TVC_MAIN] register network notify already!\n");
    return VEXTVCTRLR_OK;
  }
  if (a_vextvapi_nw_register(_tvc_common_nw_nfy, reinterpret_cast<void*>(kNetworkTag), &ui4_tvc_nw_nfy_id) == 0)
    return VEXTVCTRLR_OK;
  tvc_log_progress("[TVC_MAIN] register network notify failed!\n");
  ui4_tvc_nw_nfy_id = 0;
  return VEXTVCTRLR_FAIL;
}

// --- Entry points ---

INT32 tv_ctrl_common_setting_init(void) {
  const INT32 ret = _tvc_common_set_nw_register();
  if (ret >= 0) return VEXTVCTRLR_OK;
  TVC_LOG_FAIL(ret);
  return VEXTVCTRLR_FAIL;
}

INT32 tv_ctrl_common_setting_get(UINT16 ui2_id, void* pv_content) {
  if (!pv_content || tvc_group(ui2_id) != TV_CTRL_GRPID_COMMON_SETTING) return VEXTVCTRLR_INV_ARG;
  if (const CodeItem* const item = find_code_item(ui2_id)) return item->get(ui2_id, pv_content);
  if (get_time(ui2_id, pv_content)) return VEXTVCTRLR_OK;
  switch (tvc_record(ui2_id)) {
    case TV_CTRL_RECID_COUNTRY_REGION_ID:
      return _tvc_common_get_country_region_id(ui2_id, pv_content);
    case TV_CTRL_RECID_SLEEP_TIMER:
      return get_sleep_timer(ui2_id, pv_content);
    case TV_CTRL_RECID_CI_HOST_TUNE_STATUS:
      return get_ci_host_tune(ui2_id, "", 26, "_tvc_common_get_ci_host_tune_status", pv_content);
    case TV_CTRL_RECID_CI_HOST_TUNE_BROADCAST_STATUS:
      return get_ci_host_tune(ui2_id, "CI Host Tune Broadcast Status", 27,
                              "_tvc_common_get_ci_host_tune_broadcast_status", pv_content);
    default:
      return VEXTVCTRLR_OK;
  }
}

INT32 tv_ctrl_common_setting_set(UINT16 ui2_id, void* pv_content) {
  if (tvc_group(ui2_id) != TV_CTRL_GRPID_COMMON_SETTING) return VEXTVCTRLR_INV_ARG;
  if (const CodeItem* const item = find_code_item(ui2_id)) {
    const INT32 ret = item->set(ui2_id, pv_content);
    return item->answers_failure ? ret : static_cast<INT32>(VEXTVCTRLR_OK);
  }
  switch (tvc_record(ui2_id)) {
    case TV_CTRL_RECID_COUNTRY_REGION_ID:
      return pv_content ? _tvc_common_set_country_region_id(*static_cast<const T_VALUE*>(pv_content))
                        : static_cast<INT32>(VEXTVCTRLR_INV_ARG);
    case TV_CTRL_RECID_UTC_TIME:
      if (!pv_content) return VEXTVCTRLR_INV_ARG;
      a_vextvapi_time_set_utc_time(static_cast<const T_TIME*>(pv_content)->value);
      return VEXTVCTRLR_OK;
    case TV_CTRL_RECID_SLEEP_TIMER:
      if (!pv_content) return VEXTVCTRLR_INV_ARG;
      a_vextvapi_time_set_sleep_timer(static_cast<const T_VALUE*>(pv_content)->value);
      return VEXTVCTRLR_OK;
    case TV_CTRL_RECID_NW_REGISTER:
      return _tvc_common_set_nw_register();
    default:
      return VEXTVCTRLR_OK;
  }
}
