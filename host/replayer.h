// Answers the plugin's platform calls from a record, in place of a platform (dtv-host --replay).
//
// Each get, set, subscription and its end is looked for in the record: first at the place where the replay is, then
// after it, then before it. Before the plugin gets the request, its recorded platform calls are given to the tap. After
// it, the callbacks that came next in the record are called. What differs from the record is kept, and goes to stderr.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "record/record.h"
#include "stack.h"

struct Replayer {
  const Stack* stack = nullptr;
  std::string file;
  Record record;

  std::mutex mutex;      // guards the following members; held while a request runs
  std::size_t next = 0;  // the first step that is not yet done
  std::size_t different = 0;
  std::vector<std::string> differences;  // the first ones
};

inline constexpr std::size_t kReplayDifferencesKept = 100;

bool replayer_read(const std::string& file, Replayer& ret_replayer, std::string& ret_error);

// The platform calls of the start-up functions that stack_start calls.
std::string replayer_start_answers(const Replayer& replayer);

// Calls the start-up functions that the record has beyond those, and then the callbacks before the first request.
void replayer_start(Replayer& replayer, const Stack& stack);

// One request, from its begin to its end. tap_lines: the tap's lines of this thread, which the end compares.
struct Replayed {
  std::unique_lock<std::mutex> lock = {};
  const RecordStep* step = nullptr;  // null: the record does not have it
};
Replayed replayer_begin(Replayer* replayer, StepKind kind, const char* uri, const char* param);
void replayer_end(Replayer* replayer, Replayed& replayed, std::int32_t ret, const std::string& text,
                  const std::string& tap_lines);

// A JSON object for the status of records.
std::string replayer_status(Replayer& replayer);
