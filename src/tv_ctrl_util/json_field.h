// Field tables: one row says which member of a JSON object is which field of a record, for decoding, rendering and
// describing alike.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

#include "tv_ctrl_util/json_writer.h"
#include "tvapi/types.h"

enum class FieldKind : UINT8 {
  kInt32,
  kInt16,
  kUint8,
  kUint16,
  kUint32,
  kInt64,
  kUint64,
  kDouble,       // rendered only
  kWord,         // pointer-sized, unsigned
  kName,         // an INT32, decoded from one of the names in `values`, in any case; any other text gives 0
  kText,         // char array, terminated unless it is full
  kText16,       // array of 16-bit units
  kOwnedText,    // address of a text from malloc(), or null; rendered only. See tvc_free_texts()
  kUint8Array,   // an array of numbers; decoded only when the row has a count
  kUint16Array,  // likewise, and so on
  kInt32Array,
  kUint32Array,
  kObject,    // nested object with a field table of its own
  kConstant,  // a text that stands in every item
};

// Where a field takes part; a row may say several.
using FieldUse = UINT8;
enum : FieldUse {
  kQuery = 1,       // decoded from a get's "QUERY"
  kModify = 2,      // the value of a set's "MODIFY"
  kSet = 4,         // decoded from a set's "SET"
  kAssociate = 8,   // decoded from a set's "ASSOCIATE"
  kResponse = 16,   // rendered in a response's item
  kNotify = 32,     // rendered in a notification's item
  kRoot = 64,       // rendered in a response beside "ITEMS", before it
  kEverywhere = 0,  // inside a nested object: wherever the object takes part
};

struct Field;

// Reads the field's member into the record; `entry` names the entry point for traces. False: it is missing.
using FieldDecode = bool (*)(const cJSON* parameter, const Field& field, void* record, const char* entry);
// Writes the field's value, exactly one.
using FieldRender = void (*)(JsonText& json, const Field& field, const void* record);

// Another integer of the record: a count or a flag. A member of 32 bits is read as signed, a shorter one as unsigned.
struct IntegerPlace {
  UINT16 offset = 0;  // within the record
  UINT8 size = 0;     // 1, 2 or 4 bytes; 0: there is none
};

struct Field {
  std::string_view key = {};  // a literal: terminated, and nothing in it is escaped
  FieldKind kind = FieldKind::kConstant;
  UINT32 offset = 0;  // of the field within the record
  UINT32 size = 0;    // of the field, in bytes
  FieldUse use = kEverywhere;
  bool sets_count = false;    // of a decoded array: `count` becomes the number of elements taken
  UINT16 uri = 0;             // decoded only in requests of this identifier; 0: in all
  IntegerPlace count = {};    // of an array: how many elements there are; when it is 0, none is decoded
  IntegerPlace found = {};    // decoding puts 1 here when the member was stored, else 0
  IntegerPlace missing = {};  // decoding puts 0 here when the member was stored, else 1
  // kConstant: the text; kOwnedText: the text in place of none, null for JSON's null; a custom decode and a decoded
  // array: the word of their traces.
  const char* text = nullptr;
  std::span<const Field> fields = {};               // kObject
  bool (*when)(const void* record) = nullptr;       // rendered only in records that satisfy it
  bool (*read_when)(const void* record) = nullptr;  // decoded only then, after the rows before this one
  const char* unless = nullptr;                     // decoded only when the request has no text under this key
  FieldDecode decode = nullptr;                     // where the kind does not say how
  FieldRender render = nullptr;                     // likewise
  const char* unit = nullptr;    // null: none; a text that is not there needs no address that the loader patches
  const char* values = nullptr;  // what the value may be: "NONE\0" "ALL\0", or of a number "0=off\0" "1=on\0"
  const char* help = nullptr;
};

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

// The part of a row that follows from the record: .key = "VALUE", TVC_MEMBER(T_VALUE, value), .use = ...
// A nested field is named as member.member, one of an entry as array[0].member. An array of 16-bit units is a text;
// one of numbers takes TVC_NUMBERS_16 instead. A field that carries an address takes TVC_WORD, since its type has the
// width of another kind on either machine.
#define TVC_MEMBER(record, member)                                                         \
  .kind = field_kind<std::remove_reference_t<decltype(std::declval<record&>().member)>>(), \
  .offset = static_cast<UINT32>(offsetof(record, member)),                                 \
  .size = static_cast<UINT32>(sizeof(std::declval<record&>().member))
#define TVC_WORD(record, member)                                                     \
  .kind = FieldKind::kWord, .offset = static_cast<UINT32>(offsetof(record, member)), \
  .size = word_size<decltype(std::declval<record&>().member)>()

// The 32-bit field of a row of kind kName.
#define TVC_NAMED(record, member)                                                          \
  .kind = named_kind<std::remove_reference_t<decltype(std::declval<record&>().member)>>(), \
  .offset = static_cast<UINT32>(offsetof(record, member)), .size = sizeof(INT32)
#define TVC_NUMBERS_16(record, member)                                                      \
  .kind = FieldKind::kUint16Array, .offset = static_cast<UINT32>(offsetof(record, member)), \
  .size = static_cast<UINT32>(sizeof(std::declval<record&>().member))
// Where a count or a flag is: .count = TVC_PLACE(T_VALUE, size)
#define TVC_PLACE(record, member) \
  integer_place<std::remove_reference_t<decltype(std::declval<record&>().member)>, offsetof(record, member)>()

template <typename T>
consteval FieldKind named_kind() {
  static_assert(std::is_same_v<T, INT32>, "a name gives a number of 32 bits");
  return FieldKind::kName;
}

template <typename T, std::size_t Offset>
consteval IntegerPlace integer_place() {
  static_assert(std::is_same_v<T, INT32> || (std::is_unsigned_v<T> && sizeof(T) <= 2), "no integer of a place's kinds");
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

INT32 tvc_integer_at(const void* record, IntegerPlace place);

// Elements that an array's field shows, at most those that it has room for.
std::size_t tvc_element_count(const Field& field, const void* record);

// Bytes of an element; 0: the kind is no array of numbers.
std::size_t tvc_element_size(FieldKind kind);

// Reads every field of this use, and of the request's URI, from the parameter object, in the table's order; a missing
// member leaves its field as it is. 0, or -1: there is no object or no record ("param is NULL!"), or a count announces
// elements and their member is no array ("<key> type is NOT array!") or empty ("array size is zero!").
INT32 tvc_decode_fields(std::span<const Field> fields, FieldUse use, const cJSON* parameter, void* record,
                        const char* entry, UINT16 uri = 0);

// Writes the members of a record: every field of this use, in the table's order.
void tvc_write_members(JsonText& json, std::span<const Field> fields, FieldUse use, const void* record);

// The same as an object.
void tvc_write_object(JsonText& json, std::span<const Field> fields, FieldUse use, const void* record);

// Frees every kOwnedText of a record, and clears its address. A row with a condition whose record does not satisfy it
// is left alone: its place may hold something else, in a union.
void tvc_free_texts(std::span<const Field> fields, void* record);

// A custom decode: takes the member's integer value whatever its kind; a missing member leaves the field. Traced at
// level 2 as "<text>: <value>!".
bool tvc_decode_library_integer(const cJSON* parameter, const Field& field, void* record, const char* entry);
