// One call of the plugin or of the virtual television's control, and its outcome. Knows nothing of JSON-RPC or sockets.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "checks.h"
#include "stack.h"
#include "tracer.h"

enum class CallKind { kGet, kSet, kControl };

struct Call {
  CallKind kind = CallKind::kGet;
  const char* uri = nullptr;      // the catalogue's; null for control
  std::string text = {};          // get, set: {"PARAMETER": ...}, empty for none; control: array of words
  bool traced = false;            // whether the outcome includes the platform calls and the log
  bool strict = false;            // whether a request that departs from its URI's description is refused
  const CheckUri* row = nullptr;  // the URI's description, the catalogue's; null for control
  std::string ignored = {};       // HTTP: an argument of the query that has no meaning
};

struct Outcome {
  std::int32_t ret = 0;
  std::string text = {};                   // get: the plugin's response, empty when there is none; control: the reply
  bool broken = false;                     // the text is not whole, valid JSON
  std::string reason = {};                 // of a result other than 0
  std::vector<std::string> warnings = {};  // what the set ignored or changed
  bool departs = false;                    // strict: the call was not made, because of the warnings
  std::string log = {};                    // what the plugin and the platform printed during the call
  std::string lines = {};                  // traced: the platform calls' lines, separated by commas
  std::uint64_t change = 0;   // number of the set's latest change when the call returned, whoever made it; 0 for a get
  std::int32_t not_kept = 0;  // errno: the change could not be written to the disk
};

// Makes the call on this thread; it takes as long as the platform takes. Only one thread at a time may make gets and
// sets; a control call may run at the same time.
void call_run(const Stack& stack, Tracer& tracer, const Call& call, Outcome& ret_outcome);
