// Item types: one row per type that has a record, with everything that depends on the type.
#pragma once

#include <span>
#include <type_traits>
#include <utility>

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
  IntegerPlace count = {};  // number of entries, of which no more are read than there is room for; none: all of them
  UINT32 entries_offset = 0;
  UINT32 entry_size = 0;                       // 0: the record is one item itself
  UINT32 most = 0;                             // entries that there is room for
  bool (*shows)(const void* entry) = nullptr;  // null: every entry
};

// The part of a list that follows from the record: .list = {.count = TVC_PLACE(T_LIST, count), TVC_ENTRIES(T_LIST,
// entries)}
#define TVC_ENTRIES(record, member)                                             \
  .entries_offset = static_cast<UINT32>(offsetof(record, member)),              \
  .entry_size = static_cast<UINT32>(sizeof(std::declval<record&>().member[0])), \
  .most = static_cast<UINT32>(std::extent_v<std::remove_reference_t<decltype(std::declval<record&>().member)>>)

// A form that a response's "ITEMS" can have.
struct ItemForm {
  UINT16 uri = 0;                              // identifier of the only URI that has it; 0: any has it
  bool (*when)(const void* record) = nullptr;  // null: any record
  std::span<const Field> fields = {};          // of the item, or of an entry of the list; all of them are shown
  EntryList list = {};
};

struct ItemType {
  UINT8 type;
  UINT8 also_set_as = TYPE_NONE;       // a "SET" is decoded and carried out again as this type, over the same record
  UINT32 record_size = 0;              // of the record that the content buffer holds; 0: the record is not defined yet
  UINT32 allocated_size = 0;           // of a record made by tv_ctrl_malloc_content; 0: none is made
  const char* error_word = nullptr;    // in "error: parse ... param!"; null: nothing is decoded that can fail
  const char* renderer = nullptr;      // operation that messages of the response's rendering name
  std::span<const Field> fields = {};  // of the record
  // The forms of a response's "ITEMS": the first that fits is written; the array is empty when none does. Without forms
  // there is one item, of the fields above.
  std::span<const ItemForm> forms = {};
  bool (*has_response)(const void* record) = nullptr;  // false, after a message: no response is made. Null: always
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

// Writes what a response to a URI shows of a record: the members beside "ITEMS", and "ITEMS".
void tvc_write_content(JsonText& json, const ItemType& item, UINT16 uri, const void* record);

// Frees the texts that a handler put into a record, whether or not the response showed them.
void tvc_free_record_texts(const ItemType& item, void* record);

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
#include "vex_tv_ctrl/uris.def"
