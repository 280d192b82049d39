// Field tables. A row says which member of a JSON object is which field of a record. The same row decodes the member,
// renders it and describes it.
#pragma once

#include <cjson/cJSON.h>

#include <array>
#include <cstddef>
#include <iterator>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

#include "tv_ctrl_util/json_writer.h"
#include "tvapi/types.h"

enum class FieldKind : UINT8 {
  kInt32,
  kInt16,  // rendered only
  kUint8,
  kUint16,
  kUint32,
  kInt64,
  kUint64,
  kDouble,      // rendered only
  kWord,        // pointer-sized, unsigned; rendered only
  kName,        // an INT32, decoded from its name in `values`, in any case of letters; an unknown name gives 0
  kText,        // char array, terminated unless it is full; decoding stores at most size - 1 bytes
  kText16,      // array of 16-bit units; rendered only, byte for byte as kText, without conversion
  kOwnedText,   // address of a text from malloc(), or null; rendered only. See tvc_free_texts()
  kUint8Array,  // an array of numbers, like the next three; decoded only when the row has a count
  kUint16Array,
  kInt32Array,
  kUint32Array,
  kObject,    // nested object with a field table of its own
  kMembers,   // the rows of another table for the same record; their members belong to the same JSON object
  kConstant,  // a constant text, without a field in the record; rendered only
};

// Uses of a field. A row may combine several.
using FieldUse = UINT8;
enum : FieldUse {
  kQuery = 1,      // decoded from a get's "QUERY"
  kModify = 2,     // the one field that a set's "MODIFY" changes: an INT32, INT64 or text. See tvc_modify_record()
  kSet = 4,        // decoded from a set's "SET"
  kAssociate = 8,  // decoded from a set's "ASSOCIATE"
  kResponse = 16,  // rendered in a response's item
  kNotify = 32,    // rendered in a notification's item
  kRoot = 64,      // rendered in a response as a member before "ITEMS"
  // As a row's use: of a nested object or a form, wherever that takes part; in an item's own table the row never does.
  // As an argument: every row, whatever its own use.
  kEverywhere = 0,
};

struct Field;

// Decodes the field's member from the parameter object into the record. entry: the name under which it logs.
// Returns false when the member is missing.
using FieldDecode = bool (*)(const cJSON* parameter, const Field& field, void* record, const char* entry);
// Writes the field's value: exactly one JSON value.
using FieldRender = void (*)(JsonText& json, const Field& field, const void* record);

// Where a record has a count or a flag. 32 bits are read as signed, 8 and 16 bits as unsigned.
struct IntegerPlace {
  UINT16 offset = 0;  // within the record, in bytes
  UINT8 size = 0;     // 1, 2 or 4 bytes; 0: there is no such field
};

// The rows of a kMembers of which a record has only those of one operation. An earlier row of kind kName decodes which.
struct FieldCase {
  UINT16 number;  // of the operation
  UINT16 first;   // index of its first row
  UINT16 count;   // of its rows, which follow one another
};
struct FieldChoice {
  IntegerPlace selector;             // where the record has the operation's number
  const char* key;                   // of the member that names the operation
  const char* values;                // its values, as in that member's row
  std::span<const FieldCase> cases;  // operations that have rows
};

struct Field {
  std::string_view key = {};  // a literal: terminated, with no character that JSON escapes
  FieldKind kind = FieldKind::kConstant;
  UINT32 offset = 0;  // of the field within the record, in bytes
  UINT32 size = 0;    // of the field, in bytes
  FieldUse use = kEverywhere;
  bool sets_count = false;  // of a decoded array: `count` becomes the number of elements taken
  UINT16 uri = 0;           // decoded only in requests of this identifier; 0: in all requests
  IntegerPlace count = {};  // only of an array: where its number of elements is; while that is 0, none is decoded
  // Of a single value; a row that is skipped writes neither.
  IntegerPlace found = {};    // becomes 1 when the member was stored, else 0
  IntegerPlace missing = {};  // becomes 0 when the member was stored, else 1
  // kConstant: the text. kOwnedText: the text shown for a null address; null: JSON's null is shown. A decoded array:
  // the name in its traces at level 5; null: none. kName: the name in its trace at level 2, which is also written when
  // the member is missing; null: none. tvc_decode_library_integer(): the name in its trace.
  const char* text = nullptr;
  std::span<const Field> fields = {};          // kObject, kMembers: the rows of its members
  const FieldChoice* choice = nullptr;         // kMembers: which of the rows take part; null: all
  bool (*when)(const void* record) = nullptr;  // rendered only when this returns true
  const char* unless = nullptr;                // decoded only when the member's object has no text under this key
  FieldDecode decode = nullptr;                // custom decode of a single value, in place of the kind's
  FieldRender render = nullptr;                // custom rendering, in place of the kind's
  const char* unit = nullptr;                  // null: none. Unlike "", a null pointer needs no relocation
  const char* values = nullptr;                // allowed values: texts "NONE\0" "ALL\0", numbers "0=off\0" "1=on\0",
                                               // or a range of numbers "0..255\0"
  const char* help = nullptr;                  // a phrase for application developers
};

// Returns the kind that fits a member's type.
template <typename T>
consteval FieldKind field_kind() {
  if constexpr (std::is_same_v<T, INT32>)
    return FieldKind::kInt32;
  else if constexpr (std::is_same_v<T, INT16>)
    return FieldKind::kInt16;
  else if constexpr (std::is_same_v<T, double>)
    return FieldKind::kDouble;
  else if constexpr (std::is_same_v<T, char*>)
    return FieldKind::kOwnedText;
  else if constexpr (std::is_same_v<T, UINT8>)
    return FieldKind::kUint8;
  else if constexpr (std::is_same_v<T, UINT16>)
    return FieldKind::kUint16;
  else if constexpr (std::is_same_v<T, UINT32>)
    return FieldKind::kUint32;
  else if constexpr (std::is_same_v<T, INT64>)
    return FieldKind::kInt64;
  else if constexpr (std::is_same_v<T, UINT64>)
    return FieldKind::kUint64;
  else if constexpr (std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, char>)
    return FieldKind::kText;
  else if constexpr (std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, UINT16>)
    return FieldKind::kText16;
  else if constexpr (std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, UINT8>)
    return FieldKind::kUint8Array;
  else if constexpr (std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, INT32>)
    return FieldKind::kInt32Array;
  else if constexpr (std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, UINT32>)
    return FieldKind::kUint32Array;
  else {
    static_assert(std::is_class_v<T>, "no kind of field fits this type");
    return FieldKind::kObject;
  }
}

// The part of a row that follows from the record's type: .key = "VALUE", TVC_MEMBER(T_VALUE, value), .use = ...
// `member` may be nested (member.member), or belong to the first entry of an array (array[0].member). An array of
// 16-bit units is taken as a text: use TVC_NUMBERS_16 for one of numbers. Use TVC_WORD for an address or a handle: its
// type is UINT32 on a television and UINT64 on a PC, and would be taken for a number of that kind.
#define TVC_MEMBER(record, member)                                                         \
  .kind = field_kind<std::remove_reference_t<decltype(std::declval<record&>().member)>>(), \
  .offset = static_cast<UINT32>(offsetof(record, member)),                                 \
  .size = static_cast<UINT32>(sizeof(std::declval<record&>().member))
#define TVC_WORD(record, member)                                                     \
  .kind = FieldKind::kWord, .offset = static_cast<UINT32>(offsetof(record, member)), \
  .size = word_size<decltype(std::declval<record&>().member)>()

// The same for a field of kind kName, an INT32.
#define TVC_NAMED(record, member)                                                          \
  .kind = named_kind<std::remove_reference_t<decltype(std::declval<record&>().member)>>(), \
  .offset = static_cast<UINT32>(offsetof(record, member)), .size = sizeof(INT32)
#define TVC_NUMBERS_16(record, member)                                                      \
  .kind = FieldKind::kUint16Array, .offset = static_cast<UINT32>(offsetof(record, member)), \
  .size = static_cast<UINT32>(sizeof(std::declval<record&>().member))
// The place of a count or a flag: .count = TVC_PLACE(T_VALUE, size)
#define TVC_PLACE(record, member) \
  integer_place<std::remove_reference_t<decltype(std::declval<record&>().member)>, offsetof(record, member)>()

template <typename T>
consteval FieldKind named_kind() {
  static_assert(std::is_same_v<T, INT32>, "a name gives a number of 32 bits");
  return FieldKind::kName;
}

template <typename T, std::size_t Offset>
consteval IntegerPlace integer_place() {
  static_assert(std::is_same_v<T, INT32> || (std::is_unsigned_v<T> && sizeof(T) <= 4), "no integer of a place's kinds");
  static_assert(Offset <= UINT16_MAX, "a place lies within the first 64 kB of its record");
  return {.offset = static_cast<UINT16>(Offset), .size = sizeof(T)};
}

template <typename T>
consteval UINT32 word_size() {
  static_assert(sizeof(T) == sizeof(uintptr_t), "an address does not fit this field, or the field is wider");
  return sizeof(T);
}

template <typename T>
T& field_at(void* record, const Field& field) {
  return *reinterpret_cast<T*>(static_cast<char*>(record) + field.offset);
}
template <typename T>
const T& field_at(const void* record, const Field& field) {
  return *reinterpret_cast<const T*>(static_cast<const char*>(record) + field.offset);
}

// Returns the integer at a place; 0 where there is no such field.
INT32 tvc_integer_at(const void* record, IntegerPlace place);

// Returns how many elements of an array of numbers are shown: its count, from 0 to the array's length; without a count
// all of them.
std::size_t tvc_element_count(const Field& field, const void* record);

// Returns the size of an array's elements in bytes; 0 for a kind that is no array of numbers.
std::size_t tvc_element_size(FieldKind kind);

// Decodes the fields of this use from the parameter object, in the table's order, into a record that was zeroed. Skips
// rows of another URI, and those that `choice` or `unless` rules out. A missing member leaves its field
// as it is, and so does a text or an object of another JSON kind. An array whose count is not 0 must be there and have
// elements. entry: the name under which arrays, names and custom decodes log. uri: the request's identifier. Returns 0,
// or -1 at the first failure; what was decoded before it stays. It fails when `parameter` or `record` is null
// ("param is NULL!"), when such an array is missing or no array ("<key> type is NOT array!"), and when it is empty
// ("array size is zero!").
INT32 tvc_decode_fields(std::span<const Field> fields, FieldUse use, const cJSON* parameter, void* record,
                        const char* entry, UINT16 uri = 0);

// Returns the rows of a kMembers that take part for this record.
std::span<const Field> tvc_chosen_rows(const Field& field, const void* record);

// Writes every field of this use as a member, in the table's order; kEverywhere: every field.
void tvc_write_members(JsonText& json, std::span<const Field> fields, FieldUse use, const void* record);

// Writes the same as an object.
void tvc_write_object(JsonText& json, std::span<const Field> fields, FieldUse use, const void* record);

// Frees the kOwnedText fields of this table, not those of nested objects, and clears their addresses. Skips rows that
// `choice` or `when` rules out: in a union, their place may hold something else.
void tvc_free_texts(std::span<const Field> fields, void* record);

// A custom decode of an INT32: stores what tvc_json_integer() makes of the member. Unlike a kInt32, a text gives 0.
// Traced at level 2 as "<text>: <value>!".
bool tvc_decode_library_integer(const cJSON* parameter, const Field& field, void* record, const char* entry);

// --- The cases of a choice, at compile time ---

// Returns a case for each run of equal numbers. Numbers: an array with the operation's number of each row.
template <const auto& Numbers>
consteval auto tvc_field_cases() {
  constexpr auto kBegins = [](std::size_t row) { return row == 0 || Numbers[row] != Numbers[row - 1]; };
  constexpr std::size_t kSize = [kBegins] {
    std::size_t cases = 0;
    for (std::size_t row = 0; row < std::size(Numbers); ++row) cases += kBegins(row);
    return cases;
  }();
  std::array<FieldCase, kSize> cases{};
  FieldCase* next = cases.data();
  for (std::size_t row = 0; row < std::size(Numbers); ++row) {
    if (kBegins(row)) *next++ = {.number = Numbers[row], .first = static_cast<UINT16>(row), .count = 0};
    ++next[-1].count;
  }
  return cases;
}
