// Loads the shipped library as a set's server does and measures what it uses, one JSON line per figure. budgets.py runs
// this natively, in an emulator and under callgrind; docs/budgets.md explains the figures.
//
//   budget_probe LIBRARY operations   heap after start-up; heap allocations of each operation
//   budget_probe LIBRARY stack        stack of a get, a set and a notification
//   budget_probe LIBRARY deepest      the most stack that any request and any notification uses, the log at its highest
//   budget_probe LIBRARY start        nanoseconds of start-up
#include <cjson/cJSON.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "budget_heap.h"
#include "budget_stack.h"
#include "tests/platform/volume.h"
#include "tv_ctrl_main.h"

static constexpr const char* kVolume = "/tv/cast/volume/volume";
static constexpr const char* kVolumeEvent = "/tv/ws/notify/volume_ctrl";
static constexpr const char* kPlayerEvent = "/tv/ws/notify/cbrowser_playback";
static constexpr int kQueued = 9;  // notifications that are pending when the measured one is appended

[[noreturn]] static void give_up(const char* what, const char* why) {
  fprintf(stderr, "budget_probe: %s: %s\n", what, why ? why : "unknown");
  exit(1);
}

// --- The platform: all other functions return 0 ---

INT32 a_vextvapi_volctrl_getVolume() { return 23; }

// A handle: detection runs, so that requests that need it do all their work.
UINT32 a_vextvapi_cb_usb_detect_init() { return 1; }

// The log level comes from the mode, not from this machine's file.
static bool log_everything;

extern "C" FILE* fopen(const char* path, const char* mode) {
  static const auto kNext = reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "fopen"));
  static char level[] = "log=10\n";
  if (strcmp(path, "/3rd_rw/tvc_debug") != 0) return kNext(path, mode);
  if (log_everything) return fmemopen(level, sizeof level - 1, "r");
  return kNext("/dev/null/tvc_debug", mode);  // there is no such file on any machine
}

// --- The plugin ---

static void* library;

template <typename Function>
static Function* find(const char* name, Function*) {
  void* const symbol = dlsym(library, name);
  if (!symbol) give_up(name, dlerror());
  return reinterpret_cast<Function*>(symbol);
}
#define PLUGIN(name) find(#name, &name)

static decltype(&a_dtv_jsp_get) get;
static decltype(&a_dtv_jsp_set) set;
static decltype(&a_dtv_jsp_add_listener_buffer) subscribe;
static decltype(&a_dtv_jsp_get_listener_buffer) fetch;
static decltype(&tv_ctrl_notify_content) notify;

// The library's path, equally long wherever the library is, since the loader keeps it on the heap.
static constexpr int kLibraryFile = 100;
static constexpr const char* kLibraryPath = "/proc/self/fd/100";

static void start() {
  library = dlopen(kLibraryPath, RTLD_NOW);
  if (!library) give_up("dlopen", dlerror());
  const auto init_res = reinterpret_cast<decltype(&a_dtv_jsp_init_res)>(dlsym(library, "a_dtv_jsp_init_res"));
  if (!init_res) return;  // the empty library of the floor
  init_res();
  PLUGIN(a_dtv_jsp_init)();
}

static UINT16 player_event_id;

static void find_functions() {
  get = PLUGIN(a_dtv_jsp_get);
  set = PLUGIN(a_dtv_jsp_set);
  subscribe = PLUGIN(a_dtv_jsp_add_listener_buffer);
  fetch = PLUGIN(a_dtv_jsp_get_listener_buffer);
  notify = PLUGIN(tv_ctrl_notify_content);
  UINT8 type;
  if (PLUGIN(tv_ctrl_get_info_with_uri)(kPlayerEvent, &player_event_id, &type) != 0 || !volume_callback)
    give_up("start-up", "the plugin has not started");
  subscribe(kVolumeEvent);
  subscribe(kPlayerEvent);
}

// --- Operations ---

static char host_buffer[DTV_JSP_RESPONSE_MAX + 1];

static void get_volume() { get(kVolume, R"({"PARAMETER":{"REQUEST":"GET"}})", host_buffer); }
static void set_volume() { set(kVolume, R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":23}})"); }
static void notify_single() { raise_volume(23); }
static void notify_queued() {
  T_CBROWSER_PB_NOTIFY record = {.type = 1, .tag = 2, .arg1 = 3, .arg2 = 4, .arg3 = 5, .arg4 = 6};
  notify(player_event_id, &record);
}
static void fetch_single() { fetch(kVolumeEvent, host_buffer, sizeof host_buffer); }
static void fill_queue() {
  fetch(kPlayerEvent, host_buffer, sizeof host_buffer);
  for (int i = 0; i < kQueued; ++i) notify_queued();
}
static void nothing() {}

struct Operation {
  const char* name;
  void (*prepare)();  // not counted
  void (*operate)();
  int count;
};
static constexpr Operation kOperations[] = {
    {"start", nothing, start, 1},
    {"get", nothing, get_volume, 100},
    {"set", nothing, set_volume, 100},
    {"notify_single", fetch_single, notify_single, 100},
    {"notify_queued", fill_queue, notify_queued, 100},
    {"fetch", notify_single, fetch_single, 100},
};

// budgets.py gives callgrind these names: it counts within the first, and writes its counts after each call of the
// second.
extern "C" {
[[gnu::noinline]] void budget_operate(void (*operate)()) {
  operate();
  asm volatile("" ::: "memory");
}

[[gnu::noinline]] void budget_batch(const Operation& operation, HeapCount& ret_taken) {
  HeapCount taken = {};
  for (int i = 0; i < operation.count; ++i) {
    operation.prepare();
    const HeapCount before = heap_count();
    budget_operate(operation.operate);
    const HeapCount after = heap_count();
    taken.allocations += after.allocations - before.allocations;
    taken.bytes += after.bytes - before.bytes;
    taken.in_use += after.in_use - before.in_use;
  }
  ret_taken = taken;
}
}

static int report_file;  // standard output as it was; the plugin's log goes nowhere

// at: the request or notification with this figure, where a search found it.
static void report(const std::string& name, std::size_t value, const std::string& at = "") {
  dprintf(report_file, "{\"name\":\"%s\",\"value\":%zu,\"at\":\"%s\"}\n", name.c_str(), value, at.c_str());
}

static void report_operations() {
  HeapCount taken[std::size(kOperations)] = {};
  run_on_painted_stack([&] {
    free(malloc(1));  // a thread's first allocation makes its share of the heap
    budget_batch(kOperations[0], taken[0]);
    find_functions();
    for (std::size_t i = 1; i < std::size(kOperations); ++i) {
      kOperations[i].prepare();
      kOperations[i].operate();
      budget_batch(kOperations[i], taken[i]);
    }
  });
  for (std::size_t i = 0; i < std::size(kOperations); ++i) {
    const std::string name = kOperations[i].name;
    const auto count = static_cast<std::size_t>(kOperations[i].count);
    report(name + "_count", count);
    if (i == 0) report("start_heap", taken[i].in_use);
    if (i == 0) continue;
    report(name + "_allocations", taken[i].allocations / count);
    report(name + "_allocated", taken[i].bytes / count);
  }
}

// --- Stack ---

static void report_stack() {
  start();
  find_functions();
  report("get_stack", run_on_painted_stack(get_volume));
  report("set_stack", run_on_painted_stack(set_volume));
  fill_queue();
  report("notify_queued_stack", run_on_painted_stack(notify_queued));
}

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

static Json json(cJSON* value) { return {value, cJSON_Delete}; }
static const char* text_of(const cJSON* object, const char* key) {
  return cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, key));
}

// Adds a value for each field of a description that a URI's requests have; texts and arrays are as long as they may be.
static void add_fields(cJSON* object, const char* uri, const cJSON* fields) {
  const cJSON* field;
  cJSON_ArrayForEach(field, fields) {
    const std::string_view kind = text_of(field, "kind");
    const char* const key = text_of(field, "key");
    const char* const only_uri = text_of(field, "uri");
    const cJSON* const count = cJSON_GetObjectItemCaseSensitive(field, "count");
    if (cJSON_GetObjectItemCaseSensitive(object, key) || (only_uri && std::string_view(only_uri) != uri)) continue;
    if (kind == "object") {
      add_fields(cJSON_AddObjectToObject(object, key), uri, cJSON_GetObjectItemCaseSensitive(field, "fields"));
    } else if (count) {
      const std::vector<int> numbers(static_cast<std::size_t>(count->valueint), 1);
      cJSON_AddItemToObject(object, key, cJSON_CreateIntArray(numbers.data(), count->valueint));
    } else if (kind == "text") {
      const cJSON* const limit = cJSON_GetObjectItemCaseSensitive(field, "limit");
      const std::string text(limit ? static_cast<std::size_t>(limit->valueint) : 64, 'x');
      cJSON_AddStringToObject(object, key, text.c_str());
    } else {
      cJSON_AddNumberToObject(object, key, 1);
    }
  }
}

// {"PARAMETER": {"REQUEST": word, a value for each field}}
static std::string request_text(const char* uri, const char* word, const cJSON* fields) {
  const Json root = json(cJSON_CreateObject());
  cJSON* const parameter = cJSON_AddObjectToObject(root.get(), "PARAMETER");
  cJSON_AddStringToObject(parameter, "REQUEST", word);
  add_fields(parameter, uri, fields);
  const std::unique_ptr<char, decltype(&free)> text(cJSON_PrintUnformatted(root.get()), free);
  return text.get();
}

struct Deepest {
  std::size_t stack = 0;
  std::string at;
};

static void keep_deepest(Deepest& deepest, const std::string& at, const std::function<void()>& work) {
  const std::size_t stack = run_on_painted_stack(work);
  if (stack > deepest.stack) deepest = {.stack = stack, .at = at};
}

// Every get that a URI describes.
static void try_get(Deepest& deepest, const char* uri, const cJSON* type) {
  const std::string text = request_text(uri, "QUERY", cJSON_GetObjectItemCaseSensitive(type, "query"));
  keep_deepest(deepest, std::string("get ") + uri, [&] {
    get(uri, nullptr, host_buffer);
    get(uri, text.c_str(), host_buffer);
  });
}

// Every set, with the right request words and the wrong ones.
static void try_set(Deepest& deepest, const char* uri, const cJSON* type) {
  const cJSON* const settable = cJSON_GetObjectItemCaseSensitive(type, "set");
  const cJSON* const fields = cJSON_GetObjectItemCaseSensitive(settable, "fields");
  std::vector<std::string> texts;
  for (const char* const word : {"ACTION", "MODIFY", "SET", "ASSOCIATE"})
    texts.push_back(request_text(uri, word, fields));
  keep_deepest(deepest, std::string("set ") + uri, [&] {
    for (const std::string& text : texts) set(uri, text.c_str());
  });
}

static void try_notification(Deepest& deepest, const cJSON* row) {
  INT32 size = 0;
  const std::unique_ptr<void, decltype(&free)> record(PLUGIN(tv_ctrl_malloc_content_max)(&size), free);
  const char* const uri = text_of(row, "uri");
  const auto id = static_cast<UINT16>(cJSON_GetObjectItemCaseSensitive(row, "id")->valueint);
  subscribe(uri);
  for (int i = 0; i <= kQueued; ++i) keep_deepest(deepest, uri, [&] { notify(id, record.get()); });
  fetch(uri, host_buffer, sizeof host_buffer);
}

// A get whose text is nested depth levels deep.
static std::string nested_get(int depth, const char* open, const char* close) {
  std::string text = R"({"PARAMETER":{"REQUEST":"GET"},"X":)";
  for (int i = 0; i < depth; ++i) text += open;
  text += '0';
  for (int i = 0; i < depth; ++i) text += close;
  return text + '}';
}

// The get that is nested as deep as the parser allows.
static void try_nested(Deepest& deepest, const char* what, const char* open, const char* close) {
  const auto accepted = [&](int depth) {
    return get(kVolume, nested_get(depth, open, close).c_str(), host_buffer) == VEXTVCTRLR_OK;
  };
  int low = 0, high = 5000;
  while (low + 1 < high) {
    const int middle = (low + high) / 2;
    (accepted(middle) ? low : high) = middle;
  }
  keep_deepest(deepest, std::to_string(low) + what, [&] { accepted(low); });
}

static void report_deepest() {
  log_everything = true;
  start();
  find_functions();
  const std::unique_ptr<char, decltype(&free)> text(PLUGIN(a_dtv_jsp_describe)(), free);
  const Json description = json(cJSON_Parse(text.get()));
  const cJSON* const types = cJSON_GetObjectItemCaseSensitive(description.get(), "types");
  Deepest request, notification, nested;
  const cJSON* row;
  // A set may stop what a get needs, so that all gets come first.
  for (auto* const try_request : {try_get, try_set}) {
    cJSON_ArrayForEach(row, cJSON_GetObjectItemCaseSensitive(description.get(), "uris")) {
      try_request(request, text_of(row, "uri"), cJSON_GetObjectItemCaseSensitive(types, text_of(row, "type")));
    }
  }
  cJSON_ArrayForEach(row, cJSON_GetObjectItemCaseSensitive(description.get(), "uris")) {
    const cJSON* const type = cJSON_GetObjectItemCaseSensitive(types, text_of(row, "type"));
    const bool notifies = cJSON_IsObject(cJSON_GetObjectItemCaseSensitive(type, "notify"));
    if (notifies && strcmp(text_of(row, "group"), "WS_NFY") == 0) try_notification(notification, row);
  }
  report("any_request_stack", request.stack, request.at);
  report("any_notification_stack", notification.stack, notification.at);
  try_nested(nested, " arrays", "[", "]");
  try_nested(nested, " objects", R"({"X":)", "}");
  report("nested_request_stack", nested.stack, nested.at);
}

// --- Start-up time ---

static void report_start() {
  const auto now = [] {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::size_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::size_t>(time.tv_nsec);
  };
  const std::size_t begin = now();
  start();
  report("start_ns", now() - begin);
}

struct Mode {
  std::string_view name;
  void (*run)();
};
static constexpr Mode kModes[] = {
    {"operations", report_operations}, {"stack", report_stack}, {"deepest", report_deepest}, {"start", report_start}};

int main(int count, char** arguments) {
  const auto mode = count == 3 ? std::ranges::find(kModes, arguments[2], &Mode::name) : std::end(kModes);
  if (mode == std::end(kModes)) {
    fprintf(stderr, "usage: budget_probe LIBRARY operations|stack|deepest|start\n");
    return 2;
  }
  report_file = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY);
  const int file = open(arguments[1], O_RDONLY);
  if (file < 0 || dup2(file, kLibraryFile) < 0 || dup2(nowhere, STDOUT_FILENO) < 0)
    give_up(arguments[1], strerror(errno));
  mode->run();
}
