#include "tv_ctrl_api/request.h"

#include "tv_ctrl_util/json_parse.h"
#include "tv_ctrl_util/json_scalar.h"
#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/number.h"
#include "tv_ctrl_util/text.h"

bool tvc_parse_request(const char* entry, const char* text, bool needs_word, Request& ret_request) {
  const JsonParse parsed = tvc_json_parse(text);
  if (!parsed.root) {
    TVC_LOG_AS(kLogError, entry, "Error before: [%s]\n", parsed.error_at);
    return false;
  }
  ret_request.root = parsed.root;
  const cJSON* const parameter = cJSON_GetObjectItemCaseSensitive(parsed.root, "PARAMETER");
  if (!parameter) {
    TVC_LOG_AS(kLogError, entry, "Param do NOT has PARAMETER.\n");
    return false;
  }
  if (!cJSON_IsObject(parameter)) return true;
  ret_request.parameter = parameter;
  const cJSON* const word = cJSON_GetObjectItemCaseSensitive(parameter, "REQUEST");
  if (!word && needs_word) {
    TVC_LOG_AS(kLogError, entry, "Error before: [%s]\n", parsed.error_at);
    return false;
  }
  if (word && cJSON_IsString(word)) tvc_copy_text(ret_request.word, word->valuestring);
  return true;
}

Decoded tvc_decode_parameter(const char* entry, const ItemType* item, FieldUse use, const cJSON* parameter,
                             void* record, UINT16 uri) {
  if (!item || !tvc_item_has(*item, use)) return Decoded::kNotTaken;
  const char* const decoder = item->decoder ? item->decoder : entry;
  if (tvc_decode_fields(item->fields, use, parameter, record, decoder, uri) == VEXTVCTRLR_OK) return Decoded::kDone;
  TVC_LOG_AS(kLogError, entry, "error: parse %s param!", item->error_word ? item->error_word : "");
  return Decoded::kFailed;
}

// Returns the field that a "MODIFY" changes, or null.
static const Field* modified_field(const ItemType* item) {
  if (item)
    for (const Field& field : item->fields)
      if (field.use & kModify) return &field;
  return nullptr;
}

bool tvc_modify_record(const char* entry, const ItemType* item, const cJSON* value, void* record) {
  const Field* const field = modified_field(item);
  if (!field) return false;
  switch (field->kind) {
    case FieldKind::kInt32: {
      INT32& number = field_at<INT32>(record, *field);
      number = tvc_json_integer(value);  // 0 for a text: unlike the other requests, a "MODIFY" does not convert it
      TVC_LOG_AS(kLogValue, entry, "VALUE: %d!\n", number);
      return true;
    }
    case FieldKind::kInt64: {
      INT64& number = field_at<INT64>(record, *field);
      number = tvc_double_to<INT64>(value->valuedouble);
      TVC_LOG_AS(kLogValue, entry, "VALUE: %lld!\n", static_cast<long long>(number));
      return true;
    }
    case FieldKind::kText: {
      if (!cJSON_IsString(value)) return false;
      char* const text = &field_at<char>(record, *field);
      tvc_copy_text(text, field->size, value->valuestring);
      TVC_LOG_AS(kLogValue, entry, "VALUE: %s!\n", text);
      return true;
    }
    default:
      return false;
  }
}
