#include "tv_ctrl_util/json_field.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <type_traits>
#include <utility>

#include "tv_ctrl_util/json_scalar.h"
#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/number.h"
#include "tv_ctrl_util/text.h"
#include "vex_tv_ctrl/status.h"

INT32 tvc_integer_at(const void* record, IntegerPlace place) {
  const char* const at = static_cast<const char*>(record) + place.offset;
  switch (place.size) {
    case sizeof(UINT8):
      return *reinterpret_cast<const UINT8*>(at);
    case sizeof(UINT16):
      return *reinterpret_cast<const UINT16*>(at);
    case sizeof(INT32):
      return *reinterpret_cast<const INT32*>(at);
    default:
      return 0;
  }
}

// Writes the integer at a place, cut to its size; does nothing where there is no such field.
static void put_integer(void* record, IntegerPlace place, INT32 value) {
  char* const at = static_cast<char*>(record) + place.offset;
  switch (place.size) {
    case sizeof(UINT8):
      *reinterpret_cast<UINT8*>(at) = static_cast<UINT8>(value);
      return;
    case sizeof(UINT16):
      *reinterpret_cast<UINT16*>(at) = static_cast<UINT16>(value);
      return;
    case sizeof(INT32):
      *reinterpret_cast<INT32*>(at) = value;
      return;
    default:
      return;
  }
}

std::span<const Field> tvc_chosen_rows(const Field& field, const void* record) {
  if (!field.choice) return field.fields;
  const INT32 number = tvc_integer_at(record, field.choice->selector);
  for (const FieldCase& chosen : field.choice->cases)
    if (chosen.number == number) return field.fields.subspan(chosen.first, chosen.count);
  return {};
}

std::size_t tvc_element_size(FieldKind kind) {
  switch (kind) {
    case FieldKind::kUint8Array:
      return sizeof(UINT8);
    case FieldKind::kUint16Array:
      return sizeof(UINT16);
    case FieldKind::kInt32Array:
      return sizeof(INT32);
    case FieldKind::kUint32Array:
      return sizeof(UINT32);
    default:
      return 0;
  }
}

std::size_t tvc_element_count(const Field& field, const void* record) {
  const std::size_t most = field.size / tvc_element_size(field.kind);
  if (!field.count.size) return most;
  return std::min(static_cast<std::size_t>(std::max(tvc_integer_at(record, field.count), 0)), most);
}

bool tvc_decode_library_integer(const cJSON* parameter, const Field& field, void* record, const char* entry) {
  const cJSON* const member = cJSON_GetObjectItemCaseSensitive(parameter, field.key.data());
  if (!member) return false;
  INT32& value = field_at<INT32>(record, field);
  value = tvc_json_integer(member);
  TVC_LOG_AS(kLogValue, entry, "%s: %d!\n", field.text, value);
  return true;
}

// Returns the number of a name in a list such as "1=Play\0" "2=Pause\0"; 0 for an unknown name.
static INT32 named_number(const char* values, const char* name) {
  for (const char* value = values; *value;) {
    const char* known = value;
    while (*known++ != '=') continue;  // the number is short
    if (tvc_same_letters(known, name)) return tvc_text_to_int32(value);
    value = known + strlen(known) + 1;
  }
  return 0;
}

static bool decode_name(const Field& field, const cJSON* parameter, void* record, const char* entry) {
  char name[32] = {};
  INT32& number = field_at<INT32>(record, field);
  const bool found = _unpackage_json_string(parameter, field.key.data(), name, sizeof name - 1) == VEXTVCTRLR_OK;
  if (found) number = named_number(field.values, name);
  TVC_LOG_AS(kLogValue, entry, "%s [%s]: %d!\n", field.key.data(), name, number);
  return found;
}

// The outcome of decoding one field. kFailed fails the whole request.
enum class Reading : UINT8 { kStored, kMissing, kFailed };

// Unlike a single value, a text gives 0. Numbers are saturated to 32 bits; 8 and 16 bits take the low ones.
template <typename Element>
static Element element_of(const cJSON* value) {
  if constexpr (std::is_same_v<Element, UINT32>)
    return tvc_double_to<UINT32>(value->valuedouble);
  else
    return static_cast<Element>(tvc_json_integer(value));
}

// Stores the first elements of an array, as many as the field has room for. Returns how many it stored.
template <typename Element>
static INT32 take_elements(const Field& field, const cJSON* array, void* record, const char* entry) {
  const std::span elements(&field_at<Element>(record, field), field.size / sizeof(Element));
  std::size_t taken = 0;
  for (const cJSON* value = array->child; value && taken < elements.size(); value = value->next, ++taken) {
    elements[taken] = element_of<Element>(value);
    if (field.text)
      TVC_LOG_AS(kLogMissing, entry, "%s[%d]: %u!\n", field.text, static_cast<int>(taken),
                 static_cast<unsigned>(elements[taken]));
  }
  return static_cast<INT32>(taken);
}

static INT32 take_array(const Field& field, const cJSON* array, void* record, const char* entry) {
  switch (field.kind) {
    case FieldKind::kUint8Array:
      return take_elements<UINT8>(field, array, record, entry);
    case FieldKind::kUint16Array:
      return take_elements<UINT16>(field, array, record, entry);
    case FieldKind::kInt32Array:
      return take_elements<INT32>(field, array, record, entry);
    default:
      return take_elements<UINT32>(field, array, record, entry);
  }
}

// An earlier row has decoded the count. When it is not 0, the member must be an array with at least one element; how
// many are stored depends on the room alone.
static Reading decode_array(const Field& field, const cJSON* parameter, void* record, const char* entry) {
  if (tvc_integer_at(record, field.count) == 0) return Reading::kMissing;
  const cJSON* const array = cJSON_GetObjectItemCaseSensitive(parameter, field.key.data());
  if (!cJSON_IsArray(array)) {
    TVC_LOG_AS(kLogError, entry, "%s type is NOT array!\n", field.key.data());
    return Reading::kFailed;
  }
  if (!array->child) {
    TVC_LOG_AS(kLogError, entry, "array size is zero!\n");
    return Reading::kFailed;
  }
  const INT32 taken = take_array(field, array, record, entry);
  if (field.sets_count) put_integer(record, field.count, taken);
  return Reading::kStored;
}

static Reading decode_object(const Field& field, const cJSON* parameter, void* record, const char* entry, UINT16 uri) {
  const cJSON* const member = cJSON_GetObjectItemCaseSensitive(parameter, field.key.data());
  if (!cJSON_IsObject(member)) return Reading::kMissing;
  const INT32 ret = tvc_decode_fields(field.fields, kEverywhere, member, &field_at<char>(record, field), entry, uri);
  return ret == VEXTVCTRLR_OK ? Reading::kStored : Reading::kFailed;
}

// Decodes a single value. Returns whether it was stored.
static bool decode_value(const Field& field, const cJSON* parameter, void* record, const char* entry) {
  if (field.decode) return field.decode(parameter, field, record, entry);
  const char* const key = field.key.data();
  switch (field.kind) {
    case FieldKind::kInt32:
      return _unpackage_json_int(parameter, key, &field_at<INT32>(record, field)) == VEXTVCTRLR_OK;
    case FieldKind::kUint8:
      return _unpackage_json_uschar(parameter, key, &field_at<UINT8>(record, field)) == VEXTVCTRLR_OK;
    case FieldKind::kUint16:
      return _unpackage_json_ushort(parameter, key, &field_at<UINT16>(record, field)) == VEXTVCTRLR_OK;
    case FieldKind::kUint32:
      return _unpackage_json_usint(parameter, key, &field_at<UINT32>(record, field)) == VEXTVCTRLR_OK;
    case FieldKind::kInt64:
      return _unpackage_json_longlong(parameter, key, &field_at<INT64>(record, field)) == VEXTVCTRLR_OK;
    case FieldKind::kUint64:
      return _unpackage_json_uslonglong(parameter, key, &field_at<UINT64>(record, field)) == VEXTVCTRLR_OK;
    case FieldKind::kWord:
      if constexpr (sizeof(uintptr_t) == sizeof(UINT64))
        return _unpackage_json_uslonglong(parameter, key, &field_at<UINT64>(record, field)) == VEXTVCTRLR_OK;
      else
        return _unpackage_json_usint(parameter, key, &field_at<UINT32>(record, field)) == VEXTVCTRLR_OK;
    case FieldKind::kText:
      return _unpackage_json_string(parameter, key, &field_at<char>(record, field), field.size - 1) == VEXTVCTRLR_OK;
    case FieldKind::kName:
      return decode_name(field, parameter, record, entry);
    default:
      return false;  // never decoded
  }
}

// Returns whether a field is decoded in this request.
static bool is_read(const Field& field, FieldUse use, const cJSON* parameter, const void* record, UINT16 uri) {
  if (use != kEverywhere && !(field.use & use)) return false;
  if (field.uri && field.uri != uri) return false;
  if (field.read_when && !field.read_when(record)) return false;
  return !field.unless || !cJSON_IsString(cJSON_GetObjectItemCaseSensitive(parameter, field.unless));
}

static Reading decode_members(const Field& field, FieldUse use, const cJSON* parameter, void* record, const char* entry,
                              UINT16 uri) {
  const INT32 ret = tvc_decode_fields(tvc_chosen_rows(field, record), use, parameter, record, entry, uri);
  return ret == VEXTVCTRLR_OK ? Reading::kStored : Reading::kFailed;
}

static Reading decode_field(const Field& field, FieldUse use, const cJSON* parameter, void* record, const char* entry,
                            UINT16 uri) {
  if (field.kind == FieldKind::kMembers) return decode_members(field, use, parameter, record, entry, uri);
  if (field.kind == FieldKind::kObject) return decode_object(field, parameter, record, entry, uri);
  if (field.count.size) return decode_array(field, parameter, record, entry);
  const bool stored = decode_value(field, parameter, record, entry);
  put_integer(record, field.found, stored);
  put_integer(record, field.missing, !stored);
  return stored ? Reading::kStored : Reading::kMissing;
}

INT32 tvc_decode_fields(std::span<const Field> fields, FieldUse use, const cJSON* parameter, void* record,
                        const char* entry, UINT16 uri) {
  if (!parameter || !record) {
    TVC_LOG(kLogError, "param is NULL!\n");
    return VEXTVCTRLR_FAIL;
  }
  for (const Field& field : fields)
    if (is_read(field, use, parameter, record, uri) &&
        decode_field(field, use, parameter, record, entry, uri) == Reading::kFailed)
      return VEXTVCTRLR_FAIL;
  return VEXTVCTRLR_OK;
}

template <typename Element>
static void write_array(JsonText& json, const Field& field, const void* record) {
  tvc_open_array(json);
  for (const Element element : std::span(&field_at<Element>(record, field), tvc_element_count(field, record)))
    tvc_write_integer(json, element);
  tvc_close_array(json);
}

static void write_owned_text(JsonText& json, const Field& field, const void* record) {
  const char* const text = field_at<char*>(record, field);
  if (const char* const shown = text ? text : field.text)
    tvc_write_text(json, shown);
  else
    tvc_write_null(json);
}

static void write_value(JsonText& json, const Field& field, const void* record) {
  if (field.render) return field.render(json, field, record);
  switch (field.kind) {
    case FieldKind::kInt32:
    case FieldKind::kName:
      return tvc_write_integer(json, field_at<INT32>(record, field));
    case FieldKind::kInt16:
      return tvc_write_integer(json, field_at<INT16>(record, field));
    case FieldKind::kUint8:
      return tvc_write_unsigned(json, field_at<UINT8>(record, field));
    case FieldKind::kUint16:
      return tvc_write_unsigned(json, field_at<UINT16>(record, field));
    case FieldKind::kUint32:
      return tvc_write_unsigned(json, field_at<UINT32>(record, field));
    case FieldKind::kInt64:
      return tvc_write_integer(json, field_at<INT64>(record, field));
    case FieldKind::kUint64:
      return tvc_write_unsigned(json, field_at<UINT64>(record, field));
    case FieldKind::kDouble:
      return tvc_write_double(json, field_at<double>(record, field));
    case FieldKind::kWord:
      return tvc_write_unsigned(json, field_at<uintptr_t>(record, field));
    case FieldKind::kText:
    case FieldKind::kText16:  // read as bytes, without conversion: receivers rely on it
      return tvc_write_text(json, &field_at<char>(record, field), field.size);
    case FieldKind::kOwnedText:
      return write_owned_text(json, field, record);
    case FieldKind::kUint8Array:
      return write_array<UINT8>(json, field, record);
    case FieldKind::kUint16Array:
      return write_array<UINT16>(json, field, record);
    case FieldKind::kInt32Array:
      return write_array<INT32>(json, field, record);
    case FieldKind::kUint32Array:
      return write_array<UINT32>(json, field, record);
    case FieldKind::kConstant:
      return tvc_write_text(json, field.text);
    case FieldKind::kMembers:
      return;  // has no value of its own
    case FieldKind::kObject:
      return tvc_write_object(json, field.fields, kEverywhere, &field_at<char>(record, field));
  }
}

void tvc_write_members(JsonText& json, std::span<const Field> fields, FieldUse use, const void* record) {
  for (const Field& field : fields) {
    if (use != kEverywhere && !(field.use & use)) continue;
    if (field.when && !field.when(record)) continue;
    if (field.kind == FieldKind::kMembers) {
      tvc_write_members(json, tvc_chosen_rows(field, record), use, record);
      continue;
    }
    tvc_write_key(json, field.key);
    write_value(json, field, record);
  }
}

void tvc_write_object(JsonText& json, std::span<const Field> fields, FieldUse use, const void* record) {
  tvc_open_object(json);
  tvc_write_members(json, fields, use, record);
  tvc_close_object(json);
}

void tvc_free_texts(std::span<const Field> fields, void* record) {
  for (const Field& field : fields) {
    if (field.kind != FieldKind::kOwnedText && field.kind != FieldKind::kMembers) continue;
    if (field.when && !field.when(record)) continue;
    if (field.kind == FieldKind::kMembers)
      tvc_free_texts(tvc_chosen_rows(field, record), record);
    else
      free(std::exchange(field_at<char*>(record, field), nullptr));
  }
}
