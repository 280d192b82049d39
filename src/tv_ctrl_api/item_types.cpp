#include "tv_ctrl_api/item_types.h"

#include <algorithm>
#include <array>

// The addresses of the rows, in the order of the type numbers.
static constexpr const ItemType* kItemTypes[] = {
#define TVC_ITEM_TYPE(name, number) &item_##name,
#define TVC_ITEM_TYPE_WITHOUT_ROW(name, number)
#include "vex_tv_ctrl/uris.def"
};

// For each type the position of its row in the table, counted from 1; 0: the type has no row.
static constexpr auto kPlaces = [] {
  std::array<UINT8, TYPE_INVALID + 1> places{};
  UINT8 place = 0;
#define TVC_ITEM_TYPE(name, number) places[number] = ++place;
#define TVC_ITEM_TYPE_WITHOUT_ROW(name, number)
#include "vex_tv_ctrl/uris.def"
  return places;
}();

std::span<const ItemType* const> tvc_item_types() { return kItemTypes; }

const ItemType* tvc_item_type(UINT8 type) { return kPlaces[type] ? kItemTypes[kPlaces[type] - 1] : nullptr; }

const char* tvc_item_type_name(UINT8 type) {
  switch (type) {
#define TVC_ITEM_TYPE(name, number) \
  case number:                      \
    return "TYPE_" #name;
#include "vex_tv_ctrl/uris.def"
    default:
      return "";
  }
}

bool tvc_item_has(const ItemType& item, FieldUse use) {
  if (use == kResponse && !item.forms.empty()) return true;
  for (const Field& field : item.fields)
    if (field.use & use) return true;
  return false;
}

// Writes an item for each entry of a list that is shown.
static void write_entries(JsonText& json, const ItemForm& form, const void* record) {
  const EntryList& list = form.list;
  const INT32 most = static_cast<INT32>(list.most);
  const INT32 count = list.count.size ? std::min(tvc_integer_at(record, list.count), most) : most;
  const char* entry = static_cast<const char*>(record) + list.entries_offset;
  for (INT32 i = 0; i < count; ++i, entry += list.entry_size)
    if (!list.shows || list.shows(entry)) tvc_write_object(json, form.fields, kEverywhere, entry);
}

// Writes the items in the first form that fits the URI and the record.
static void write_forms(JsonText& json, std::span<const ItemForm> forms, UINT16 uri, const void* record) {
  for (const ItemForm& form : forms) {
    if ((form.uri && form.uri != uri) || (form.when && !form.when(record))) continue;
    if (form.list.entry_size)
      write_entries(json, form, record);
    else
      tvc_write_object(json, form.fields, kEverywhere, record);
    return;
  }
}

void tvc_write_content(JsonText& json, const ItemType& item, UINT16 uri, const void* record) {
  tvc_write_members(json, item.fields, kRoot, record);
  tvc_write_key(json, "ITEMS");
  tvc_open_array(json);
  if (item.forms.empty())
    tvc_write_object(json, item.fields, kResponse, record);
  else
    write_forms(json, item.forms, uri, record);
  tvc_close_array(json);
}

void tvc_free_record_texts(const ItemType& item, void* record) {
  tvc_free_texts(item.fields, record);
  for (const ItemForm& form : item.forms)
    if (!form.list.entry_size) tvc_free_texts(form.fields, record);
}
