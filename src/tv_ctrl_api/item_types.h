// Item types: one row per type that has a record. A row says everything that depends on the type.
#pragma once

#include <span>
#include <type_traits>
#include <utility>

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/json_field.h"

enum class NotifyForm : UINT8 {
  kNone,
  kSingleParameter,  // {"URI", "REQUEST", "PARAMETER": {...}}; replaces the pending notification
  kSingleItems,      // {"URI", "REQUEST", "ITEMS": [{...}]}; replaces the pending notification
  kQueued,           // {"URI", "REQUEST", "ITEMS": [{...}, ...]}; appends its item to the pending notification
};

struct NotifyRule {
  NotifyForm form = NotifyForm::kNone;
  UINT32 bound = 0;                // kQueued, in bytes: a longer pending text is replaced, not appended to
  const char* log_name = nullptr;  // name of the operation in messages
  bool traces_text = false;        // true: the notification's text is traced
  bool restarts_unusable = false;  // kQueued: an unusable pending text is replaced; false: the notification is dropped
};

// The rules that most rows have.
inline constexpr UINT32 kQueueBound = 1024;
inline constexpr NotifyRule kBaseTypeNotify = {.form = NotifyForm::kSingleParameter,
                                               .log_name = "_json_print_base_type_notify"};
constexpr NotifyRule queued(const char* log_name, UINT32 bound = kQueueBound) {
  return {.form = NotifyForm::kQueued, .bound = bound, .log_name = log_name, .traces_text = true};
}

// Where a record keeps the entries that a response lists, one item each.
struct EntryList {
  IntegerPlace count = {};                     // where the number of entries is; none: there are always `most`
  UINT32 entries_offset = 0;                   // of the array within the record, in bytes
  UINT32 entry_size = 0;                       // in bytes; 0: there is no array, the record itself is the one item
  UINT32 most = 0;                             // length of the array; a greater count is cut to it
  bool (*shows)(const void* entry) = nullptr;  // true for an entry that is listed; null: every entry is
};

// The part of a list that follows from the record's type:
// .list = {.count = TVC_PLACE(T_LIST, count), TVC_ENTRIES(T_LIST, entries)}
#define TVC_ENTRIES(record, member)                                             \
  .entries_offset = static_cast<UINT32>(offsetof(record, member)),              \
  .entry_size = static_cast<UINT32>(sizeof(std::declval<record&>().member[0])), \
  .most = static_cast<UINT32>(std::extent_v<std::remove_reference_t<decltype(std::declval<record&>().member)>>)

// A form that a response's "ITEMS" can have.
struct ItemForm {
  UINT16 uri = 0;                              // identifier of the only URI that has this form; 0: every URI has it
  bool (*when)(const void* record) = nullptr;  // true for a record that has this form; null: every record has it
  std::span<const Field> fields = {};          // of an entry of the list, else of the record; all of them are written
  EntryList list = {};                         // without it there is one item
};

struct ItemType {
  UINT8 type;
  UINT8 also_set_as = TYPE_NONE;       // a "SET" is then decoded and carried out as this type too, in the same record
  UINT32 record_size = 0;              // of the record in the content buffer, in bytes
  UINT32 allocated_size = 0;           // of a record from tv_ctrl_malloc_content, in bytes; 0: it returns null
  const char* decoder = nullptr;       // operation that messages of the decoding name; null: the entry point
  const char* error_word = nullptr;    // word in the message "error: parse ... param!"; null: decoding cannot fail
  const char* renderer = nullptr;      // name of the operation in messages about the response
  std::span<const Field> fields = {};  // of the record
  // The forms of a response's "ITEMS". The first form that fits the URI and the record is written; if none fits, the
  // array is empty. A type without forms has one item with the fields above.
  std::span<const ItemForm> forms = {};
  // Returns false when the request gets no response text, after it has logged why. Null: there is always a response.
  bool (*has_response)(const void* record) = nullptr;
  NotifyRule notify = {};
};

// Returns the row of an item type, or null for a type without one.
const ItemType* tvc_item_type(UINT8 type);

// Returns every row, in the order of the type numbers.
std::span<const ItemType* const> tvc_item_types();

// Returns the name of a type, such as "TYPE_VALUE"; empty for a number that is no type.
const char* tvc_item_type_name(UINT8 type);

// Returns whether any field of the type takes part in this use. For kResponse a type with forms always does.
bool tvc_item_has(const ItemType& item, FieldUse use);

// Writes a record's part of a response: the members beside "ITEMS", and "ITEMS". uri: identifier of the response's URI.
void tvc_write_content(JsonText& json, const ItemType& item, UINT16 uri, const void* record);

// Frees the texts that a handler allocated and put into a record, and clears their addresses. Texts in the entries of a
// list are freed only where a row outside of the list names them, such as those of the first event.
void tvc_free_record_texts(const ItemType& item, void* record);

// The field rows of the header that every generic record begins with. It is only shown in responses.
#define TVC_HEADER_FIELDS(record, type_text)                                                   \
  {.key = "NAME", TVC_MEMBER(record, name), .use = kResponse, .help = "display name"},         \
      {.key = "TYPE", .use = kResponse, .text = type_text, .help = "item type"},               \
      {.key = "GROUP", TVC_MEMBER(record, group), .use = kResponse, .help = "group number"}, { \
    .key = "STATE", TVC_MEMBER(record, state), .use = kResponse, .help = "1: available"        \
  }

// The rows of the types. Each is defined beside its field table, in the file of its area.
#define TVC_ITEM_TYPE(name, number) extern const ItemType item_##name;
#define TVC_ITEM_TYPE_WITHOUT_ROW(name, number)
#include "vex_tv_ctrl/uris.def"
