#include "runner/child.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runner/device.h"
#include "runner/session.h"

namespace runner {
namespace {

// Folders and files of the television that do not exist in a case unless it says so.
constexpr const char* kAbsentByDefault[] = {"/3rd", "/3rd_rw", "/dev/cli", "/tmp/ytlbv4_start"};

template <class Fct>
bool find_symbol(void* library, const char* name, Fct& ret_fct, std::string& ret_error) {
  void* found = dlsym(library, name);
  if (found == nullptr) {
    ret_error = std::string(name) + " is not exported";
    return false;
  }
  ret_fct = reinterpret_cast<Fct>(found);
  return true;
}

void add_line(void* context, const char* line) {
  Session& session = *static_cast<Session*>(context);
  const std::lock_guard guard(session.lines_lock);
  session.lines.emplace_back(line);
}

// Checks the case before its first step, and loads its answers into the tap. Returns why it cannot be run; empty when
// it can.
std::string refuse(Session& session) {
  if (std::string problem = check_case(*session.test, session.inventory->contract); !problem.empty()) return problem;
  const cJSON* platform = cJSON_GetObjectItemCaseSensitive(session.test->json.get(), "platform");
  char* error = nullptr;
  const std::string answers = platform == nullptr ? "[]" : tap::json_print(platform);
  if (session.script(answers.c_str(), &error) == 0) return {};
  std::string problem = "\"platform\": " + std::string(error == nullptr ? "" : error);
  std::free(error);
  return problem;
}

void run_steps(Session& session) {
  report_step(session, 0);
  const cJSON* start = cJSON_GetObjectItemCaseSensitive(session.test->json.get(), "start");
  if (!cJSON_IsFalse(start)) {
    const std::int32_t resources = session.init_res();
    const std::int32_t controls = session.init();
    if (resources != 0) report_fail(session, "start-up: a_dtv_jsp_init_res returned " + std::to_string(resources));
    if (controls != 0) report_fail(session, "start-up: a_dtv_jsp_init returned " + std::to_string(controls));
  }
  finish_startup(session);
  int number = 0;
  const cJSON* step = nullptr;
  cJSON_ArrayForEach(step, cJSON_GetObjectItemCaseSensitive(session.test->json.get(), "steps")) {
    ++number;
    report_step(session, number);
    run_step(session, step, number);
  }
}

void report_end(Session& session) {
  const tap::Json line(cJSON_CreateObject());
  const auto add = [&](const char* key, const std::map<std::string, int>& counts) {
    cJSON* object = cJSON_AddObjectToObject(line.get(), key);
    for (const auto& [name, count] : counts) cJSON_AddNumberToObject(object, name.c_str(), count);
  };
  add("functions", session.functions);
  add("uris", session.uris);
  cJSON_AddTrueToObject(line.get(), "done");
  report_line(session.report, line.get());
}

bool enter_sandbox(WantedPaths wanted, std::string& ret_error) {
  for (const char* path : kAbsentByDefault) {
    bool covered = false;
    for (const auto& [other, what] : wanted) covered = covered || other.rfind(std::string(path) + "/", 0) == 0;
    // A file that the case wants below it creates it, as a folder without the machine's files.
    wanted.emplace(path, WantedPath{.what = covered ? WantedPath::kFolder : WantedPath::kAbsent, .content = ""});
  }
  return sandbox_enter(wanted, NewFolders::kWritable, ret_error);
}

void take_streams(const ChildFiles& files) {
  dup2(files.out, STDOUT_FILENO);
  dup2(files.err, STDERR_FILENO);
  // Without a buffer: a crash would lose what is in it, and a sanitizer's report would come out of order.
  setvbuf(stderr, nullptr, _IONBF, 0);
}

}  // namespace

bool session_load_tap(Session& session, const Libraries& libraries, std::string& ret_error) {
  session.tap = dlopen(libraries.tap.c_str(), RTLD_NOW | RTLD_GLOBAL);
  if (session.tap == nullptr) {
    ret_error = dlerror();
    return false;
  }
  return find_symbol(session.tap, "dtv_tap_list", session.list, ret_error) &&
         find_symbol(session.tap, "dtv_tap_script", session.script, ret_error) &&
         find_symbol(session.tap, "dtv_tap_watch", session.watch, ret_error) &&
         find_symbol(session.tap, "dtv_tap_raise", session.raise, ret_error);
}

bool session_load_plugin(Session& session, const Libraries& libraries, std::string& ret_error) {
  session.plugin = dlopen(libraries.plugin.c_str(), RTLD_NOW);
  if (session.plugin == nullptr) {
    ret_error = dlerror();
    return false;
  }
  session.describe = reinterpret_cast<char* (*)()>(dlsym(session.plugin, "a_dtv_jsp_describe"));
  return find_symbol(session.plugin, "a_dtv_jsp_init_res", session.init_res, ret_error) &&
         find_symbol(session.plugin, "a_dtv_jsp_init", session.init, ret_error) &&
         find_symbol(session.plugin, "a_dtv_jsp_get", session.get, ret_error) &&
         find_symbol(session.plugin, "a_dtv_jsp_set", session.set, ret_error) &&
         find_symbol(session.plugin, "a_dtv_jsp_add_listener_buffer", session.subscribe, ret_error) &&
         find_symbol(session.plugin, "a_dtv_jsp_remove_listener_buffer", session.unsubscribe, ret_error) &&
         find_symbol(session.plugin, "a_dtv_jsp_get_listener_buffer", session.fetch, ret_error);
}

void report_line(int file, const cJSON* line) {
  const std::string text = tap::json_print(line) + "\n";
  if (write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
}

void report_step(Session& session, int number) {
  const tap::Json line(cJSON_CreateObject());
  cJSON_AddNumberToObject(line.get(), "step", number);
  report_line(session.report, line.get());
}

void report_fail(Session& session, const std::string& text) {
  session.failed = true;
  const tap::Json line(cJSON_CreateObject());
  cJSON_AddStringToObject(line.get(), "fail", text.c_str());
  report_line(session.report, line.get());
}

void report_note(Session& session, const std::string& text) {
  const tap::Json line(cJSON_CreateObject());
  cJSON_AddStringToObject(line.get(), "note", text.c_str());
  report_line(session.report, line.get());
}

void child_run(const Case& test, const Inventory& inventory, const Libraries& libraries, const ChildFiles& files) {
  // Never freed: the tap's watcher points at it until the process ends.
  static Session session;
  session.test = &test;
  session.inventory = &inventory;
  session.report = files.report;
  session.out.file = files.out;
  session.err.file = files.err;
  take_streams(files);
  std::string error;
  if (!session_load_tap(session, libraries, error)) {
    report_fail(session, "cannot load: " + error);
  } else if (const std::string refusal = refuse(session); !refusal.empty()) {
    report_fail(session, "refused: " + refusal);
  } else if (!enter_sandbox(wanted_paths(test, libraries.language_template, libraries.other_library), error)) {
    report_fail(session, "no private file system: " + error);
  } else if (!session_load_plugin(session, libraries, error)) {
    report_fail(session, "cannot load: " + error);
  } else {
    session.watch(add_line, &session);
    device_record();
    run_steps(session);
  }
  report_end(session);
  // Not _exit, so that a leak sanitizer runs its check.
  std::exit(session.failed ? 1 : 0);
}

void child_inventory(const Libraries& libraries, const ChildFiles& files) {
  take_streams(files);
  static Session session;
  session.report = files.report;
  std::string error;
  // A line for each library: that of the tap counts also where the plugin cannot be loaded.
  const auto report = [&](const char* key, char* text) {
    const tap::Json line(cJSON_CreateObject());
    cJSON_AddItemToObject(line.get(), key, text == nullptr ? cJSON_CreateNull() : cJSON_Parse(text));
    std::free(text);
    report_line(session.report, line.get());
  };
  if (session_load_tap(session, libraries, error)) {
    report("contract", session.list());
    if (session_load_plugin(session, libraries, error)) {
      if (session.describe != nullptr) report("registry", session.describe());
    }
  }
  if (!error.empty()) report_fail(session, "cannot load: " + error);
  report_end(session);
  std::exit(session.failed ? 1 : 0);
}

}  // namespace runner
