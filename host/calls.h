// One call of the plugin or of the virtual television's control, and what came of it. Knows no JSON-RPC and no sockets.
#pragma once

#include <cstdint>
#include <string>

#include "stack.h"
#include "tracer.h"

enum class CallKind { kGet, kSet, kControl };

struct Call {
  CallKind kind = CallKind::kGet;
  const char* uri = nullptr;  // the catalogue's; null for control
  std::string text = {};      // get, set: {"PARAMETER": ...}, empty for none; control: array of words
  bool traced = false;        // whether the platform calls are wanted
};

struct Outcome {
  std::int32_t ret = 0;
  std::string text;           // get: the plugin's response, empty when it gave none; control: the reply
  bool broken = false;        // the text is not whole, valid JSON
  std::string lines;          // traced: the platform calls' lines, separated by commas
  std::uint64_t change = 0;   // the latest change of the set's state that the call may have made, see "dtv_tv.h"
  std::int32_t not_kept = 0;  // errno: the change did not get to the disk
};

// Makes the call on this thread, which may take as long as the platform does. get and set are for one thread at a
// time; control may run beside them.
void call_run(const Stack& stack, Tracer& tracer, const Call& call, Outcome& ret_outcome);
