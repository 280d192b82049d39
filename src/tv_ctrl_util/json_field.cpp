#include "tv_ctrl_util/json_field.h"

#include "tv_ctrl_util/json_scalar.h"
#include "tv_ctrl_util/log.h"
#include "vex_tv_ctrl/status.h"

void tvc_decode_library_integer(const cJSON* parameter, const Field& field, void* record, const char* entry) {
  const cJSON* const member = cJSON_GetObjectItemCaseSensitive(parameter, field.key.data());
  if (!member) return;
  INT32& value = field_at<INT32>(record, field);
  value = tvc_json_integer(member);
  TVC_LOG_AS(LOG_VALUE, entry, "%s: %d!\n", field.text, value);
}

static void decode_field(const Field& field, const cJSON* parameter, void* record, const char* entry) {
  if (field.decode) return field.decode(parameter, field, record, entry);
  switch (field.kind) {
    case FieldKind::kInt32:
      _unpackage_json_int(parameter, field.key.data(), &field_at<INT32>(record, field));
      return;
    case FieldKind::kUint8:
      _unpackage_json_uschar(parameter, field.key.data(), &field_at<UINT8>(record, field));
      return;
    case FieldKind::kUint16:
      _unpackage_json_ushort(parameter, field.key.data(), &field_at<UINT16>(record, field));
      return;
    case FieldKind::kUint32:
      _unpackage_json_usint(parameter, field.key.data(), &field_at<UINT32>(record, field));
      return;
    case FieldKind::kInt64:
      _unpackage_json_longlong(parameter, field.key.data(), &field_at<INT64>(record, field));
      return;
    case FieldKind::kUint64:
      _unpackage_json_uslonglong(parameter, field.key.data(), &field_at<UINT64>(record, field));
      return;
    case FieldKind::kText:
      _unpackage_json_string(parameter, field.key.data(), &field_at<char>(record, field), field.size - 1);
      return;
    case FieldKind::kObject: {
      const cJSON* const member = cJSON_GetObjectItemCaseSensitive(parameter, field.key.data());
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

template <typename Element>
static void write_array(JsonText& json, const Field& field, const void* record) {
  tvc_open_array(json);
  for (const Element element : std::span(&field_at<Element>(record, field), field.size / sizeof(Element)))
    tvc_write_unsigned(json, element);
  tvc_close_array(json);
}

static void write_value(JsonText& json, const Field& field, const void* record) {
  if (field.render) return field.render(json, field, record);
  switch (field.kind) {
    case FieldKind::kInt32:
      return tvc_write_integer(json, field_at<INT32>(record, field));
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
    case FieldKind::kWord:
      return tvc_write_unsigned(json, field_at<uintptr_t>(record, field));
    case FieldKind::kText:
    case FieldKind::kText16:  // read as bytes, without conversion: receivers rely on it
      return tvc_write_text(json, &field_at<char>(record, field), field.size);
    case FieldKind::kUint8Array:
      return write_array<UINT8>(json, field, record);
    case FieldKind::kUint32Array:
      return write_array<UINT32>(json, field, record);
    case FieldKind::kConstant:
      return tvc_write_text(json, field.text);
    case FieldKind::kObject:
      return tvc_write_object(json, field.fields, kEverywhere, &field_at<char>(record, field));
  }
}

void tvc_write_object(JsonText& json, std::span<const Field> fields, FieldUse use, const void* record) {
  tvc_open_object(json);
  for (const Field& field : fields) {
    if (use != kEverywhere && !(field.use & use)) continue;
    if (field.when && !field.when(record)) continue;
    tvc_write_key(json, field.key);
    write_value(json, field, record);
  }
  tvc_close_object(json);
}
