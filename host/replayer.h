// Answers the plugin's platform calls from a record, in place of a platform (dtv-host --replay).
//
// Each get, set, subscription and its end is looked for in the record: first at the place where the replay is, then
// after it, then before it. A subscription that comes while a request runs is looked for when the request has ended.
// Before the plugin gets the request, its recorded platform calls are given to the tap. After
// it, the callbacks that came next in the record are called. What differs from the record is kept, and goes to stderr.
// Notifications are not compared: which of them are joined depends on when the host fetches them.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "record/record.h"
#include "stack.h"

struct Replayer {
  const Stack* stack = nullptr;
  std::string file;
  Record record;

  std::mutex mutex;             // guards the following members; held while a request runs
  std::size_t next = 0;         // the first step that is not yet done
  std::set<std::size_t> early;  // subscriptions before that step that have not come yet
  std::size_t different = 0;
  std::vector<std::string> differences;  // the first ones

  std::mutex late_mutex;                               // guards late; taken under mutex, too
  std::vector<std::pair<StepKind, std::string>> late;  // subscriptions that came while a request ran
};

bool replayer_read(const std::string& file, Replayer& ret_replayer, std::string& ret_error);

// The platform calls of the start-up functions that stack_start calls.
std::string replayer_start_answers(const Replayer& replayer);

// Calls the start-up functions that the record has beyond those, and then the callbacks before the first request.
void replayer_start(Replayer& replayer, const Stack& stack);

// One request, from its begin to its end. tap_lines: the tap's lines of this thread, which the end compares.
struct Replayed {
  std::unique_lock<std::mutex> lock = {};
  const RecordStep* step = nullptr;  // null: the record does not have it
  StepKind kind = StepKind::kGet;
  std::string uri = {};
  std::string warning = {};  // why the answer is not the record's; empty: it is
};
Replayed replayer_begin(Replayer* replayer, StepKind kind, const char* uri, const char* param);
void replayer_end(Replayer* replayer, Replayed& replayed, std::int32_t ret, const std::string& text,
                  const std::string& tap_lines);

// A JSON object for the status of records.
std::string replayer_status(Replayer& replayer);
