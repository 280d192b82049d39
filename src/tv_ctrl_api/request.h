// Parses the parameter text of a request and decodes it into a content record.
#pragma once

#include <cjson/cJSON.h>

#include "tv_ctrl_api/item_types.h"

// The request words.
inline constexpr const char* kWordQuery = "QUERY";
inline constexpr const char* kWordAction = "ACTION";
inline constexpr const char* kWordModify = "MODIFY";
inline constexpr const char* kWordSet = "SET";
inline constexpr const char* kWordAssociate = "ASSOCIATE";

struct Request {
  cJSON* root = nullptr;             // the parsed text, owned by the caller of tvc_parse_request
  const cJSON* parameter = nullptr;  // its object "PARAMETER"; null when that is no object, or nothing was parsed
  char word[32] = {};                // the text "REQUEST", cut to 31 characters; empty when it is missing or no text
};

// Parses a text and finds its parameter object and request word. Fails when the text is no JSON, or "PARAMETER" is
// missing. needs_word: fails also when the parameter object has no "REQUEST". Success does not mean that there is a
// word: "REQUEST" may be no text, and "PARAMETER" no object. entry: name of the entry point, for the log.
// Returns false on failure, after logging it. The caller deletes `root` in either case.
bool tvc_parse_request(const char* entry, const char* text, bool needs_word, Request& ret_request);

enum class Decoded : UINT8 {
  kDone,
  kNotTaken,  // the item type has no fields for this use
  kFailed,    // logged as "error: parse ... param!"
};

// Decodes the parameter object into the record: the item type's fields of one use. item: null for a type without a row.
// uri: identifier of the request's URI; fields that belong to another URI are skipped, with 0 all that belong to one.
Decoded tvc_decode_parameter(const char* entry, const ItemType* item, FieldUse use, const cJSON* parameter,
                             void* record, UINT16 uri = 0);

// Stores the value of a "MODIFY" in the record. A number takes 0 from a text. Returns false when the type has no field
// to modify, or when that field is a text and `value` is not.
bool tvc_modify_record(const char* entry, const ItemType* item, const cJSON* value, void* record);
