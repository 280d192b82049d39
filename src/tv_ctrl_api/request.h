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
  const cJSON* parameter = nullptr;  // "PARAMETER" in it; null when that is no object, or there was no text
  char word[32] = {};                // the request word, cut to 31 characters; empty when there is none
};

// Parses a text and finds its parameter object and request word. entry: name of the entry point, for the log.
// needs_word: a parameter object without "REQUEST" is an error. Returns false on failure, after logging it. The caller
// deletes `root` in either case.
bool tvc_parse_request(const char* entry, const char* text, bool needs_word, Request& ret_request);

enum class Decoded : UINT8 {
  kDone,
  kNotTaken,  // the item type has no fields for this use
  kFailed,    // logged as "error: parse ... param!"
};

// Decodes the parameter object into the record: the item type's fields of one use. item: null for a type without a row.
// uri: the request's identifier; fields of other identifiers are skipped.
Decoded tvc_decode_parameter(const char* entry, const ItemType* item, FieldUse use, const cJSON* parameter,
                             void* record, UINT16 uri = 0);

// Stores the value of a "MODIFY" in the record. Returns false when the type has no value to modify, or when the value
// is a text and `value` is not.
bool tvc_modify_record(const char* entry, const ItemType* item, const cJSON* value, void* record);
