// Common-setting group: languages, country, clocks, the sleep timer, CI tuning, network events. The group's other
// records are accepted and do nothing.
#include <string.h>

#include "tv_ctrl_util/log.h"
#include "tvapi/ci.h"
#include "tvapi/config.h"
#include "tvapi/network.h"
#include "tvapi/time.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

static constexpr uintptr_t kNetworkTag = 0x118224;

// Number of the subscription to network events; 0: not subscribed. Written at start-up and under the request lock.
static UINT32 ui4_tvc_nw_nfy_id;

// --- Three-letter codes, which the configuration store keeps as an integer: the highest byte is the first letter ---

static INT32 get_code(const RecordRequest& request) {
  INT32 value = 0;
  if (a_vextvapi_config_get_value(VEXTVAPI_CONFIG_EVERY_INPUT, request.key, &value) != 0) return VEXTVCTRLR_FAIL;
  T_TEXT& text = tvc_fill_header<T_TEXT>(request, TV_CTRL_GRPID_COMMON_SETTING);
  const UINT32 bits = static_cast<UINT32>(value);
  const char code[] = {static_cast<char>(bits >> 24), static_cast<char>(bits >> 16), static_cast<char>(bits >> 8),
                       '\0'};
  tvc_copy_text(text.value, code);
  return VEXTVCTRLR_OK;
}

static INT32 set_code(const RecordRequest& request) {
  const T_TEXT& text = tvc_content<T_TEXT>(request);
  UINT32 bits = 0;
  const std::size_t length = strnlen(text.value, 3);
  for (std::size_t i = 0; i < length; ++i)
    bits |= static_cast<UINT32>(static_cast<UINT8>(text.value[i])) << (24 - 8 * i);
  const INT32 ret = a_vextvapi_config_set_value(VEXTVAPI_CONFIG_EVERY_INPUT, request.key, static_cast<INT32>(bits),
                                                VEXTVAPI_CONFIG_KEEP);
  return ret == 0 ? VEXTVCTRLR_OK : VEXTVCTRLR_FAIL;
}

// Succeeds also when the platform refuses the language.
static INT32 set_gui_language(const RecordRequest& request) {
  set_code(request);
  return VEXTVCTRLR_OK;
}

// --- Clocks: a conversion that fails gives 0 ---

static T_TIME& time_record(const RecordRequest& request) { return tvc_fill_header<T_TIME>(request, 0); }

static INT32 get_time_zone(const RecordRequest& request) {
  time_record(request).value = a_vextvapi_time_get_time_zone();
  return VEXTVCTRLR_OK;
}

static INT32 get_time_offset(const RecordRequest& request) {
  time_record(request).value = a_vextvapi_time_get_time_offset();
  return VEXTVCTRLR_OK;
}

static INT32 get_utc_time(const RecordRequest& request) {
  time_record(request).value = a_vextvapi_time_get_utc_time();
  return VEXTVCTRLR_OK;
}

// Succeeds also when the platform refuses the time.
static INT32 set_utc_time(const RecordRequest& request) {
  a_vextvapi_time_set_utc_time(tvc_content<T_TIME>(request).value);
  return VEXTVCTRLR_OK;
}

static INT32 get_broadcast_time(const RecordRequest& request) {
  time_record(request).value = a_vextvapi_time_get_broadcast_time();
  return VEXTVCTRLR_OK;
}

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

static INT32 get_local_time(const RecordRequest& request) {
  time_record(request).value = utc_to_local(a_vextvapi_time_get_utc_time());
  return VEXTVCTRLR_OK;
}

static INT32 convert_local_time_to_millis(const RecordRequest& request) {
  T_TIME& time = time_record(request);
  time.value = to_millis(time.dtg);
  return VEXTVCTRLR_OK;
}

static INT32 convert_millis_to_local_time(const RecordRequest& request) {
  T_TIME& time = time_record(request);
  time.dtg = from_millis(time.value);
  return VEXTVCTRLR_OK;
}

static INT32 convert_utc_to_local_time(const RecordRequest& request) {
  T_TIME& time = time_record(request);
  time.value = utc_to_local(time.value);
  return VEXTVCTRLR_OK;
}

// --- Values ---

static INT32 get_country_region_id(const RecordRequest& request) {
  T_VALUE& value = tvc_fill_value_header(request, 0);
  INT32 region = 0;
  const INT32 ret = a_vextvapi_config_get_value(VEXTVAPI_CONFIG_EVERY_INPUT, request.key, &region);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  value.value = region;
  return VEXTVCTRLR_OK;
}

static INT32 set_country_region_id(const RecordRequest& request) {
  const INT32 ret = a_vextvapi_config_set_value(VEXTVAPI_CONFIG_EVERY_INPUT, request.key,
                                                tvc_content<T_VALUE>(request).value, VEXTVAPI_CONFIG_KEEP);
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}

// Reports 0 also when the platform fails.
static INT32 get_sleep_timer(const RecordRequest& request) {
  INT32 remaining = 0;
  a_vextvapi_time_get_sleep_timer_remaining_time(&remaining);
  tvc_fill_value_header(request, 0).value = remaining;
  return VEXTVCTRLR_OK;
}

// Succeeds also when the platform refuses the duration.
static INT32 set_sleep_timer(const RecordRequest& request) {
  a_vextvapi_time_set_sleep_timer(tvc_content<T_VALUE>(request).value);
  return VEXTVCTRLR_OK;
}

// Asks the common interface. Logs a failure and returns the platform's code for it.
static INT32 get_ci_answer(const RecordRequest& request, INT32 query) {
  INT32 answer = 0;
  UINT32 size = 1;
  const INT32 ret = a_vextvapi_ci_get(query, nullptr, &answer, &size);
  tvc_fill_value_header(request, 0).value = answer;
  return tvc_failed(ret, request.operation) ? ret : VEXTVCTRLR_OK;
}

static INT32 get_ci_host_tune_status(const RecordRequest& request) {
  return get_ci_answer(request, VEXTVAPI_CI_HOST_TUNE_STATUS);
}

static INT32 get_ci_host_tune_broadcast_status(const RecordRequest& request) {
  return get_ci_answer(request, VEXTVAPI_CI_HOST_TUNE_BROADCAST_STATUS);
}

// --- Network events ---

// Callback, on the platform's thread. Notifies three events and ignores the others.
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
  tvc_notify(TV_CTRL_RECID_WS_NFY_NETWORK, &notify);
}

// Subscribes to network events, unless the plugin is subscribed already.
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

static INT32 register_network(const RecordRequest&) { return _tvc_common_set_nw_register(); }

// --- Rows ---

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_GUI_LANGUAGE,
     .type = TYPE_TEXT,
     .get = get_code,
     .set = set_gui_language,
     .key = "g_gui_lang__gui_language",
     .help = "The menu language, as a three-letter code.",
     .limit = 3},
    {.record = TV_CTRL_RECID_COUNTRY,
     .type = TYPE_TEXT,
     .get = get_code,
     .set = set_code,
     .key = "g_country__country",
     .help = "The country that the set is used in, as a three-letter code.",
     .limit = 3},
    {.record = TV_CTRL_RECID_COUNTRY_REGION_ID,
     .type = TYPE_VALUE,
     .get = get_country_region_id,
     .set = set_country_region_id,
     .get_operation = "_tvc_common_get_country_region_id",
     .set_operation = "_tvc_common_set_country_region_id",
     .key = "g_country__country_rid",
     .name = "Country Region ID",
     .help = "The region within the country, in the platform's numbers."},
    {.record = TV_CTRL_RECID_SUBTITLE_LANG,
     .type = TYPE_TEXT,
     .get = get_code,
     .set = set_code,
     .key = "g_subtitle__subtitle_lang",
     .help = "The first subtitle language, as a three-letter code.",
     .limit = 3},
    {.record = TV_CTRL_RECID_SUBTITLE_2ND_LANG,
     .type = TYPE_TEXT,
     .get = get_code,
     .set = set_code,
     .key = "g_subtitle__subtitle_lang_2nd",
     .help = "The second subtitle language, as a three-letter code.",
     .limit = 3},
    {.record = TV_CTRL_RECID_TIME_ZONE,
     .type = TYPE_TIME,
     .get = get_time_zone,
     .name = "Time Zone",
     .help = "How far the time zone is ahead of UTC, without daylight saving time.",
     .unit = "s"},
    {.record = TV_CTRL_RECID_TIME_OFFSET,
     .type = TYPE_TIME,
     .get = get_time_offset,
     .name = "Time Offset",
     .help = "How far local time is ahead of UTC now, with daylight saving time.",
     .unit = "s"},
    {.record = TV_CTRL_RECID_UTC_TIME,
     .type = TYPE_TIME,
     .get = get_utc_time,
     .set = set_utc_time,
     .help = "The clock of the set: the current time, counted from the start of 1970, UTC.",
     .unit = "s"},
    {.record = TV_CTRL_RECID_BROADCAST_TIME,
     .type = TYPE_TIME,
     .get = get_broadcast_time,
     .name = "Broadcast Time",
     .help = "The current time, as the broadcast reports it.",
     .unit = "s"},
    {.record = TV_CTRL_RECID_LOCAL_TIME,
     .type = TYPE_TIME,
     .get = get_local_time,
     .name = "Local Time",
     .help = "The current local time.",
     .unit = "s"},
    {.record = TV_CTRL_RECID_CONVERT_LOCAL_TIME_TO_MILLIS,
     .type = TYPE_TIME,
     .get = convert_local_time_to_millis,
     .get_needs = "DTG",
     .help = "Converts the local time in the query's DTG to milliseconds since the start of 1970, UTC.",
     .unit = "ms"},
    {.record = TV_CTRL_RECID_CONVERT_MILLIS_TO_LOCAL_TIME,
     .type = TYPE_TIME,
     .get = convert_millis_to_local_time,
     .get_needs = "VALUE",
     .help = "Converts the query's VALUE, milliseconds since the start of 1970, UTC, to the local time in DTG.",
     .unit = "ms"},
    {.record = TV_CTRL_RECID_CONVERT_UTC_TO_LOCAL_TIME,
     .type = TYPE_TIME,
     .get = convert_utc_to_local_time,
     .get_needs = "VALUE",
     .help = "Converts the query's VALUE, a time in UTC, to local time.",
     .unit = "s"},
    {.record = TV_CTRL_RECID_SLEEP_TIMER,
     .type = TYPE_VALUE,
     .get = get_sleep_timer,
     .set = set_sleep_timer,
     .name = "Sleep timer",
     .help = "How long until the sleep timer switches the set off, in the platform's unit; 0: it does not run."},
    {.record = TV_CTRL_RECID_NW_REGISTER,
     .type = TYPE_ACTION,
     .set = register_network,
     .help = "Subscribes to network events, but only in a native call of tv_ctrl_set with a record: requests to this "
             "URI are refused."},
    {.record = TV_CTRL_RECID_CI_HOST_TUNE_STATUS,
     .type = TYPE_VALUE,
     .get = get_ci_host_tune_status,
     .get_operation = "_tvc_common_get_ci_host_tune_status",
     .help = "Whether a common interface module tunes the set, in the platform's numbers."},
    {.record = TV_CTRL_RECID_CI_HOST_TUNE_BROADCAST_STATUS,
     .type = TYPE_VALUE,
     .get = get_ci_host_tune_broadcast_status,
     .get_operation = "_tvc_common_get_ci_host_tune_broadcast_status",
     .name = "CI Host Tune Broadcast Status",
     .help = "Whether a common interface module tunes the set for a broadcast, in the platform's numbers."},
};

constinit const Handler handler_COMMON_SETTING = {.group = TV_CTRL_GRPID_COMMON_SETTING,
                                                  .records = tvc_records<kRows>(),
                                                  .set_needs_record = true,
                                                  .start = tv_ctrl_common_setting_init,
                                                  .start_turn = 6};

INT32 tv_ctrl_common_setting_get(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_get(handler_COMMON_SETTING, ui2_id, pv_content);
}

INT32 tv_ctrl_common_setting_set(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_set(handler_COMMON_SETTING, ui2_id, pv_content);
}

INT32 tv_ctrl_common_setting_init(void) {
  return tvc_failed(_tvc_common_set_nw_register()) ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}
