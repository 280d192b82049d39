// Measures the plugin in process on a platform that does nothing, each operation beside the least that it could be made
// of: the request read once from front to back, the record cleared, the same text written straight on by code that is
// made for it, under one lock. Prints one JSON line per operation.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <charconv>
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
static constexpr const char* kServerEvent = "/tv/ws/notify/dlna_dms";
static constexpr const char* kGetRequest = R"({"PARAMETER":{"REQUEST":"GET"}})";
static constexpr const char* kSetRequest = R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":23}})";
static constexpr const char* kNumberRequest = R"({"PARAMETER":{"REQUEST":"QUERY","cfgId":"g_audio__balance"}})";
static constexpr const char* kTextRequest = R"({"PARAMETER":{"REQUEST":"QUERY","langId":"IDS_VOLUME"}})";
static constexpr int kAppended = 8;  // notifications that are raised in a row behind a pending one

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

static void ours_empty_queue() { a_dtv_jsp_get_listener_buffer(kPlayerEvent, host_buffer, sizeof host_buffer); }
static void ours_start_queue() {
  ours_empty_queue();
  ours_notify_queued();
}
static void ours_append() {
  for (int i = 0; i < kAppended; ++i) ours_notify_queued();
}

// Servers of the home network: the one notification of which a hundred can be pending.
static UINT16 server_event_id;
static void ours_notify_servers(int count) {
  T_DLNA_DMS_NOTIFY notify = {};
  for (int i = 0; i < count; ++i) tv_ctrl_notify_content(server_event_id, &notify);
}
static void ours_empty_servers() { a_dtv_jsp_get_listener_buffer(kServerEvent, host_buffer, sizeof host_buffer); }
static void ours_start_servers() {
  ours_empty_servers();
  ours_notify_servers(1);
}
static void ours_fill_servers() {
  ours_empty_servers();
  ours_notify_servers(100);
}
static void ours_append_servers() { ours_notify_servers(kAppended); }

// --- Their floors ---

static std::mutex floor_mutex;

// Reads a request: the texts and the nesting.
static void floor_read(const char* request) {
  int depth = 0;
  int texts = 0;
  for (const char* at = request; *at; ++at) {
    if (*at == '"') {
      for (++at; *at && *at != '"'; ++at)
        if (*at == '\\' && at[1]) ++at;
      ++texts;
    } else if (*at == '{' || *at == '[') {
      ++depth;
    } else if (*at == '}' || *at == ']') {
      --depth;
    }
  }
  keep(&depth);
  keep(&texts);
}

// Pieces of a text, each put behind the one before: one that is known, a record's text, a number.
template <std::size_t size>
static void put(char*& at, const char (&piece)[size]) {
  memcpy(at, piece, size - 1);
  at += size - 1;
}
static void put_text(char*& at, const char* text) {
  for (; *text; ++text) {
    if (*text == '"' || *text == '\\' || static_cast<unsigned char>(*text) < ' ')
      at += sprintf(at, "\\u%04x", *text);
    else
      *at++ = *text;
  }
}
template <typename Number>
static void put_number(char*& at, Number number) {
  at = std::to_chars(at, at + 20, number).ptr;
}

static constexpr std::size_t kFloorText = 1024;  // none of the texts is longer

// Clears the record, lets it be filled, writes its text into a block of its own and gives the host a copy.
template <typename Record>
static void floor_get(void (*fill)(Record& record), char* (*put_record)(char* at, const Record& record)) {
  static Record record;
  const std::lock_guard guard(floor_mutex);
  memset(&record, 0, sizeof record);
  fill(record);
  keep(&record);
  char* const text = static_cast<char*>(malloc(kFloorText));
  const char* const end = put_record(text, record);
  memcpy(host_buffer, text, static_cast<std::size_t>(end - text));
  keep(host_buffer);
  free(text);
}

static void floor_get_plain() {
  floor_get<T_VALUE>(
      [](T_VALUE& value) {
        strcpy(value.name, "Volume");
        value.group = 4;
        value.state = value.increment = 1;
        value.value = a_vextvapi_volctrl_getVolume();
      },
      [](char* at, const T_VALUE& value) {
        put(at, R"({"URI":")");
        put_text(at, kVolume);
        put(at, R"(","STATUS":)");
        put_number(at, 0);
        put(at, R"(,"ITEMS":[{"NAME":")");
        put_text(at, value.name);
        put(at, R"(","TYPE":"TYPE_VALUE","GROUP":)");
        put_number(at, value.group);
        put(at, R"(,"STATE":)");
        put_number(at, value.state);
        put(at, R"(,"MINIMUM":)");
        put_number(at, value.min_value);
        put(at, R"(,"MAXIMUM":)");
        put_number(at, value.max_value);
        put(at, R"(,"INCREMENT":)");
        put_number(at, value.increment);
        put(at, R"(,"VALUE":)");
        put_number(at, value.value);
        put(at, "}]}");
        return at;
      });
}
static void floor_get_request() {
  floor_read(kGetRequest);
  floor_get_plain();
}
static void floor_get_number() {
  floor_read(kNumberRequest);
  floor_get<T_CONFIG>(
      [](T_CONFIG& config) {
        strcpy(config.cfg_id, "g_audio__balance");
        a_vextvapi_config_get_value(0, config.cfg_id, &config.valueint);
      },
      [](char* at, const T_CONFIG& config) {
        put(at, R"({"URI":")");
        put_text(at, kNumber);
        put(at, R"(","STATUS":)");
        put_number(at, 0);
        put(at, R"(,"ITEMS":[{"cfgId":")");
        put_text(at, config.cfg_id);
        put(at, R"(","valueString":")");
        put_text(at, config.valuestring);
        put(at, R"(","valueInt":)");
        put_number(at, config.valueint);
        put(at, R"(,"valueMin":)");
        put_number(at, config.valuemin);
        put(at, R"(,"valueMax":)");
        put_number(at, config.valuemax);
        put(at, "}]}");
        return at;
      });
}
static void floor_get_text() {
  floor_read(kTextRequest);
  floor_get<T_LANG_STRING>(
      [](T_LANG_STRING& string) {
        strcpy(string.lang_id, "IDS_VOLUME");
        strcpy(string.lang_string, "Volume");
      },
      [](char* at, const T_LANG_STRING& string) {
        put(at, R"({"URI":")");
        put_text(at, kText);
        put(at, R"(","STATUS":)");
        put_number(at, 0);
        put(at, R"(,"ITEMS":[{"langId":")");
        put_text(at, string.lang_id);
        put(at, R"(","langString":")");
        put_text(at, string.lang_string);
        put(at, R"("}]})");
        return at;
      });
}
static void floor_set() {
  static T_VALUE value;
  const std::lock_guard guard(floor_mutex);
  floor_read(kSetRequest);
  memset(&value, 0, sizeof value);
  keep(&value);
}

static char* floor_pending;  // its block has room for the longest text
static char* floor_pending_end;

static void floor_notify_single() {
  const T_VOL_CTRL_NOTIFY notify = {.vol_value = 23, .mute_status = 0};
  keep(const_cast<T_VOL_CTRL_NOTIFY*>(&notify));
  char* const text = static_cast<char*>(malloc(kFloorText));
  char* at = text;
  put(at, R"({"URI":")");
  put_text(at, kVolumeEvent);
  put(at, R"(","REQUEST":"NOTIFY","ITEMS":[{"volValue":)");
  put_number(at, notify.vol_value);
  put(at, R"(,"muteStatus":)");
  put_number(at, notify.mute_status);
  put(at, "}]}");
  const std::lock_guard guard(floor_mutex);
  free(std::exchange(floor_pending, text));
  floor_pending_end = at;
}
static void floor_notify_queued() {
  T_CBROWSER_PB_NOTIFY notify = {.type = 1, .tag = 2, .arg1 = 3, .arg2 = 4, .arg3 = 5, .arg4 = 6};
  keep(&notify);
  const std::lock_guard guard(floor_mutex);
  if (!floor_pending) {
    floor_pending = floor_pending_end = static_cast<char*>(malloc(kFloorText));
    put(floor_pending_end, R"({"URI":")");
    put_text(floor_pending_end, kPlayerEvent);
    put(floor_pending_end, R"(","REQUEST":"NOTIFY","ITEMS":[)");
  } else {
    floor_pending_end -= 2;
    put(floor_pending_end, ",");
  }
  char* at = floor_pending_end;
  put(at, R"({"TYPE":)");
  put_number(at, notify.type);
  put(at, R"(,"TAG":)");
  put_number(at, notify.tag);
  put(at, R"(,"ARG1":)");
  put_number(at, notify.arg1);
  put(at, R"(,"ARG2":)");
  put_number(at, notify.arg2);
  put(at, R"(,"ARG3":)");
  put_number(at, notify.arg3);
  put(at, R"(,"ARG4":)");
  put_number(at, notify.arg4);
  put(at, "}]}");
  floor_pending_end = at;
}
static void floor_fetch() {
  const std::lock_guard guard(floor_mutex);
  if (!floor_pending) return;
  memcpy(host_buffer, floor_pending, static_cast<std::size_t>(floor_pending_end - floor_pending));
  keep(host_buffer);
  free(std::exchange(floor_pending, nullptr));
}
static void floor_notify_and_fetch() {
  floor_notify_single();
  floor_fetch();
}

static void floor_start_queue() {
  floor_fetch();
  floor_notify_queued();
}
static void floor_append() {
  for (int i = 0; i < kAppended; ++i) floor_notify_queued();
}

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
  int count;  // how often a repetition operates
  Side ours;
  Side floor;
  int size = 1;  // operations that each time carries out
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
    {"notify_queued_empty", 100, {ours_empty_queue, ours_notify_queued}, {floor_fetch, floor_notify_queued}},
    {"notify_appended", 20, {ours_start_queue, ours_append}, {floor_start_queue, floor_append}, kAppended},
    // Behind a hundred, beside the same behind one.
    {"notify_behind_100",
     5,
     {ours_fill_servers, ours_append_servers},
     {ours_start_servers, ours_append_servers},
     kAppended},
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
  if (tv_ctrl_get_info_with_uri(kPlayerEvent, &player_event_id, &type) != 0 ||
      tv_ctrl_get_info_with_uri(kServerEvent, &server_event_id, &type) != 0 || !volume_callback) {
    fprintf(stderr, "bench_plugin: the plugin has not started\n");
    return 1;
  }
  a_dtv_jsp_add_listener_buffer(kVolumeEvent);
  a_dtv_jsp_add_listener_buffer(kPlayerEvent);
  a_dtv_jsp_add_listener_buffer(kServerEvent);

  const auto ours_queued = [] { ours_start_queue(), ours_append(), ours_empty_queue(); };
  const auto floor_queued = [] { floor_start_queue(), floor_append(), floor_fetch(); };
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
    printf("{\"name\":\"%s\",\"unit\":\"ns\",\"value\":%.1f,\"floor\":%.1f}\n", operation.name,
           median(ours) / operation.size, median(floor) / operation.size);
    fflush(stdout);
    floor_fetch();
  }
  fprintf(stderr, "clock %.0f ns\n", clock_ns);
}
