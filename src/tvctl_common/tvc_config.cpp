// Configuration group: values of the configuration store by key or by item id, and texts of the menu's language.
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <mutex>
#include <utility>

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/text.h"
#include "tvapi/config.h"
#include "tvctl_common/library_check.h"
#include "tvctl_common/record.h"

static constexpr uintptr_t kCallbackTag = 0x14BF88;
static constexpr INT32 kUpdate = 3;
static constexpr INT32 kValueChanged = -1;  // notify id of the platform's change record
static constexpr const char* kLanguageKey = "g_gui_lang__gui_language";
// What the platform tells of without being asked each time.
static constexpr const char* kWatchedKeys[] = {kLanguageKey, "g_misc__dmr_2nd_device", "g_misc__tv_network_name",
                                               "g_misc__dvb_subtitle_enabled"};

// --- Language strings ---

using GetLangStr = const char* (*)(const char* lang_id);

static constexpr const char* kLibraryFolder = "/3rd/i18n/";
static constexpr const char* kFallbackLanguage = "ENG";
static constexpr const char* kLibrarySymbol = "vexuiGetLangStr";

// Guards what follows. A look-up holds it while it is inside the library, a reset while it closes it; no function of
// the platform is called under it, since the platform may be waiting in a reset.
static std::mutex lang_mutex;
static void* lang_res_so;
static GetLangStr getStrFunPtr;
static INT32 lang_value = -1;  // of kLanguageKey; negative: not read yet
static UINT32 lang_resets;     // a value that was read before the latest reset is not kept

static void close_library() {
  getStrFunPtr = nullptr;
  if (void* const library = std::exchange(lang_res_so, nullptr)) dlclose(library);
}

static void _tv_ctrl_config_reset_lang_res() {
  tvc_log_progress("[TVC_MAIN] FUNC: [%s], LINE: [%d].\n", __func__, 22);
  const std::lock_guard guard(lang_mutex);
  close_library();
  lang_value = -1;
  ++lang_resets;
}

// Runs when the plugin is closed; at the process's exit another thread may be inside a look-up for good.
[[gnu::destructor]] static void unload() {
  if (const std::unique_lock guard(lang_mutex, std::try_to_lock); guard) close_library();
}

// The three letters of a language value, upper case.
static void language_code(INT32 value, char (&ret_code)[4]) {
  for (int i = 0; i < 3; ++i) ret_code[i] = tvc_upper(static_cast<char>(static_cast<UINT32>(value) >> (24 - 8 * i)));
  ret_code[3] = '\0';
}

static void* open_library(const char* code) {
  char path[32];
  snprintf(path, sizeof path, "%s%s.so", kLibraryFolder, code);
  return tvc_library_is_whole(path) ? dlopen(path, RTLD_LAZY) : nullptr;
}

// Opens the library of the language, else the fallback's. `code` is null when the language is not known. The caller
// holds the mutex.
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
  return symbol != nullptr;
}

// The language's code; false when the platform does not tell. The caller holds the mutex, which is free while the
// platform is asked. A value that was reset meanwhile is asked for again, but not for ever: the latest is then taken,
// and not kept.
static bool read_language(std::unique_lock<std::mutex>& guard, char (&ret_code)[4]) {
  constexpr int kMostReads = 8;
  bool known = false;
  for (int reads = 0; lang_value < 0 && reads < kMostReads; ++reads) {
    const UINT32 resets = lang_resets;
    INT32 value = 0;
    guard.unlock();
    const INT32 ret = a_vextvapi_config_get_value(kEveryInput, kLanguageKey, &value);
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

static INT32 _tv_ctrl_config_get_lang_string(UINT16 ui2_id, T_LANG_STRING& content) {
  if (tv_ctrl_get_type_by_id(ui2_id) != TYPE_LANG_STRING) return VEXTVCTRLR_INV_ARG;
  const INT32 ret = _tv_ctrl_config_getLangStr(content.lang_id, content.lang_string);
  if (ret >= 0) return ret;
  TVC_LOG_FAIL(ret);
  return VEXTVCTRLR_FAIL;
}

// --- Values ---

static INT32 _tv_ctrl_config_get_value_bool(T_CONFIG& config) {
  if (config.cfg_item == 0) return VEXTVCTRLR_INV_ARG;
  UINT8 value = 0;
  const INT32 ret = getConfigValueBool(config.cfg_item, &value);
  if (ret < 0) {
    TVC_LOG_FAIL(ret);
    return VEXTVCTRLR_FAIL;
  }
  config.valueint = value != 0;
  return ret;
}

static INT32 _tv_ctrl_config_get_value_number(T_CONFIG& config) {
  if (!config.cfg_id[0] && config.cfg_item == 0) return VEXTVCTRLR_INV_ARG;
  INT32 value = 0;
  const INT32 ret = config.cfg_id[0] ? a_vextvapi_config_get_value(kEveryInput, config.cfg_id, &value)
                                     : getConfigValueInt32(config.cfg_item, &value);
  if (ret < 0) {
    TVC_LOG_FAIL(ret);
    return VEXTVCTRLR_FAIL;
  }
  config.valueint = value;
  return ret;
}

// Item 0x07240005 looks a text up: what is looked up goes in, surrounded by bytes of 1, and the answer comes back in
// its place.
static constexpr UINT32 kLookUpItem = 0x07240005;
static constexpr std::size_t kLongestLookUp = 30;

static INT32 look_up_string(T_CONFIG& config) {
  char scratch[kLongestLookUp + 2];
  memset(scratch, 1, sizeof scratch - 1);
  scratch[sizeof scratch - 1] = '\0';
  memcpy(scratch, config.valuestring, strnlen(config.valuestring, kLongestLookUp));
  UINT32 length = sizeof scratch - 1;
  const INT32 ret = getConfigValueString(kLookUpItem, &length, scratch);
  scratch[sizeof scratch - 1] = '\0';
  if (ret >= 0) tvc_copy_text(config.valuestring, scratch);
  return ret;
}

static INT32 _tv_ctrl_config_get_value_string(T_CONFIG& config) {
  if (!config.cfg_id[0] && config.cfg_item == 0) return VEXTVCTRLR_INV_ARG;
  UINT32 length = sizeof config.valuestring - 1;
  INT32 ret = 0;
  if (config.cfg_id[0]) {
    ret = a_vextvapi_config_get_str_value(config.cfg_id, config.valuestring, &length);
  } else if (config.cfg_item == kLookUpItem) {
    const std::size_t wanted = strnlen(config.valuestring, sizeof config.valuestring);
    if (wanted == 0 || wanted > kLongestLookUp) return VEXTVCTRLR_INV_ARG;
    ret = look_up_string(config);
  } else {
    ret = getConfigValueString(config.cfg_item, &length, config.valuestring);
  }
  config.valuestring[sizeof config.valuestring - 1] = '\0';  // the platform need not
  if (ret >= 0) return ret;
  TVC_LOG_FAIL(ret);
  return VEXTVCTRLR_FAIL;
}

static INT32 _tv_ctrl_config_get_value_range(T_CONFIG& config) {
  if (!config.cfg_id[0]) return VEXTVCTRLR_INV_ARG;
  INT32 limits = 0;
  const bool limited = a_vextvapi_config_get_minmaxvalue(kEveryInput, config.cfg_id, &limits) == 0;
  config.valuemin = limited ? static_cast<INT16>(limits) : 0;
  config.valuemax = limited ? limits >> 16 : 0;
  INT32 value = 0;
  const INT32 ret = a_vextvapi_config_get_value(kEveryInput, config.cfg_id, &value);
  if (ret < 0) {
    TVC_LOG_FAIL(ret);
    return VEXTVCTRLR_FAIL;
  }
  config.valueint = value;
  return ret;
}

INT32 tv_ctrl_config_get(UINT16 ui2_id, void* pv_content) {
  if (!pv_content || tvc_group(ui2_id) != TV_CTRL_GRPID_CONFIG) return VEXTVCTRLR_INV_ARG;
  const int record = tvc_record(ui2_id);
  if (record == TV_CTRL_RECID_CFG_LANG_STRING) {
    T_LANG_STRING& text = *static_cast<T_LANG_STRING*>(pv_content);
    tvc_end_text(text.lang_id);
    return _tv_ctrl_config_get_lang_string(ui2_id, text);
  }
  if (record < TV_CTRL_RECID_CFG_VALUE_BOOL || record > TV_CTRL_RECID_CFG_VALUE_RANGE) return VEXTVCTRLR_OK;
  T_CONFIG& config = *static_cast<T_CONFIG*>(pv_content);
  tvc_end_text(config.cfg_id);
  switch (record) {
    case TV_CTRL_RECID_CFG_VALUE_BOOL:
      return _tv_ctrl_config_get_value_bool(config);
    case TV_CTRL_RECID_CFG_VALUE_NUMBER:
      return _tv_ctrl_config_get_value_number(config);
    case TV_CTRL_RECID_CFG_VALUE_STRING:
      return _tv_ctrl_config_get_value_string(config);
    default:
      return _tv_ctrl_config_get_value_range(config);
  }
}

// What a set answers for the platform's result, which is logged under the operation's name when it is a failure.
static INT32 set_result(const char* operation, INT32 ret, int line = __builtin_LINE()) {
  if (ret >= 0) return ret;
  tvc_log_fail(operation, line, ret);
  return VEXTVCTRLR_FAIL;
}

INT32 tv_ctrl_config_set(UINT16 ui2_id, void* pv_content) {
  if (!pv_content || tvc_group(ui2_id) != TV_CTRL_GRPID_CONFIG) return VEXTVCTRLR_INV_ARG;
  const int record = tvc_record(ui2_id);
  if (record < TV_CTRL_RECID_CFG_VALUE_ACTION || record > TV_CTRL_RECID_CFG_VALUE_STRING) return VEXTVCTRLR_OK;
  T_CONFIG& config = *static_cast<T_CONFIG*>(pv_content);
  tvc_end_text(config.cfg_id);
  tvc_end_text(config.valuestring);
  const bool by_key = config.cfg_id[0] != '\0' &&
                      (record == TV_CTRL_RECID_CFG_VALUE_NUMBER || record == TV_CTRL_RECID_CFG_VALUE_STRING);
  if (!by_key && config.cfg_item == 0) return VEXTVCTRLR_INV_ARG;
  switch (record) {
    case TV_CTRL_RECID_CFG_VALUE_ACTION:
      return set_result("_tv_ctrl_config_action", setConfigValue(config.cfg_item));
    case TV_CTRL_RECID_CFG_VALUE_BOOL:
      return set_result("_tv_ctrl_config_set_value_bool", setConfigValueBool(config.cfg_item, config.valueint != 0));
    case TV_CTRL_RECID_CFG_VALUE_NUMBER:
      return set_result("_tv_ctrl_config_set_value_number",
                        by_key ? a_vextvapi_config_set_value(kEveryInput, config.cfg_id, config.valueint, kUpdate)
                               : setConfigValueInt32(config.cfg_item, config.valueint));
    default:
      return set_result("_tv_ctrl_config_set_value_string",
                        by_key ? a_vextvapi_config_set_str_value(config.cfg_id, config.valuestring)
                               : setConfigValueString(config.cfg_item, config.valuestring));
  }
}

// --- Changes ---

// Runs on the platform's thread.
static INT32 _tv_ctrl_config_update_nfy_fct(INT32 notifyId, void* pv_tag, void* pv_arg1, void* pv_arg2, void*, void*) {
  T_CONFIG_NOTIFY notify = {
      .id = notifyId, .tag = static_cast<INT32>(reinterpret_cast<intptr_t>(pv_tag)), .arg1 = 0, .arg2 = {}};
  if (notifyId != kValueChanged) {
    notify.arg1 = static_cast<INT32>(reinterpret_cast<intptr_t>(pv_arg1));
  } else if (pv_arg2) {
    const auto& change = *static_cast<const VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T*>(pv_arg2);
    char key[sizeof change.s_cfg + 1] = {};
    memcpy(key, change.s_cfg, sizeof change.s_cfg);  // it need not be terminated
    if (strcmp(key, kLanguageKey) == 0) _tv_ctrl_config_reset_lang_res();
    tvc_copy_text(notify.arg2, key);
  }
  const INT32 ret = tv_ctrl_notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_CONFIG_UPDATE), &notify);
  if (ret < 0) TVC_LOG_FAIL(ret);
  return 0;
}

INT32 tv_ctrl_config_init(void) {
  for (const char* const key : kWatchedKeys)
    if (const INT32 ret = a_vextvapi_config_add_value_changed_callback(key); ret < 0) {
      TVC_LOG_FAIL(ret);
      return VEXTVCTRLR_FAIL;
    }
  const INT32 ret =
      a_vextvapi_config_reg_callback(_tv_ctrl_config_update_nfy_fct, reinterpret_cast<void*>(kCallbackTag));
  if (ret >= 0) return VEXTVCTRLR_OK;
  TVC_LOG_FAIL(ret);
  return VEXTVCTRLR_FAIL;
}
