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

#include "calls.h"
#include "catalogue.h"
#include "dtvctl.h"
#include "log_capture.h"
#include "private_paths.h"
#include "rpc.h"
#include "stack.h"
#include "tracer.h"

namespace json = boost::json;

namespace {

constexpr std::size_t kNotificationSize = 1 << 20;  // bytes; the rest of a longer notification would be lost

struct LocalSet {
  Stack stack{};
  Catalogue catalogue;  // read when the first request needs it
  Tracer tracer{};
  std::vector<std::string> subscribed;  // used only by the main thread, like the next one
  std::deque<Message> lines;            // of a trace

  std::mutex lock;  // guards the following member, which the platform's threads write
  std::condition_variable changed;
  bool event = false;  // a callback has returned, or the tracer has a line, since the last look
};

void on_event(void* context) {
  auto& set = *static_cast<LocalSet*>(context);
  {
    const std::lock_guard guard(set.lock);
    set.event = true;
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

void take_lines(LocalSet& set) {
  std::vector<std::string> lines;
  const std::size_t lost = tracer_take(set.tracer, lines);
  for (std::string& line : lines) set.lines.push_back({"trace", std::move(line)});
  if (lost > 0) set.lines.push_back({"overflow", R"({"dropped":)" + std::to_string(lost) + "}"});
}

Waited wait(LocalSet& set, std::optional<Clock::time_point> until, Message& ret_message) {
  while (true) {
    if (fetch(set, ret_message)) return Waited::kMessage;
    take_lines(set);
    if (!set.lines.empty()) {
      ret_message = std::move(set.lines.front());
      set.lines.pop_front();
      return Waited::kMessage;
    }
    std::unique_lock guard(set.lock);
    const auto ready = [&] { return set.event; };
    if (!until) {
      set.changed.wait(guard, ready);
    } else if (!set.changed.wait_until(guard, *until, ready)) {
      return Waited::kTimeout;
    }
    set.event = false;
  }
}

// The plugin's description of its URIs, as a host has it.
bool read_catalogue(LocalSet& set, Failure& ret_failure) {
  if (!set.catalogue.rows.empty()) return true;
  const std::unique_ptr<char, decltype(&free)> description(set.stack.describe(), free);
  std::string wrong;
  if (catalogue_read(description == nullptr ? "" : description.get(), set.catalogue, wrong)) return true;
  ret_failure = {kExitProtocol, wrong};
  return false;
}

// A get or a set, as a host makes it.
bool request(LocalSet& set, Call call, const std::string& uri, std::string& ret_result, Failure& ret_failure) {
  if (!read_catalogue(set, ret_failure)) return false;
  const CatalogueRow* const row = catalogue_find(set.catalogue, uri);
  if (row == nullptr) {
    json::value description;
    json_parse(set.catalogue.description, description);
    ret_failure = {kExitRefused, unknown_uri(description, uri)};
    return false;
  }
  call.uri = row->uri;
  call.row = row->check;
  Outcome outcome;
  call_run(set.stack, set.tracer, call, outcome);
  if (outcome.departs) {
    ret_failure = strict_failure(outcome.warnings);
    return false;
  }
  if (outcome.broken) {
    ret_failure = {kExitProtocol, "the set's answer to " + uri + " is cut or broken (" +
                                      std::to_string(outcome.text.size()) + " bytes)"};
    return false;
  }
  std::string reply;
  rpc_append_outcome(reply, "0", call, outcome);
  ret_result = std::string(json_member(reply, "result").value_or("null"));
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
  if (method == "get" || method == "set") {
    const Call exchange{.kind = method == "get" ? CallKind::kGet : CallKind::kSet,
                        .text = parameter ? R"({"PARAMETER":)" + std::string(*parameter) + "}" : "",
                        .traced = object.contains("trace"),
                        .strict = object.contains("strict")};
    return request(set, exchange, uri, ret_result, ret_failure);
  }
  std::string result = "{}";
  if (method == "subscribe") {
    set.stack.add_listener(uri.c_str());
    if (std::ranges::find(set.subscribed, uri) == set.subscribed.end()) set.subscribed.push_back(uri);
  } else if (method == "list") {
    if (!read_catalogue(set, ret_failure)) return false;
    result = set.catalogue.description;
  } else if (method == "trace") {
    tracer_follow(set.tracer, object.at("on").get_bool());
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
  log_capture_start();  // a refusal quotes what the set prints
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
  set->tracer.stack = &set->stack;
  set->tracer.wake = on_event;
  set->tracer.context = set.get();
  set->stack.on_event(on_event, set.get());
  ret_session.call = [set](std::string_view method, const std::string& params, std::string& ret_result,
                           Failure& failure) { return call(*set, method, params, ret_result, failure); };
  ret_session.wait = [set](std::optional<Clock::time_point> until, Message& ret_message, Failure&) {
    return wait(*set, until, ret_message);
  };
  ret_session.close = [set] { stack_stop(set->stack); };
  return true;
}
