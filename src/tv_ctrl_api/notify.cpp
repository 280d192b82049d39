// Notification delivery: writes a record as JSON into the listener buffer of its URI. Runs on the platform's threads.
#include <stdlib.h>

#include <mutex>
#include <string_view>
#include <utility>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/listener.h"
#include "tv_ctrl_api/response.h"
#include "tv_ctrl_util/json_parse.h"
#include "tv_ctrl_util/log.h"

// Writes a whole notification: {"URI": uri, "REQUEST": "NOTIFY", then the item as "PARAMETER" or in "ITEMS"}.
static void write_notification(JsonText& json, const ItemType& item, const char* uri, const void* record) {
  const bool in_parameter = item.notify.form == NotifyForm::kSingleParameter;
  tvc_open_object(json);
  tvc_write_key(json, "URI");
  tvc_write_text(json, uri);
  tvc_write_key(json, "REQUEST");
  tvc_write_text(json, "NOTIFY");
  tvc_write_key(json, in_parameter ? "PARAMETER" : "ITEMS");
  if (!in_parameter) tvc_open_array(json);
  tvc_write_object(json, item.fields, kNotify, record);
  if (!in_parameter) tvc_close_array(json);
  tvc_close_object(json);
}

// Replaces the pending text with a new one. Returns false when memory runs out; the pending text then stays.
static bool replace_text(JsonText& pending, const ItemType& item, const char* uri, const void* record) {
  JsonText text;
  write_notification(text, item, uri, record);
  if (!tvc_finish_text(text)) {
    free(text.text);
    return false;
  }
  free(pending.text);
  pending = text;
  return true;
}

// The end of a text in the queued form: it closes "ITEMS" and the notification. The next item is written over it.
static constexpr std::string_view kQueueEnd = "]}";

// Writes the end of a text in the queued form.
static bool finish_queue(JsonText& pending) {
  tvc_close_array(pending);
  tvc_close_object(pending);
  return tvc_finish_text(pending);
}

// Appends an item to the pending text. Returns false when memory runs out; the pending text then stays as it was.
static bool append_item(JsonText& pending, const ItemType& item, const void* record) {
  const std::size_t end = pending.length - kQueueEnd.size();
  pending.length = end;
  tvc_write_object(pending, item.fields, kNotify, record);
  if (finish_queue(pending)) return true;
  pending.length = end;
  pending.failed = false;
  finish_queue(pending);  // cannot fail: the same end stood here before, so there is room for it
  return false;
}

// Returns whether an item can be appended to the pending text; if not, logs why. It is enough to check the text's end:
// the functions above wrote the text, in the queued form, since only they do and the type of a URI never changes. A
// text with another end should not exist. It is parsed only to find the message that describes it.
static bool takes_items(const JsonText& pending, const NotifyRule& rule) {
  if (std::string_view(pending.text, pending.length).ends_with(kQueueEnd)) return true;
  const JsonParse parsed = tvc_json_parse(pending.text);
  const cJSON* const items = cJSON_GetObjectItemCaseSensitive(parsed.root, "ITEMS");
  if (!parsed.root)
    TVC_LOG_AS(kLogError, rule.log_name, "Error before: [%s]\n", parsed.error_at);
  else if (!items)
    TVC_LOG_AS(kLogError, rule.log_name, "Param do NOT has ITEMS.\n");
  else if (!cJSON_IsArray(items))
    TVC_LOG_AS(kLogError, rule.log_name, "Items type is NOT array!\n");
  cJSON_Delete(parsed.root);
  return false;
}

// Writes a record into the entry of its URI; if nobody is subscribed, drops it. Holds the write lock throughout, so
// that no fetch takes the pending text while an item is appended to it, and no thread removes the entry.
static void deliver(const ItemType& item, const char* uri, const void* record) {
  const NotifyRule& rule = item.notify;
  const std::lock_guard guard(t_nfy_rw_lock);
  TV_CTRL_NOTIFY_BUFFER_T* const entry = _jsp_get_uri_from_slist(uri);
  if (!entry) return;
  JsonText& pending = entry->buffer;
  bool appends = rule.form == NotifyForm::kQueued && pending.text;
  if (appends && pending.length > rule.bound) {
    free(std::exchange(pending.text, nullptr));
    TVC_LOG_AS(kLogValue, rule.log_name, "Buffer is FULL.\n");
    appends = false;
  }
  if (appends && !takes_items(pending, rule)) {
    if (!rule.restarts_unusable) return;
    appends = false;
  }
  if (!(appends ? append_item(pending, item, record) : replace_text(pending, item, uri, record))) {
    TVC_LOG_AS(kLogError, rule.log_name, "Create root object failed!!!\n");
    return;
  }
  if (rule.traces_text) {
    TVC_LOG_AS(kLogValue, rule.log_name, "buff_len: %d.\n", static_cast<int>(pending.length));
    TVC_LOG_AS(kLogValue, rule.log_name, "%s\n", pending.text);
  }
}

// The name of tv_ctrl_api_notify_func in the log.
static constexpr const char* kDispatch = "tv_ctrl_api_notify_content";

void tv_ctrl_api_notify_func(const char* uri, void* pv_content) {
  if (!uri || !pv_content) {
    TVC_LOG_AS(kLogError, kDispatch, "uri or pv_content is null!!!\n");
    return;
  }
  TVC_LOG_AS(kLogCall, kDispatch, "call %s. uri: %s.\n", kDispatch, uri);
  UINT16 id = 0;
  UINT8 type = TYPE_INVALID;
  if (tv_ctrl_get_info_with_uri(uri, &id, &type) != VEXTVCTRLR_OK) {
    TVC_LOG_AS(kLogError, kDispatch, "Get info with uri failed!!!\n");
    return;
  }
  TVC_LOG_AS(kLogCall, kDispatch, "uri id: %d, type:%d!\n", id, type);
  const std::lock_guard guard(mutex_send);
  const ItemType* const item = tvc_item_type(type);
  if (item && item->notify.form != NotifyForm::kNone) deliver(*item, uri, pv_content);
}
