// Allocates content records, with the sizes of the item-type table.
#include <stdlib.h>

#include <algorithm>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_main/registry.h"

void* tv_ctrl_malloc_content_max(INT32* ret_size) {
  if (!ret_size) return nullptr;
  UINT32 largest = 0;
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry())
    if (const ItemType* const item = tvc_item_type(row.ui1_type)) largest = std::max(largest, item->record_size);
  if (largest == 0) return nullptr;
  // The byte behind the record always stays 0, so that a text that fills the largest record is still terminated.
  void* const content = calloc(1, largest + 1);
  if (content) *ret_size = static_cast<INT32>(largest);
  return content;
}

void* tv_ctrl_malloc_content(UINT8 ui1_type) {
  const ItemType* const item = tvc_item_type(ui1_type);
  return item && item->allocated_size > 0 ? calloc(1, item->allocated_size) : nullptr;
}
