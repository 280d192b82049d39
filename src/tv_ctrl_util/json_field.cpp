#include "tv_ctrl_util/json_field.h"

#include <string.h>

#include <charconv>
#include <limits>
#include <memory>
#include <new>

#include "tv_ctrl_util/json_scalar.h"
#include "tv_ctrl_util/log.h"
#include "vex_tv_ctrl/status.h"

bool tvc_json_add(cJSON* object, const char* key, cJSON* value) {
  if (cJSON_AddItemToObjectCS(object, key, value)) return true;
  cJSON_Delete(value);
  return false;
}

cJSON* tvc_json_number(INT64 value) {
  // From 10^15 on the library prints an exponent; below, its text is the plain integer.
  constexpr INT64 kPlain = 1'000'000'000'000'000;
  if (value <= -kPlain || value >= kPlain) return cJSON_CreateNumber(static_cast<double>(value));
  char text[24];
  *std::to_chars(text, text + sizeof text - 1, value).ptr = '\0';
  return cJSON_CreateRaw(text);
}

static cJSON* json_unsigned(UINT64 value) {
  if (value > static_cast<UINT64>(std::numeric_limits<INT64>::max()))
    return cJSON_CreateNumber(static_cast<double>(value));
  return tvc_json_number(static_cast<INT64>(value));
}

cJSON* tvc_json_text(const char* text, std::size_t size) {
  const std::size_t length = strnlen(text, size);
  if (length < size) return cJSON_CreateStringReference(text);
  const std::unique_ptr<char[]> terminated(new (std::nothrow) char[size + 1]);
  if (!terminated) return nullptr;
  memcpy(terminated.get(), text, size);
  terminated[size] = '\0';
  return cJSON_CreateString(terminated.get());
}

void tvc_decode_library_integer(const cJSON* parameter, const Field& field, void* record, const char* entry) {
  const cJSON* const member = cJSON_GetObjectItemCaseSensitive(parameter, field.key);
  if (!member) return;
  INT32& value = field_at<INT32>(record, field);
  value = tvc_json_integer(member);
  TVC_LOG_AS(LOG_VALUE, entry, "%s: %d!\n", field.text, value);
}

static void decode_field(const Field& field, const cJSON* parameter, void* record, const char* entry) {
  if (field.decode) return field.decode(parameter, field, record, entry);
  switch (field.kind) {
    case FieldKind::kInt32:
      _unpackage_json_int(parameter, field.key, &field_at<INT32>(record, field));
      return;
    case FieldKind::kUint8:
      _unpackage_json_uschar(parameter, field.key, &field_at<UINT8>(record, field));
      return;
    case FieldKind::kUint16:
      _unpackage_json_ushort(parameter, field.key, &field_at<UINT16>(record, field));
      return;
    case FieldKind::kUint32:
      _unpackage_json_usint(parameter, field.key, &field_at<UINT32>(record, field));
      return;
    case FieldKind::kInt64:
      _unpackage_json_longlong(parameter, field.key, &field_at<INT64>(record, field));
      return;
    case FieldKind::kUint64:
      _unpackage_json_uslonglong(parameter, field.key, &field_at<UINT64>(record, field));
      return;
    case FieldKind::kText:
      _unpackage_json_string(parameter, field.key, &field_at<char>(record, field), field.size - 1);
      return;
    case FieldKind::kObject: {
      const cJSON* const member = cJSON_GetObjectItemCaseSensitive(parameter, field.key);
      if (cJSON_IsObject(member))
        tvc_decode_fields(field.fields, kEverywhere, member, &field_at<char>(record, field), entry);
      return;
    }
    case FieldKind::kWord:
    case FieldKind::kText16:
    case FieldKind::kUint8Array:
    case FieldKind::kUint32Array:
    case FieldKind::kConstant:
      return;  // never decoded
  }
}

INT32 tvc_decode_fields(std::span<const Field> fields, FieldUse use, const cJSON* parameter, void* record,
                        const char* entry) {
  if (!parameter || !record) {
    TVC_LOG(LOG_ERROR, "param is NULL!\n");
    return VEXTVCTRLR_FAIL;
  }
  for (const Field& field : fields)
    if (use == kEverywhere || (field.use & use)) decode_field(field, parameter, record, entry);
  return VEXTVCTRLR_OK;
}

// Null without memory.
template <typename Element>
static cJSON* render_array(const Field& field, const void* record) {
  cJSON* const array = cJSON_CreateArray();
  const std::span elements(&field_at<Element>(record, field), field.size / sizeof(Element));
  for (const Element element : elements) {
    cJSON* const number = tvc_json_number(element);
    if (cJSON_AddItemToArray(array, number)) continue;
    cJSON_Delete(number);
    cJSON_Delete(array);
    return nullptr;
  }
  return array;
}

// Null without memory.
static cJSON* render_field(const Field& field, const void* record) {
  if (field.render) return field.render(field, record);
  switch (field.kind) {
    case FieldKind::kInt32:
      return tvc_json_number(field_at<INT32>(record, field));
    case FieldKind::kUint8:
      return tvc_json_number(field_at<UINT8>(record, field));
    case FieldKind::kUint16:
      return tvc_json_number(field_at<UINT16>(record, field));
    case FieldKind::kUint32:
      return tvc_json_number(field_at<UINT32>(record, field));
    case FieldKind::kInt64:
      return tvc_json_number(field_at<INT64>(record, field));
    case FieldKind::kUint64:
      return json_unsigned(field_at<UINT64>(record, field));
    case FieldKind::kWord:
      return json_unsigned(field_at<uintptr_t>(record, field));
    case FieldKind::kText:
    case FieldKind::kText16:  // read as bytes, without conversion: receivers rely on it
      return tvc_json_text(&field_at<char>(record, field), field.size);
    case FieldKind::kUint8Array:
      return render_array<UINT8>(field, record);
    case FieldKind::kUint32Array:
      return render_array<UINT32>(field, record);
    case FieldKind::kConstant:
      return cJSON_CreateStringReference(field.text);
    case FieldKind::kObject: {
      cJSON* const object = cJSON_CreateObject();
      if (object && !tvc_render_fields(field.fields, kEverywhere, &field_at<char>(record, field), object)) {
        cJSON_Delete(object);
        return nullptr;
      }
      return object;
    }
  }
  return nullptr;
}

bool tvc_render_fields(std::span<const Field> fields, FieldUse use, const void* record, cJSON* object) {
  for (const Field& field : fields) {
    if (use != kEverywhere && !(field.use & use)) continue;
    if (field.when && !field.when(record)) continue;
    if (!tvc_json_add(object, field.key, render_field(field, record))) return false;
  }
  return true;
}
