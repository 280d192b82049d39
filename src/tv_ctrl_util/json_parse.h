// Parsing with cJSON, whose error position is one variable of the whole process.
#pragma once

#include <cjson/cJSON.h>

struct JsonParse {
  cJSON* root;           // owned by the caller, freed with cJSON_Delete; null when the text does not parse
  const char* error_at;  // then where in the text the parser stopped; else empty
};

// Parses the first JSON value of a text; what stands after it is ignored. Parses of the plugin's threads exclude each
// other, since each writes the library's error position.
JsonParse tvc_json_parse(const char* text);
