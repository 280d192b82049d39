// What the installed libraries tell without a set: the plugin's list of URIs, and the help of the virtual television's
// commands. Nothing is started.
#include <dlfcn.h>
#include <stdlib.h>

#include <algorithm>
#include <boost/json.hpp>
#include <memory>

#include "dtv_js_plugin.h"
#include "dtv_tv.h"
#include "dtvctl.h"
#include "stack.h"

namespace json = boost::json;

namespace {

constexpr double kPatience = 1;  // seconds that a host may take, since the libraries answer as well

// A library stays loaded until the program ends.
template <typename Function>
Function* load(const std::string& path, int mode, const char* name) {
  void* const library = dlopen(path.c_str(), RTLD_LAZY | mode);
  return library == nullptr ? nullptr : reinterpret_cast<Function*>(dlsym(library, name));
}

// The plugin takes the TV API's functions from the tap, and calls none of them for this.
bool list(std::string& ret_list) {
  const StackOptions paths = stack_defaults();
  const auto tap = load<decltype(dtv_tap_list)>(paths.tap, RTLD_GLOBAL, "dtv_tap_list");
  const auto describe =
      tap == nullptr ? nullptr : load<decltype(a_dtv_jsp_describe)>(paths.plugin, RTLD_LOCAL, "a_dtv_jsp_describe");
  const std::unique_ptr<char, decltype(&free)> text(describe == nullptr ? nullptr : describe(), free);
  if (text == nullptr) return false;
  ret_list = text.get();
  return true;
}

bool help(const json::array& words, std::string& ret_reply, Failure& ret_failure) {
  const StackOptions paths = stack_defaults();
  Stack stack{};
  stack.tv_control = load<decltype(dtv_tv_control)>(paths.platform, RTLD_LOCAL, "dtv_tv_control");
  stack.fault = load<decltype(dtv_tap_fault)>(paths.tap, RTLD_LOCAL, "dtv_tap_fault");
  if (stack.tv_control == nullptr) return false;
  ret_reply = stack_control(stack, json::serialize(words));
  json::value reply;
  const json::value* const error =
      json_parse(ret_reply, reply) && reply.is_object() ? reply.get_object().if_contains("error") : nullptr;
  if (error == nullptr || !error->is_string()) return true;
  ret_failure = {kExitRefused, std::string(error->get_string())};
  return false;
}

bool call(std::string_view method, const std::string& params, std::string& ret_result, Failure& ret_failure) {
  ret_failure = {kExitUnreachable, "there is no host, and the installed libraries do not tell it"};
  json::value parsed;
  const json::value* const words =
      json_parse(params, parsed) && parsed.is_object() ? parsed.get_object().if_contains("words") : nullptr;
  const bool asks_help = method == "tv" && words != nullptr && words->is_array() && !words->get_array().empty() &&
                         words->get_array()[0] == "help";
  if (method == "list" ? !list(ret_result) : !asks_help || !help(words->get_array(), ret_result, ret_failure))
    return false;
  ret_failure = {};
  return true;
}

}  // namespace

Session session_of_help(const Options& options) {
  const auto host = std::make_shared<Session>();
  Failure no_host;
  Options hasty = options;
  hasty.timeout = std::min(options.timeout, kPatience);
  Session session;
  session.call = call;
  if (options.local || !session_open_remote(hasty, *host, no_host)) return session;
  session.call = [host](std::string_view method, const std::string& params, std::string& ret_result, Failure& failure) {
    return host->call(method, params, ret_result, failure) || call(method, params, ret_result, failure);
  };
  return session;
}
