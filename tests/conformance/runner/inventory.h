// What the libraries say of themselves: the tap its contract, the plugin its registry. The runner reads it once, from a
// process of its own, and each case's process has it from its parent: to print and to parse it again for each case
// would take longer than most cases.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "runner/case.h"
#include "tap/json.h"

namespace runner {

// The request word with which a request reaches the handler of its URI.
struct RequestWords {
  std::string set;     // the request word of a set; empty: any
  bool query = false;  // whether a get can be a query
};

struct Inventory {
  std::string functions;  // what dtv_tap_list returned; empty: the tap could not be loaded
  std::string registry;   // what a_dtv_jsp_describe returned; empty: the plugin has no such function
  Contract contract;      // of functions
  std::map<std::int64_t, std::string> uri_of_id;     // of the registry
  std::map<std::string, RequestWords> words_of_uri;  // of the registry
};

// Reads the report of child_inventory.
Inventory inventory_read(const std::string& report);

}  // namespace runner
