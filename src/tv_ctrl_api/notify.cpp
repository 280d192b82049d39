// Notification delivery: renders a record into the listener buffer of its URI. Runs on the platform's threads.
#include <stdlib.h>
#include <string.h>

#include <mutex>
#include <shared_mutex>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/listener.h"
#include "tv_ctrl_api/response.h"
#include "tv_ctrl_util/json_parse.h"
#include "tv_ctrl_util/log.h"

// {"URI": uri, "REQUEST": "NOTIFY", member: value}; takes over `value`. Null without memory, or when it is null.
static cJSON* make_envelope(const char* uri, const char* member, cJSON* value) {
  cJSON* const root = cJSON_CreateObject();
  const bool headed = root && tvc_json_add(root, "URI", cJSON_CreateStringReference(uri)) &&
                      tvc_json_add(root, "REQUEST", cJSON_CreateStringReference("NOTIFY"));
  if (!headed) cJSON_Delete(value);
  if (headed && tvc_json_add(root, member, value)) return root;
  cJSON_Delete(root);
  return nullptr;
}

// Prints the envelope, deletes it and leaves the text in the URI's entry, if there is still one: the entry may have
// been removed since it was last looked at. Without memory, what is pending stays.
static void store(const NotifyRule& rule, const char* uri, cJSON* root) {
  char* text = cJSON_PrintUnformatted(root);
  cJSON_Delete(root);
  if (!text) return;
  if (rule.traces_text) {
    TVC_LOG_AS(LOG_VALUE, rule.log_name, "buff_len: %d.\n", static_cast<int>(strlen(text)));
    TVC_LOG_AS(LOG_VALUE, rule.log_name, "%s\n", text);
  }
  {
    const std::lock_guard guard(t_nfy_rw_lock);
    if (TV_CTRL_NOTIFY_BUFFER_T* const entry = _jsp_get_uri_from_slist(uri)) text = _jsp_exchange_buffer(*entry, text);
  }
  free(text);
}

static bool is_subscribed(const char* uri) {
  const std::shared_lock guard(t_nfy_rw_lock);
  return _jsp_get_uri_from_slist(uri) != nullptr;
}

// Single form: the text replaces whatever is pending.
static void notify_single(const ItemType& item, const char* uri, const void* pv_content) {
  if (!is_subscribed(uri)) return;
  cJSON* const object = tvc_make_item(item, kNotify, pv_content);
  cJSON* const root = item.notify.form == NotifyForm::kSingleItems ? make_envelope(uri, "ITEMS", tvc_make_items(object))
                                                                   : make_envelope(uri, "PARAMETER", object);
  if (!root) {
    TVC_LOG_AS(LOG_ERROR, item.notify.log_name, "Create root object failed!!!\n");
    return;
  }
  store(item.notify, uri, root);
}

struct Pending {
  cJSON* root = nullptr;   // the parsed pending text, owned, or null when nothing is pending
  cJSON* items = nullptr;  // its "ITEMS"
};

// Parses the text that is pending in an entry. False when the new notification must be dropped.
// The caller holds the write lock: under the read lock a fetch could free the text while it is parsed.
static bool read_pending(const NotifyRule& rule, TV_CTRL_NOTIFY_BUFFER_T& entry, Pending& ret_pending) {
  if (!entry.buffer) return true;
  if (strlen(entry.buffer) > rule.bound) {
    free(_jsp_exchange_buffer(entry, nullptr));
    TVC_LOG_AS(LOG_VALUE, rule.log_name, "Buffer is FULL.\n");
    return true;
  }
  const JsonParse parsed = tvc_json_parse(entry.buffer);
  cJSON* const items = cJSON_GetObjectItemCaseSensitive(parsed.root, "ITEMS");
  if (cJSON_IsArray(items)) {
    ret_pending = {.root = parsed.root, .items = items};
    return true;
  }
  if (!parsed.root)
    TVC_LOG_AS(LOG_ERROR, rule.log_name, "Error before: [%s]\n", parsed.error_at);
  else if (!items)
    TVC_LOG_AS(LOG_ERROR, rule.log_name, "Param do NOT has ITEMS.\n");
  else
    TVC_LOG_AS(LOG_ERROR, rule.log_name, "Items type is NOT array!\n");
  cJSON_Delete(parsed.root);
  return rule.restarts_unusable;
}

// Queued form: the item is appended to what is pending. Items fetched while this runs are delivered a second time.
static void notify_queued(const ItemType& item, const char* uri, const void* pv_content) {
  Pending pending;
  {
    const std::lock_guard guard(t_nfy_rw_lock);
    TV_CTRL_NOTIFY_BUFFER_T* const entry = _jsp_get_uri_from_slist(uri);
    if (!entry || !read_pending(item.notify, *entry, pending)) return;
  }
  cJSON* const object = tvc_make_item(item, kNotify, pv_content);
  if (!pending.root) {
    pending.root = make_envelope(uri, "ITEMS", tvc_make_items(object));
  } else if (!cJSON_AddItemToArray(pending.items, object)) {
    cJSON_Delete(object);
    cJSON_Delete(pending.root);
    pending.root = nullptr;
  }
  if (!pending.root) {
    TVC_LOG_AS(LOG_ERROR, item.notify.log_name, "Create root object failed!!!\n");
    return;
  }
  store(item.notify, uri, pending.root);
}

// Messages name this operation by what it does with the record.
static constexpr const char* kDispatch = "tv_ctrl_api_notify_content";

void tv_ctrl_api_notify_func(const char* uri, void* pv_content) {
  if (!uri || !pv_content) {
    TVC_LOG_AS(LOG_ERROR, kDispatch, "uri or pv_content is null!!!\n");
    return;
  }
  TVC_LOG_AS(LOG_CALL, kDispatch, "call %s. uri: %s.\n", kDispatch, uri);
  UINT16 id = 0;
  UINT8 type = TYPE_INVALID;
  if (tv_ctrl_get_info_with_uri(uri, &id, &type) != VEXTVCTRLR_OK) {
    TVC_LOG_AS(LOG_ERROR, kDispatch, "Get info with uri failed!!!\n");
    return;
  }
  TVC_LOG_AS(LOG_CALL, kDispatch, "uri id: %d, type:%d!\n", id, type);
  const std::lock_guard guard(mutex_send);
  const ItemType* const item = tvc_item_type(type);
  if (!item) return;
  switch (item->notify.form) {
    case NotifyForm::kNone:
      return;
    case NotifyForm::kSingleParameter:
    case NotifyForm::kSingleItems:
      return notify_single(*item, uri, pv_content);
    case NotifyForm::kQueued:
      return notify_queued(*item, uri, pv_content);
  }
}
