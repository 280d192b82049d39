// The plugin, the tap and a platform, loaded into this process: what dtv-host and dtvctl --local stand on.
#pragma once

#include <cstdint>
#include <string>

#include "dtv_tap.h"

struct StackOptions {
  std::string plugin;        // path of libdtv_js_plugin.so
  std::string tap;           // path of libdtv_tap.so; empty: no tap in front of the platform
  std::string platform;      // path of the platform's library, for example libdtv_tv.so
  std::string state_folder;  // where the virtual television keeps its state; made when missing
  std::string stick_root;    // only folders inside it can become USB sticks of the virtual television; empty: $HOME
};

// Where something stands, by its path from the running program's folder: as installed, else as built. Where it is
// neither, the path as built, so that a message names a place.
std::string stack_beside_program(const char* installed, const char* built);

// Makes the folder, and the missing ones above it, for this user alone (mode 0700). Does not change an existing folder:
// the virtual television does that when it starts. False, with a message, when it cannot be made, or has no name.
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
  std::int32_t (*start_broadcast)();  // see tv_ctrl_broadcast_init in "tv_ctrl_main.h"; null: it has none
  std::int32_t (*start_cec)();        // see tvc_ctrl_cec_detect_init in "tv_ctrl_main.h"; null: it has none

  // The tap's (see "dtv_tap.h"); null without a tap.
  void (*watch)(dtv_tap_line_fct fct, void* context);
  void (*on_event)(dtv_tap_event_fct fct, void* context);
  std::int32_t (*fault)(const char* function, const dtv_tap_fault_t* fault);
  char* (*contract)();

  // The virtual television's (see "dtv_tv.h"); null with another platform.
  char* (*tv_control)(const char* command);
  void (*tv_command)(char character);  // null also where it takes no characters
  void (*tv_stop)();
  // Both or none: changes reach the disk on a thread of the television's own, which reports them.
  void (*on_kept)(void (*fct)(void* context, std::uint64_t change, std::int32_t failure), void* context);
  std::uint64_t (*last_change)();
};

// Loads and starts everything: tap, platform, plugin, both start-up functions. Once per process.
// Returns false with a message that says what is missing or failed.
bool stack_start(const StackOptions& options, Stack& ret_stack, std::string& ret_error);

// Stops the platform's threads.
void stack_stop(Stack& stack);

// Carries out one control command, a JSON array of words such as ["volume","up"], and returns a JSON object.
// Beside the virtual television's own commands it knows, through the tap:
//   fault FUNCTION [--delay MS] [--fail [RESULT]] [--drop-callback]   sets a fault
//   fault FUNCTION --clear | fault --clear                            clears one, or all
//   faults                                                            lists them
std::string stack_control(const Stack& stack, const std::string& command);
