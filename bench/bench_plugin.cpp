// Measures the plugin in process on a platform that does nothing, each operation beside the least that it could be made
// of: the JSON library used plainly for the same texts. Prints one JSON line per operation.
#include <cjson/cJSON.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "sandbox/sandbox.h"
#include "tv_ctrl_main.h"
#include "tvapi/all.h"

static constexpr const char* kVolume = "/tv/cast/volume/volume";
static constexpr const char* kVolumeEvent = "/tv/ws/notify/volume_ctrl";
static constexpr const char* kNumber = "/tv/config/value_number";
static constexpr const char* kText = "/tv/config/language_string";
static constexpr const char* kPlayerEvent = "/tv/ws/notify/cbrowser_playback";
static constexpr const char* kGetRequest = R"({"PARAMETER":{"REQUEST":"GET"}})";
static constexpr const char* kSetRequest = R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":23}})";
static constexpr const char* kNumberRequest = R"({"PARAMETER":{"REQUEST":"QUERY","cfgId":"g_audio__balance"}})";
static constexpr const char* kTextRequest = R"({"PARAMETER":{"REQUEST":"QUERY","langId":"IDS_VOLUME"}})";
static constexpr std::size_t kPendingLength = 1000;  // of the longer pending text, in characters

static a_vextvapi_volctrl_nfy_fct volume_callback;
static void* volume_tag;

INT32 a_vextvapi_volctrl_reg_callback(a_vextvapi_volctrl_nfy_fct callback, void* tag) {
  volume_callback = callback;
  volume_tag = tag;
  return 0;
}
INT32 a_vextvapi_volctrl_getVolume() { return 23; }
UINT32 a_vextvapi_cb_usb_detect_init() { return 1; }
INT32 a_vextvapi_config_get_value(INT32, const char*, INT32* value) {
  *value = 23;
  return 0;
}

// What the host hands in; one byte more than is written, so that it reads as a text.
static char host_buffer[DTV_JSP_RESPONSE_MAX + 1];

// The compiler must take the memory as looked at.
static void keep(void* memory) { asm volatile("" : : "r"(memory) : "memory"); }

// --- What is measured ---

static void ours_get_request() {
  a_dtv_jsp_get(kVolume, kGetRequest, host_buffer);
  keep(host_buffer);
}
static void ours_get_plain() {
  a_dtv_jsp_get(kVolume, nullptr, host_buffer);
  keep(host_buffer);
}
static void ours_get_number() {
  a_dtv_jsp_get(kNumber, kNumberRequest, host_buffer);
  keep(host_buffer);
}
static void ours_get_text() {
  a_dtv_jsp_get(kText, kTextRequest, host_buffer);
  keep(host_buffer);
}
static void ours_set() { a_dtv_jsp_set(kVolume, kSetRequest); }
static void ours_notify_single() {
  volume_callback(0, volume_tag, reinterpret_cast<void*>(intptr_t{23}), nullptr, nullptr, nullptr);
}
static UINT16 player_event_id;
static void ours_notify_queued() {
  T_CBROWSER_PB_NOTIFY notify = {.type = 1, .tag = 2, .arg1 = 3, .arg2 = 4, .arg3 = 5, .arg4 = 6};
  tv_ctrl_notify_content(player_event_id, &notify);
}
static void ours_fetch() {
  a_dtv_jsp_get_listener_buffer(kVolumeEvent, host_buffer, sizeof host_buffer);
  keep(host_buffer);
}
// A fetch alone is too short for the clock, unless nothing is pending.
static void ours_notify_and_fetch() {
  ours_notify_single();
  ours_fetch();
}

// Empties the player's entry, or fills it: with as many notifications as stay within the length.
static void ours_empty_queue() { a_dtv_jsp_get_listener_buffer(kPlayerEvent, host_buffer, sizeof host_buffer); }
static int notifications_of_length;
static void ours_fill_queue() {
  ours_empty_queue();
  for (int i = 0; i < notifications_of_length; ++i) ours_notify_queued();
}

// --- Their floors ---

static void* floor_content;
static INT32 floor_content_size;

static cJSON* floor_item(cJSON* items, std::initializer_list<std::pair<const char*, const char*>> texts,
                         std::initializer_list<std::pair<const char*, double>> numbers) {
  cJSON* const item = cJSON_CreateObject();
  cJSON_AddItemToArray(items, item);
  for (const auto& [key, value] : texts) cJSON_AddStringToObject(item, key, value);
  for (const auto& [key, value] : numbers) cJSON_AddNumberToObject(item, key, value);
  return item;
}

static void floor_clear() {
  memset(floor_content, 0, static_cast<std::size_t>(floor_content_size));
  keep(floor_content);
}

static void floor_parse(const char* text) {
  cJSON* const root = cJSON_Parse(text);
  keep(root);
  cJSON_Delete(root);
}

static void floor_get(const char* uri, std::initializer_list<std::pair<const char*, const char*>> texts,
                      std::initializer_list<std::pair<const char*, double>> numbers) {
  floor_clear();
  cJSON* const root = cJSON_CreateObject();
  cJSON_AddStringToObject(root, "URI", uri);
  cJSON_AddNumberToObject(root, "STATUS", 0);
  floor_item(cJSON_AddArrayToObject(root, "ITEMS"), texts, numbers);
  char* const text = cJSON_PrintUnformatted(root);
  cJSON_Delete(root);
  memcpy(host_buffer, text, strlen(text));
  keep(host_buffer);
  free(text);
}
static void floor_get_plain() {
  floor_get(kVolume, {{"NAME", "Volume"}, {"TYPE", "TYPE_VALUE"}},
            {{"GROUP", 4}, {"STATE", 1}, {"MINIMUM", 0}, {"MAXIMUM", 0}, {"INCREMENT", 1}, {"VALUE", 23}});
}
static void floor_get_request() {
  floor_parse(kGetRequest);
  floor_get_plain();
}
static void floor_get_number() {
  floor_parse(kNumberRequest);
  floor_get(kNumber, {{"cfgId", "g_audio__balance"}, {"valueString", ""}},
            {{"valueInt", 23}, {"valueMin", 0}, {"valueMax", 0}});
}
static void floor_get_text() {
  floor_parse(kTextRequest);
  floor_get(kText, {{"langId", "IDS_VOLUME"}, {"langString", "Volume"}}, {});
}
static void floor_set() {
  floor_parse(kSetRequest);
  floor_clear();
}

static std::mutex floor_mutex;
static char* floor_pending;

static char* floor_swap(char* text) {
  const std::lock_guard guard(floor_mutex);
  return std::exchange(floor_pending, text);
}

// Prints and deletes the tree, leaves its text pending and frees the one before.
static void floor_store(cJSON* root) {
  char* const text = cJSON_PrintUnformatted(root);
  cJSON_Delete(root);
  free(floor_swap(text));
}

static cJSON* floor_envelope(const char* uri) {
  cJSON* const root = cJSON_CreateObject();
  cJSON_AddStringToObject(root, "URI", uri);
  cJSON_AddStringToObject(root, "REQUEST", "NOTIFY");
  cJSON_AddArrayToObject(root, "ITEMS");
  return root;
}

static void floor_notify_single() {
  cJSON* const root = floor_envelope(kVolumeEvent);
  floor_item(cJSON_GetObjectItemCaseSensitive(root, "ITEMS"), {}, {{"volValue", 23}, {"muteStatus", 0}});
  floor_store(root);
}
static void floor_notify_queued() {
  cJSON* const root = floor_pending ? cJSON_Parse(floor_pending) : floor_envelope(kPlayerEvent);
  floor_item(cJSON_GetObjectItemCaseSensitive(root, "ITEMS"), {},
             {{"TYPE", 1}, {"TAG", 2}, {"ARG1", 3}, {"ARG2", 4}, {"ARG3", 5}, {"ARG4", 6}});
  floor_store(root);
}
static void floor_fetch() {
  char* const text = floor_swap(nullptr);
  if (!text) return;
  memcpy(host_buffer, text, std::min(strlen(text), sizeof host_buffer));
  keep(host_buffer);
  free(text);
}
static void floor_notify_and_fetch() {
  floor_notify_single();
  floor_fetch();
}

static void floor_empty_queue() { free(floor_swap(nullptr)); }
static std::string pending_text;
static void floor_fill_queue() { free(floor_swap(strdup(pending_text.c_str()))); }

// --- Measuring ---

static double now_ns() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

static double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// What reading the clock twice costs.
static double clock_cost() {
  std::vector<double> costs(10001);
  for (double& cost : costs) {
    const double start = now_ns();
    cost = now_ns() - start;
  }
  return median(costs);
}

struct Side {
  void (*prepare)();  // untimed, before each operation; null: none, and the operations are timed together
  void (*operate)();
};

struct Operation {
  const char* name;
  int count;  // of operations in one repetition
  Side ours;
  Side floor;
};

// Nanoseconds of one operation.
static double time_side(const Side& side, int count, double clock_ns) {
  double total = 0;
  if (!side.prepare) {
    const double start = now_ns();
    for (int i = 0; i < count; ++i) side.operate();
    total = now_ns() - start;
  } else {
    for (int i = 0; i < count; ++i) {
      side.prepare();
      const double start = now_ns();
      side.operate();
      total += now_ns() - start - clock_ns;
    }
  }
  return total / count;
}

static constexpr Operation operations[] = {
    {"get_volume", 50, {nullptr, ours_get_request}, {nullptr, floor_get_request}},
    {"get_volume_without_request", 50, {nullptr, ours_get_plain}, {nullptr, floor_get_plain}},
    {"get_config_number", 50, {nullptr, ours_get_number}, {nullptr, floor_get_number}},
    {"get_language_string", 50, {nullptr, ours_get_text}, {nullptr, floor_get_text}},
    {"set_volume", 200, {nullptr, ours_set}, {nullptr, floor_set}},
    {"notify_single", 100, {nullptr, ours_notify_single}, {nullptr, floor_notify_single}},
    {"notify_queued_empty", 100, {ours_empty_queue, ours_notify_queued}, {floor_empty_queue, floor_notify_queued}},
    {"notify_queued_1000", 2, {ours_fill_queue, ours_notify_queued}, {floor_fill_queue, floor_notify_queued}},
    {"notify_and_fetch", 100, {nullptr, ours_notify_and_fetch}, {nullptr, floor_notify_and_fetch}},
    {"fetch_nothing", 1000, {nullptr, ours_fetch}, {nullptr, floor_fetch}},
};

// Repetitions are short, so that on a busy machine most of them pass undisturbed and the median is one of those.
static constexpr int kRepetitions = 501;

// Both sides must make the same text, else they are not comparable.
static bool same_text(const char* what, void (*ours)(), void (*floor)()) {
  memset(host_buffer, 0, sizeof host_buffer);
  ours();
  const std::string text = host_buffer;
  memset(host_buffer, 0, sizeof host_buffer);
  floor();
  if (!text.empty() && text == host_buffer) return true;
  fprintf(stderr, "bench_plugin: %s: the plugin gives %s, the floor %s\n", what, text.c_str(), host_buffer);
  return false;
}

// How many notifications make the longer pending text; the text itself in pending_text.
static int count_for_length() {
  for (int count = 1;; ++count) {
    notifications_of_length = count;
    ours_fill_queue();
    memset(host_buffer, 0, sizeof host_buffer);
    ours_empty_queue();
    if (strlen(host_buffer) > kPendingLength) return count - 1;
    pending_text = host_buffer;
  }
}

int main(int argc, char** argv) {
  std::string error = "usage: bench_plugin FOLDER, where the language libraries are; a full path";
  const WantedPath languages = {.what = WantedPath::BOUND, .content = argc > 1 ? argv[1] : ""};
  if (argc != 2 || !sandbox_enter({{"/3rd/i18n", languages}}, NewFolders::READ_ONLY, error)) {
    fprintf(stderr, "bench_plugin: %s\n", error.c_str());
    return 1;
  }
  a_dtv_jsp_init_res();
  a_dtv_jsp_init();
  UINT8 type;
  if (tv_ctrl_get_info_with_uri(kPlayerEvent, &player_event_id, &type) != 0 || !volume_callback) {
    fprintf(stderr, "bench_plugin: the plugin has not started\n");
    return 1;
  }
  a_dtv_jsp_add_listener_buffer(kVolumeEvent);
  a_dtv_jsp_add_listener_buffer(kPlayerEvent);
  floor_content = tv_ctrl_malloc_content_max(&floor_content_size);
  notifications_of_length = count_for_length();

  const auto ours_queued = [] { ours_fill_queue(), ours_notify_queued(), ours_empty_queue(); };
  const auto floor_queued = [] { floor_fill_queue(), floor_notify_queued(), floor_fetch(); };
  if (!same_text("get", ours_get_request, floor_get_request) ||
      !same_text("get of a configuration number", ours_get_number, floor_get_number) ||
      !same_text("get of a language string", ours_get_text, floor_get_text) ||
      !same_text("single notification", ours_notify_and_fetch, floor_notify_and_fetch) ||
      !same_text("queued notification", ours_queued, floor_queued))
    return 1;

  const double clock_ns = clock_cost();
  for (const Operation& operation : operations) {
    std::vector<double> ours, floor;
    for (int i = 0; i < kRepetitions; ++i) {
      floor.push_back(time_side(operation.floor, operation.count, clock_ns));
      ours.push_back(time_side(operation.ours, operation.count, clock_ns));
    }
    printf("{\"name\":\"%s\",\"unit\":\"ns\",\"value\":%.1f,\"floor\":%.1f}\n", operation.name, median(ours),
           median(floor));
    fflush(stdout);
    floor_empty_queue();
  }
  fprintf(stderr, "content buffer %d bytes, longer pending text %zu characters, clock %.0f ns\n", floor_content_size,
          pending_text.size(), clock_ns);
}
