// Miscellaneous group: the password, USB storage, facts of the configuration store, HbbTV, the internet portal, the
// set's own applications, the shop's demonstrations. The router also sends it the gets of groups that cannot be read.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/text.h"
#include "tvapi/apps.h"
#include "tvapi/config.h"
#include "tvapi/usb.h"
#include "tvctl_common/record.h"

// Logs a platform's failure under an operation's name; 0 or -1.
static INT32 checked(const char* operation, INT32 ret, int line = __builtin_LINE()) {
  if (ret >= 0) return VEXTVCTRLR_OK;
  tvc_log_fail(operation, line, ret);
  return VEXTVCTRLR_FAIL;
}

// --- Integers of the configuration store ---

struct IntegerItem {
  UINT8 record;
  const char* name;
  const char* key;
  const char* get_operation;
  const char* set_operation;  // null: it cannot be set
};

static constexpr IntegerItem kIntegerItems[] = {
    {TV_CTRL_RECID_OCL_STATUS, "One Channel List", "g_misc__one_chlist", "_tvc_misc_get_one_chlist_status", nullptr},
    {TV_CTRL_RECID_OCL_TOGGLE_TYPE, "One Channel List Toggle Type", "g_misc__ocl_toggle_type",
     "_tvc_misc_get_one_chlist_toggle_type", "_tvc_misc_set_one_chlist_toggle_type"},
    {TV_CTRL_RECID_CAB_CHANNEL_ID, "Cable Channel ID", "g_misc__cab_channel_id", "_tvc_misc_get_cab_channel_id",
     nullptr},
    {TV_CTRL_RECID_AIR_CHANNEL_ID, "Air Channel ID", "g_misc__air_channel_id", "_tvc_misc_get_air_channel_id", nullptr},
    {TV_CTRL_RECID_SAT_CHANNEL_ID, "Satellite Channel ID", "g_misc__sat_channel_id", "_tvc_misc_get_sat_channel_id",
     nullptr},
    {TV_CTRL_RECID_OCL_CHANNEL_ID, "One Channel List Channel ID", "g_misc__misc_ocl_channel_id",
     "_tvc_misc_get_ocl_channel_id", nullptr},
    {TV_CTRL_RECID_DTV_TUNER_TYPE, "DTV Tuner Type", "g_misc__dtv_tuner_type", "_tvc_misc_get_dtv_tuner_type", nullptr},
    {TV_CTRL_RECID_DTV_TUNER_BS_SRC, "DTV Tuner BS Source", "g_bs__bs_src", "_tvc_misc_get_dtv_tuner_bs_src",
     "_tvc_misc_set_dtv_tuner_bs_src"},
    {TV_CTRL_RECID_DVBS_SUPPORT_STATUS, "DVBS Support Status", "g_misc__dvbs_support",
     "_tvc_misc_get_dvbs_support_status", nullptr},
    {TV_CTRL_RECID_CH_LOGO_STATUS, "Channel Logo Status", "g_misc__ch_logos_status", "_tvc_misc_get_ch_logo_status",
     nullptr},
    {TV_CTRL_RECID_VIDEO_SHOP_MODE, "Video Shop Mode", "g_video__shop_mode", "_tvc_misc_get_video_shop_mode", nullptr},
};

static const IntegerItem* find_integer_item(UINT16 ui2_id) {
  const auto* const item = std::find_if(std::begin(kIntegerItems), std::end(kIntegerItems),
                                        [ui2_id](const IntegerItem& row) { return row.record == tvc_record(ui2_id); });
  return item == std::end(kIntegerItems) ? nullptr : item;
}

static INT32 get_integer(UINT16 ui2_id, const IntegerItem& item, void* pv_content) {
  T_INTEGER& integer = tvc_fill_header<T_INTEGER>(pv_content, ui2_id, item.name, TV_CTRL_GRPID_MISC);
  INT32 value = 0;
  const INT32 ret = checked(item.get_operation, a_vextvapi_config_get_value(kEveryInput, item.key, &value));
  if (ret == VEXTVCTRLR_OK) integer.value = value;
  return ret;
}

static INT32 set_integer(const IntegerItem& item, const void* pv_content) {
  if (!pv_content) return VEXTVCTRLR_INV_ARG;
  const T_INTEGER& integer = *static_cast<const T_INTEGER*>(pv_content);
  return checked(item.set_operation, a_vextvapi_config_set_value(kEveryInput, item.key, integer.value, kNoUpdate));
}

// --- Password ---

static constexpr const char* kPasswordKey = "g_password__password";

static INT32 get_password(UINT16 ui2_id, void* pv_content) {
  T_TEXT& text = tvc_fill_header<T_TEXT>(pv_content, ui2_id, "Password", TV_CTRL_GRPID_MISC);
  UINT32 length = sizeof text.value;
  const INT32 ret =
      checked("_tvc_misc_get_password", a_vextvapi_config_get_str_value(kPasswordKey, text.value, &length));
  text.value[sizeof text.value - 1] = '\0';
  return ret;
}

static INT32 set_password(T_TEXT& text) {
  tvc_end_text(text.value);
  return checked("_tvc_misc_set_password", a_vextvapi_config_set_str_value(kPasswordKey, text.value));
}

// --- USB storage ---

static constexpr uintptr_t kUsbTag = 0x1D0D7;

static UINT32 g_udetect;  // the running detection; 0: none. Written under the request lock, and at start-up

// Runs on the platform's thread.
static INT32 _tv_ctrl_usb_detect_nfy_fct(INT32 type, void* tag, const char* dev, const char* path, const char* label,
                                         UINT32 port) {
  T_USB_DETECT_NOTIFY notify = {
      .type = type, .tag = static_cast<INT32>(reinterpret_cast<intptr_t>(tag)), .mount_point = {}};
  T_MOUNT_POINT_INFO& mount_point = notify.mount_point;
  if (dev) tvc_copy_text(mount_point.dev, dev);
  if (path) tvc_copy_text(mount_point.path, path);
  if (label) tvc_copy_text(mount_point.label, label);
  mount_point.port = port;
  const INT32 ret = tv_ctrl_notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_USB_DETECT), &notify);
  if (ret < 0) TVC_LOG_FAIL(ret);
  return 0;
}

static INT32 _tvc_misc_usb_detect_init() {
  if (g_udetect != 0) return VEXTVCTRLR_OK;
  g_udetect = a_vextvapi_cb_usb_detect_init();
  if (g_udetect == 0) return checked(__func__, VEXTVCTRLR_FAIL);
  return checked(__func__, a_vextvapi_cb_usb_detect_register_callback(g_udetect, _tv_ctrl_usb_detect_nfy_fct,
                                                                      reinterpret_cast<void*>(kUsbTag)));
}

static INT32 stop_usb_detection() {
  if (g_udetect == 0) return VEXTVCTRLR_OK;
  a_vextvapi_cb_usb_detect_deinit(g_udetect);
  g_udetect = 0;
  return VEXTVCTRLR_OK;
}

static INT32 _tvc_misc_get_mount_point_list(T_MOUNT_POINT_LIST& list) {
  if (g_udetect == 0) return VEXTVCTRLR_FAIL;
  constexpr INT32 kMost = std::size(T_MOUNT_POINT_LIST{}.entries);
  VEXTVAPI_USB_MOUNT_INFO_T scratch[kMost] = {};
  INT32 count = 0;
  INT32 ret = a_vextvapi_cb_usb_detect_getUsbMountedCount(g_udetect, &count);
  if (ret >= 0) {
    count = std::clamp(count, 0, kMost);
    ret = a_vextvapi_cb_usb_detect_getUsbMountedInfo(g_udetect, scratch, 0, &count);
  }
  if (ret < 0) return checked(__func__, ret);
  list.count = std::clamp(count, 0, kMost);
  for (INT32 i = 0; i < list.count; ++i) {
    T_MOUNT_POINT_INFO& entry = list.entries[i];
    entry = {};
    // The platform's texts need not be terminated.
    memcpy(entry.dev, scratch[i].dev, sizeof entry.dev - 1);
    memcpy(entry.path, scratch[i].path, sizeof entry.path - 1);
    memcpy(entry.label, scratch[i].label, sizeof entry.label - 1);
    entry.port = scratch[i].port;
  }
  return VEXTVCTRLR_OK;
}

// The record's text is the mount point going in and the description coming out.
static INT32 get_device_description(UINT16 ui2_id, void* pv_content) {
  if (g_udetect == 0) return VEXTVCTRLR_FAIL;
  T_TEXT& text = *static_cast<T_TEXT*>(pv_content);
  tvc_end_text(text.value);
  if (!text.value[0]) return VEXTVCTRLR_INV_ARG;
  tvc_fill_header<T_TEXT>(pv_content, ui2_id, "Dev Desc", TV_CTRL_GRPID_MISC);
  char description[256] = {};
  const INT32 ret = a_vextvapi_cb_usb_detect_devDesc(g_udetect, text.value, description, sizeof description - 1);
  description[sizeof description - 1] = '\0';
  if (ret < 0) return checked("_tvc_misc_get_mount_point_dev_desc", ret);
  tvc_copy_text(text.value, description);
  return VEXTVCTRLR_OK;
}

// --- Applications ---

struct NamedNumber {
  const char* name;
  UINT8 number;
};

// Looks a name up without regard to case; null for an unknown one.
template <std::size_t N>
static const NamedNumber* find_name(const NamedNumber (&table)[N], const char* name) {
  for (const NamedNumber& row : table)
    if (tvc_same_letters(row.name, name)) return &row;
  return nullptr;
}

static constexpr NamedNumber kPortalModes[] = {
#define TVC_PORTAL_MODE(name, number) {#name, number},
#include "vex_tv_ctrl/apps.def"
};

static constexpr NamedNumber kExitReasons[] = {
#define TVC_PORTAL_EXIT(name, number) {#name, number},
#include "vex_tv_ctrl/apps.def"
};

static constexpr NamedNumber kNativeApps[] = {
#define TVC_NATIVE_APP(name, number) {#name, number},
#include "vex_tv_ctrl/apps.def"
};
static_assert(std::size(kNativeApps) == 17);

static constexpr const char* kVideoAppMarker = "/tmp/ytlbv4_start";  // exists while the video application runs
static constexpr const char* kVideoApp = "YOUTUBE";
static constexpr INT32 kVideoAppMode = 9;

static const char* app_mode_name(INT32 mode) {
  if (mode == kVideoAppMode || (mode == PORTAL_MODE_PORTAL && access(kVideoAppMarker, F_OK) == 0)) return kVideoApp;
  for (const NamedNumber& row : kPortalModes)
    if (row.number == mode) return row.name;
  return "UNKNOWN";
}

static INT32 get_app_mode(T_PORTAL& portal) {
  const bool video_app_runs = access(kVideoAppMarker, F_OK) == 0;
  tvc_copy_text(portal.app_mode, video_app_runs ? kVideoApp : app_mode_name(a_net_get_app_mode()));
  tvc_log_progress("[TVC_MAIN] app_mode: [%s]\n", portal.app_mode);
  return VEXTVCTRLR_OK;
}

static INT32 portal_result(const char* operation, INT32 ret) {
  if (ret < 0) tvc_log_fail(operation, __LINE__, ret);
  tvc_log_progress("[TVC_MAIN] i4_ret: [%d]\n", ret);
  return ret;
}

static INT32 _tvc_misc_start_portal(T_PORTAL& portal) {
  tvc_end_text(portal.app_mode);
  tvc_end_text(portal.edfu_url);
  tvc_log_progress("[TVC_MAIN][%s][%d] -- start portal param dump.\n", __func__, __LINE__);
  tvc_log_progress("[TVC_MAIN] app_mode: [%s]\n", portal.app_mode);
  tvc_log_progress("[TVC_MAIN] edfu_url: [%s]\n", portal.edfu_url);
  const NamedNumber* const mode = find_name(kPortalModes, portal.app_mode);
  if (!mode) {
    tvc_log_progress("[TVC_MAIN] LINE: %d Error!\n", __LINE__);
    return VEXTVCTRLR_INV_ARG;
  }
  if (mode->number == PORTAL_MODE_EDFU) a_set_edfu_url(portal.edfu_url);
  tvc_log_progress("[TVC_MAIN] ui1_mode: [%d]\n", mode->number);
  return portal_result(__func__, a_portal_start_ex(mode->number));
}

static INT32 _tvc_misc_exit_portal(T_PORTAL& portal) {
  tvc_end_text(portal.exit_reason);
  tvc_log_progress("[TVC_MAIN][%s][%d] -- exit portal param dump.\n", __func__, __LINE__);
  tvc_log_progress("[TVC_MAIN] exit_reason: [%s]\n", portal.exit_reason);
  const NamedNumber* const reason = find_name(kExitReasons, portal.exit_reason);
  return portal_result(__func__, a_portal_pause_ex(reason ? reason->number : UINT8{0}));
}

static INT32 start_native_app(T_TEXT& text) {
  tvc_end_text(text.value);
  const NamedNumber* const app = find_name(kNativeApps, text.value);
  if (!app) return VEXTVCTRLR_INV_ARG;
  return checked("_tvc_misc_start_native_app", a_vextvapi_util_start_native_app(app->number));
}

static INT32 _tvc_misc_hbbtv_func(T_HBBTV& hbbtv) {
  constexpr INT32 kEnable = 1, kApplication = 4;  // function types
  constexpr UINT32 kLength = 392, kApplicationLength = 260;
  VEXTVAPI_HBBTV_DATA_T block = {};
  block.ui4_length = hbbtv.func_type == kApplication ? kApplicationLength : kLength;
  block.ui4_func_type = static_cast<UINT32>(hbbtv.func_type);
  if (hbbtv.func_type == kApplication) {
    block.ui4_value = static_cast<UINT32>(hbbtv.app_type);
    memcpy(block.s_uri, hbbtv.uri, sizeof block.s_uri);
  } else if (hbbtv.func_type == kEnable) {
    block.ui4_value = static_cast<UINT32>(hbbtv.is_enable);
  }
  const INT32 ret = a_vextvapi_hbbtv_exchange_data(&block, sizeof block / sizeof(UINT32));
  if (ret < 0) TVC_LOG_FAIL(ret);
  return VEXTVCTRLR_OK;
}

// --- Shop ---

// Whether a USB path holds something that the shop mode plays; the media type says so.
static INT32 get_shop_media(const char* operation, INT32 (*ask)(const char* path, UINT8* ret_flag),
                            T_CBROWSER& browser) {
  tvc_end_text(browser.path);
  UINT8 flag = 0;
  printf("[TVC MISC]%s() %d: usb_path=[%s]\n", operation, __LINE__, browser.path);
  const INT32 ret = ask(browser.path, &flag);
  if (ret >= 0) browser.type = flag != 0 ? MEDIA_TYPE_PLAYLIST : MEDIA_TYPE_NULL;
  printf("[TVC MISC]%s() %d: ui1_flag=[%d]\n", operation, __LINE__, flag);
  printf("[TVC MISC]%s() %d: media_type=[%d]\n", operation, __LINE__, browser.type);
  fflush(stdout);
  return ret < 0 ? static_cast<INT32>(VEXTVCTRLR_FAIL) : static_cast<INT32>(VEXTVCTRLR_OK);
}

// --- Entry points ---

INT32 tv_ctrl_misc_init(void) { return checked(__func__, _tvc_misc_usb_detect_init()); }

INT32 tv_ctrl_get_misc(UINT16 ui2_id, void* pv_content) {
  if (!pv_content || tvc_group(ui2_id) != TV_CTRL_GRPID_MISC) return VEXTVCTRLR_INV_ARG;
  if (const IntegerItem* const item = find_integer_item(ui2_id)) return get_integer(ui2_id, *item, pv_content);
  switch (tvc_record(ui2_id)) {
    case TV_CTRL_RECID_PASSWORD:
      return get_password(ui2_id, pv_content);
    case TV_CTRL_RECID_USB_MOUNT_POINT_LIST:
      return _tvc_misc_get_mount_point_list(*static_cast<T_MOUNT_POINT_LIST*>(pv_content));
    case TV_CTRL_RECID_USB_MOUNT_POINT_DEV_DESC:
      return get_device_description(ui2_id, pv_content);
    case TV_CTRL_RECID_GET_PORTAL_APP_MODE:
      return get_app_mode(*static_cast<T_PORTAL*>(pv_content));
    case TV_CTRL_RECID_JUMP_SUPER_SHOP_DEMO:
      return get_shop_media("_tvc_misc_get_jump_super_shop_demo", a_vextvapi_util_is_jump_super_shop_demo,
                            *static_cast<T_CBROWSER*>(pv_content));
    case TV_CTRL_RECID_JUMP_EBANNER:
      return get_shop_media("_tvc_misc_get_jump_ebanner", a_vextvapi_util_is_jump_ebanner,
                            *static_cast<T_CBROWSER*>(pv_content));
    default:
      return VEXTVCTRLR_OK;
  }
}

// A set that is no integer's.
struct SetItem {
  UINT8 record;
  bool needs_record;
  INT32 (*carry_out)(void* pv_content);
};

template <typename Record, INT32 (*carry_out)(Record&)>
static INT32 with_record(void* pv_content) {
  return carry_out(*static_cast<Record*>(pv_content));
}

static constexpr SetItem kSetItems[] = {
    {TV_CTRL_RECID_PASSWORD, true, with_record<T_TEXT, set_password>},
    {TV_CTRL_RECID_CLEAN_ALL, false,
     [](void*) { return checked("_tvc_misc_clean_all", a_vextvapi_util_set(0, 2, 1, 0)); }},
    {TV_CTRL_RECID_USB_DETECT_INIT, false, [](void*) { return _tvc_misc_usb_detect_init(); }},
    {TV_CTRL_RECID_USB_DETECT_DEINIT, false, [](void*) { return stop_usb_detection(); }},
    {TV_CTRL_RECID_HBBTV_FUNC, true, with_record<T_HBBTV, _tvc_misc_hbbtv_func>},
    {TV_CTRL_RECID_START_PORTAL, true, with_record<T_PORTAL, _tvc_misc_start_portal>},
    {TV_CTRL_RECID_EXIT_PORTAL, true, with_record<T_PORTAL, _tvc_misc_exit_portal>},
    {TV_CTRL_RECID_START_NATIVE_APP, true, with_record<T_TEXT, start_native_app>},
};

INT32 tv_ctrl_set_misc(UINT16 ui2_id, void* pv_content) {
  if (tvc_group(ui2_id) != TV_CTRL_GRPID_MISC) return VEXTVCTRLR_INV_ARG;
  const IntegerItem* const item = find_integer_item(ui2_id);
  if (item && item->set_operation) return set_integer(*item, pv_content);
  for (const SetItem& row : kSetItems)
    if (row.record == tvc_record(ui2_id))
      return row.needs_record && !pv_content ? static_cast<INT32>(VEXTVCTRLR_INV_ARG) : row.carry_out(pv_content);
  return VEXTVCTRLR_OK;
}
