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
  kUint8,
  kUint16,
  kUint32,
  kInt64,
  kUint64,
  kWord,         // pointer-sized, unsigned
  kText,         // char array, terminated unless it is full
  kText16,       // array of 16-bit units
  kUint8Array,   // an array of numbers; rendered only
  kUint32Array,  // likewise
  kObject,       // nested object with a field table of its own
  kConstant,     // a text that stands in every item
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
  kEverywhere = 0,  // inside a nested object: wherever the object takes part
};

struct Field;

// Reads the field's member into the record; `entry` names the entry point for traces.
using FieldDecode = void (*)(const cJSON* parameter, const Field& field, void* record, const char* entry);
// Writes the field's value, exactly one.
using FieldRender = void (*)(JsonText& json, const Field& field, const void* record);

struct Field {
  std::string_view key = {};  // a literal: terminated, and nothing in it is escaped
  FieldKind kind = FieldKind::kConstant;
  UINT32 offset = 0;  // of the field within the record
  UINT32 size = 0;    // of the field, in bytes
  FieldUse use = kEverywhere;
  const char* text = nullptr;                  // kConstant: the text; a custom decode: the word of its trace
  std::span<const Field> fields = {};          // kObject
  bool (*when)(const void* record) = nullptr;  // rendered only in records that satisfy it
  FieldDecode decode = nullptr;                // where the kind does not say how
  FieldRender render = nullptr;                // likewise
  const char* unit = nullptr;    // null: none; a text that is not there needs no address that the loader patches
  const char* values = nullptr;  // what the value may be: "NONE\0" "ALL\0", or of a number "0=off\0" "1=on\0"
  const char* help = nullptr;
};

template <typename T>
consteval FieldKind field_kind() {
  if constexpr (std::is_same_v<T, INT32>)
    return FieldKind::kInt32;
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
  else if constexpr (std::is_array_v<T> && std::is_same_v<std::remove_extent_t<T>, UINT32>)
    return FieldKind::kUint32Array;
  else {
    static_assert(std::is_class_v<T>, "no kind of field fits this type");
    return FieldKind::kObject;
  }
}

// The part of a row that follows from the record: .key = "VALUE", TVC_MEMBER(T_VALUE, value), .use = ...
// A nested field is named as member.member. A field that carries an address takes TVC_WORD instead, since its type
// has the width of another kind on either machine.
#define TVC_MEMBER(record, member)                                \
  .kind = field_kind<decltype(std::declval<record&>().member)>(), \
  .offset = static_cast<UINT32>(offsetof(record, member)),        \
  .size = static_cast<UINT32>(sizeof(std::declval<record&>().member))
#define TVC_WORD(record, member)                                                     \
  .kind = FieldKind::kWord, .offset = static_cast<UINT32>(offsetof(record, member)), \
  .size = word_size<decltype(std::declval<record&>().member)>()

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

// Reads every field of this use from the parameter object; a missing member leaves its field as it is.
// 0, or -1 ("param is NULL!") without an object or a record.
INT32 tvc_decode_fields(std::span<const Field> fields, FieldUse use, const cJSON* parameter, void* record,
                        const char* entry);

// Writes the object of a record: every field of this use, in the table's order.
void tvc_write_object(JsonText& json, std::span<const Field> fields, FieldUse use, const void* record);

// A custom decode: takes the member's integer value whatever its kind; a missing member leaves the field. Traced at
// level 2 as "<text>: <value>!".
void tvc_decode_library_integer(const cJSON* parameter, const Field& field, void* record, const char* entry);
