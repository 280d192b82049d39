// Parses with cJSON, which keeps its error position in one variable for the whole process.
#pragma once

#include <cjson/cJSON.h>

struct JsonParse {
  cJSON* root;           // owned by the caller, who frees it with cJSON_Delete; null when the text does not parse
  const char* error_at;  // when it does not parse: the rest of the text from where the parser stopped; else empty
};

// Parses the first JSON value of a text and ignores the rest. Only one thread of the plugin parses at a time, because
// each parse writes cJSON's error position.
JsonParse tvc_json_parse(const char* text);
