// "replay" and "case": repeat a record in this process, and make a conformance case of it.
#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "dtvctl.h"
#include "private_paths.h"
#include "record/record.h"
#include "stack.h"

namespace json = boost::json;

namespace {

constexpr std::size_t kResponseBytes = std::size_t{1} << 16;
constexpr std::size_t kNotificationBytes = std::size_t{1} << 20;

// The tap's lines since the last step.
struct Lines {
  std::mutex lock;  // guards texts, which the threads of callbacks write, too
  std::vector<std::string> texts;
};

void on_line(void* context, const char* line) {
  auto& lines = *static_cast<Lines*>(context);
  const std::lock_guard guard(lines.lock);
  lines.texts.emplace_back(line);
}

bool read_record(const std::string& file, Record& ret_record, Failure& ret_failure) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  if (stream) text << stream.rdbuf();
  std::string error;
  if (!stream || stream.bad())
    error = std::generic_category().message(errno);
  else if (record_read(text.str(), ret_record, error))
    return true;
  ret_failure = {kExitUsage, file + ": " + error};
  return false;
}

// The calls of a step: those on this thread, or all, where the step is a callback on a thread of its own.
std::vector<json::object> take_calls(Lines& lines, std::optional<std::int32_t> thread) {
  std::vector<std::string> texts;
  {
    const std::lock_guard guard(lines.lock);
    texts.swap(lines.texts);
  }
  std::vector<json::object> calls;
  for (const std::string& text : texts) {
    json::value value;
    if (!json_parse(text, value) || !value.is_object() || !value.get_object().contains("call")) continue;
    if (thread && value.get_object().at("thread") != json::value(*thread)) continue;
    calls.push_back(std::move(value.get_object()));
  }
  std::ranges::sort(calls, {}, [](const json::object& call) { return call.at("seq").to_number<std::uint64_t>(); });
  return calls;
}

std::string filled(std::string buffer) {
  buffer.resize(strnlen(buffer.data(), buffer.size()));
  return buffer;
}

// Does what a step says. ret_error: it could not be done.
RecordOutcome perform(const Stack& stack, const RecordStep& step, std::string& ret_error) {
  RecordOutcome outcome;
  const std::optional<std::string> param = record_param(step);
  const char* const uri = step.name.c_str();
  switch (step.kind) {
    case StepKind::kGet: {
      std::string buffer(kResponseBytes, '\0');
      outcome.ret = stack.get(uri, param ? param->c_str() : nullptr, buffer.data());
      outcome.text = filled(std::move(buffer));
      break;
    }
    case StepKind::kSet:
      outcome.ret = stack.set(uri, param ? param->c_str() : nullptr);
      break;
    case StepKind::kSubscribe:
      outcome.ret = stack.add_listener(uri);
      break;
    case StepKind::kUnsubscribe:
      outcome.ret = stack.remove_listener(uri);
      break;
    case StepKind::kFetch: {
      std::string buffer(kNotificationBytes, '\0');
      outcome.ret = stack.fetch(uri, buffer.data(), static_cast<std::int32_t>(kNotificationBytes - 1));
      outcome.text = filled(std::move(buffer));
      break;
    }
    case StepKind::kRaise:
      stack_raise(stack, step.name, record_arguments(*step.line), ret_error);
      break;
    case StepKind::kStart:
      if (step.name == "tvc_ctrl_cec_detect_init" && stack.start_cec != nullptr)
        outcome.ret = stack.start_cec();
      else if (step.name == "tv_ctrl_broadcast_init" && stack.start_broadcast != nullptr)
        outcome.ret = stack.start_broadcast();
      else
        ret_error = "this plugin has no " + step.name;
      break;
  }
  return outcome;
}

// Repeats one step. Returns its differences.
std::vector<std::string> repeat(const Stack& stack, Lines& lines, const RecordStep& step) {
  std::string error;
  RecordOutcome outcome;
  dtv_tap_stamp_t here{};
  stack.stamp(&here);
  take_calls(lines, {});
  if (stack_replay(stack, record_answers(step), error)) outcome = perform(stack, step, error);
  std::string report = stack_replay_report(stack);
  if (!error.empty()) return {error};
  outcome.calls = take_calls(lines, step.kind == StepKind::kRaise ? std::nullopt : std::optional(here.thread));
  std::vector<std::string> differences = record_compare(step, outcome);
  while (report.ends_with('\n')) report.pop_back();
  if (differences.empty() && !report.empty()) differences.push_back(report);
  return differences;
}

// The start-up functions that stack_start calls have left lines of their own.
std::vector<std::string> compare_start(const Stack& stack, const RecordStep& step) {
  Record came;
  std::string error;
  const std::lock_guard guard(stack.start->lock);
  if (!record_read("{\"record\":1}\n" + stack.start->text, came, error)) return {error};
  for (const RecordStep& started : came.steps) {
    if (started.name != step.name) continue;
    RecordOutcome outcome{.ret = started.line->at("ret").to_number<std::int32_t>(), .text = {}, .calls = {}};
    for (const RecordCall& call : started.calls)
      if (call.own) outcome.calls.push_back(*call.line);
    return record_compare(step, outcome);
  }
  return {"was called, is not"};
}

bool is_first_start(const RecordStep& step) {
  return step.kind == StepKind::kStart && std::ranges::find(kStartFunctions, step.name) != std::end(kStartFunctions);
}

bool start(const Options& options, const Record& record, Stack& ret_stack, Failure& ret_failure) {
  StackOptions wanted = stack_defaults();
  wanted.state_folder = options.state;
  wanted.replays = true;
  wanted.keeps_start = true;
  for (const RecordStep& step : record.steps)
    if (is_first_start(step)) wanted.start_answers += record_answers(step);
  // The plugin logs to standard output, which therefore becomes standard error; results keep the original one.
  if (const int results = dup(STDOUT_FILENO); results >= 0) {
    std::FILE* const file = fdopen(results, "w");
    if (file != nullptr && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0) output = file;
  }
  const PrivatePaths paths = private_paths_enter(wanted.state_folder);
  std::string error;
  if (!stack_start(wanted, ret_stack, error)) {
    ret_failure = {kExitUnreachable, error};
    return false;
  }
  private_paths_connect(paths, nullptr);
  stack_started(ret_stack);
  return true;
}

}  // namespace

int run_replay(const Options& options, Session&, ShellWords words, Failure& ret_failure) {
  Record record;
  Stack stack{};
  if (!read_record(words[0], record, ret_failure) || !start(options, record, stack, ret_failure))
    return ret_failure.exit_code;
  static Lines& lines = *new Lines;  // the tap's watcher points at it until the process ends
  stack.watch(on_line, &lines);
  std::size_t differing = 0;
  std::size_t number = 0;
  for (const RecordStep& step : record.steps) {
    ++number;
    const std::vector<std::string> differences =
        is_first_start(step) ? compare_start(stack, step) : repeat(stack, lines, step);
    if (differences.empty()) continue;
    ++differing;
    if (options.json) {
      print_line(json::serialize(json::object{{"step", number},
                                              {"name", record_step_name(step)},
                                              {"differences", json::array(differences.begin(), differences.end())}}));
      continue;
    }
    print_line("step " + std::to_string(number) + ", " + printable(record_step_name(step)));
    for (const std::string& difference : differences) print_line("  " + printable(difference));
  }
  stack_stop(stack);
  const RecordCounts& counts = record.counts;
  const std::string counted = std::to_string(counts.requests) + " requests, " + std::to_string(counts.calls) +
                              " calls, " + std::to_string(counts.notifications) + " notifications";
  if (record.left_over > 0)
    std::fprintf(stderr, "dtvctl: %zu calls of the record belong to requests that are not in it\n", record.left_over);
  if (options.json)
    print_line(json::serialize(json::object{{"requests", counts.requests},
                                            {"calls", counts.calls},
                                            {"notifications", counts.notifications},
                                            {"left_over", record.left_over},
                                            {"steps", record.steps.size()},
                                            {"different", differing}}));
  else if (differing == 0)
    print_line(counted + ": as recorded");
  if (differing == 0) return kExitOk;
  ret_failure = {kExitRefused, counted + ": " + std::to_string(differing) + " of " +
                                   std::to_string(record.steps.size()) + " steps differ"};
  return ret_failure.exit_code;
}

int run_case(const Options&, Session&, ShellWords words, Failure& ret_failure) {
  Record record;
  std::string contract;
  if (!read_record(words[0], record, ret_failure) || !contract_list(contract, ret_failure))
    return ret_failure.exit_code;
  const std::string name = std::filesystem::path(words[0]).stem();
  std::string made;
  std::string error;
  std::vector<std::string> left_out;
  if (!record_case(record, contract, name, made, left_out, error)) {
    ret_failure = {kExitRefused, words[0] + ": " + error};
    return ret_failure.exit_code;
  }
  for (const std::string& each : left_out) std::fprintf(stderr, "dtvctl: left out: %s\n", each.c_str());
  if (words.size() == 1) {
    print_line(std::string_view(made).substr(0, made.size() - 1));
    return kExitOk;
  }
  return write_file(words[1], made, ret_failure) ? kExitOk : ret_failure.exit_code;
}
