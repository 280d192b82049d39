// Configuration group: values of the configuration store by key or by item id, and texts in the menu language.
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <mutex>
#include <utility>

#include "tv_ctrl_util/log.h"
#include "tvapi/config.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/library_check.h"
#include "tvctl_common/record.h"

static constexpr uintptr_t kCallbackTag = 0x14BF88;
static constexpr const char* kLanguageKey = "g_gui_lang__gui_language";
// The keys whose changes the platform reports to the plugin.
static constexpr const char* kWatchedKeys[] = {kLanguageKey, "g_misc__dmr_2nd_device", "g_misc__tv_network_name",
                                               "g_misc__dvb_subtitle_enabled"};

// --- Language strings ---

using GetLangStr = const char* (*)(const char* lang_id);

static constexpr const char* kLibraryFolder = "/3rd/i18n/";
static constexpr const char* kFallbackLanguage = "ENG";
static constexpr const char* kLibrarySymbol = "vexuiGetLangStr";

// Guards the variables below. A look-up holds it while it calls the language library, a reset while it closes the
// library. No platform function is called under it: a thread of the platform may be waiting for it in a reset.
static std::mutex lang_mutex;
static void* lang_res_so;
static GetLangStr getStrFunPtr;
static INT32 lang_value = -1;  // value of kLanguageKey; negative: not read since the last reset
static UINT32 lang_resets;     // number of resets; a value that was read before the last one is out of date

static void close_library() {
  getStrFunPtr = nullptr;
  if (void* const library = std::exchange(lang_res_so, nullptr)) dlclose(library);
}

// Forgets the menu language, which has changed. Runs on the platform's thread.
static void _tv_ctrl_config_reset_lang_res() {
  tvc_log_progress("[TVC_MAIN] FUNC: [%s], LINE: [%d].\n", __func__, 22);
  const std::lock_guard guard(lang_mutex);
  close_library();
  lang_value = -1;
  ++lang_resets;
}

// Runs when the plugin is closed, and when the process exits. It does not wait for the mutex: at exit, another thread
// may be stopped inside a look-up and hold it for ever.
[[gnu::destructor]] static void unload() {
  if (const std::unique_lock guard(lang_mutex, std::try_to_lock); guard) close_library();
}

// Extracts the three letters of a language value, in upper case. The highest byte is the first letter.
static void language_code(INT32 value, char (&ret_code)[4]) {
  for (int i = 0; i < 3; ++i) ret_code[i] = tvc_upper(static_cast<char>(static_cast<UINT32>(value) >> (24 - 8 * i)));
  ret_code[3] = '\0';
}

// Returns the handle of a language's library, or null when its file is missing or damaged.
static void* open_library(const char* code) {
  char path[32];
  snprintf(path, sizeof path, "%s%s.so", kLibraryFolder, code);
  return tvc_library_is_whole(path) ? dlopen(path, RTLD_LAZY) : nullptr;
}

// Opens the library of the language or, if there is none, of the fallback language, and finds its function. code: null
// when the language is not known. Returns false on failure. The caller holds the mutex.
static bool load_library(const char* code) {
  close_library();
  if (code) {
    tvc_log_progress("[TVC_MAIN] i18n dynamic lib path: [%s%s.so].\n", kLibraryFolder, code);
    lang_res_so = open_library(code);
  }
  if (!lang_res_so) lang_res_so = open_library(kFallbackLanguage);
  if (!lang_res_so) return false;
  dlerror();
  void* const symbol = dlsym(lang_res_so, kLibrarySymbol);
  if (dlerror()) {
    tvc_log_fail("_tv_ctrl_config_getLangStr", __LINE__, VEXTVCTRLR_FAIL);
    return false;
  }
  getStrFunPtr = reinterpret_cast<GetLangStr>(symbol);
  return symbol;
}

// Gets the code of the menu language, from the cache or from the platform. Returns false when the platform call fails.
// The caller holds the mutex, which is released during the platform call. After a reset during that call, the value is
// read again, kMostReads times at most; the last value is then returned without being cached.
static bool read_language(std::unique_lock<std::mutex>& guard, char (&ret_code)[4]) {
  constexpr int kMostReads = 8;
  bool known = false;
  for (int reads = 0; lang_value < 0 && reads < kMostReads; ++reads) {
    const UINT32 resets = lang_resets;
    INT32 value = 0;
    guard.unlock();
    const INT32 ret = a_vextvapi_config_get_value(VEXTVAPI_CONFIG_EVERY_INPUT, kLanguageKey, &value);
    guard.lock();
    known = ret == VEXTVCTRLR_OK;
    if (known) language_code(value, ret_code);
    if (resets != lang_resets) continue;
    if (known) lang_value = value;
    return known;
  }
  if (lang_value < 0) return known;
  language_code(lang_value, ret_code);
  return true;
}

// Looks up a text in the library of the menu language. lang_string has the size of the member of that name in
// T_LANG_STRING, and stays untouched when the library does not have the text.
static INT32 _tv_ctrl_config_getLangStr(const char* lang_id, char* lang_string) {
  if (!lang_id || !*lang_id || !lang_string) return VEXTVCTRLR_INV_ARG;
  std::unique_lock guard(lang_mutex);
  if (!getStrFunPtr) {
    char code[4];
    const bool known = read_language(guard, code);
    if (!getStrFunPtr && !load_library(known ? code : nullptr)) return VEXTVCTRLR_FAIL;
  }
  if (const char* const text = getStrFunPtr(lang_id))
    tvc_copy_text(lang_string, sizeof T_LANG_STRING::lang_string, text);
  return VEXTVCTRLR_OK;
}

static INT32 get_lang_string(const RecordRequest& request) {
  T_LANG_STRING& content = tvc_content<T_LANG_STRING>(request);
  tvc_end_text(content.lang_id);
  const INT32 ret = _tv_ctrl_config_getLangStr(content.lang_id, content.lang_string);
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : ret;
}

// --- Values ---

// Returns the request's record, after terminating its key.
static T_CONFIG& config_of(const RecordRequest& request) {
  T_CONFIG& config = tvc_content<T_CONFIG>(request);
  tvc_end_text(config.cfg_id);
  return config;
}

static bool has_key(const T_CONFIG& config) { return config.cfg_id[0] != '\0'; }

static bool has_key_or_item(const T_CONFIG& config) { return has_key(config) || config.cfg_item != 0; }

static INT32 get_bool(const RecordRequest& request) {
  T_CONFIG& config = config_of(request);
  if (config.cfg_item == 0) return VEXTVCTRLR_INV_ARG;
  UINT8 value = 0;
  const INT32 ret = getConfigValueBool(config.cfg_item, &value);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  config.valueint = value != 0;
  return ret;
}

static INT32 get_number(const RecordRequest& request) {
  T_CONFIG& config = config_of(request);
  if (!has_key_or_item(config)) return VEXTVCTRLR_INV_ARG;
  INT32 value = 0;
  const INT32 ret = has_key(config) ? a_vextvapi_config_get_value(VEXTVAPI_CONFIG_EVERY_INPUT, config.cfg_id, &value)
                                    : getConfigValueInt32(config.cfg_item, &value);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  config.valueint = value;
  return ret;
}

// Looks up the name that the record's text holds, and replaces it with the text that the platform found.
static INT32 look_up_string(T_CONFIG& config) {
  char scratch[VEXTVAPI_CONFIG_LOOK_UP_LENGTH + 2];
  memset(scratch, 1, sizeof scratch - 1);
  scratch[sizeof scratch - 1] = '\0';
  memcpy(scratch, config.valuestring, strnlen(config.valuestring, VEXTVAPI_CONFIG_LOOK_UP_LENGTH));
  UINT32 length = sizeof scratch - 1;
  const INT32 ret = getConfigValueString(VEXTVAPI_CONFIG_ITEM_LOOK_UP, &length, scratch);
  scratch[sizeof scratch - 1] = '\0';
  if (ret >= 0) tvc_copy_text(config.valuestring, scratch);
  return ret;
}

static INT32 get_string(const RecordRequest& request) {
  T_CONFIG& config = config_of(request);
  if (!has_key_or_item(config)) return VEXTVCTRLR_INV_ARG;
  UINT32 length = sizeof config.valuestring - 1;
  INT32 ret = 0;
  if (has_key(config)) {
    ret = a_vextvapi_config_get_str_value(config.cfg_id, config.valuestring, &length);
  } else if (config.cfg_item == VEXTVAPI_CONFIG_ITEM_LOOK_UP) {
    const std::size_t wanted = strnlen(config.valuestring, sizeof config.valuestring);
    if (wanted == 0 || wanted > VEXTVAPI_CONFIG_LOOK_UP_LENGTH) return VEXTVCTRLR_INV_ARG;
    ret = look_up_string(config);
  } else {
    ret = getConfigValueString(config.cfg_item, &length, config.valuestring);
  }
  tvc_end_text(config.valuestring);  // the platform may leave it unterminated
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : ret;
}

// Reads a number and its limits. A key without limits has both limits 0.
static INT32 get_range(const RecordRequest& request) {
  T_CONFIG& config = config_of(request);
  if (!has_key(config)) return VEXTVCTRLR_INV_ARG;
  INT32 limits = 0;
  const bool limited = a_vextvapi_config_get_minmaxvalue(VEXTVAPI_CONFIG_EVERY_INPUT, config.cfg_id, &limits) == 0;
  config.valuemin = limited ? static_cast<INT16>(limits) : 0;
  config.valuemax = limited ? limits >> 16 : 0;
  INT32 value = 0;
  const INT32 ret = a_vextvapi_config_get_value(VEXTVAPI_CONFIG_EVERY_INPUT, config.cfg_id, &value);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  config.valueint = value;
  return ret;
}

static INT32 trigger_action(const RecordRequest& request) {
  const T_CONFIG& config = config_of(request);
  if (config.cfg_item == 0) return VEXTVCTRLR_INV_ARG;
  const INT32 ret = setConfigValue(config.cfg_item);
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : ret;
}

static INT32 set_bool(const RecordRequest& request) {
  const T_CONFIG& config = config_of(request);
  if (config.cfg_item == 0) return VEXTVCTRLR_INV_ARG;
  const INT32 ret = setConfigValueBool(config.cfg_item, config.valueint != 0);
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : ret;
}

static INT32 set_number(const RecordRequest& request) {
  const T_CONFIG& config = config_of(request);
  if (!has_key_or_item(config)) return VEXTVCTRLR_INV_ARG;
  const INT32 ret = has_key(config) ? a_vextvapi_config_set_value(VEXTVAPI_CONFIG_EVERY_INPUT, config.cfg_id,
                                                                  config.valueint, VEXTVAPI_CONFIG_UPDATE)
                                    : setConfigValueInt32(config.cfg_item, config.valueint);
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : ret;
}

static INT32 set_string(const RecordRequest& request) {
  T_CONFIG& config = config_of(request);
  tvc_end_text(config.valuestring);
  if (!has_key_or_item(config)) return VEXTVCTRLR_INV_ARG;
  const INT32 ret = has_key(config) ? a_vextvapi_config_set_str_value(config.cfg_id, config.valuestring)
                                    : setConfigValueString(config.cfg_item, config.valuestring);
  return tvc_failed(ret, request.operation) ? VEXTVCTRLR_FAIL : ret;
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_CFG_VALUE_ACTION,
     .type = TYPE_CONFIG,
     .set = trigger_action,
     .set_operation = "_tv_ctrl_config_action",
     .set_needs = "cfgItem",
     .help = "Triggers an action in the configuration store, named by its item id."},
    {.record = TV_CTRL_RECID_CFG_VALUE_BOOL,
     .type = TYPE_CONFIG,
     .get = get_bool,
     .set = set_bool,
     .get_operation = "_tv_ctrl_config_get_value_bool",
     .set_operation = "_tv_ctrl_config_set_value_bool",
     .get_needs = "cfgItem",
     .set_needs = "cfgItem valueInt",
     .help = "A boolean in the configuration store, named by its item id."},
    {.record = TV_CTRL_RECID_CFG_VALUE_NUMBER,
     .type = TYPE_CONFIG,
     .get = get_number,
     .set = set_number,
     .get_operation = "_tv_ctrl_config_get_value_number",
     .set_operation = "_tv_ctrl_config_set_value_number",
     .get_needs = "cfgId|cfgItem",
     .set_needs = "cfgId|cfgItem valueInt",
     .help = "A number in the configuration store, for example the brightness, named by its key, such as "
             "g_video__brightness, or item id."},
    {.record = TV_CTRL_RECID_CFG_VALUE_STRING,
     .type = TYPE_CONFIG,
     .get = get_string,
     .set = set_string,
     .get_operation = "_tv_ctrl_config_get_value_string",
     .set_operation = "_tv_ctrl_config_set_value_string",
     .get_needs = "cfgId|cfgItem",
     .set_needs = "cfgId|cfgItem valueString",
     .help = "A text in the configuration store, named by its key, such as g_misc__tv_network_name, or item id."},
    {.record = TV_CTRL_RECID_CFG_VALUE_RANGE,
     .type = TYPE_CONFIG,
     .get = get_range,
     .get_operation = "_tv_ctrl_config_get_value_range",
     .get_needs = "cfgId",
     .help = "A number in the configuration store with its limits, named by its key, such as g_video__brightness."},
    {.record = TV_CTRL_RECID_CFG_LANG_STRING,
     .type = TYPE_LANG_STRING,
     .get = get_lang_string,
     .get_operation = "_tv_ctrl_config_get_lang_string",
     .get_needs = "langId",
     .help = "A text of the menus, in the menu language."},
};

constinit const Handler handler_CONFIG = {.group = TV_CTRL_GRPID_CONFIG,
                                          .records = tvc_records<kRows>(),
                                          .set_without_record = WithoutRecord::kRefused,
                                          .start = tv_ctrl_config_init,
                                          .start_turn = 1};

INT32 tv_ctrl_config_get(UINT16 ui2_id, void* pv_content) { return tvc_handle_get(handler_CONFIG, ui2_id, pv_content); }

INT32 tv_ctrl_config_set(UINT16 ui2_id, void* pv_content) { return tvc_handle_set(handler_CONFIG, ui2_id, pv_content); }

// --- Changes ---

// Callback, on the platform's thread.
static INT32 _tv_ctrl_config_update_nfy_fct(INT32 notify_id, void* pv_tag, void* pv_arg1, void* pv_arg2, void*, void*) {
  T_CONFIG_NOTIFY notify = {.id = notify_id, .tag = tvc_number_of(pv_tag), .arg1 = 0, .arg2 = {}};
  if (notify_id != VEXTVAPI_CONFIG_NFY_VALUE_CHANGED) {
    notify.arg1 = tvc_number_of(pv_arg1);
  } else if (pv_arg2) {
    const auto& change = *static_cast<const VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T*>(pv_arg2);
    char key[sizeof change.s_cfg + 1] = {};
    memcpy(key, change.s_cfg, sizeof change.s_cfg);  // a key that fills the array is not terminated
    if (strcmp(key, kLanguageKey) == 0) _tv_ctrl_config_reset_lang_res();
    tvc_copy_text(notify.arg2, key);
  }
  tvc_notify(TV_CTRL_RECID_WS_NFY_CONFIG_UPDATE, &notify);
  return 0;
}

INT32 tv_ctrl_config_init(void) {
  for (const char* const key : kWatchedKeys)
    if (tvc_failed(a_vextvapi_config_add_value_changed_callback(key))) return VEXTVCTRLR_FAIL;
  const INT32 ret =
      a_vextvapi_config_reg_callback(_tv_ctrl_config_update_nfy_fct, reinterpret_cast<void*>(kCallbackTag));
  return tvc_failed(ret) ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}
