#include "tv_ctrl_util/json_parse.h"

#include <mutex>

// Innermost lock: a thread that holds it takes no other.
static std::mutex parse_mutex;

JsonParse tvc_json_parse(const char* text) {
  const std::lock_guard guard(parse_mutex);
  const char* end = text;
  cJSON* const root = cJSON_ParseWithOpts(text, &end, false);
  return {.root = root, .error_at = root ? "" : end};
}
