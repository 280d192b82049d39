// Reads one member of a JSON object into one field of a content record.
//
// Each returns 0 when the member was found and stored, else -1 with the destination untouched: a null object or key
// ("param is NULL!"), or a missing member ("Can not find [%s]!", level 5). A text is converted, a number taken over
// (truncated to the field's width for 8 and 16 bits, saturated for wider ones). Of anything else the field gets what
// the library holds: its integer for fields of up to 32 signed bits, where true is 1, else its double; 0 for the rest.
// Names are matched exactly. The value stored is traced at level 2.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>

#include "tvapi/types.h"

INT32 _unpackage_json_int(const cJSON* object, const char* key, INT32* ret_value);
INT32 _unpackage_json_ushort(const cJSON* object, const char* key, UINT16* ret_value);
INT32 _unpackage_json_uschar(const cJSON* object, const char* key, UINT8* ret_value);
INT32 _unpackage_json_usint(const cJSON* object, const char* key, UINT32* ret_value);
// The target's unsigned long, which has 32 bits there.
INT32 _unpackage_json_uslong(const cJSON* object, const char* key, UINT32* ret_value);
INT32 _unpackage_json_longlong(const cJSON* object, const char* key, INT64* ret_value);
INT32 _unpackage_json_uslonglong(const cJSON* object, const char* key, UINT64* ret_value);

// Copies at most `limit` characters, without a terminator when the text is `limit` characters or longer: callers pass
// one less than the size of a cleared array. A member that is no text is an error ("Error before: []", -1).
INT32 _unpackage_json_string(const cJSON* object, const char* key, char* ret_text, std::size_t limit);

// The integer that the library made of a value of any kind: numbers truncated and saturated, true 1, else 0.
INT32 tvc_json_integer(const cJSON* value);
