// The host's entry points for start-up, get and set, whose results "dtv_js_plugin.h" describes; those for listeners are
// in listener.cpp. Also releases memory when the plugin is unloaded.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/listener.h"
#include "tv_ctrl_api/request.h"
#include "tv_ctrl_api/response.h"
#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/text.h"

// 1 once the function a_<name> has run, so that it runs only once. Requests do not check them. The host calls both from
// one thread, before any request.
static int dtv_jsp_init_res;
static int dtv_jsp_init;

// The request lock: held during a whole request, it guards the variables below. Outermost lock.
static std::mutex mutex_recv;
static void* _pt_content;      // content buffer: holds the record of the current request; allocated when first needed
static INT32 _z_content_size;  // size of the largest record in bytes; the buffer has one more, which stays 0
static char _s_uri[256];       // the request's URI, cut to 255 characters, for the response

// Allocates the content buffer if there is none. Returns whether there is one. The caller holds mutex_recv.
static bool allocate_content(const char* entry) {
  if (!_pt_content) _pt_content = tv_ctrl_malloc_content_max(&_z_content_size);
  if (!_pt_content) TVC_LOG_AS(kLogError, entry, "error: No enough memory to malloc _pt_content!");
  return _pt_content;
}

int32_t a_dtv_jsp_init_res(void) {
  if (dtv_jsp_init_res > 0) return VEXTVCTRLR_OK;
  vex_tvc_read_log_lvl();
  {
    const std::lock_guard guard(t_nfy_rw_lock);
    _jsp_empty_slist();
  }
  {
    const std::lock_guard guard(mutex_recv);
    allocate_content(__func__);
  }
  dtv_jsp_init_res = 1;
  return VEXTVCTRLR_OK;
}

int32_t a_dtv_jsp_init(void) {
  if (dtv_jsp_init > 0) return VEXTVCTRLR_OK;
  tv_ctrl_init(tv_ctrl_api_notify_func);
  dtv_jsp_init = 1;  // also after a failure, which is not reported to the host
  return VEXTVCTRLR_OK;
}

// The item that a request reads or changes.
struct Target {
  UINT16 id = 0;
  UINT8 type = TYPE_INVALID;
  const ItemType* item = nullptr;  // null for a type without a row
};

// Looks up the item of a URI. Returns false for an unknown URI.
static bool find_target(const char* entry, const char* uri, Target& ret_target) {
  UINT16 id = 0;
  UINT8 type = TYPE_INVALID;
  if (tv_ctrl_get_info_with_uri(uri, &id, &type) != VEXTVCTRLR_OK) return false;
  TVC_LOG_AS(kLogValue, entry, "uri id: %d, type:%d!\n", id, type);
  ret_target = {.id = id, .type = type, .item = tvc_item_type(type)};
  return true;
}

// Makes sure that there is a content buffer, and clears it for the target. Clears just the target's record, but the
// whole buffer for a type without a row, and for one with also_set_as. Returns false when memory runs out.
static bool clear_content(const char* entry, const Target& target) {
  if (!allocate_content(entry)) return false;
  const bool one_record = target.item && target.item->record_size > 0 && target.item->also_set_as == TYPE_NONE;
  memset(_pt_content, 0, one_record ? target.item->record_size : static_cast<std::size_t>(_z_content_size));
  return true;
}

// Frees the texts that the handler put into the record. Called once the record has been rendered, or has been set.
static void free_texts(const Target& target) {
  if (target.item && _pt_content) tvc_free_record_texts(*target.item, _pt_content);
}

// --- Get ---

// Copies the response to the host's buffer, without a terminator, cut to DTV_JSP_RESPONSE_MAX bytes. Without a response
// the buffer stays as it is.
static void copy_response(const char* entry, void* pv_content) {
  if (!_ps_send_buff) {
    TVC_LOG_AS(kLogTrace, entry, "[WARNING] Send buffer is NULL!!!\n");
    return;
  }
  TVC_LOG_AS(kLogTrace, entry, "buff_len: %d.\n", _z_send_buff_len);
  TVC_LOG_AS(kLogTrace, entry, "--> \n%s\n", _ps_send_buff);
  _z_send_buff_len = std::min(_z_send_buff_len, DTV_JSP_RESPONSE_MAX);
  memcpy(pv_content, _ps_send_buff, static_cast<std::size_t>(_z_send_buff_len));
}

// Carries out a get. Ignores any request word but "QUERY". Returns the handler's code, or -1 when the handler was not
// called. The caller holds mutex_recv and deletes the request's root.
static INT32 get_item(const char* entry, const char* uri, const char* param, void* pv_content, Request& request) {
  Target target;
  if (!find_target(entry, uri, target)) return VEXTVCTRLR_FAIL;
  if (!clear_content(entry, target)) return VEXTVCTRLR_FAIL;
  if (param && *param) {
    TVC_LOG_AS(kLogTrace, entry, "param: %s.\n", param);
    if (!tvc_parse_request(entry, param, false, request)) return VEXTVCTRLR_FAIL;
  }
  if (strcmp(request.word, kWordQuery) == 0) {
    const Decoded decoded = tvc_decode_parameter(entry, target.item, kQuery, request.parameter, _pt_content, target.id);
    if (decoded == Decoded::kNotTaken) {
      TVC_LOG_AS(kLogError, entry, "ERROR: something wrong in param!");
      tv_ctrl_response_get(_s_uri, TYPE_NONE, nullptr, VEX_REQ_TYPE_NOT_MATCH);
    }
    if (decoded != Decoded::kDone) return VEXTVCTRLR_FAIL;
  }
  const INT32 ret = tv_ctrl_get(target.id, _pt_content);
  tv_ctrl_response_get(_s_uri, target.type, _pt_content, ret);
  free_texts(target);
  copy_response(entry, pv_content);
  return ret;
}

int32_t a_dtv_jsp_get(const char* uri, const char* param, void* pv_content) {
  if (!pv_content || !uri) return VEXTVCTRLR_FAIL;
  TVC_LOG(kLogTrace, "uri: %s.\n", uri);
  INT32 ret;
  {
    const std::lock_guard guard(mutex_recv);
    tvc_copy_text(_s_uri, uri);
    Request request;
    ret = get_item(__func__, uri, param, pv_content, request);
    cJSON_Delete(request.root);
  }
  TVC_LOG(kLogTrace, "uri: %s - ret: %d.\n", uri, ret);
  return ret;
}

// --- Set ---

// The outcome of a set.
struct Outcome {
  INT32 status;  // passed to tv_ctrl_response_set
  INT32 ret;     // returned to the host
};

// failed_status: the status when the handler fails.
static Outcome call_handler(const Target& target, void* record, INT32 failed_status) {
  const INT32 ret = tv_ctrl_set(target.id, record);
  return {.status = ret == VEXTVCTRLR_OK ? static_cast<INT32>(VEX_OK) : failed_status, .ret = ret};
}

// Carries out an "ACTION". If the item is no action, nothing happens: the host gets 0, and the status is
// VEX_INVALID_PARAM.
static Outcome set_action(const char*, const Target& target, const Request&) {
  if (target.type != TYPE_ACTION) return {.status = VEX_INVALID_PARAM, .ret = VEXTVCTRLR_OK};
  return call_handler(target, nullptr, VEX_ACTION_FAIL);
}

// Carries out a "MODIFY": sets the item's value, and leaves the rest of the record 0.
static Outcome set_modify(const char* entry, const Target& target, const Request& request) {
  const cJSON* const value = cJSON_GetObjectItemCaseSensitive(request.parameter, "VALUE");
  if (!value) {
    TVC_LOG_AS(kLogError, entry, "Error before: [%s]\n", "");
    return {.status = VEX_MODIFY_FAIL, .ret = VEXTVCTRLR_FAIL};
  }
  if (!tvc_modify_record(entry, target.item, value, _pt_content))
    return {.status = VEX_REQ_TYPE_NOT_MATCH, .ret = VEXTVCTRLR_FAIL};
  return call_handler(target, _pt_content, VEX_MODIFY_FAIL);
}

// Carries out a "SET". If the type has also_set_as, decodes the same text into the same record as that type and calls
// the handler again: also when the first call failed, but not when the first decoding failed. The host gets the result
// of the second pass.
static Outcome set_specialised(const char* entry, const Target& target, const Request& request) {
  const Decoded decoded = tvc_decode_parameter(entry, target.item, kSet, request.parameter, _pt_content, target.id);
  if (decoded == Decoded::kNotTaken) {
    TVC_LOG_AS(kLogError, entry, "ERROR: something wrong in param!");
    return {.status = VEX_REQ_TYPE_NOT_MATCH, .ret = VEXTVCTRLR_FAIL};
  }
  if (decoded == Decoded::kFailed) return {.status = VEX_SET_FAIL, .ret = VEXTVCTRLR_FAIL};
  // The host gets 0, although nothing is set. Of the response that is rendered it sees nothing.
  if (target.type == TYPE_OPTION_LIST && static_cast<const T_OPTION_LIST*>(_pt_content)->value < 0) {
    tv_ctrl_response_get(_s_uri, TYPE_NONE, nullptr, VEX_INVALID_PARAM);
    return {.status = VEX_INVALID_PARAM, .ret = VEXTVCTRLR_OK};
  }
  Outcome outcome = call_handler(target, _pt_content, VEX_SET_FAIL);
  if (target.type == TYPE_CHANNEL_INFO && outcome.ret == VEXTVCTRLR_DUPLICATE) outcome.status = VEX_DUPLICATE;
  free_texts(target);
  const UINT8 second = target.item->also_set_as;
  if (second == TYPE_NONE) return outcome;
  tv_ctrl_response_set(target.type, request.root, outcome.status);
  return set_specialised(entry, {.id = target.id, .type = second, .item = tvc_item_type(second)}, request);
}

// Carries out an "ASSOCIATE", and then clears its record.
static Outcome set_associate(const char* entry, const Target& target, const Request& request) {
  const Decoded decoded = tvc_decode_parameter(entry, target.item, kAssociate, request.parameter, _pt_content);
  if (decoded == Decoded::kNotTaken) return {.status = VEX_INVALID_PARAM, .ret = VEXTVCTRLR_FAIL};
  if (decoded == Decoded::kFailed) return {.status = VEX_ASSOCIATE_FAIL, .ret = VEXTVCTRLR_FAIL};
  tv_ctrl_response_set(target.type, request.root, VEX_ASSOCIATE_BEGIN);
  const Outcome outcome = call_handler(target, _pt_content, VEX_ASSOCIATE_FAIL);
  clear_content(entry, target);  // the password is not kept beyond the request
  return outcome;
}

struct SetWord {
  const char* word;
  Outcome (*carry_out)(const char* entry, const Target& target, const Request& request);
};
static constexpr SetWord kSetWords[] = {
    {kWordAction, set_action},
    {kWordModify, set_modify},
    {kWordSet, set_specialised},
    {kWordAssociate, set_associate},
};

// Carries out a set. The caller holds mutex_recv and deletes the request's root.
static Outcome set_item(const char* entry, const Target& target, const char* param, Request& request) {
  if (!clear_content(entry, target) || !tvc_parse_request(entry, param, true, request))
    return {.status = VEX_INVALID_PARAM, .ret = VEXTVCTRLR_FAIL};
  TVC_LOG_AS(kLogValue, entry, "request: %s!\n", request.word);
  for (const SetWord& row : kSetWords)
    if (strcmp(row.word, request.word) == 0) return row.carry_out(entry, target, request);
  TVC_LOG_AS(kLogError, entry, "ERROR: something wrong in REQUEST!");
  return {.status = VEX_INVALID_PARAM, .ret = VEXTVCTRLR_FAIL};
}

int32_t a_dtv_jsp_set(const char* uri, const char* param) {
  if (!param || !uri) return VEXTVCTRLR_FAIL;
  TVC_LOG(kLogTrace, "uri: %s.\n", uri);
  TVC_LOG(kLogTrace, "param: %s.\n", param);
  Outcome outcome = {.status = VEX_INVALID_URI, .ret = VEXTVCTRLR_FAIL};
  {
    const std::lock_guard guard(mutex_recv);
    tvc_copy_text(_s_uri, uri);
    Target target;
    Request request;
    if (find_target(__func__, uri, target)) outcome = set_item(__func__, target, param, request);
    tv_ctrl_response_set(target.type, request.root, outcome.status);
    cJSON_Delete(request.root);
  }
  TVC_LOG(kLogTrace, "uri: %s - ret: %d.\n", uri, outcome.ret);
  return outcome.ret;
}

// --- Unloading ---

// Runs when the library is closed, with no thread inside it, and when the process exits, while other threads may be
// inside it and may go on calling it. It never waits for a lock: the thread that holds it may be blocked in the
// platform for ever, or may be the very thread that exits, from within a platform call. Memory whose lock
// somebody holds is left as it is. What was freed is made again when it is needed: a later request allocates the
// content buffer, and finds no subscriptions.
[[gnu::destructor]] static void unload() {
  if (const std::unique_lock request(mutex_recv, std::try_to_lock); request) {
    free(std::exchange(_pt_content, nullptr));
    // A get copies the response text after it has released mutex_send, so freeing the text takes both locks.
    if (const std::unique_lock rendering(mutex_send, std::try_to_lock); rendering) {
      free(std::exchange(_ps_send_buff, nullptr));
      _z_send_buff_len = 0;
    }
  }
  if (const std::unique_lock listeners(t_nfy_rw_lock, std::try_to_lock); listeners) _jsp_empty_slist();
}
