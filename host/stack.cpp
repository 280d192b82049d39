#include "stack.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

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

std::string error_object(std::string text) { return json::serialize(json::object{{"error", std::move(text)}}); }

std::vector<std::string> contract_functions(const Stack& stack) {
  std::vector<std::string> names;
  const json::value contract = json::parse(take_text(stack.contract()));
  for (const json::value& function : contract.as_array()) names.emplace_back(function.at("name").as_string());
  return names;
}

std::string no_tap() { return error_object("faults need the tap, and this process runs without it"); }

constexpr const char* kFaultUsage =
    "usage: fault FUNCTION [--delay MS] [--fail [RESULT]] [--drop-callback] | fault FUNCTION --clear | fault --clear";

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
    } else {
      return "\"" + words[i] + "\" is not a fault; " + kFaultUsage;
    }
  }
  if (words.empty()) return std::string("no fault given; ") + kFaultUsage;
  ret_fault = fault;
  return {};
}

std::string control_fault(const Stack& stack, std::span<const std::string> words) {
  if (stack.fault == nullptr) return no_tap();
  if (words.size() == 1 && words[0] == "--clear") {
    stack.fault(nullptr, nullptr);
    return "{}";
  }
  if (words.empty() || words[0].starts_with("--")) return error_object(kFaultUsage);

  const std::string& function = words[0];
  const bool clears = words.size() == 2 && words[1] == "--clear";
  dtv_tap_fault_t fault{};
  if (!clears)
    if (std::string wrong = read_fault(words.subspan(1), fault); !wrong.empty()) return error_object(std::move(wrong));
  if (stack.fault(function.c_str(), clears ? nullptr : &fault) == 0) return "{}";

  std::string text = "the TV API has no function \"" + function + "\"";
  const std::vector<std::string> names = nearest(function, contract_functions(stack), 3);
  if (!names.empty()) text += "; nearest:";
  for (const std::string& name : names) text += " " + name;
  return error_object(std::move(text));
}

std::string list_faults(const Stack& stack) {
  if (stack.contract == nullptr) return no_tap();
  json::object faults;
  const json::value contract = json::parse(take_text(stack.contract()));
  for (const json::value& function : contract.as_array())
    if (const json::value& fault = function.at("fault"); !fault.is_null())
      faults.emplace(function.at("name").as_string(), fault);
  return json::serialize(json::object{{"faults", std::move(faults)}});
}

// The television's list of commands with those of this file.
std::string with_fault_help(std::string help) {
  json::error_code failure;
  json::value parsed = json::parse(help, failure);
  json::object* object = failure ? nullptr : parsed.if_object();
  json::value* commands = object != nullptr ? object->if_contains("commands") : nullptr;
  if (commands == nullptr || !commands->is_array()) return help;
  const auto add = [commands](const char* name, const char* arguments, const char* text) {
    commands->get_array().push_back(json::object{{"name", name}, {"arguments", arguments}, {"help", text}});
  };
  add("fault", "FUNCTION [--delay MS] [--fail [RESULT]] [--drop-callback]", "Makes a function of the TV API misbehave");
  add("fault", "[FUNCTION] --clear", "Lets one function, or all, behave again");
  add("faults", "", "Lists the faults that are set");
  return json::serialize(parsed);
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
        !find(tap, options.tap, "dtv_tap_fault", stack.fault, ret_error) ||
        !find(tap, options.tap, "dtv_tap_list", stack.contract, ret_error) ||
        !find(tap, options.tap, "dtv_tap_take_failure", stack.take_failure, ret_error))
      return false;
  }

  void* platform = load("platform", options.platform, tapped ? RTLD_LOCAL : RTLD_GLOBAL, ret_error);
  if (platform == nullptr || !start_platform(platform, options, stack, ret_error)) return false;
  const auto give_up = [&stack] {
    stack_stop(stack);
    return false;
  };
  if (char* text = nullptr; tapped && tap_platform(platform, &text) != 0) {
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
  init_res();
  init();

  ret_stack = stack;
  return true;
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
  try {
    const json::value parsed = json::parse(command);
    for (const json::value& word : parsed.as_array()) words.emplace_back(word.as_string());
  } catch (const std::exception&) {
    return error_object("a command is a JSON array of words, such as [\"volume\",\"up\"]");
  }
  try {
    const std::span<const std::string> arguments = std::span(words).subspan(words.empty() ? 0 : 1);
    if (!words.empty() && words[0] == "fault") return control_fault(stack, arguments);
    if (!words.empty() && words[0] == "faults") return list_faults(stack);
  } catch (const std::exception& failure) {
    return error_object(std::string("the tap's list of functions cannot be read: ") + failure.what());
  }
  if (stack.tv_control == nullptr) return error_object("this platform is not the virtual television");
  std::string reply = take_text(stack.tv_control(command.c_str()));
  const bool asks_help = words.size() == 1 && words[0] == "help";
  return asks_help && stack.fault != nullptr ? with_fault_help(std::move(reply)) : reply;
}
