#include "replayer.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "base/text.h"
#include "bounds.h"

namespace json = boost::json;

namespace {

// The following functions are called under the mutex.

void note(Replayer& replayer, const std::string& text) {
  ++replayer.different;
  if (replayer.differences.size() >= kLimitReplayDifferences) return;
  replayer.differences.push_back(text);
  fprintf(stderr, "dtv-host: replay: %s\n", text.c_str());
}

void note_report(Replayer& replayer, const std::string& what) {
  std::string report = stack_replay_report(*replayer.stack);
  while (report.ends_with('\n')) report.pop_back();
  if (!report.empty()) note(replayer, what + ": " + report);
}

void give_answers(Replayer& replayer, const RecordStep* step, const std::string& what) {
  std::string error;
  if (!stack_replay(*replayer.stack, step == nullptr ? std::string() : record_answers(*step), error))
    note(replayer, what + ": " + error);
}

// Calls the callbacks that come next in the record. Recorded fetches are left out: the host fetches by itself.
void raise_next(Replayer& replayer) {
  const std::vector<RecordStep>& steps = replayer.record.steps;
  for (; replayer.next < steps.size(); ++replayer.next) {
    const RecordStep& step = steps[replayer.next];
    if (step.kind == StepKind::kFetch) continue;
    if (step.kind != StepKind::kRaise) return;
    std::string error;
    give_answers(replayer, &step, record_step_name(step));
    if (!stack_raise(*replayer.stack, step.name, record_arguments(*step.line), error))
      note(replayer, record_step_name(step) + ": " + error);
    note_report(replayer, record_step_name(step));
  }
}

constexpr std::size_t kShownBytes = 300;  // of a client's parameter, in a difference

std::string name_of(StepKind kind, const char* uri) {
  return record_step_name({.kind = kind, .name = uri, .line = nullptr, .calls = {}});
}

bool is_request(StepKind kind) { return kind == StepKind::kGet || kind == StepKind::kSet; }

// Goes on to a step after the next one. The callbacks between are called, so that the plugin learns of the changes. A
// subscription that is left out may still come: clients subscribe when they like.
void skip_to(Replayer& replayer, std::size_t place) {
  std::size_t requests = 0;
  while (replayer.next < place) {
    raise_next(replayer);
    if (replayer.next >= place) break;
    if (is_request(replayer.record.steps[replayer.next].kind))
      ++requests;
    else
      replayer.early.insert(replayer.next);
    ++replayer.next;
  }
  if (requests > 0)
    note(replayer, "step " + std::to_string(place + 1) + ", " + record_step_name(replayer.record.steps[place]) +
                       ": came before " + std::to_string(requests) + " other recorded requests, which are left out");
}

// The step of a request or a subscription, which is done from now on; null: the record has none.
const RecordStep* take_step(Replayer& replayer, StepKind kind, const char* uri,
                            const std::optional<std::string>& param) {
  const std::vector<RecordStep>& steps = replayer.record.steps;
  const auto fits = [&](const RecordStep& step) {
    return step.kind == kind && step.name == uri && record_param(step) == param;
  };
  const auto early = std::ranges::find_if(replayer.early, [&](std::size_t place) { return fits(steps[place]); });
  if (early != replayer.early.end()) return &steps[replayer.early.extract(early).value()];
  const auto now = steps.begin() + static_cast<std::ptrdiff_t>(replayer.next);
  if (const auto later = std::find_if(now, steps.end(), fits); later != steps.end()) {
    skip_to(replayer, static_cast<std::size_t>(later - steps.begin()));
    ++replayer.next;
    return &*later;
  }
  if (const auto before = std::find_if(std::reverse_iterator(now), steps.rend(), fits); before != steps.rend()) {
    note(replayer, name_of(kind, uri) + ": came once more than recorded; it is answered as the last time");
    return &*before;
  }
  note(replayer, name_of(kind, uri) + (param ? " " + std::string(utf8_cut(*param, kShownBytes)) : "") +
                     ": is not in the record" +
                     (is_request(kind) ? "; its platform calls return 0 and write nothing" : ""));
  return nullptr;
}

bool has_late(Replayer& replayer) {
  const std::lock_guard lock(replayer.late_mutex);
  return !replayer.late.empty();
}

// Looks for the subscriptions that came while a request ran. Called without the mutex, after each of its holders and
// after each such subscription, so that none stays: if another thread holds the mutex, that one calls this.
void settle(Replayer& replayer) {
  while (has_late(replayer)) {
    const std::unique_lock lock(replayer.mutex, std::try_to_lock);
    if (!lock.owns_lock()) return;
    std::vector<std::pair<StepKind, std::string>> late;
    {
      const std::lock_guard late_lock(replayer.late_mutex);
      late.swap(replayer.late);
    }
    for (const auto& [kind, uri] : late) {
      take_step(replayer, kind, uri.c_str(), std::nullopt);
      raise_next(replayer);
    }
  }
}

}  // namespace

bool replayer_read(const std::string& file, Replayer& ret_replayer, std::string& ret_error) {
  std::ifstream stream(file, std::ios::binary);
  std::string text(kLimitRecordBytes + 1, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!stream.is_open() || stream.bad()) {
    ret_error = "the record " + file + " cannot be read";
    return false;
  }
  text.resize(static_cast<std::size_t>(stream.gcount()));
  ret_replayer.file = file;
  if (text.size() > kLimitRecordBytes)
    ret_error = "it is longer than any record";
  else if (record_read(text, ret_replayer.record, ret_error))
    return true;
  ret_error = file + ": " + ret_error;
  return false;
}

std::string replayer_start_answers(const Replayer& replayer) {
  std::string answers;
  for (const RecordStep& step : replayer.record.steps)
    if (step.kind == StepKind::kStart && std::ranges::find(kStartFunctions, step.name) != std::end(kStartFunctions))
      answers += record_answers(step);
  return answers;
}

void replayer_start(Replayer& replayer, const Stack& stack) {
  const std::lock_guard lock(replayer.mutex);
  replayer.stack = &stack;
  note_report(replayer, "the plugin's start");
  const std::vector<RecordStep>& steps = replayer.record.steps;
  while (true) {
    raise_next(replayer);
    if (replayer.next >= steps.size() || steps[replayer.next].kind != StepKind::kStart) return;
    const RecordStep& step = steps[replayer.next++];
    const auto function = step.name == "tvc_ctrl_cec_detect_init" ? stack.start_cec
                          : step.name == "tv_ctrl_broadcast_init" ? stack.start_broadcast
                                                                  : nullptr;
    if (function == nullptr) continue;
    give_answers(replayer, &step, record_step_name(step));
    stack_start_up(stack, step.name.c_str(), function);
    note_report(replayer, record_step_name(step));
  }
}

Replayed replayer_begin(Replayer* replayer, StepKind kind, const char* uri, const char* param) {
  if (replayer == nullptr) return {};
  const bool request = is_request(kind);
  Replayed replayed{.kind = kind, .uri = uri};
  // A subscription makes no platform calls, and the leader must not wait for a request that another thread runs.
  replayed.lock = request ? std::unique_lock(replayer->mutex) : std::unique_lock(replayer->mutex, std::try_to_lock);
  if (!replayed.lock.owns_lock()) return replayed;
  replayed.step = take_step(*replayer, kind, uri, param == nullptr ? std::nullopt : std::optional(std::string(param)));
  if (!request) return replayed;
  if (replayed.step == nullptr)
    replayed.warning =
        "the record has no such request: its platform calls were answered with 0 and wrote nothing, so this is not "
        "what the television would answer";
  give_answers(*replayer, replayed.step, name_of(kind, uri));
  return replayed;
}

void replayer_end(Replayer* replayer, Replayed& replayed, std::int32_t ret, const std::string& text,
                  const std::string& tap_lines) {
  if (replayer == nullptr) return;
  if (!replayed.lock.owns_lock()) {
    {
      const std::lock_guard lock(replayer->late_mutex);
      if (replayer->late.size() < kLimitReplayLate) replayer->late.emplace_back(replayed.kind, replayed.uri);
    }
    settle(*replayer);
    return;
  }
  const std::string report = stack_replay_report(*replayer->stack);  // also waits for callbacks
  if (replayed.step != nullptr) {
    RecordOutcome outcome{.ret = ret, .text = text, .calls = {}};
    const json::value lines = json::parse("[" + tap_lines + "]");
    for (const json::value& line : lines.as_array())
      if (line.as_object().contains("call")) outcome.calls.push_back(line.as_object());
    std::ranges::sort(outcome.calls, {},
                      [](const json::object& call) { return call.at("seq").to_number<std::uint64_t>(); });
    for (const std::string& difference : record_compare(*replayed.step, outcome))
      note(*replayer, record_step_name(*replayed.step) + ": " + difference);
    raise_next(*replayer);
  }
  replayed.lock.unlock();
  settle(*replayer);
}

std::string replayer_status(Replayer& replayer) {
  const std::lock_guard lock(replayer.mutex);
  json::array differences(replayer.differences.begin(), replayer.differences.end());
  return json::serialize(json::object{{"file", replayer.file},
                                      {"step", replayer.next},
                                      {"steps", replayer.record.steps.size()},
                                      {"different", replayer.different},
                                      {"differences", std::move(differences)}});
}
