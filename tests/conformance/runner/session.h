// The libraries that a case's process has loaded, and what has happened in it so far.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "dtv_tap.h"
#include "runner/case.h"
#include "runner/child.h"
#include "runner/inventory.h"
#include "runner/output.h"

namespace runner {

struct Session {
  const Case* test = nullptr;
  const Inventory* inventory = nullptr;
  int report = -1;
  Capture out;
  Capture err;

  void* plugin = nullptr;  // handles of dlopen
  void* tap = nullptr;
  std::int32_t (*init_res)() = nullptr;
  std::int32_t (*init)() = nullptr;
  std::int32_t (*get)(const char*, const char*, void*) = nullptr;
  std::int32_t (*set)(const char*, const char*) = nullptr;
  std::int32_t (*subscribe)(const char*) = nullptr;
  std::int32_t (*unsubscribe)(const char*) = nullptr;
  std::int32_t (*fetch)(const char*, void*, std::int32_t) = nullptr;
  char* (*describe)() = nullptr;  // null in a library that has none
  decltype(&dtv_tap_list) list = nullptr;
  decltype(&dtv_tap_script) script = nullptr;
  decltype(&dtv_tap_watch) watch = nullptr;
  decltype(&dtv_tap_raise) raise = nullptr;

  std::mutex lines_lock;
  std::vector<std::string> lines;  // the tap's, since the last step; under lines_lock

  bool failed = false;
  std::map<std::string, int> functions;  // how often each was called
  std::map<std::string, int> uris;       // by use and URI: "get /tv/..."
};

// Load a library and look its functions up. False with ret_error.
bool session_load_tap(Session& session, const Libraries& libraries, std::string& ret_error);
bool session_load_plugin(Session& session, const Libraries& libraries, std::string& ret_error);

void report_fail(Session& session, const std::string& text);
void report_note(Session& session, const std::string& text);
void report_step(Session& session, int number);
void report_line(int file, const cJSON* line);

// Runs one step and checks it; number counts from 1.
void run_step(Session& session, const cJSON* step, int number);

// Checks the platform calls of start-up, and drops what it printed.
void finish_startup(Session& session);

}  // namespace runner
