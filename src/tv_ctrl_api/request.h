// The request's parameter text: its envelope, and how it becomes a content record.
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
  cJSON* root = nullptr;             // the parsed text, owned
  const cJSON* parameter = nullptr;  // its "PARAMETER" object; null when it is no object, or there was no text
  char word[32] = {};                // the request word, cut to 31 characters; empty when there is none
};

// Parses a text and takes the parameter object and the request word from it. `needs_word`: a parameter object without
// a "REQUEST" is an error. False on failure, with its message under the name of the entry point; the caller deletes
// `root` in every case.
bool tvc_parse_request(const char* entry, const char* text, bool needs_word, Request& ret_request);

enum class Decoded : UINT8 {
  kDone,
  kNotTaken,  // the item type decodes nothing in this use
  kFailed,    // told as "error: parse ... param!"
};

// Decodes the parameter object into the record, with the fields of one use and of the request's URI.
Decoded tvc_decode_parameter(const char* entry, const ItemType* item, FieldUse use, const cJSON* parameter,
                             void* record, UINT16 uri = 0);

// Stores the value of a "MODIFY" in the record. False when the type has no value, or its value is of another kind.
bool tvc_modify_record(const char* entry, const ItemType* item, const cJSON* value, void* record);
