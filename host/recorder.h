// Records what happens at both boundaries of the plugin: the requests, subscriptions and notifications of the host, and
// the tap's platform calls and callbacks. record/record.h describes the lines.
//
// The lines go to a file without a name in the state folder, whose size is bounded. The latest record stays until the
// next one begins. Every function may be called on any thread; while nothing is recorded, those for requests cost one
// load, and the one for subscriptions takes the mutex.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "bounds.h"
#include "http.h"
#include "record/record.h"
#include "stack.h"

struct Recorder {
  const Stack* stack = nullptr;
  std::string folder;  // where the file is made
  std::size_t limit = kLimitRecordBytes;
  void (*ended)(void* context) = nullptr;  // called when a record ends by itself, on any thread
  void* context = nullptr;

  std::atomic<bool> on{false};
  std::atomic<bool> callback_stuck{false};

  std::mutex mutex;  // guards the following members
  int file = -1;     // of the latest record; -1: none
  std::string unwritten;
  std::size_t bytes = 0;
  RecordCounts counts;
  std::chrono::steady_clock::time_point begun;
  std::chrono::steady_clock::time_point stopped;
  std::string reason;  // why it ended by itself; empty: it did not
  std::set<std::string>
      subscribed;  // URIs that the host is subscribed to at the plugin, also while nothing is recorded
};

// Where something began that is to be recorded.
struct Begun {
  bool recorded = false;  // false: nothing is recorded
  dtv_tap_stamp_t stamp{};
};

// While one exists and a record is made, no callback is under way: what a subscription or a fetch finds would otherwise
// not follow from the order of the lines. Both waits are bounded: that for the callbacks under way, by
// kLimitCallbackWait, and that of a callback which is held, as "dtv_tap.h" says. After a wait in vain it waits again
// only once no callback has been under way. recorder may be null.
class WithoutCallbacks {
 public:
  explicit WithoutCallbacks(Recorder* recorder);
  ~WithoutCallbacks();
  WithoutCallbacks(const WithoutCallbacks&) = delete;
  WithoutCallbacks& operator=(const WithoutCallbacks&) = delete;

 private:
  const Stack* stack = nullptr;  // null: nothing is recorded
};

Begun recorder_begin(const Recorder* recorder);

// One line each, of what began there and has ended. text: what the plugin gave.
void recorder_request(Recorder* recorder, const Begun& begun, bool gets, const char* uri, const char* param,
                      std::int32_t ret, std::string_view text);
void recorder_subscription(Recorder* recorder, const Begun& begun, bool adds, const char* uri, std::int32_t ret);
void recorder_fetch(Recorder* recorder, const Begun& begun, const char* uri, std::int32_t ret, std::string_view text);
void recorder_line(Recorder* recorder, const char* line);  // the tap's

// Begin and end a record. The caller has the tap's lines given to recorder_line in between.
bool recorder_start(Recorder& recorder, std::string& ret_error);
void recorder_stop(Recorder& recorder);

// The latest record's state as a JSON object.
std::string recorder_status(Recorder& recorder);

// A conformance case of the latest record as text, or {"error": ...}.
std::string recorder_case(Recorder& recorder);

// GET /record.jsonl: the latest record as it is now.
HttpAnswer recorder_answer(Recorder& recorder);
