// Miscellaneous group: the password, the factory reset, USB storage, single integers of the configuration store, HbbTV,
// the internet portal, the set's own applications, shop demonstrations.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "tv_ctrl_util/log.h"
#include "tvapi/apps.h"
#include "tvapi/config.h"
#include "tvapi/usb.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

// --- Integers of the configuration store ---

static INT32 get_integer(const RecordRequest& request) {
  T_INTEGER& integer = tvc_fill_header<T_INTEGER>(request, TV_CTRL_GRPID_MISC);
  INT32 value = 0;
  const INT32 ret = a_vextvapi_config_get_value(VEXTVAPI_CONFIG_EVERY_INPUT, request.key, &value);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  integer.value = value;
  return VEXTVCTRLR_OK;
}

static INT32 set_integer(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_config_set_value(VEXTVAPI_CONFIG_EVERY_INPUT, request.key,
                                                          tvc_content<T_INTEGER>(request).value, VEXTVAPI_CONFIG_KEEP));
}

// --- Password and clean-up ---

static INT32 get_password(const RecordRequest& request) {
  T_TEXT& text = tvc_fill_header<T_TEXT>(request, TV_CTRL_GRPID_MISC);
  UINT32 length = sizeof text.value;
  const INT32 ret = a_vextvapi_config_get_str_value(request.key, text.value, &length);
  tvc_end_text(text.value);
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}

static INT32 set_password(const RecordRequest& request) {
  T_TEXT& text = tvc_content<T_TEXT>(request);
  tvc_end_text(text.value);
  return tvc_checked(request, a_vextvapi_config_set_str_value(request.key, text.value));
}

static INT32 clean_all(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_util_set(VEXTVAPI_UTIL_CLEAN_ALL_TYPE, VEXTVAPI_UTIL_CLEAN_ALL_ID,
                                                  VEXTVAPI_UTIL_CLEAN_ALL_VALUE, VEXTVAPI_UTIL_CLEAN_ALL_FLAG));
}

// --- USB storage ---

static constexpr uintptr_t kUsbTag = 0x1D0D7;

static UINT32 g_udetect;  // handle of the running detection; 0: none. Written at start-up and under the request lock

// Callback, on the platform's thread.
static INT32 _tv_ctrl_usb_detect_nfy_fct(INT32 type, void* tag, const char* dev, const char* path, const char* label,
                                         UINT32 port) {
  T_USB_DETECT_NOTIFY notify = {.type = type, .tag = tvc_number_of(tag), .mount_point = {}};
  T_MOUNT_POINT_INFO& mount_point = notify.mount_point;
  if (dev) tvc_copy_text(mount_point.dev, dev);
  if (path) tvc_copy_text(mount_point.path, path);
  if (label) tvc_copy_text(mount_point.label, label);
  mount_point.port = port;
  tvc_notify(TV_CTRL_RECID_WS_NFY_USB_DETECT, &notify);
  return 0;
}

// Starts the detection, unless it is running already.
static INT32 _tvc_misc_usb_detect_init() {
  if (g_udetect != 0) return VEXTVCTRLR_OK;
  g_udetect = a_vextvapi_cb_usb_detect_init();
  INT32 ret = VEXTVCTRLR_FAIL;
  if (g_udetect != 0)
    ret = a_vextvapi_cb_usb_detect_register_callback(g_udetect, _tv_ctrl_usb_detect_nfy_fct,
                                                     reinterpret_cast<void*>(kUsbTag));
  return tvc_failed(ret) ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}

static INT32 start_usb_detection(const RecordRequest&) { return _tvc_misc_usb_detect_init(); }

// Succeeds also when the platform fails to stop the detection.
static INT32 stop_usb_detection(const RecordRequest&) {
  if (g_udetect == 0) return VEXTVCTRLR_OK;
  a_vextvapi_cb_usb_detect_deinit(g_udetect);
  g_udetect = 0;
  return VEXTVCTRLR_OK;
}

static INT32 get_mount_points(const RecordRequest& request) {
  if (g_udetect == 0) return VEXTVCTRLR_FAIL;
  constexpr INT32 kMost = std::size(T_MOUNT_POINT_LIST{}.entries);
  VEXTVAPI_USB_MOUNT_INFO_T scratch[kMost] = {};
  INT32 count = 0;
  INT32 ret = a_vextvapi_cb_usb_detect_getUsbMountedCount(g_udetect, &count);
  if (ret >= 0) {
    count = std::clamp(count, 0, kMost);
    ret = a_vextvapi_cb_usb_detect_getUsbMountedInfo(g_udetect, scratch, 0, &count);
  }
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  T_MOUNT_POINT_LIST& list = tvc_content<T_MOUNT_POINT_LIST>(request);
  list.count = std::clamp(count, 0, kMost);
  for (INT32 i = 0; i < list.count; ++i) {
    T_MOUNT_POINT_INFO& entry = list.entries[i];
    entry = {};
    // The platform may leave its texts unterminated. The last byte of each copy stays 0.
    memcpy(entry.dev, scratch[i].dev, sizeof entry.dev - 1);
    memcpy(entry.path, scratch[i].path, sizeof entry.path - 1);
    memcpy(entry.label, scratch[i].label, sizeof entry.label - 1);
    entry.port = scratch[i].port;
  }
  return VEXTVCTRLR_OK;
}

// Replaces the mount point in the record's text with the description of its device.
static INT32 get_device_description(const RecordRequest& request) {
  if (g_udetect == 0) return VEXTVCTRLR_FAIL;
  T_TEXT& text = tvc_content<T_TEXT>(request);
  tvc_end_text(text.value);
  if (!text.value[0]) return VEXTVCTRLR_INV_ARG;
  tvc_fill_header<T_TEXT>(request, TV_CTRL_GRPID_MISC);
  char description[256] = {};
  const INT32 ret = a_vextvapi_cb_usb_detect_devDesc(g_udetect, text.value, description, sizeof description - 1);
  tvc_end_text(description);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  tvc_copy_text(text.value, description);
  return VEXTVCTRLR_OK;
}

// --- Applications ---

struct NamedNumber {
  char name[20];
  UINT8 number;
};

// Returns the row of a name, in any case of its letters, or null for an unknown name.
template <std::size_t Size>
static const NamedNumber* find_name(const NamedNumber (&table)[Size], const char* name) {
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

// Returns the name of the platform's application mode.
static const char* app_mode_name(INT32 mode) {
  if (mode == VEXTVAPI_APP_MODE_VIDEO || (mode == PORTAL_MODE_PORTAL && access(kVideoAppMarker, F_OK) == 0))
    return kVideoApp;
  for (const NamedNumber& row : kPortalModes)
    if (row.number == mode) return row.name;
  return "UNKNOWN";
}

static INT32 get_app_mode(const RecordRequest& request) {
  T_PORTAL& portal = tvc_content<T_PORTAL>(request);
  const bool video_app_runs = access(kVideoAppMarker, F_OK) == 0;
  tvc_copy_text(portal.app_mode, video_app_runs ? kVideoApp : app_mode_name(a_net_get_app_mode()));
  tvc_log_progress("[TVC_MAIN] app_mode: [%s]\n", portal.app_mode);
  return VEXTVCTRLR_OK;
}

// Logs the platform's result and returns it unchanged.
static INT32 portal_result(const RecordRequest& request, INT32 ret) {
  tvc_failed(ret, request.operation);
  tvc_log_progress("[TVC_MAIN] i4_ret: [%d]\n", ret);
  return ret;
}

// Refuses an unknown mode. For the mode EDFU it first passes the address to the platform.
static INT32 start_portal(const RecordRequest& request) {
  T_PORTAL& portal = tvc_content<T_PORTAL>(request);
  tvc_end_text(portal.app_mode);
  tvc_end_text(portal.edfu_url);
  tvc_log_progress("[TVC_MAIN][%s][%d] -- start portal param dump.\n", request.operation, __LINE__);
  tvc_log_progress("[TVC_MAIN] app_mode: [%s]\n", portal.app_mode);
  tvc_log_progress("[TVC_MAIN] edfu_url: [%s]\n", portal.edfu_url);
  const NamedNumber* const mode = find_name(kPortalModes, portal.app_mode);
  if (!mode) {
    tvc_log_progress("[TVC_MAIN] LINE: %d Error!\n", __LINE__);
    return VEXTVCTRLR_INV_ARG;
  }
  if (mode->number == PORTAL_MODE_EDFU) a_set_edfu_url(portal.edfu_url);
  tvc_log_progress("[TVC_MAIN] ui1_mode: [%d]\n", mode->number);
  return portal_result(request, a_portal_start_ex(mode->number));
}

// An unknown reason is passed to the platform as 0.
static INT32 exit_portal(const RecordRequest& request) {
  T_PORTAL& portal = tvc_content<T_PORTAL>(request);
  tvc_end_text(portal.exit_reason);
  tvc_log_progress("[TVC_MAIN][%s][%d] -- exit portal param dump.\n", request.operation, __LINE__);
  tvc_log_progress("[TVC_MAIN] exit_reason: [%s]\n", portal.exit_reason);
  const NamedNumber* const reason = find_name(kExitReasons, portal.exit_reason);
  return portal_result(request, a_portal_pause_ex(reason ? reason->number : UINT8{0}));
}

static INT32 start_native_app(const RecordRequest& request) {
  T_TEXT& text = tvc_content<T_TEXT>(request);
  tvc_end_text(text.value);
  const NamedNumber* const app = find_name(kNativeApps, text.value);
  if (!app) return VEXTVCTRLR_INV_ARG;
  return tvc_checked(request, a_vextvapi_util_start_native_app(app->number));
}

// Logs a failure and succeeds all the same.
static INT32 call_hbbtv(const RecordRequest& request) {
  const T_HBBTV& hbbtv = tvc_content<T_HBBTV>(request);
  VEXTVAPI_HBBTV_DATA_T block = {};
  block.ui4_length = VEXTVAPI_HBBTV_LENGTH;
  block.ui4_func_type = static_cast<UINT32>(hbbtv.func_type);
  if (hbbtv.func_type == VEXTVAPI_HBBTV_FUNC_APPLICATION) {
    block.ui4_length = VEXTVAPI_HBBTV_LENGTH_APPLICATION;
    block.ui4_value = static_cast<UINT32>(hbbtv.app_type);
    memcpy(block.s_uri, hbbtv.uri, sizeof block.s_uri);
  } else if (hbbtv.func_type == VEXTVAPI_HBBTV_FUNC_ENABLE) {
    block.ui4_value = static_cast<UINT32>(hbbtv.is_enable);
  }
  tvc_failed(a_vextvapi_hbbtv_exchange_data(&block, sizeof block / sizeof(UINT32)), request.operation);
  return VEXTVCTRLR_OK;
}

// --- Shop ---

// Asks whether a USB path has media for the shop, and reports it as the record's media type: a playlist, or null. ask:
// the platform's function.
static INT32 get_shop_media(const RecordRequest& request, INT32 (*ask)(const char* path, UINT8* ret_flag)) {
  T_CBROWSER& browser = tvc_content<T_CBROWSER>(request);
  tvc_end_text(browser.path);
  UINT8 flag = 0;
  printf("[TVC MISC]%s() %d: usb_path=[%s]\n", request.operation, __LINE__, browser.path);
  const INT32 ret = ask(browser.path, &flag);
  if (ret >= 0) browser.type = flag != 0 ? MEDIA_TYPE_PLAYLIST : MEDIA_TYPE_NULL;
  printf("[TVC MISC]%s() %d: ui1_flag=[%d]\n", request.operation, __LINE__, flag);
  printf("[TVC MISC]%s() %d: media_type=[%d]\n", request.operation, __LINE__, browser.type);
  fflush(stdout);
  return ret < 0 ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}

static INT32 get_shop_demo(const RecordRequest& request) {
  return get_shop_media(request, a_vextvapi_util_is_jump_super_shop_demo);
}

static INT32 get_ebanner(const RecordRequest& request) {
  return get_shop_media(request, a_vextvapi_util_is_jump_ebanner);
}

// --- Rows ---

static constexpr char kNativeAppNames[] =
#define TVC_NATIVE_APP(name, number) #name "\0"
#include "vex_tv_ctrl/apps.def"
    ;

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_PASSWORD,
     .type = TYPE_TEXT,
     .get = get_password,
     .set = set_password,
     .get_operation = "_tvc_misc_get_password",
     .set_operation = "_tvc_misc_set_password",
     .key = "g_password__password",
     .name = "Password",
     .help = "The password of the parental lock."},
    {.record = TV_CTRL_RECID_CLEAN_ALL,
     .type = TYPE_ACTION,
     .set = clean_all,
     .set_operation = "_tvc_misc_clean_all",
     .help = "Resets the set to its factory state."},
    {.record = TV_CTRL_RECID_USB_DETECT_INIT,
     .type = TYPE_ACTION,
     .set = start_usb_detection,
     .help = "Starts the detection of USB storage, unless it is running."},
    {.record = TV_CTRL_RECID_USB_DETECT_DEINIT,
     .type = TYPE_ACTION,
     .set = stop_usb_detection,
     .help = "Stops the detection of USB storage."},
    {.record = TV_CTRL_RECID_USB_MOUNT_POINT_LIST,
     .type = TYPE_MOUNT_INFO,
     .get = get_mount_points,
     .get_operation = "_tvc_misc_get_mount_point_list",
     .help = "The mounted USB file systems; fails while the detection of USB storage is stopped."},
    {.record = TV_CTRL_RECID_USB_MOUNT_POINT_DEV_DESC,
     .type = TYPE_TEXT,
     .get = get_device_description,
     .get_operation = "_tvc_misc_get_mount_point_dev_desc",
     .get_needs = "VALUE",
     .name = "Dev Desc",
     .help = "The description of the USB device at the mount point that the query's VALUE names."},
    {.record = TV_CTRL_RECID_OCL_STATUS,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_one_chlist_status",
     .key = "g_misc__one_chlist",
     .name = "One Channel List",
     .help = "Whether the set keeps one channel list for all tuners."},
    {.record = TV_CTRL_RECID_OCL_TOGGLE_TYPE,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .set = set_integer,
     .get_operation = "_tvc_misc_get_one_chlist_toggle_type",
     .set_operation = "_tvc_misc_set_one_chlist_toggle_type",
     .key = "g_misc__ocl_toggle_type",
     .name = "One Channel List Toggle Type",
     .help = "Which channels the one channel list shows, in the platform's numbers."},
    {.record = TV_CTRL_RECID_CAB_CHANNEL_ID,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_cab_channel_id",
     .key = "g_misc__cab_channel_id",
     .name = "Cable Channel ID",
     .help = "The identifier of the cable channel that was watched last."},
    {.record = TV_CTRL_RECID_AIR_CHANNEL_ID,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_air_channel_id",
     .key = "g_misc__air_channel_id",
     .name = "Air Channel ID",
     .help = "The identifier of the terrestrial channel that was watched last."},
    {.record = TV_CTRL_RECID_SAT_CHANNEL_ID,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_sat_channel_id",
     .key = "g_misc__sat_channel_id",
     .name = "Satellite Channel ID",
     .help = "The identifier of the satellite channel that was watched last."},
    {.record = TV_CTRL_RECID_OCL_CHANNEL_ID,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_ocl_channel_id",
     .key = "g_misc__misc_ocl_channel_id",
     .name = "One Channel List Channel ID",
     .help = "The identifier of the channel of the one channel list that was watched last."},
    {.record = TV_CTRL_RECID_DTV_TUNER_TYPE,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_dtv_tuner_type",
     .key = "g_misc__dtv_tuner_type",
     .name = "DTV Tuner Type",
     .help = "The digital tuner in use, in the platform's numbers."},
    {.record = TV_CTRL_RECID_DTV_TUNER_BS_SRC,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .set = set_integer,
     .get_operation = "_tvc_misc_get_dtv_tuner_bs_src",
     .set_operation = "_tvc_misc_set_dtv_tuner_bs_src",
     .key = "g_bs__bs_src",
     .name = "DTV Tuner BS Source",
     .help = "The source of the broadcast, in the platform's numbers."},
    {.record = TV_CTRL_RECID_HBBTV_FUNC,
     .type = TYPE_HBBTV,
     .set = call_hbbtv,
     .set_operation = "_tvc_misc_hbbtv_func",
     .set_needs = "funcType",
     .help = "Switches HbbTV on or off, or passes an application to it."},
    {.record = TV_CTRL_RECID_START_PORTAL,
     .type = TYPE_PORTAL,
     .set = start_portal,
     .set_operation = "_tvc_misc_start_portal",
     .set_needs = "appMode",
     .help = "Starts the internet portal in the requested mode."},
    {.record = TV_CTRL_RECID_EXIT_PORTAL,
     .type = TYPE_PORTAL,
     .set = exit_portal,
     .set_operation = "_tvc_misc_exit_portal",
     .help = "Leaves the internet portal, and says why."},
    {.record = TV_CTRL_RECID_GET_PORTAL_APP_MODE,
     .type = TYPE_PORTAL,
     .get = get_app_mode,
     .help = "The current mode of the internet portal."},
    {.record = TV_CTRL_RECID_START_NATIVE_APP,
     .type = TYPE_TEXT,
     .set = start_native_app,
     .set_operation = "_tvc_misc_start_native_app",
     .help = "Starts one of the set's own applications.",
     .values = kNativeAppNames},
    {.record = TV_CTRL_RECID_DVBS_SUPPORT_STATUS,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_dvbs_support_status",
     .key = "g_misc__dvbs_support",
     .name = "DVBS Support Status",
     .help = "Whether the set supports DVB-S."},
    {.record = TV_CTRL_RECID_CH_LOGO_STATUS,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_ch_logo_status",
     .key = "g_misc__ch_logos_status",
     .name = "Channel Logo Status",
     .help = "Whether channels are shown with their logos."},
    {.record = TV_CTRL_RECID_VIDEO_SHOP_MODE,
     .type = TYPE_INTEGER,
     .get = get_integer,
     .get_operation = "_tvc_misc_get_video_shop_mode",
     .key = "g_video__shop_mode",
     .name = "Video Shop Mode",
     .help = "Whether the picture is in shop mode."},
    {.record = TV_CTRL_RECID_JUMP_SUPER_SHOP_DEMO,
     .type = TYPE_CBROWSER,
     .get = get_shop_demo,
     .get_operation = "_tvc_misc_get_jump_super_shop_demo",
     .get_needs = "PATH",
     .help = "Whether the query's USB path has a demonstration for the shop: TYPE is 5 if it has, else 0."},
    {.record = TV_CTRL_RECID_JUMP_EBANNER,
     .type = TYPE_CBROWSER,
     .get = get_ebanner,
     .get_operation = "_tvc_misc_get_jump_ebanner",
     .get_needs = "PATH",
     .help = "Whether the query's USB path has an e-banner for the shop: TYPE is 5 if it has, else 0."},
};

constinit const Handler handler_MISC = {
    .group = TV_CTRL_GRPID_MISC, .records = tvc_records<kRows>(), .start = tv_ctrl_misc_init, .start_turn = 3};

INT32 tv_ctrl_get_misc(UINT16 ui2_id, void* pv_content) { return tvc_handle_get(handler_MISC, ui2_id, pv_content); }

INT32 tv_ctrl_set_misc(UINT16 ui2_id, void* pv_content) { return tvc_handle_set(handler_MISC, ui2_id, pv_content); }

INT32 tv_ctrl_misc_init(void) { return tvc_failed(_tvc_misc_usb_detect_init()) ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK; }
