#include "calls.h"

#include <cstring>

#include "dtv_js_plugin.h"
#include "json_text.h"
#include "recorder.h"
#include "replayer.h"

namespace {

// The plugin writes no terminator, so it gets a cleared buffer, which is cleared again after each call.
void run_get(const Stack& stack, Recorder* recorder, const Call& call, Outcome& outcome) {
  static thread_local char buffer[DTV_JSP_RESPONSE_MAX + 1];
  const char* const param = call.text.empty() ? nullptr : call.text.c_str();
  const Begun begun = recorder_begin(recorder);
  outcome.ret = stack.get(call.uri, param, buffer);
  const std::size_t length = strnlen(buffer, sizeof buffer);
  outcome.text.assign(buffer, length);
  recorder_request(recorder, begun, true, call.uri, param, outcome.ret, outcome.text);
  memset(buffer, 0, length);
  outcome.broken = length > 0 && !json_is_whole(outcome.text);
}

void run_set(const Stack& stack, Recorder* recorder, const Call& call, Outcome& outcome) {
  const Begun begun = recorder_begin(recorder);
  outcome.ret = stack.set(call.uri, call.text.c_str());
  recorder_request(recorder, begun, false, call.uri, call.text.c_str(), outcome.ret, {});
}

constexpr std::string_view kCaptureUsage = "usage: capture start | capture stop | capture status";

// The commands that are the host's own; everything else goes to the tap and the television.
std::string run_control(const Stack& stack, Tracer& tracer, const std::string& text) {
  std::vector<std::string> words;
  Recorder* const recorder = tracer.recorder;
  if (recorder == nullptr || !stack_words(text, words) || words.empty()) return stack_control(stack, text);
  if (words.size() == 1 && words[0] == "help")
    return stack_add_help(stack_control(stack, text), "capture", "start|stop|status",
                          "Records requests, platform calls and notifications; \"dtvctl record\" saves them");
  if (words[0] != "capture") return stack_control(stack, text);
  if (words.size() != 2) return stack_error(kCaptureUsage);
  std::string error;
  if (words[1] == "start") {
    // The tap's lines come before the record takes them, so that it misses none.
    tracer_record(tracer, true);
    if (!recorder_start(*recorder, error)) {
      if (!recorder->on.load()) tracer_record(tracer, false);
      return stack_error(error);
    }
  } else if (words[1] == "stop") {
    recorder_stop(*recorder);
    tracer_record(tracer, false);
  } else if (words[1] == "case") {
    return recorder_case(*recorder);
  } else if (words[1] != "status") {
    return stack_error(kCaptureUsage);
  }
  std::string status = recorder_status(*recorder);
  if (tracer.replayer == nullptr) return status;
  status.back() = ',';
  return status + "\"replay\":" + replayer_status(*tracer.replayer) + "}";
}

}  // namespace

void call_run(const Stack& stack, Tracer& tracer, const Call& call, Outcome& ret_outcome) {
  ret_outcome.ret = 0;
  ret_outcome.broken = false;
  ret_outcome.text.clear();
  ret_outcome.lines.clear();
  ret_outcome.change = 0;
  ret_outcome.not_kept = 0;
  const bool replays = tracer.replayer != nullptr && call.kind != CallKind::kControl;
  if (call.traced || replays) tracer_capture(tracer, &ret_outcome.lines);
  Replayed replayed;
  if (replays)
    replayed = replayer_begin(tracer.replayer, call.kind == CallKind::kGet ? StepKind::kGet : StepKind::kSet, call.uri,
                              call.kind == CallKind::kGet && call.text.empty() ? nullptr : call.text.c_str());
  switch (call.kind) {
    case CallKind::kGet:
      run_get(stack, tracer.recorder, call, ret_outcome);
      break;
    case CallKind::kSet:
      run_set(stack, tracer.recorder, call, ret_outcome);
      break;
    case CallKind::kControl:
      ret_outcome.text = run_control(stack, tracer, call.text);
      ret_outcome.broken = !json_is_whole(ret_outcome.text);
      break;
  }
  if (replays) replayer_end(tracer.replayer, replayed, ret_outcome.ret, ret_outcome.text, ret_outcome.lines);
  if (call.traced || replays) tracer_capture(tracer, nullptr);
  if (!call.traced) ret_outcome.lines.clear();
  // Also when the call changed nothing: it may have seen an earlier change that is not yet on the disk.
  if (call.kind != CallKind::kGet && stack.last_change != nullptr) ret_outcome.change = stack.last_change();
}
