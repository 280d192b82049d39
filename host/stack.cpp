#include "stack.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cerrno>
#include <filesystem>
#include <limits>
#include <span>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/text.h"
#include "dtv_js_plugin.h"
#include "dtv_tv.h"
#include "nearest.h"

namespace fs = std::filesystem;
namespace json = boost::json;

namespace {

std::string library_path(const char* name) {
  return stack_beside_program(("../" DTV_INSTALL_LIBDIR "/" + std::string(name)).c_str(),
                              ("../lib/" + std::string(name)).c_str());
}

std::string state_folder() {
  if (const char* base = getenv("XDG_STATE_HOME"); base != nullptr && *base == '/')
    return fs::path(base) / "dtv_js_plugin";
  if (const char* home = getenv("HOME"); home != nullptr && *home != '\0')
    return fs::path(home) / ".local/state/dtv_js_plugin";
  return {};  // not a predictable folder such as one in /tmp
}

// Takes a text that one of the libraries returned and its caller must free.
std::string take_text(char* text) {
  std::string taken = text != nullptr ? text : "";
  free(text);
  return taken;
}

void* load(const char* what, const std::string& path, int mode, std::string& ret_error) {
  void* library = dlopen(path.c_str(), RTLD_NOW | mode);
  if (library == nullptr) ret_error = std::string("cannot load the ") + what + ": " + dlerror();
  return library;
}

// Sets a function pointer from a library. Returns false with a message when the library does not define it.
template <typename Function>
bool find(void* library, const std::string& path, const char* name, Function*& ret_function, std::string& ret_error) {
  void* symbol = dlsym(library, name);
  if (symbol == nullptr) {
    ret_error = path + " does not define " + name;
    return false;
  }
  ret_function = reinterpret_cast<Function*>(symbol);
  return true;
}

// The same; null when the library does not define it.
template <typename Function>
void find_if_any(void* library, const char* name, Function*& ret_function) {
  ret_function = reinterpret_cast<Function*>(dlsym(library, name));
}

bool start_platform(void* library, const StackOptions& options, Stack& stack, std::string& ret_error) {
  decltype(&dtv_tv_start) start = nullptr;
  decltype(&dtv_tv_stick_root) stick_root = nullptr;
  decltype(&dtv_tv_antenna) antenna = nullptr;
  decltype(&dtv_tv_home_interfaces) home_interfaces = nullptr;
  find_if_any(library, "dtv_tv_start", start);
  find_if_any(library, "dtv_tv_stick_root", stick_root);
  find_if_any(library, "dtv_tv_antenna", antenna);
  find_if_any(library, "dtv_tv_home_interfaces", home_interfaces);
  find_if_any(library, "dtv_tv_command", stack.tv_command);
  find_if_any(library, "dtv_tv_screen", stack.tv_screen);
  find_if_any(library, "dtv_tv_on_kept", stack.on_kept);
  find_if_any(library, "dtv_tv_last_change", stack.last_change);
  if (start == nullptr) return true;  // another platform starts by itself
  if (!find(library, options.platform, "dtv_tv_control", stack.tv_control, ret_error) ||
      !find(library, options.platform, "dtv_tv_stop", stack.tv_stop, ret_error))
    return false;

  if (!stack_make_state_folder(options.state_folder, ret_error)) return false;
  if (stick_root != nullptr && !options.stick_root.empty()) stick_root(options.stick_root.c_str());
  if (antenna != nullptr && !options.antenna.empty()) antenna(options.antenna.c_str());
  if (home_interfaces != nullptr && !options.home_network.empty()) home_interfaces(options.home_network.c_str());
  char* text = nullptr;
  if (start(options.state_folder.c_str(), &text) != 0) {
    stack.tv_stop = nullptr;
    ret_error = "the virtual television does not start: " + take_text(text);
    return false;
  }
  return true;
}

void on_start_line(void* context, const char* line) {
  auto& start = *static_cast<StartLines*>(context);
  const std::lock_guard guard(start.lock);
  const std::string_view text = line;
  start.full = start.full || start.text.size() + text.size() >= kStartBytes;
  if (!start.full) start.text.append(text).push_back('\n');
}

json::array contract_list(const Stack& stack) { return json::parse(take_text(stack.contract())).as_array(); }

std::string no_tap() { return stack_error("faults need the tap, and this process runs without it"); }

constexpr const char* kFaultUsage =
    "usage: fault FUNCTION [--delay MS] [--fail [RESULT]] [--drop-callback] [--repeat-callback TIMES] | "
    "fault FUNCTION --clear | fault --clear";

constexpr struct {
  const char* name;
  const char* arguments;
  const char* help;
} kFaultHelp[] = {{"fault", "FUNCTION [--delay MS] [--fail [RESULT]] [--drop-callback] [--repeat-callback TIMES]",
                   "Makes a function of the TV API misbehave; replaces its earlier fault"},
                  {"fault", "[FUNCTION] --clear", "Lets one function, or all, behave again"},
                  {"faults", "", "Lists the faults that are set"},
                  {"faults", "functions [TEXT...]", "Lists the functions that faults can be set on"}};

// A callback that is repeated without end would keep the platform's thread for ever.
constexpr std::int32_t kMostRepeats = 1000;

// Reads the words after "fault FUNCTION". Returns what is wrong with them, or an empty text.
std::string read_fault(std::span<const std::string> words, dtv_tap_fault_t& ret_fault) {
  dtv_tap_fault_t fault{};
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view value = i + 1 < words.size() ? words[i + 1] : std::string_view();
    if (words[i] == "--delay") {
      const auto delay = parse_number_within(value, 0, std::numeric_limits<std::int32_t>::max());
      if (!delay) return "--delay wants milliseconds, 0 or more";
      fault.delay_ms = *delay;
      ++i;
    } else if (words[i] == "--fail") {
      fault.fails = 1;
      const auto result = parse_number<std::int32_t>(value);
      fault.result = result.value_or(-1);
      if (result) ++i;
    } else if (words[i] == "--drop-callback") {
      fault.drop_callback = 1;
    } else if (words[i] == "--repeat-callback") {
      const auto times = parse_number_within(value, 2, kMostRepeats);
      if (!times)
        return "--repeat-callback wants how often a callback arrives, from 2 to " + std::to_string(kMostRepeats);
      fault.repeat_callback = *times;
      ++i;
    } else {
      return "\"" + words[i] + "\" is not a fault; " + kFaultUsage;
    }
  }
  if (words.empty()) return std::string("no fault given; ") + kFaultUsage;
  if (fault.drop_callback != 0 && fault.repeat_callback != 0) return "a callback that is dropped cannot be repeated";
  ret_fault = fault;
  return {};
}

std::string unknown_function(const json::array& contract, const std::string& name) {
  std::vector<std::string> functions;
  for (const json::value& function : contract) functions.emplace_back(function.at("name").as_string());
  std::string text = "the TV API has no function \"" + name + "\"";
  const std::vector<std::string> names = nearest(name, functions, 3);
  if (!names.empty()) text += "; nearest:";
  for (const std::string& near : names) text += " " + near;
  return stack_error(text);
}

std::string control_fault(const Stack& stack, std::span<const std::string> words) {
  if (stack.fault == nullptr) return no_tap();
  if (words.size() == 1 && words[0] == "--clear") {
    stack.fault(nullptr, nullptr);
    return "{}";
  }
  if (words.empty() || words[0].starts_with("--")) return stack_error(kFaultUsage);

  const std::string& function = words[0];
  const bool clears = words.size() == 2 && words[1] == "--clear";
  dtv_tap_fault_t fault{};
  if (!clears)
    if (std::string wrong = read_fault(words.subspan(1), fault); !wrong.empty()) return stack_error(std::move(wrong));
  const json::array contract = contract_list(stack);
  const auto row =
      std::ranges::find_if(contract, [&](const json::value& each) { return each.at("name").as_string() == function; });
  if (row == contract.end()) return unknown_function(contract, function);
  if ((fault.drop_callback != 0 || fault.repeat_callback != 0) && row->at("callback").is_null())
    return stack_error(function + " registers no callback; \"faults functions\" shows those that do");
  stack.fault(function.c_str(), clears ? nullptr : &fault);
  return "{}";
}

std::string list_faults(const Stack& stack) {
  json::object faults;
  for (const json::value& function : contract_list(stack))
    if (const json::value& fault = function.at("fault"); !fault.is_null())
      faults.emplace(function.at("name").as_string(), fault);
  return json::serialize(json::object{{"faults", std::move(faults)}});
}

// The functions whose names contain every word, with their parameters and those of their callbacks.
std::string list_functions(const Stack& stack, std::span<const std::string> words) {
  json::array functions;
  const json::array contract = contract_list(stack);
  for (const json::value& function : contract) {
    const std::string_view name = function.at("name").as_string();
    if (!std::ranges::all_of(words, [&](const std::string& word) { return contains_ignoring_case(name, word); }))
      continue;
    functions.push_back(
        json::object{{"name", name}, {"params", function.at("params")}, {"callback", function.at("callback")}});
  }
  if (functions.empty()) return unknown_function(contract, words[0]);
  return json::serialize(json::object{{"functions", std::move(functions)}});
}

std::string control_faults(const Stack& stack, std::span<const std::string> words) {
  if (stack.contract == nullptr) return no_tap();
  if (words.empty()) return list_faults(stack);
  if (words[0] == "functions") return list_functions(stack, words.subspan(1));
  return stack_error("usage: faults | faults functions [TEXT...]");
}

}  // namespace

std::string stack_beside_program(const char* installed, const char* built) {
  std::error_code ignored;
  const fs::path program = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  return (program / (fs::exists(program / installed, ignored) ? installed : built)).lexically_normal();
}

bool stack_make_state_folder(const std::string& folder, std::string& ret_error) {
  if (folder.empty()) {
    ret_error = "no folder for the state: HOME is not set; give one with --state";
    return false;
  }
  fs::path made;
  int problem = 0;
  for (const fs::path& part : fs::path(folder)) {
    const fs::path above = made.empty() ? fs::path(".") : made;
    made /= part;
    problem = mkdir(made.c_str(), 0700) == 0 ? 0 : errno;
    if (problem != 0) continue;  // created, or it exists already
    const int parent = open(above.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (parent < 0) continue;
    fsync(parent);  // so that the new folder survives a power cut
    close(parent);
  }
  std::error_code none;
  if (fs::is_directory(folder, none)) return true;
  ret_error = "cannot make the state folder " + folder + ": " + std::generic_category().message(problem);
  return false;
}

StackOptions stack_defaults() {
  return {.plugin = library_path("libdtv_js_plugin.so"),
          .tap = library_path("libdtv_tap.so"),
          .platform = library_path("libdtv_tv.so"),
          .state_folder = state_folder(),
          .stick_root = {},
          .antenna = {},
          .home_network = {}};
}

bool stack_start(const StackOptions& options, Stack& ret_stack, std::string& ret_error) {
  Stack stack{};
  decltype(&dtv_tap_platform) tap_platform = nullptr;
  const bool tapped = !options.tap.empty();

  // The tap is loaded first and globally, so that the plugin's calls bind to it and not to the platform.
  if (tapped) {
    void* tap = load("tap", options.tap, RTLD_GLOBAL, ret_error);
    if (tap == nullptr || !find(tap, options.tap, "dtv_tap_platform", tap_platform, ret_error) ||
        !find(tap, options.tap, "dtv_tap_watch", stack.watch, ret_error) ||
        !find(tap, options.tap, "dtv_tap_on_event", stack.on_event, ret_error) ||
        !find(tap, options.tap, "dtv_tap_stamp", stack.stamp, ret_error) ||
        !find(tap, options.tap, "dtv_tap_replay", stack.replay, ret_error) ||
        !find(tap, options.tap, "dtv_tap_replay_report", stack.replay_report, ret_error) ||
        !find(tap, options.tap, "dtv_tap_raise", stack.raise, ret_error) ||
        !find(tap, options.tap, "dtv_tap_fault", stack.fault, ret_error) ||
        !find(tap, options.tap, "dtv_tap_list", stack.contract, ret_error) ||
        !find(tap, options.tap, "dtv_tap_take_failure", stack.take_failure, ret_error))
      return false;
  }

  void* platform = nullptr;
  if (options.replays) {
    if (!tapped) {
      ret_error = "a replay needs the tap";
      return false;
    }
    if (!stack_replay(stack, options.start_answers, ret_error)) return false;
  } else {
    platform = load("platform", options.platform, tapped ? RTLD_LOCAL : RTLD_GLOBAL, ret_error);
    if (platform == nullptr || !start_platform(platform, options, stack, ret_error)) return false;
  }
  const auto give_up = [&stack] {
    stack_stop(stack);
    return false;
  };
  if (char* text = nullptr; platform != nullptr && tapped && tap_platform(platform, &text) != 0) {
    ret_error = options.platform + " is not a complete platform: " + take_text(text);
    return give_up();
  }

  void* plugin = load("plugin", options.plugin, RTLD_LOCAL, ret_error);
  decltype(&a_dtv_jsp_init_res) init_res = nullptr;
  decltype(&a_dtv_jsp_init) init = nullptr;
  if (plugin == nullptr || !find(plugin, options.plugin, "a_dtv_jsp_init_res", init_res, ret_error) ||
      !find(plugin, options.plugin, "a_dtv_jsp_init", init, ret_error) ||
      !find(plugin, options.plugin, "a_dtv_jsp_get", stack.get, ret_error) ||
      !find(plugin, options.plugin, "a_dtv_jsp_set", stack.set, ret_error) ||
      !find(plugin, options.plugin, "a_dtv_jsp_add_listener_buffer", stack.add_listener, ret_error) ||
      !find(plugin, options.plugin, "a_dtv_jsp_remove_listener_buffer", stack.remove_listener, ret_error) ||
      !find(plugin, options.plugin, "a_dtv_jsp_get_listener_buffer", stack.fetch, ret_error) ||
      !find(plugin, options.plugin, "a_dtv_jsp_describe", stack.describe, ret_error))
    return give_up();
  find_if_any(plugin, "tv_ctrl_broadcast_init", stack.start_broadcast);
  find_if_any(plugin, "tvc_ctrl_cec_detect_init", stack.start_cec);
  if (options.keeps_start && tapped) {
    stack.start = std::make_shared<StartLines>();
    stack.watch(on_start_line, stack.start.get());
  }
  stack_start_up(stack, "a_dtv_jsp_init_res", init_res);
  stack_start_up(stack, "a_dtv_jsp_init", init);

  ret_stack = stack;
  return true;
}

std::int32_t stack_start_up(const Stack& stack, const char* name, std::int32_t (*function)()) {
  if (stack.start == nullptr) return function();
  dtv_tap_stamp_t begun{};
  stack.stamp(&begun);
  const std::int32_t ret = function();
  const json::object line{{"seq", begun.seq}, {"t", begun.t}, {"thread", begun.thread}, {"start", name}, {"ret", ret}};
  on_start_line(stack.start.get(), json::serialize(line).c_str());
  return ret;
}

bool stack_replay(const Stack& stack, const std::string& answers, std::string& ret_error) {
  char* text = nullptr;
  if (stack.replay(answers.c_str(), &text) == 0) return true;
  ret_error = "the record cannot be replayed: " + take_text(text);
  return false;
}

std::string stack_replay_report(const Stack& stack) { return take_text(stack.replay_report()); }

bool stack_raise(const Stack& stack, const std::string& function, const std::string& arguments,
                 std::string& ret_error) {
  char* text = nullptr;
  if (stack.raise(function.c_str(), arguments.c_str(), nullptr, &text) == 0) return true;
  ret_error = take_text(text);
  return false;
}

void stack_started(const Stack& stack) {
  if (stack.start != nullptr) stack.watch(nullptr, nullptr);
}

void stack_stop(Stack& stack) {
  if (stack.on_event != nullptr) stack.on_event(nullptr, nullptr);
  if (stack.watch != nullptr) stack.watch(nullptr, nullptr);
  if (stack.on_kept != nullptr) stack.on_kept(nullptr, nullptr);
  if (stack.tv_stop != nullptr) stack.tv_stop();
  stack.tv_stop = nullptr;
}

std::string stack_control(const Stack& stack, const std::string& command) {
  std::vector<std::string> words;
  if (!stack_words(command, words))
    return stack_error("a command is a JSON array of words, such as [\"volume\",\"up\"]");
  try {
    const std::span<const std::string> arguments = std::span(words).subspan(words.empty() ? 0 : 1);
    if (!words.empty() && words[0] == "fault") return control_fault(stack, arguments);
    if (!words.empty() && words[0] == "faults") return control_faults(stack, arguments);
  } catch (const std::exception& failure) {
    return stack_error(std::string("the tap's list of functions cannot be read: ") + failure.what());
  }
  if (stack.tv_control == nullptr) return stack_error("this platform is not the virtual television");
  std::string reply = take_text(stack.tv_control(command.c_str()));
  const bool asks_help = words.size() == 1 && words[0] == "help";
  if (!asks_help || stack.fault == nullptr) return reply;
  for (const auto& [name, arguments, help] : kFaultHelp)
    reply = stack_add_help(std::move(reply), name, arguments, help);
  return reply;
}

bool stack_words(const std::string& command, std::vector<std::string>& ret_words) {
  json::error_code failure;
  const json::value parsed = json::parse(command, failure);
  if (failure || !parsed.is_array()) return false;
  for (const json::value& word : parsed.get_array()) {
    if (!word.is_string()) return false;
    ret_words.emplace_back(word.get_string());
  }
  return true;
}

std::string stack_error(std::string_view text) { return json::serialize(json::object{{"error", text}}); }

std::string stack_add_help(std::string reply, const char* name, const char* arguments, const char* help) {
  json::error_code failure;
  json::value parsed = json::parse(reply, failure);
  json::object* object = failure ? nullptr : parsed.if_object();
  json::value* commands = object != nullptr ? object->if_contains("commands") : nullptr;
  if (commands == nullptr || !commands->is_array()) return reply;
  commands->get_array().push_back(json::object{{"name", name}, {"arguments", arguments}, {"help", help}});
  return json::serialize(parsed);
}
