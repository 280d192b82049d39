#include "tv_ctrl_api/response.h"

#include <stdlib.h>
#include <string.h>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_util/log.h"

std::mutex mutex_send;
char* _ps_send_buff;
int _z_send_buff_len;

// {"URI": uri, "STATUS": status, "ITEMS": [...]}; with no type the item stays empty. Null without memory.
static cJSON* make_response(const char* uri, const ItemType* item, const void* pv_content, INT32 status) {
  cJSON* const root = cJSON_CreateObject();
  if (root && tvc_json_add(root, "URI", cJSON_CreateStringReference(uri)) &&
      tvc_json_add(root, "STATUS", tvc_json_number(status)) &&
      tvc_json_add(root, "ITEMS",
                   item ? tvc_make_response_items(*item, pv_content) : tvc_make_items(cJSON_CreateObject())))
    return root;
  cJSON_Delete(root);
  return nullptr;
}

void tv_ctrl_response_get(const char* uri, UINT8 type, const void* pv_content, INT32 status) {
  const std::lock_guard guard(mutex_send);
  free(_ps_send_buff);
  _ps_send_buff = nullptr;
  _z_send_buff_len = 0;
  const ItemType* item = tvc_item_type(type);
  if (item && (!pv_content || !tvc_item_has(*item, kResponse))) item = nullptr;
  cJSON* const root = make_response(uri, item, pv_content, item ? status : static_cast<INT32>(VEX_OK));
  if (!root) {
    TVC_LOG_AS(LOG_ERROR, item ? item->renderer : "_json_print_none_type", "Create root object failed!!!\n");
    return;
  }
  _ps_send_buff = cJSON_PrintUnformatted(root);
  cJSON_Delete(root);
  if (_ps_send_buff) _z_send_buff_len = static_cast<int>(strlen(_ps_send_buff));
}

void tv_ctrl_response_set(UINT8, const cJSON*, INT32) {}
