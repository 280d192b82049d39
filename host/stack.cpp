#include "stack.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "dtv_js_plugin.h"
#include "dtv_tv.h"

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
        !find(tap, options.tap, "dtv_tap_hold_callbacks", stack.hold_callbacks, ret_error) ||
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
