// Records of what happened at the plugin's two boundaries, as dtv-host writes them: JSON lines. Their order counts.
//
//   {"record":1,"device":true}                                       the first line
//   {"seq":1,"t":9,"thread":1,"start":"a_dtv_jsp_init","ret":0}      a start-up function
//   {"seq":..,"t":..,"thread":..,"get":URI,"param":TEXT,"ret":0,"response":TEXT}
//   {...,"set":URI,"param":TEXT,"ret":0}
//   {...,"subscribe":URI,"ret":0}   {...,"unsubscribe":URI,"ret":0}
//   {...,"fetch":URI,"ret":0,"notification":TEXT}
//
// and between them the tap's lines of calls and events (see "dtv_tap.h"). Texts are those that the plugin got and gave,
// byte for byte; a response or notification that is not UTF-8 is "bytes" instead, its length. "seq" is the order in
// which things began. A line is written when its thing ends, so what a request caused on its thread stands before it.
#pragma once

#include <boost/json.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class StepKind { kStart, kGet, kSet, kSubscribe, kUnsubscribe, kFetch, kRaise };

// What a platform call is answered with, and the callbacks that the platform made during it or after it, before the
// plugin's next call.
struct RecordCall {
  const boost::json::object* line = nullptr;
  bool own = false;  // made on the step's thread
  std::vector<const boost::json::object*> events;
};

// One thing that a replay does: a call of the plugin, or a callback outside of any request.
struct RecordStep {
  StepKind kind = StepKind::kStart;
  std::string name;                           // the start-up function, the URI, or the function of the callback
  const boost::json::object* line = nullptr;  // with the outcome
  std::vector<RecordCall> calls;              // in the order in which they began
};

struct RecordCounts {
  std::size_t requests = 0;  // gets and sets
  std::size_t calls = 0;
  std::size_t events = 0;
  std::size_t notifications = 0;
  std::size_t subscriptions = 0;
};

struct Record {
  std::vector<boost::json::object> lines;  // not changed once read: steps point into it
  std::vector<RecordStep> steps;
  RecordCounts counts;  // of the steps after the start
  bool device = false;  // there was a command device
  std::size_t left_over =
      0;  // calls that belong to no step: of requests that began before the record or ended after it
};

// Adds what a line is to the counts.
void record_count(std::string_view line, RecordCounts& counts);

bool record_read(std::string_view text, Record& ret_record, std::string& ret_error);

// The parameter that the plugin got; nullopt: none.
std::optional<std::string> record_param(const RecordStep& step);

// How people read a step: "get /tv/...".
std::string record_step_name(const RecordStep& step);

// The lines of one step for dtv_tap_replay.
std::string record_answers(const RecordStep& step);

// The arguments of a callback for dtv_tap_raise.
std::string record_arguments(const boost::json::object& event);

// What a replayed step gave.
struct RecordOutcome {
  std::int32_t ret = 0;
  std::string text;                        // of a get or a fetch
  std::vector<boost::json::object> calls;  // the tap's lines of the calls on the step's thread
};

// How a step differs from the record, one text each: "ret: was 0, is -1".
std::vector<std::string> record_compare(const RecordStep& step, const RecordOutcome& outcome);

// A conformance case with this name, as the text of a file. contract: the list of dtv_tap_list. ret_left_out: what
// could not be taken over, one sentence each; the file has them as "notes".
bool record_case(const Record& record, std::string_view contract, std::string_view name, std::string& ret_case,
                 std::vector<std::string>& ret_left_out, std::string& ret_error);
