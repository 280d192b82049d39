#include "runner/inventory.h"

#include "runner/output.h"

namespace runner {
namespace {

void read_registry(const cJSON* registry, Inventory& inventory) {
  const cJSON* types = cJSON_GetObjectItemCaseSensitive(registry, "types");
  const cJSON* row = nullptr;
  cJSON_ArrayForEach(row, cJSON_GetObjectItemCaseSensitive(registry, "uris")) {
    const cJSON* id = cJSON_GetObjectItemCaseSensitive(row, "id");
    const cJSON* uri = cJSON_GetObjectItemCaseSensitive(row, "uri");
    if (!cJSON_IsNumber(id) || !cJSON_IsString(uri)) continue;
    inventory.uri_of_id[id->valueint] = uri->valuestring;
    const cJSON* name = cJSON_GetObjectItemCaseSensitive(row, "type");
    const cJSON* type = cJSON_GetObjectItemCaseSensitive(types, cJSON_IsString(name) ? name->valuestring : "");
    const cJSON* set = cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(type, "set"), "request");
    inventory.words_of_uri[uri->valuestring] = {
        .set = cJSON_IsString(set) ? set->valuestring : "",
        .query = cJSON_IsArray(cJSON_GetObjectItemCaseSensitive(type, "query")) != 0};
  }
}

}  // namespace

Inventory inventory_read(const std::string& report) {
  Inventory inventory;
  for (const std::string& text : split_lines(report)) {
    std::string error;
    const tap::Json line = tap::json_parse(text, error);
    if (const cJSON* contract = cJSON_GetObjectItemCaseSensitive(line.get(), "contract"); contract != nullptr) {
      inventory.functions = tap::json_print(contract);
      inventory.contract = read_contract(contract);
    }
    if (const cJSON* registry = cJSON_GetObjectItemCaseSensitive(line.get(), "registry"); registry != nullptr) {
      inventory.registry = tap::json_print(registry);
      read_registry(registry, inventory);
    }
  }
  return inventory;
}

}  // namespace runner
