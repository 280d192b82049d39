#include "calls.h"

#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "control.h"
#include "dtv_js_plugin.h"
#include "json_text.h"
#include "log_capture.h"
#include "reasons.h"
#include "recorder.h"
#include "replayer.h"

namespace {

// What the plugin gets as the parameter: a get may have none.
const char* param_of(const Call& call) {
  return call.kind == CallKind::kGet && call.text.empty() ? nullptr : call.text.c_str();
}

// The plugin writes no terminator, so it gets a cleared buffer, which is cleared again after each call.
void run_get(const Stack& stack, Recorder* recorder, const Call& call, Outcome& outcome) {
  static thread_local char buffer[DTV_JSP_RESPONSE_MAX + 1];
  const Begun begun = recorder_begin(recorder);
  outcome.ret = stack.get(call.uri, param_of(call), buffer);
  const std::size_t length = strnlen(buffer, sizeof buffer);
  outcome.text.assign(buffer, length);
  recorder_request(recorder, begun, true, call.uri, param_of(call), outcome.ret, outcome.text);
  memset(buffer, 0, length);
  outcome.broken = length > 0 && !json_is_whole(outcome.text);
}

void run_set(const Stack& stack, Recorder* recorder, const Call& call, Outcome& outcome) {
  const Begun begun = recorder_begin(recorder);
  outcome.ret = stack.set(call.uri, param_of(call));
  recorder_request(recorder, begun, false, call.uri, param_of(call), outcome.ret, {});
}

// The parameter in the text for the plugin, {"PARAMETER":...}; empty without one.
std::string_view parameter_of(const Call& call) {
  std::string_view rest = call.text;
  const auto member = call.text.empty() ? std::nullopt : json_next_member(rest);
  return member ? member->value : std::string_view();
}

std::vector<Finding> check(const Call& call) {
  if (call.kind == CallKind::kControl || call.row == nullptr) return {};
  const bool get = call.kind == CallKind::kGet;
  std::vector<Finding> findings =
      get ? check_get(*call.row, call.uri, parameter_of(call)) : check_set(*call.row, call.uri, parameter_of(call));
  if (call.ignored.empty()) return findings;
  constexpr std::size_t kQuoted = 60;
  const std::string example = get ? check_example(*call.row, call.uri, true) : std::string();
  std::string text = "the query's " + call.ignored.substr(0, kQuoted) + " is ignored; ";
  text += !get              ? "a PUT takes its members in its body"
          : example.empty() ? "a get of this URI takes no members"
                            : "a get takes its members as ?parameter=" + example;
  findings.insert(findings.begin(), {std::move(text), false});
  return findings;
}

// Says why the call was refused, and what it ignored or changed.
void explain(const Stack& stack, const Call& call, Outcome& outcome) {
  dtv_tap_failure_t failure{};
  const bool failed = stack.take_failure != nullptr && stack.take_failure(&failure) != 0;
  const std::vector<Finding> findings = check(call);
  const std::string example =
      outcome.ret != 0 && call.kind == CallKind::kGet && call.text.empty() && call.row != nullptr
          ? check_example(*call.row, call.uri, true)
          : std::string();
  const Evidence evidence{.ret = outcome.ret,
                          .tapped = stack.take_failure != nullptr,
                          .failure = failed ? &failure : nullptr,
                          .log = outcome.log,
                          .findings = findings,
                          .example = example};
  if (outcome.ret != 0) outcome.reason = reason_of(evidence);
  // A refusal that was expected and did not come: the set knows better than its description.
  for (const Finding& finding : findings)
    if ((outcome.ret != 0 || !finding.refused) && outcome.reason.find(finding.text) == std::string::npos)
      outcome.warnings.push_back(finding.text);
  // A get may ask the platform for more than there is, so that a failed call is usual.
  if (outcome.ret == 0 && failed && call.kind == CallKind::kSet)
    outcome.warnings.push_back(swallowed_failure(evidence));
}

}  // namespace

void call_run(const Stack& stack, Tracer& tracer, const Call& call, Outcome& ret_outcome) {
  ret_outcome.ret = 0;
  ret_outcome.broken = false;
  ret_outcome.departs = false;
  for (std::string* const text : {&ret_outcome.text, &ret_outcome.reason, &ret_outcome.log, &ret_outcome.lines})
    text->clear();
  ret_outcome.warnings.clear();
  ret_outcome.change = 0;
  ret_outcome.not_kept = 0;
  if (call.strict) {
    for (Finding& finding : check(call)) ret_outcome.warnings.push_back(std::move(finding.text));
    ret_outcome.departs = !ret_outcome.warnings.empty();
    if (ret_outcome.departs) return;
  }
  const bool replays = tracer.replayer != nullptr && call.kind != CallKind::kControl;
  if (call.traced || replays) tracer_capture(tracer, &ret_outcome.lines);
  Replayed replayed;
  if (replays)
    replayed = replayer_begin(tracer.replayer, call.kind == CallKind::kGet ? StepKind::kGet : StepKind::kSet, call.uri,
                              param_of(call));
  // A replay raises callbacks on this thread, before and after the call; what they print, or fail at, is not the
  // call's.
  if (stack.take_failure != nullptr) stack.take_failure(nullptr);  // forgets one of before
  log_capture(&ret_outcome.log);
  switch (call.kind) {
    case CallKind::kGet:
      run_get(stack, tracer.recorder, call, ret_outcome);
      break;
    case CallKind::kSet:
      run_set(stack, tracer.recorder, call, ret_outcome);
      break;
    case CallKind::kControl:
      ret_outcome.text = control_run(stack, tracer, call.text);
      ret_outcome.broken = !json_is_whole(ret_outcome.text);
      break;
  }
  log_capture(nullptr);
  if (call.kind != CallKind::kControl) explain(stack, call, ret_outcome);
  if (!replayed.warning.empty()) ret_outcome.warnings.push_back(replayed.warning);
  if (replays) replayer_end(tracer.replayer, replayed, ret_outcome.ret, ret_outcome.text, ret_outcome.lines);
  if (call.traced || replays) tracer_capture(tracer, nullptr);
  if (!call.traced) ret_outcome.lines.clear();
  // Also when the call changed nothing: it may have seen an earlier change that is not yet on the disk.
  if (call.kind != CallKind::kGet && stack.last_change != nullptr) ret_outcome.change = stack.last_change();
}
