// The types of the TV API as data, and the conversion of their values to and from JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "tap/json.h"

namespace tap {

enum class Shape : std::uint8_t {
  kNone,     // void
  kInteger,  // integer, enumeration, flag: a number, or a decimal text beyond 2^53
  kReal,     // double: a number
  kWord,     // pointer-sized word: a number, signed
  kString,   // char*: a text, or null
  kText,     // char[count]: a text
  kArray,    // T[count]: an array
  kRecord,   // described by TVAPI_RECORD or TVC_RECORD: an object
};

struct Field;

struct Type {
  Shape shape = Shape::kNone;
  bool is_signed = false;
  std::size_t size = 0;             // bytes
  std::size_t count = 0;            // elements of a text or an array
  const Type* element = nullptr;    // of an array
  const char* name = "";            // of a record
  std::span<const Field> fields{};  // of a record, in memory order; those of a union overlap
};

struct Field {
  const char* name;
  std::size_t offset;
  const Type* type;
};

// Specialised by TVAPI_RECORD ("tap/record.h").
template <class T>
struct RecordOf;

template <class T>
constexpr Type make_type();

template <class T>
inline constexpr Type type_of = make_type<std::remove_cv_t<T>>();

template <class T>
constexpr Type make_type() {
  if constexpr (std::is_void_v<T>) {
    return {};
  } else if constexpr (std::is_array_v<T>) {
    using Element = std::remove_cv_t<std::remove_extent_t<T>>;
    if constexpr (std::is_same_v<Element, char>) {
      return {.shape = Shape::kText, .size = sizeof(T), .count = sizeof(T)};
    } else {
      return {.shape = Shape::kArray, .size = sizeof(T), .count = std::extent_v<T>, .element = &type_of<Element>};
    }
  } else if constexpr (std::is_enum_v<T>) {
    return {.shape = Shape::kInteger, .is_signed = std::is_signed_v<std::underlying_type_t<T>>, .size = sizeof(T)};
  } else if constexpr (std::is_integral_v<T>) {
    return {.shape = Shape::kInteger, .is_signed = std::is_signed_v<T>, .size = sizeof(T)};
  } else if constexpr (std::is_same_v<T, double>) {
    return {.shape = Shape::kReal, .is_signed = true, .size = sizeof(T)};
  } else if constexpr (std::is_same_v<T, char*> || std::is_same_v<T, const char*>) {
    return {.shape = Shape::kString, .size = sizeof(T)};
  } else if constexpr (std::is_pointer_v<T>) {
    return {.shape = Shape::kWord, .is_signed = true, .size = sizeof(T)};
  } else {
    return {.shape = Shape::kRecord,
            .size = sizeof(T),
            .name = RecordOf<T>::name,
            .fields = std::span<const Field>(RecordOf<T>::fields)};
  }
}

// The records that were described in this library or program.
int know_record(const Type& record);
std::span<const Type* const> known_records();
const Type* find_record(std::string_view name);

// Registers the type of an item's record, and finds it; null for an item without a record.
int know_item(std::size_t item_id, const Type& record);
const Type* find_item(std::size_t item_id);

cJSON* value_to_json(const Type& type, const void* value);
cJSON* text_to_json(const char* text, std::size_t size);
cJSON* array_to_json(const Type& element, const void* values, std::size_t count);

// Write into cleared memory; what JSON leaves out or gives as null stays cleared. A text is cut so that it fits with
// its terminator. {"bytes": ...} is cut to size, without a terminator. False with ret_error when JSON does not fit the
// type.
bool value_from_json(const Type& type, const cJSON* json, void* value, std::string& ret_error);
bool text_from_json(const cJSON* json, char* text, std::size_t size, std::string& ret_error);
bool array_from_json(const Type& element, const cJSON* json, void* values, std::size_t count, std::string& ret_error);

// How a parameter is passed, and whether the function reads or writes it; named as in the rows of "tvapi/contract.h".
enum class Form : std::uint8_t {
  value,
  address,  // a word: the address of a text or a record, or a number, as another argument says
  one,      // pointer to a value or a record
  string,   // pointer to a text that ends at its NUL
  text,     // pointer to a buffer; a text in it ends at a NUL or at the buffer's end
  array,    // pointer to values or records
  item,     // pointer to an item's record; the argument's size holds the item id
  callback,
  tag,
};
enum class Direction : std::uint8_t { in, out, inout };

// Whether JSON has what the argument points at, and not the argument itself.
constexpr bool is_pointer(Form form) {
  return form != Form::value && form != Form::address && form != Form::callback && form != Form::tag;
}

// The kind of parameter as the contract calls it, in small letters: "in_text" and so on.
std::string kind_name(Form form, Direction direction);

// How many bytes a pointer argument points at.
std::size_t pointed_size(Form form, const Type& type, std::size_t count);

// As value_to_json and value_from_json, for what a pointer argument points at: count elements of a type, or the record
// of the item with the id count. Without memory, the first gives null, and the second only says whether JSON fits.
cJSON* pointed_to_json(Form form, const Type& type, const void* memory, std::size_t count);
bool pointed_from_json(Form form, const Type& type, const cJSON* json, void* memory, std::size_t count,
                       std::string& ret_error);
// How many elements a pointer argument with this JSON must point at.
std::size_t pointed_count(Form form, const cJSON* json);

// Whether JSON fits the type, without a place to write it to.
bool value_fits(const Type& type, const cJSON* json, std::string& ret_error);

// Read an integer or a word, and write a whole number into one, cut to its width.
Integer integer_load(const Type& type, const void* value);
void integer_store(const Type& type, Integer number, void* value);

// A copy that is never freed, since the receiver does not say when it is done with it; equal texts share one.
const char* keep_text(std::string_view text);

}  // namespace tap
