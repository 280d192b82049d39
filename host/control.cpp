#include "control.h"

#include <string_view>
#include <vector>

#include "recorder.h"
#include "replayer.h"

namespace {

constexpr std::string_view kCaptureUsage = "usage: capture start | capture stop | capture status | capture case";

}  // namespace

std::string control_run(const Stack& stack, Tracer& tracer, const std::string& command) {
  std::vector<std::string> words;
  Recorder* const recorder = tracer.recorder;
  if (recorder == nullptr || !stack_words(command, words) || words.empty()) return stack_control(stack, command);
  if (words[0] != "capture") return stack_control(stack, command);
  if (words.size() != 2) return stack_error(kCaptureUsage);
  std::string error;
  if (words[1] == "start") {
    // The tap's lines come before the record takes them, so that it misses none.
    tracer_record(tracer, true);
    if (!recorder_start(*recorder, error)) {
      if (!recorder->on.load()) tracer_record(tracer, false);
      return stack_error(error);
    }
    tracer_record(tracer, true);  // again: the end of the record before may have been handled meanwhile
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
