// One case in a process of its own.
#pragma once

#include <string>

#include "runner/case.h"
#include "runner/inventory.h"

namespace runner {

struct Libraries {
  std::string plugin;  // absolute paths
  std::string tap;
  std::string language_template;  // bytes of the language library
  std::string other_library;      // bytes of a library without the look-up function
};

// The memory files that the child writes and that its parent reads when the child has ended.
struct ChildFiles {
  int report = -1;  // JSON lines, see report_*
  int out = -1;     // standard output
  int err = -1;     // standard error
};

// Lines of the report: {"step": number} as each begins (0: start-up), {"fail": text}, {"note": text} for -v,
// {"functions": {name: count}, "uris": {uri: count}} and {"done": true} at the end.
[[noreturn]] void child_run(const Case& test, const Inventory& inventory, const Libraries& libraries,
                            const ChildFiles& files);

// Writes {"contract": [...]} and {"registry": {...}} (what dtv_tap_list and a_dtv_jsp_describe say) instead of a case.
[[noreturn]] void child_inventory(const Libraries& libraries, const ChildFiles& files);

}  // namespace runner
