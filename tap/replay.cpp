// Answers calls from a recording. Calls are expected in the order in which the recorded ones began, on any thread.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <thread>
#include <vector>

#include "tap/modes.h"
#include "tap/state.h"

namespace tap {
namespace {

constexpr std::size_t kDifferencesShown = 20;
// How long a call waits for the events before it in the recording. A plugin that holds a lock which its callback needs
// would otherwise wait for ever.
constexpr std::chrono::milliseconds kEventPatience{1000};

struct Entry {
  Function* function = nullptr;
  bool is_event = false;
  double seq = 0;
  Json json;
  Raise raise;  // of an event
  bool used = false;
};

struct Replay {
  std::vector<Entry> entries;
  std::size_t next = 0;  // first entry that is not used; this and the rest under the tap's lock
  int events_under_way = 0;
  std::vector<std::string> differences;
  std::size_t different = 0;
};

std::shared_ptr<Replay>& current() {
  static auto& replay = *new std::shared_ptr<Replay>;
  return replay;
}
std::condition_variable& events_done() {
  static auto& condition = *new std::condition_variable;
  return condition;
}
thread_local bool raises_events = false;

const cJSON* arguments_of(const Entry& entry) { return cJSON_GetObjectItemCaseSensitive(entry.json.get(), "in"); }

bool same_arguments(const Signature& signature, const cJSON* recorded, const cJSON* came) {
  for (const Param& param : signature.params) {
    const cJSON* expected = cJSON_GetObjectItemCaseSensitive(recorded, param.name);
    const cJSON* actual = cJSON_GetObjectItemCaseSensitive(came, param.name);
    if (expected == nullptr) continue;
    if (cJSON_IsNull(expected) != cJSON_IsNull(actual) || !argument_matches(param, expected, actual)) return false;
  }
  return true;
}

void note_difference(Replay& replay, std::string text) {
  ++replay.different;
  if (replay.differences.size() < kDifferencesShown) replay.differences.push_back(std::move(text));
}

// The entry that answers this call, or null. Under the tap's lock.
Entry* take(Replay& replay, Function& function, const cJSON* in) {
  const auto fits = [&](const Entry& entry) {
    return !entry.used && !entry.is_event && entry.function == &function &&
           same_arguments(function.signature, arguments_of(entry), in);
  };
  const auto begin = replay.entries.begin() + static_cast<std::ptrdiff_t>(replay.next);
  const auto due = std::find_if(begin, replay.entries.end(), [](const Entry& e) { return !e.used && !e.is_event; });
  if (due != replay.entries.end() && fits(*due)) {
    due->used = true;
    return &*due;
  }
  const std::string came = describe_call(function.signature, in);
  const std::string number = std::to_string(due - replay.entries.begin() + 1);
  note_difference(replay, due == replay.entries.end()
                              ? "after the end of the recording came " + came
                              : "entry " + number + ": recorded was " +
                                    describe_call(due->function->signature, arguments_of(*due)) + ", came " + came);
  // Continue after this call's place in the recording, so that one call more or less does not spoil the rest.
  auto found = std::find_if(begin, replay.entries.end(), fits);
  if (found == replay.entries.end()) {
    if (due == replay.entries.end() || due->function != &function) return nullptr;
    found = due;  // the same function with other arguments
  }
  for (auto skipped = begin; skipped != found; ++skipped) skipped->used = skipped->used || !skipped->is_event;
  found->used = true;
  return &*found;
}

// Takes the events before the recording's next call. Under the tap's lock.
std::vector<Raise> due_events(Replay& replay) {
  std::vector<Raise> due;
  while (replay.next < replay.entries.size()) {
    Entry& entry = replay.entries[replay.next];
    if (!entry.used && !entry.is_event) break;
    if (!entry.used) due.push_back(entry.raise);
    entry.used = true;
    ++replay.next;
  }
  return due;
}

// Runs on a thread of its own. It releases its share of the replay under the lock, so that the thread that waits for
// the events frees the replay.
void raise_events(std::shared_ptr<Replay> replay, std::vector<Raise> events) {
  raises_events = true;
  for (const Raise& raise : events) {
    std::int64_t result = 0;
    std::string error;
    if (!raise_here(raise, result, error)) {
      const std::lock_guard guard(state_lock());
      note_difference(*replay, "event of " + std::string(raise.function->signature.name) + ": " + error);
    }
  }
  events.clear();
  const std::lock_guard guard(state_lock());
  --replay->events_under_way;
  replay.reset();
  events_done().notify_all();
}

// Waits until the events have been raised; not for long, since the plugin's callback may be blocked. A call from a
// callback does not wait, since it would wait for itself.
void wait_for_events(std::unique_lock<std::mutex>& guard, const Replay& replay) {
  if (raises_events) return;
  events_done().wait_for(guard, kEventPatience, [&] { return replay.events_under_way == 0; });
}

bool read_line(const std::string& line, Replay& ret_replay, std::string& ret_error) {
  Entry entry;
  entry.json = json_parse(line, ret_error);
  if (!entry.json) return false;
  const cJSON* call_name = cJSON_GetObjectItemCaseSensitive(entry.json.get(), "call");
  const cJSON* event_name = cJSON_GetObjectItemCaseSensitive(entry.json.get(), "event");
  entry.is_event = event_name != nullptr;
  const cJSON* name = entry.is_event ? event_name : call_name;
  if (!cJSON_IsString(name)) {
    if (cJSON_HasObjectItem(entry.json.get(), "error")) return true;
    ret_error = "neither a \"call\" nor an \"event\"";
    return false;
  }
  entry.function = find_function(name->valuestring);
  if (entry.function == nullptr) {
    ret_error = "the contract has no function \"" + std::string(name->valuestring) + "\"";
    return false;
  }
  const cJSON* seq = cJSON_GetObjectItemCaseSensitive(entry.json.get(), "seq");
  // Lines are in the order in which calls ended; a replay follows the order in which they began.
  entry.seq = cJSON_IsNumber(seq) ? seq->valuedouble : static_cast<double>(ret_replay.entries.size());
  if (entry.is_event) {
    if (cJSON_HasObjectItem(entry.json.get(), "dropped")) return true;
    if (!prepare_raise(name->valuestring, arguments_of(entry), entry.raise, ret_error)) return false;
  } else {
    const Signature& signature = entry.function->signature;
    const cJSON* ret = cJSON_GetObjectItemCaseSensitive(entry.json.get(), "ret");
    if (ret != nullptr && !value_fits(*signature.result, ret, ret_error)) return false;
    const cJSON* value = nullptr;
    cJSON_ArrayForEach(value, cJSON_GetObjectItemCaseSensitive(entry.json.get(), "out")) {
      std::size_t position = 0;
      const Param* param = find_param(signature, value->string, position);
      if (param == nullptr || !is_output(*param) || !output_fits(*param, value, ret_error)) {
        ret_error = "\"out\": " + std::string(value->string) + (ret_error.empty() ? " is no output" : ": " + ret_error);
        return false;
      }
    }
  }
  ret_replay.entries.push_back(std::move(entry));
  return true;
}

}  // namespace

bool replay_load(const char* lines, std::string& ret_error) {
  std::shared_ptr<Replay> replay;
  if (lines != nullptr) {
    replay = std::make_shared<Replay>();
    const std::string_view text = lines;
    std::size_t number = 0;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size());
      const std::string line(text.substr(at, end - at));
      at = end + 1;
      ++number;
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      if (!read_line(line, *replay, ret_error)) {
        ret_error = "line " + std::to_string(number) + ": " + ret_error;
        return false;
      }
    }
    std::stable_sort(replay->entries.begin(), replay->entries.end(),
                     [](const Entry& a, const Entry& b) { return a.seq < b.seq; });
  }
  std::unique_lock guard(state_lock());
  current().swap(replay);
  set_active(kReplayed, current() != nullptr);
  if (replay) wait_for_events(guard, *replay);
  guard.unlock();  // the old recording is freed without the lock
  return true;
}

std::string replay_differences() {
  std::unique_lock guard(state_lock());
  const std::shared_ptr<Replay> kept = current();
  if (!kept) return {};
  const Replay& replay = *kept;
  wait_for_events(guard, replay);
  std::string text;
  for (const std::string& difference : replay.differences) text += difference + "\n";
  if (replay.different > replay.differences.size()) {
    text += "and " + std::to_string(replay.different - replay.differences.size()) + " more\n";
  }
  return text;
}

bool replay_answer(Function& function, const cJSON* in, void* ret, void* const* args, const std::size_t* sizes) {
  std::shared_ptr<Replay> replay;
  const Entry* entry = nullptr;
  std::vector<Raise> events;
  {
    std::unique_lock guard(state_lock());
    replay = current();
    if (!replay) return false;
    wait_for_events(guard, *replay);
    entry = take(*replay, function, in);
    events = due_events(*replay);
    if (!events.empty()) ++replay->events_under_way;
  }
  clear_outputs(function.signature, args, sizes);
  if (entry != nullptr) {
    const cJSON* value = nullptr;
    cJSON_ArrayForEach(value, cJSON_GetObjectItemCaseSensitive(entry->json.get(), "out")) {
      std::size_t position = 0;
      if (const Param* param = find_param(function.signature, value->string, position); param != nullptr) {
        write_output(*param, value, args[position], sizes[position]);
      }
    }
    write_result(function.signature, cJSON_GetObjectItemCaseSensitive(entry->json.get(), "ret"), ret);
  }
  // On a thread of their own: the plugin may hold a lock during the call that its callback needs.
  if (!events.empty()) std::thread(raise_events, replay, std::move(events)).detach();
  return true;
}

}  // namespace tap
