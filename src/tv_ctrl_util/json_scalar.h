// Decodes one member of a JSON object into one field of a content record.
//
// Each function returns 0 when it found and stored the member. It returns -1 and leaves the destination untouched for a
// null object or key ("param is NULL!"), and for a missing member ("Can not find [%s]!", level 5). A text is converted
// to a number. A number is cut to its low bits for fields of 8 and 16 bits, and saturated for wider fields. Of any
// other JSON kind the value is 0, except true, which is 1 in fields of 8, 16 and signed 32 bits. Keys are
// case-sensitive. The value stored is traced at level 2.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>

#include "tvapi/types.h"

INT32 _unpackage_json_int(const cJSON* object, const char* key, INT32* ret_value);
INT32 _unpackage_json_ushort(const cJSON* object, const char* key, UINT16* ret_value);
INT32 _unpackage_json_uschar(const cJSON* object, const char* key, UINT8* ret_value);
INT32 _unpackage_json_usint(const cJSON* object, const char* key, UINT32* ret_value);
// Decodes an unsigned long of the set, which has 32 bits.
INT32 _unpackage_json_uslong(const cJSON* object, const char* key, UINT32* ret_value);
INT32 _unpackage_json_longlong(const cJSON* object, const char* key, INT64* ret_value);
INT32 _unpackage_json_uslonglong(const cJSON* object, const char* key, UINT64* ret_value);

// Copies a text of at most `limit` characters. Writes no terminator when the text has `limit` characters or more, so
// callers pass one less than the size of a cleared array. Returns -1 also for a member that is no text ("Error before:
// []").
INT32 _unpackage_json_string(const cJSON* object, const char* key, char* ret_text, std::size_t limit);

// Returns the integer that cJSON holds for a value of any JSON kind: a number truncated and saturated; 1 for true; else
// 0.
INT32 tvc_json_integer(const cJSON* value);
