#include "tv_ctrl_api/item_types.h"

#include <algorithm>
#include <array>

// Addresses only: each row is defined in its area's file.
static constexpr const ItemType* item_types[] = {
#define TVC_ITEM_TYPE(name, number) &item_##name,
#define TVC_ITEM_TYPE_WITHOUT_ROW(name, number)
#include "vex_tv_ctrl/item_types.def"
};

// Of each type the place of its row in the table, counted from 1; 0: it has none.
static constexpr auto kPlaces = [] {
  std::array<UINT8, TYPE_INVALID + 1> places{};
  UINT8 place = 0;
#define TVC_ITEM_TYPE(name, number) places[number] = ++place;
#define TVC_ITEM_TYPE_WITHOUT_ROW(name, number)
#include "vex_tv_ctrl/item_types.def"
  return places;
}();

std::span<const ItemType* const> tvc_item_types() { return item_types; }

const ItemType* tvc_item_type(UINT8 type) { return kPlaces[type] ? item_types[kPlaces[type] - 1] : nullptr; }

const char* tvc_item_type_name(UINT8 type) {
  switch (type) {
#define TVC_ITEM_TYPE(name, number) \
  case number:                      \
    return "TYPE_" #name;
#include "vex_tv_ctrl/item_types.def"
    default:
      return "";
  }
}

bool tvc_item_has(const ItemType& item, FieldUse use) {
  for (const Field& field : item.fields)
    if (field.use & use) return true;
  return false;
}

void tvc_write_items(JsonText& json, const ItemType& item, const void* record) {
  const EntryList& list = item.list;
  if (list.entry_size == 0) return tvc_write_object(json, item.fields, kResponse, record);
  const char* const base = static_cast<const char*>(record);
  const INT32 count = *reinterpret_cast<const INT32*>(base + list.count_offset);
  const char* entry = base + list.entries_offset;
  for (INT32 i = 0; i < std::min(count, static_cast<INT32>(list.most)); ++i, entry += list.entry_size)
    tvc_write_object(json, item.fields, kResponse, entry);
}
