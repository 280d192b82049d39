// A conformance case as read from its file, and the check of its members.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sandbox/sandbox.h"
#include "tap/json.h"

namespace runner {

struct Case {
  std::string file;
  std::string name;
  std::string text;                      // the plain case: see "runner/expand.h"
  tap::Json json;                        // of text
  std::vector<std::string> step_params;  // per step, "param" as written in the file, without white space
  std::vector<std::string> step_rows;    // per step, the row that made it, or empty
  std::string refusal;                   // why it cannot be run; empty when it can
};

struct CaseFile {
  std::string path;
  std::vector<Case> cases;
  std::string refusal;  // of the whole file
};

// Reads a file. The refusals say what is wrong.
CaseFile read_case_file(const std::string& path);

// A platform function, from dtv_tap_list.
struct ContractFunction {
  std::vector<std::string> params;
  std::vector<std::string> kinds;
  std::vector<std::string> types;
  bool has_callback = false;
};
using Contract = std::map<std::string, ContractFunction, std::less<>>;
Contract read_contract(const cJSON* list);

// Why a case cannot be run (unknown members or functions, wrong kinds of values, no check); empty when it can.
std::string check_case(const Case& test, const Contract& contract);

// Whether a case's "word_bits" is 32 or 64, the sizes of an address on the sets.
bool is_word_bits(const cJSON* json);

// The files that a case wants. language_template: the bytes of the language library; other_library: those of one
// without the look-up function.
WantedPaths wanted_paths(const Case& test, std::string_view language_template, std::string_view other_library);

// The member that says what a step does ("get", "set", ...); null when there is none. Of several it returns the one
// that comes first in the runner's list of kinds; check_case refuses the others as unknown members.
const cJSON* step_action(const cJSON* step);

}  // namespace runner
