// Item types: one row per type that has a record, with everything that depends on the type.
#pragma once

#include <span>

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/json_field.h"

enum class NotifyForm : UINT8 {
  kNone,
  kSingleParameter,  // {"URI", "REQUEST", "PARAMETER": {...}}; each replaces the one before
  kSingleItems,      // {"URI", "REQUEST", "ITEMS": [{...}]}; each replaces the one before
  kQueued,           // {"URI", "REQUEST", "ITEMS": [{...}, ...]}; each is appended until the host fetches
};

struct NotifyRule {
  NotifyForm form = NotifyForm::kNone;
  UINT32 bound = 0;                // kQueued: a longer pending text is discarded before appending, in characters
  const char* log_name = nullptr;  // operation that the messages name
  bool traces_text = false;        // the text made is traced
  bool restarts_unusable = false;  // kQueued: an unusable pending text is replaced; else the notification is dropped
};

// What most rows have as their rule.
inline constexpr UINT32 kQueueBound = 1024;
inline constexpr NotifyRule kBaseTypeNotify = {.form = NotifyForm::kSingleParameter,
                                               .log_name = "_json_print_base_type_notify"};
constexpr NotifyRule queued(const char* log_name, UINT32 bound = kQueueBound) {
  return {.form = NotifyForm::kQueued, .bound = bound, .log_name = log_name, .traces_text = true};
}

// Where a record keeps the entries that a response lists, one item each.
struct EntryList {
  UINT32 count_offset = 0;  // of the number of entries, an INT32; what it has beyond the array is not looked at
  UINT32 entries_offset = 0;
  UINT32 entry_size = 0;  // 0: the record is one item itself
  UINT32 most = 0;        // entries that there is room for
};

struct ItemType {
  UINT8 type;
  UINT32 record_size = 0;              // of the record that the content buffer holds; 0: the record is not defined yet
  UINT32 allocated_size = 0;           // of a record made by tv_ctrl_malloc_content; 0: none is made
  const char* error_word = nullptr;    // in "error: parse ... param!"; null: nothing is decoded that can fail
  const char* renderer = nullptr;      // operation that messages of the response's rendering name
  std::span<const Field> fields = {};  // of an entry, where the record is a list
  EntryList list = {};
  NotifyRule notify = {};
};

// The row of an item type, or null.
const ItemType* tvc_item_type(UINT8 type);

// Every row, sorted by type.
std::span<const ItemType* const> tvc_item_types();

// "TYPE_VALUE" and so on, as in TV_CTRL_ITEM_TYPE; empty for a number that is none.
const char* tvc_item_type_name(UINT8 type);

// Whether any field of the type takes part in this use.
bool tvc_item_has(const ItemType& item, FieldUse use);

// Writes what a response's "ITEMS" show of a record: one object, or one for each entry of a list.
void tvc_write_items(JsonText& json, const ItemType& item, const void* record);

// The rows of what every generic record begins with, in a response.
#define TVC_HEADER_FIELDS(record, type_text)                                                   \
  {.key = "NAME", TVC_MEMBER(record, name), .use = kResponse, .help = "display name"},         \
      {.key = "TYPE", .use = kResponse, .text = type_text, .help = "item type"},               \
      {.key = "GROUP", TVC_MEMBER(record, group), .use = kResponse, .help = "group number"}, { \
    .key = "STATE", TVC_MEMBER(record, state), .use = kResponse, .help = "1: available"        \
  }

// The rows, each beside its field table in its area's file.
#define TVC_ITEM_TYPE(name, number) extern const ItemType item_##name;
#define TVC_ITEM_TYPE_WITHOUT_ROW(name, number)
#include "vex_tv_ctrl/item_types.def"
