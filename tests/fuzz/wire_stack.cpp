#include "wire_stack.h"

#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <utility>

#include "dtv_js_plugin.h"
#include "require.h"

namespace {

struct State {
  std::mutex mutex;  // guards everything here
  std::map<std::string, std::size_t> sets;
  std::set<std::string> followed;
  std::string pending;  // the notification that waits
  dtv_tap_line_fct line = nullptr;
  void* line_context = nullptr;
  dtv_tap_event_fct event = nullptr;
  void* event_context = nullptr;
  void (*kept)(void* context, std::uint64_t change, std::int32_t failure) = nullptr;
  void* kept_context = nullptr;
  std::uint64_t changes = 0;
};

// Never destroyed: the server's threads use it until the process ends.
State& state() {
  static State& made = *new State;
  return made;
}

constexpr const char* kActNames[] = {"plain", "failed", "broken", "longest", "slow", "unkept"};

// The text of a member that wire_parameter has written.
std::string member(const char* param, const char* name) {
  const std::string key = std::string("\"") + name + "\":\"";
  const char* const begin = param ? strstr(param, key.c_str()) : nullptr;
  const char* const end = begin ? strchr(begin + key.size(), '"') : nullptr;
  return end ? std::string(begin + key.size(), end) : std::string();
}

void call_platform(const char* param) {
  if (member(param, "ACT") == "slow") std::this_thread::sleep_for(std::chrono::milliseconds(4));
  // Under the lock, so that no watcher runs after it was taken away.
  const std::lock_guard lock(state().mutex);
  if (state().line) state().line(state().line_context, R"({"call":"made","in":[]})");
}

std::int32_t plugin_get(const char*, const char* param, void* pv_content) {
  call_platform(param);
  const std::string act = member(param, "ACT");
  std::string text = R"({"ITEMS":[{"MARK":")" + member(param, "MARK") + "\"}]";
  if (act == "longest") text += R"(,"PAD":")" + std::string(DTV_JSP_RESPONSE_MAX - 100, 'x') + "\"";
  if (act != "broken") text += "}";
  memcpy(pv_content, text.data(), text.size());
  return act == "failed" ? -2 : 0;
}

std::int32_t plugin_set(const char*, const char* param) {
  call_platform(param);
  const std::string mark = member(param, "MARK");
  const std::string act = member(param, "ACT");
  State& made = state();
  std::unique_lock lock(made.mutex);
  require(mark.empty() || ++made.sets[mark] == 1, "a set is carried out once", param);
  made.pending = R"({"MARK":")" + mark + "\"}";
  const std::uint64_t change = ++made.changes;
  const auto kept = made.kept;
  const auto event = made.event;
  void* const kept_context = made.kept_context;
  void* const event_context = made.event_context;
  lock.unlock();
  kept(kept_context, change, act == "unkept" ? ENOSPC : 0);
  event(event_context);
  return act == "failed" ? -2 : 0;
}

std::int32_t plugin_add_listener(const char* uri) {
  const std::lock_guard lock(state().mutex);
  require(state().followed.insert(uri).second, "the plugin is subscribed once to a URI", uri);
  return 0;
}

std::int32_t plugin_remove_listener(const char* uri) {
  const std::lock_guard lock(state().mutex);
  require(state().followed.erase(uri) == 1, "what is taken back was subscribed", uri);
  return 0;
}

std::int32_t plugin_fetch(const char* uri, void* buffer, std::int32_t length) {
  const std::lock_guard lock(state().mutex);
  require(state().followed.contains(uri), "only what is subscribed is fetched", uri);
  if (strcmp(uri, kWireNotifyUri) != 0) return 0;
  const std::string text = std::exchange(state().pending, {});
  require(static_cast<std::size_t>(length) > text.size(), "there is room for every text");
  memcpy(buffer, text.data(), text.size());
  return 0;
}

char* plugin_describe() { return strdup(wire_description().c_str()); }

void tap_watch(dtv_tap_line_fct fct, void* context) {
  const std::lock_guard lock(state().mutex);
  state().line = fct;
  state().line_context = context;
}

void tap_on_event(dtv_tap_event_fct fct, void* context) {
  const std::lock_guard lock(state().mutex);
  state().event = fct;
  state().event_context = context;
}

std::int32_t tap_fault(const char* function, const dtv_tap_fault_t*) {
  return !function || strcmp(function, "f") == 0 ? 0 : -1;
}

char* tap_contract() {
  return strdup(
      R"([{"name":"f","params":[],"callback":["a"],"fault":null},{"name":"g","params":[],"callback":null,"fault":{"delay_ms":1}}])");
}

char* tv_control(const char* command) {
  if (strstr(command, "slow")) std::this_thread::sleep_for(std::chrono::milliseconds(4));
  return strdup(strstr(command, "-1") ? R"({"error":"no"})" : R"({"commands":[]})");
}

void tv_on_kept(void (*fct)(void* context, std::uint64_t change, std::int32_t failure), void* context) {
  const std::lock_guard lock(state().mutex);
  state().kept = fct;
  state().kept_context = context;
}

std::uint64_t tv_last_change() {
  const std::lock_guard lock(state().mutex);
  return state().changes;
}

}  // namespace

const Stack wire_stack = {.get = plugin_get,
                          .set = plugin_set,
                          .add_listener = plugin_add_listener,
                          .remove_listener = plugin_remove_listener,
                          .fetch = plugin_fetch,
                          .describe = plugin_describe,
                          .start_cec = nullptr,
                          .watch = tap_watch,
                          .on_event = tap_on_event,
                          .fault = tap_fault,
                          .contract = tap_contract,
                          .tv_control = tv_control,
                          .tv_command = nullptr,
                          .tv_stop = nullptr,
                          .on_kept = tv_on_kept,
                          .last_change = tv_last_change};

const std::string& wire_description() {
  static const std::string text =
      std::string(R"({"uris":[{"uri":")") + kWireUri + R"(","notify":false},{"uri":")" + kWireNotifyUri +
      R"(","notify":true},{"uri":"/tv/made/other","notify":true}],"pad":")" + std::string(32768, 'x') + "\"}";
  return text;
}

std::string wire_parameter(std::string_view mark, Act act) {
  return std::string(R"({"REQUEST":"SET","MARK":")").append(mark) + R"(","ACT":")" +
         kActNames[static_cast<std::size_t>(act)] + "\"}";
}

std::string wire_new_mark() {
  // Random start: the fuzzer puts marks it has seen into later inputs, and none of them may be a mark of this process.
  static std::uint64_t number = std::uint64_t{std::random_device()()} << 32;
  // Mixed, so that damaging one digit does not turn a mark into a neighbouring one that is in use.
  const std::uint64_t mixed = ++number * 0x9E3779B97F4A7C15u;
  char text[24];
  snprintf(text, sizeof text, "m%016llx", static_cast<unsigned long long>(mixed));
  return text;
}

std::size_t wire_sets(const std::string& mark) {
  const std::lock_guard lock(state().mutex);
  const auto found = state().sets.find(mark);
  return found != state().sets.end() ? found->second : 0;
}

void wire_forget_sets() {
  const std::lock_guard lock(state().mutex);
  state().sets.clear();
}

bool wire_is_followed() {
  const std::lock_guard lock(state().mutex);
  return !state().followed.empty() || state().line != nullptr;
}
