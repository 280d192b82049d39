#include "tv_ctrl_util/json_scalar.h"

#include <string.h>

#include <type_traits>

#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/number.h"
#include "vex_tv_ctrl/status.h"

INT32 tvc_json_integer(const cJSON* value) { return value->valueint; }

// Returns what cJSON holds for a value that is no text: its integer, or for wider fields its double, converted.
template <typename Wide>
static Wide from_value(const cJSON* value) {
  if constexpr (std::is_same_v<Wide, INT32>)
    return tvc_json_integer(value);
  else
    return tvc_double_to<Wide>(value->valuedouble);
}

// Returns a member, or null after logging why there is none. decoder: name of the calling function in the log.
static const cJSON* find_member(const char* decoder, const cJSON* object, const char* key) {
  if (!object || !key) {
    TVC_LOG_AS(kLogError, decoder, "param is NULL!\n");
    return nullptr;
  }
  const cJSON* const member = cJSON_GetObjectItemCaseSensitive(object, key);
  if (!member) TVC_LOG_AS(kLogMissing, decoder, "Can not find [%s]!\n", key);
  return member;
}

// Converts a member to `Wide`, narrows it to the field's type and traces it as `Trace`, under the decoder's name.
template <typename Trace, typename Field, typename Wide>
static INT32 unpackage(const char* decoder, const char* trace, const cJSON* object, const char* key, Field* ret_value,
                       Wide (*from_text)(const char*)) {
  const cJSON* const member = find_member(decoder, object, key);
  if (!member) return VEXTVCTRLR_FAIL;
  const Wide wide = cJSON_IsString(member) ? from_text(member->valuestring) : from_value<Wide>(member);
  *ret_value = static_cast<Field>(wide);
  TVC_LOG_AS(kLogValue, decoder, trace, key, static_cast<Trace>(*ret_value));
  return VEXTVCTRLR_OK;
}

INT32 _unpackage_json_int(const cJSON* object, const char* key, INT32* ret_value) {
  return unpackage<int>(__func__, "%s: %d!\n", object, key, ret_value, tvc_text_to_int32);
}

INT32 _unpackage_json_ushort(const cJSON* object, const char* key, UINT16* ret_value) {
  return unpackage<int>(__func__, "%s: %d!\n", object, key, ret_value, tvc_text_to_int32);
}

INT32 _unpackage_json_uschar(const cJSON* object, const char* key, UINT8* ret_value) {
  return unpackage<int>(__func__, "%s: %d!\n", object, key, ret_value, tvc_text_to_int32);
}

INT32 _unpackage_json_usint(const cJSON* object, const char* key, UINT32* ret_value) {
  return unpackage<unsigned>(__func__, "%s: %u!\n", object, key, ret_value, tvc_text_to_uint32);
}

INT32 _unpackage_json_uslong(const cJSON* object, const char* key, UINT32* ret_value) {
  return unpackage<unsigned long>(__func__, "%s: %lu!\n", object, key, ret_value, tvc_text_to_uint32);
}

INT32 _unpackage_json_longlong(const cJSON* object, const char* key, INT64* ret_value) {
  return unpackage<long long>(__func__, "%s: %lld!\n", object, key, ret_value, tvc_text_to_int64);
}

INT32 _unpackage_json_uslonglong(const cJSON* object, const char* key, UINT64* ret_value) {
  return unpackage<unsigned long long>(__func__, "%s: %llu!\n", object, key, ret_value, tvc_text_to_uint64);
}

INT32 _unpackage_json_string(const cJSON* object, const char* key, char* ret_text, std::size_t limit) {
  if (!ret_text || limit == 0) {
    TVC_LOG(kLogError, "param is NULL!\n");
    return VEXTVCTRLR_FAIL;
  }
  const cJSON* const member = find_member(__func__, object, key);
  if (!member) return VEXTVCTRLR_FAIL;
  if (!cJSON_IsString(member)) {
    TVC_LOG(kLogError, "Error before: [%s]\n", "");
    return VEXTVCTRLR_FAIL;
  }
  const std::size_t length = strnlen(member->valuestring, limit);
  memcpy(ret_text, member->valuestring, length);
  if (length < limit) ret_text[length] = '\0';
  TVC_LOG(kLogValue, "%s: %.*s!\n", key, static_cast<int>(length), member->valuestring);
  return VEXTVCTRLR_OK;
}
