// The session in this process: loads plugin, tap and virtual television, and gives the answers that the host would
// give.
#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>

#include "dtv_js_plugin.h"
#include "dtvctl.h"
#include "private_paths.h"
#include "stack.h"

namespace json = boost::json;

namespace {

constexpr std::size_t kNotificationSize = 1 << 20;  // bytes; the rest of a longer notification would be lost

struct LocalSet {
  Stack stack{};
  std::vector<std::string> subscribed;  // used only by the main thread

  std::mutex lock;  // guards the following members, which the platform's threads write
  std::condition_variable changed;
  bool event = false;  // a callback has returned since the last fetch
  std::deque<std::string> lines;
};

void on_event(void* context) {
  auto& set = *static_cast<LocalSet*>(context);
  {
    const std::lock_guard guard(set.lock);
    set.event = true;
  }
  set.changed.notify_one();
}

void on_line(void* context, const char* line) {
  auto& set = *static_cast<LocalSet*>(context);
  {
    const std::lock_guard guard(set.lock);
    set.lines.emplace_back(line);
  }
  set.changed.notify_one();
}

// Fetches the pending notification of one of the subscribed URIs.
bool fetch(LocalSet& set, Message& ret_message) {
  for (const std::string& uri : set.subscribed) {
    std::string text(kNotificationSize, '\0');
    if (set.stack.fetch(uri.c_str(), text.data(), static_cast<std::int32_t>(text.size())) != 0) continue;
    text.resize(strnlen(text.data(), text.size()));
    if (text.empty()) continue;
    ret_message = {"notify", R"({"uri":)" + json::serialize(json::string(uri)) + R"(,"notification":)" + text + "}"};
    return true;
  }
  return false;
}

Waited wait(LocalSet& set, std::optional<Clock::time_point> until, Message& ret_message) {
  while (true) {
    if (fetch(set, ret_message)) return Waited::kMessage;
    std::unique_lock guard(set.lock);
    const auto ready = [&] { return set.event || !set.lines.empty(); };
    if (!until) {
      set.changed.wait(guard, ready);
    } else if (!set.changed.wait_until(guard, *until, ready)) {
      return Waited::kTimeout;
    }
    set.event = false;
    if (!set.lines.empty()) {
      ret_message = {"trace", std::move(set.lines.front())};
      set.lines.pop_front();
      return Waited::kMessage;
    }
  }
}

bool get(LocalSet& set, const std::string& uri, const std::string& param, std::string& ret_result,
         Failure& ret_failure) {
  std::string response(DTV_JSP_RESPONSE_MAX + 1, '\0');
  const std::int32_t result = set.stack.get(uri.c_str(), param.empty() ? nullptr : param.c_str(), response.data());
  response.resize(strnlen(response.data(), response.size()));
  json::value whole;
  if (!response.empty() && !json_parse(response, whole)) {
    ret_failure = {kExitProtocol,
                   "the set's answer to " + uri + " is cut or broken (" + std::to_string(response.size()) + " bytes)"};
    return false;
  }
  ret_result = R"({"ret":)" + std::to_string(result) + R"(,"response":)" + (response.empty() ? "null" : response) + "}";
  return true;
}

bool call(LocalSet& set, std::string_view method, const std::string& params, std::string& ret_result,
          Failure& ret_failure) {
  json::value parsed;
  json_parse(params, parsed);
  const json::object& object = parsed.get_object();
  const auto text = [&](const char* key) {
    const json::value* value = object.if_contains(key);
    return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
  };
  const std::string uri = text("uri");
  const std::optional<std::string_view> parameter = json_member(params, "parameter");
  const std::string param = parameter ? R"({"PARAMETER":)" + std::string(*parameter) + "}" : "";

  if (method == "get") return get(set, uri, param, ret_result, ret_failure);
  std::string result = "{}";
  if (method == "set") {
    result = R"({"ret":)" + std::to_string(set.stack.set(uri.c_str(), param.c_str())) + "}";
  } else if (method == "subscribe") {
    set.stack.add_listener(uri.c_str());
    if (std::ranges::find(set.subscribed, uri) == set.subscribed.end()) set.subscribed.push_back(uri);
  } else if (method == "list") {
    const std::unique_ptr<char, decltype(&free)> description(set.stack.describe(), free);
    json::value whole;
    if (description == nullptr || !json_parse(description.get(), whole)) {
      ret_failure = {kExitProtocol, "the plugin's description of its URIs is not JSON"};
      return false;
    }
    result = description.get();
  } else if (method == "trace") {
    const bool on = object.at("on").get_bool();
    set.stack.watch(on ? on_line : nullptr, &set);
  } else if (method == "tv") {
    result = stack_control(set.stack, json::serialize(object.at("words")));
    json::value answer;
    if (!json_parse(result, answer) || !answer.is_object()) {
      ret_failure = {kExitProtocol, "the virtual television's answer is not a JSON object: " + result};
      return false;
    }
    if (const json::value* error = answer.get_object().if_contains("error"); error != nullptr && error->is_string()) {
      ret_failure = {kExitRefused, std::string(error->get_string())};
      return false;
    }
  } else {
    ret_failure = {kExitProtocol, "there is no method \"" + std::string(method) + "\""};
    return false;
  }
  ret_result = result;
  return true;
}

}  // namespace

bool contract_list(std::string& ret_list, Failure& ret_failure) {
  void* const tap = dlopen(stack_defaults().tap.c_str(), RTLD_NOW | RTLD_LOCAL);  // loaded until the program ends
  const auto list = tap == nullptr ? nullptr : reinterpret_cast<decltype(&dtv_tap_list)>(dlsym(tap, "dtv_tap_list"));
  if (list == nullptr) {
    ret_failure = {kExitUnreachable, std::string("cannot load the tap: ") + dlerror()};
    return false;
  }
  const std::unique_ptr<char, decltype(&free)> text(list(), free);
  ret_list = text == nullptr ? "" : text.get();
  return true;
}

bool session_open_local(const Options& options, Session& ret_session, Failure& ret_failure) {
  // The plugin logs to standard output, which therefore becomes standard error; results keep the original one.
  if (const int results = dup(STDOUT_FILENO); results >= 0) {
    std::FILE* const file = fdopen(results, "w");
    if (file != nullptr && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0) output = file;
  }
  StackOptions stack = stack_defaults();
  if (!options.state.empty()) stack.state_folder = options.state;
  const auto set = std::make_shared<LocalSet>();
  const PrivatePaths paths = private_paths_enter(stack.state_folder);
  std::string error;
  if (!stack_start(stack, set->stack, error)) {
    ret_failure = {kExitUnreachable, error};
    return false;
  }
  private_paths_connect(paths, set->stack.tv_command);
  set->stack.on_event(on_event, set.get());
  ret_session.call = [set](std::string_view method, const std::string& params, std::string& ret_result,
                           Failure& failure) { return call(*set, method, params, ret_result, failure); };
  ret_session.wait = [set](std::optional<Clock::time_point> until, Message& ret_message, Failure&) {
    return wait(*set, until, ret_message);
  };
  ret_session.close = [set] { stack_stop(set->stack); };
  return true;
}
