#include "calls.h"

#include <cstring>

#include "dtv_js_plugin.h"
#include "json_text.h"

namespace {

// The plugin writes no terminator, so it gets a cleared buffer, which is cleared again after each call.
void run_get(const Stack& stack, const Call& call, Outcome& outcome) {
  static thread_local char buffer[DTV_JSP_RESPONSE_MAX + 1];
  outcome.ret = stack.get(call.uri, call.text.empty() ? nullptr : call.text.c_str(), buffer);
  const std::size_t length = strnlen(buffer, sizeof buffer);
  outcome.text.assign(buffer, length);
  memset(buffer, 0, length);
  outcome.broken = length > 0 && !json_is_whole(outcome.text);
}

}  // namespace

void call_run(const Stack& stack, Tracer& tracer, const Call& call, Outcome& ret_outcome) {
  ret_outcome.ret = 0;
  ret_outcome.broken = false;
  ret_outcome.text.clear();
  ret_outcome.lines.clear();
  ret_outcome.change = 0;
  ret_outcome.not_kept = 0;
  if (call.traced) tracer_capture(tracer, &ret_outcome.lines);
  switch (call.kind) {
    case CallKind::kGet:
      run_get(stack, call, ret_outcome);
      break;
    case CallKind::kSet:
      ret_outcome.ret = stack.set(call.uri, call.text.c_str());
      break;
    case CallKind::kControl:
      ret_outcome.text = stack_control(stack, call.text);
      ret_outcome.broken = !json_is_whole(ret_outcome.text);
      break;
  }
  if (call.traced) tracer_capture(tracer, nullptr);
  // Also when the call changed nothing: it may have seen an earlier change that is not yet on the disk.
  if (call.kind != CallKind::kGet && stack.last_change != nullptr) ret_outcome.change = stack.last_change();
}
