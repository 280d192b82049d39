#include "tv_ctrl_api/response.h"

#include <stdlib.h>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_util/log.h"

std::mutex mutex_send;
char* _ps_send_buff;
int _z_send_buff_len;

// Returns the identifier of a URI, or 0 for a type without forms, whose responses do not depend on it.
static UINT16 uri_id(const char* uri, const ItemType& item) {
  UINT16 id = 0;
  UINT8 type = TYPE_INVALID;
  if (!item.forms.empty()) tv_ctrl_get_info_with_uri(uri, &id, &type);
  return id;
}

// Writes {"URI": uri, "STATUS": status, "ITEMS": [...]}. item: null gives one empty item.
static void write_response(JsonText& json, const char* uri, const ItemType* item, const void* record, INT32 status) {
  tvc_open_object(json);
  tvc_write_key(json, "URI");
  tvc_write_text(json, uri);
  tvc_write_key(json, "STATUS");
  tvc_write_integer(json, status);
  static constexpr ItemType kNone = {.type = TYPE_NONE};
  if (item)
    tvc_write_content(json, *item, uri_id(uri, *item), record);
  else
    tvc_write_content(json, kNone, 0, nullptr);
  tvc_close_object(json);
}

void tv_ctrl_response_get(const char* uri, UINT8 type, const void* pv_content, INT32 status) {
  const std::lock_guard guard(mutex_send);
  free(_ps_send_buff);
  _ps_send_buff = nullptr;
  _z_send_buff_len = 0;
  const ItemType* item = tvc_item_type(type);
  if (item && (!pv_content || !tvc_item_has(*item, kResponse))) item = nullptr;
  if (item && item->has_response && !item->has_response(pv_content)) return;
  JsonText text;
  write_response(text, uri, item, pv_content, item ? status : static_cast<INT32>(VEX_OK));
  if (!tvc_finish_text(text)) {
    free(text.text);
    TVC_LOG_AS(kLogError, item ? item->renderer : "_json_print_none_type", "Create root object failed!!!\n");
    return;
  }
  _ps_send_buff = text.text;
  _z_send_buff_len = static_cast<int>(text.length);
}

void tv_ctrl_response_set(UINT8, const cJSON*, INT32) {}
