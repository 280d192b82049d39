// Loads the plugin, the tap and a platform into this process, for dtv-host and dtvctl --local.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "dtv_tap.h"

struct StackOptions {
  std::string plugin;        // path of libdtv_js_plugin.so
  std::string tap;           // path of libdtv_tap.so; empty: no tap in front of the platform
  std::string platform;      // path of the platform's library, for example libdtv_tv.so
  std::string state_folder;  // where the virtual television keeps its state; made when missing
  std::string stick_root;    // only folders inside it can become USB sticks of the virtual television; empty: $HOME
  std::string antenna;       // folder of transport streams that the virtual television receives; empty: as stored
  std::string home_network;  // network interfaces, as dtv_tv_home_interfaces takes them; empty: loopback only
  bool replays = false;      // no platform is loaded: the tap answers, first from start_answers
  std::string start_answers = {};  // JSON lines for dtv_tap_replay: the platform calls of the plugin's start
  bool keeps_start = false;        // keeps what a record of the host begins with; needs the tap
};

// What the plugin's start-up functions and the platform did, as lines of a record (see "record/record.h").
struct StartLines {
  std::mutex lock;  // guards the other members: the platform's threads write lines, too
  std::string text;
  bool full = false;  // there were more than kStartBytes
};
inline constexpr std::size_t kStartBytes = std::size_t{4} << 20;

// A path relative to the running program's folder: the installed one if it exists, else the built one, whether or not
// it exists, so that a message can name it.
std::string stack_beside_program(const char* installed, const char* built);

// Creates the folder and its missing parents with mode 0700. Does not change an existing folder: the virtual television
// does that when it starts. Returns false with a message when it cannot be created or has no name.
bool stack_make_state_folder(const std::string& folder, std::string& ret_error);

// The paths of the libraries as built or installed beside this program, and the XDG state folder (empty: no HOME).
StackOptions stack_defaults();

struct Stack {
  // The plugin's entry points (see "dtv_js_plugin.h").
  std::int32_t (*get)(const char* uri, const char* param, void* pv_content);
  std::int32_t (*set)(const char* uri, const char* param);
  std::int32_t (*add_listener)(const char* uri);
  std::int32_t (*remove_listener)(const char* uri);
  std::int32_t (*fetch)(const char* uri, void* buffer, std::int32_t length);
  char* (*describe)();
  std::int32_t (*start_broadcast)();  // see tv_ctrl_broadcast_init in "tv_ctrl_main.h"; null: missing
  std::int32_t (*start_cec)();        // see tvc_ctrl_cec_detect_init in "tv_ctrl_main.h"; null: missing

  // The tap's (see "dtv_tap.h"); null without a tap.
  void (*watch)(dtv_tap_line_fct fct, void* context);
  void (*on_event)(dtv_tap_event_fct fct, void* context);
  void (*stamp)(dtv_tap_stamp_t* ret_stamp);
  void (*hold_callbacks)(std::int32_t hold);
  std::int32_t (*fault)(const char* function, const dtv_tap_fault_t* fault);
  char* (*contract)();
  std::int32_t (*replay)(const char* lines, char** ret_error);
  char* (*replay_report)();
  std::int32_t (*raise)(const char* function, const char* args, std::int64_t* ret_result, char** ret_error);
  std::shared_ptr<StartLines> start;  // null: not kept
  std::int32_t (*take_failure)(dtv_tap_failure_t* ret_failure);

  // The virtual television's (see "dtv_tv.h"); null with another platform.
  char* (*tv_control)(const char* command);
  void (*tv_command)(char character);  // null also when it takes no characters
  // Gives the newest frame of the screen (see dtv_tv_screen); null also when it has no screen.
  std::uint64_t (*tv_screen)(std::uint64_t after, std::uint8_t** ret_jpeg, std::uint32_t* ret_size);
  void (*tv_stop)();
  // Both or neither: a thread of the television writes changes to the disk and reports them.
  void (*on_kept)(void (*fct)(void* context, std::uint64_t change, std::int32_t failure), void* context);
  std::uint64_t (*last_change)();
};

// The start-up functions that stack_start calls, as a record names them.
inline constexpr std::string_view kStartFunctions[] = {"a_dtv_jsp_init_res", "a_dtv_jsp_init"};

// Loads tap, platform and plugin, switches the platform on, and calls a_dtv_jsp_init_res and a_dtv_jsp_init. Once per
// process.
// Returns false with a message about what is missing or failed.
bool stack_start(const StackOptions& options, Stack& ret_stack, std::string& ret_error);

// Calls a further start-up function of the plugin, such as Stack::start_cec. stack_started says that it was the last.
std::int32_t stack_start_up(const Stack& stack, const char* name, std::int32_t (*function)());
void stack_started(const Stack& stack);

// The tap's functions of these names, with texts that need not be freed.
bool stack_replay(const Stack& stack, const std::string& answers, std::string& ret_error);
std::string stack_replay_report(const Stack& stack);
bool stack_raise(const Stack& stack, const std::string& function, const std::string& arguments, std::string& ret_error);

// Stops the platform's threads.
void stack_stop(Stack& stack);

// Carries out one control command, a JSON array of words such as ["volume","up"], and returns a JSON object.
// In addition to the virtual television's commands there are, through the tap, those of "faults.h". "help" lists all of
// them, and "capture" of "control.h".
std::string stack_control(const Stack& stack, const std::string& command);

// What commands share: their words, and {"error": text}.
bool stack_words(const std::string& command, std::vector<std::string>& ret_words);
std::string stack_error(std::string_view text);
