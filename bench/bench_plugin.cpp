// Measures the plugin in process on a platform that does next to nothing, each operation beside its floor (see
// "plugin_floor.h"). Prints one JSON line per operation.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <vector>

#include "plugin_floor.h"
#include "sandbox/sandbox.h"
#include "tests/platform/volume.h"

INT32 a_vextvapi_volctrl_getVolume() { return 23; }
UINT32 a_vextvapi_cb_usb_detect_init() { return 1; }
INT32 a_vextvapi_config_get_value(INT32, const char*, INT32* value) {
  *value = 23;
  return 0;
}

static a_vextvapi_channellist_nfy_fct channel_callback;
static void* channel_tag;

INT32 a_vextvapi_channellist_register_callback(a_vextvapi_channellist_nfy_fct callback, void* tag) {
  channel_callback = callback;
  channel_tag = tag;
  return 0;
}
INT32 a_vextvapi_channellist_get_current_channel(UINT16* svl_id, SVL_REC_T* svl_rec, TSL_REC_T* tsl_rec) {
  static constexpr SVL_REC_T kService = {.ui2_svl_rec_id = 7,
                                         .t_rec_hdr = {.ui4_channel_id = 66048,
                                                       .ui4_nw_mask = 9,
                                                       .ui4_option_mask = 0,
                                                       .e_brdcst_type = SVL_BRDCST_TYPE_DVB,
                                                       .e_serv_type = 1,
                                                       .ac_name = "Channel of a usual name",
                                                       .aui1_custom_data = {12, 1}},
                                         .t_dvb = {.s_svc_name = "Short",
                                                   .ui4_linkage_descr_mask = 0,
                                                   .b_ci_tune_service = 0,
                                                   .b_hbbtv_off = 0,
                                                   .ui4_category_mask = 4}};
  *svl_id = 1;
  *svl_rec = kService;
  *tsl_rec = {.brdcst_medium = TSL_BRDCST_MEDIUM_DIG_TERRESTRIAL, .frequency = 498000000};
  return 0;
}

// Its title has the longest length.
static constexpr VEXTVAPI_EVENT_GENERAL_INFO_T kEvent = [] {
  VEXTVAPI_EVENT_GENERAL_INFO_T info = {};
  info.svl_id = 1;
  info.channel_id = 66048;
  info.start_time = 1700000000;
  info.duration_time = 3600;
  info.event_category_num = 1;
  std::fill_n(info.event_title, std::size(info.event_title) - 1, 'x');
  std::fill_n(info.event_rating, 2, '1');
  return info;
}();

INT32 a_vextvapi_event_query_event_id_by_range(UINT32, UINT32, UINT32, UINT16* event_num, UINT16* event_id_list) {
  for (UINT16 i = 0; i < kListed; ++i) event_id_list[i] = i;
  *event_num = kListed;
  return 0;
}
INT32 a_vextvapi_event_get_general_info(UINT32, UINT16 event_id, VEXTVAPI_EVENT_GENERAL_INFO_T* info) {
  *info = kEvent;
  info->event_id = event_id;
  return 0;
}

INT32 a_vextvapi_cb_pb_getMediaInfo(UINT32, IVEX_PB_MEDIA_INFO_T* info) {
  *info = {.eMediaType = "video",
           .u4AvgBitrate = 8000000,
           .u4Duration = 5400,
           .u8FileSize = 5400000000,
           .u2VidTrackNum = 1,
           .u2AudTrackNum = 3,
           .u2SubTrackNum = 12,
           .u1ProgramNum = 1,
           .u1TitleNum = 1,
           .u1EditionNum = 1,
           .u1ChapterNum = 24,
           .u2VidTrackIdx = 0,
           .u2AudTrackIdx = 1,
           .u2SubTrackIdx = 11,
           .u2AudDmxIdx = 0,
           .u1ProgramIdx = 0,
           .u1TitleIdx = 0,
           .u1EditionIdx = 0,
           .u1ChapterIdx = 17};
  return 0;
}
INT32 a_vextvapi_cb_pb_get_thumbnail(UINT32, char* thumbnail) {
  memset(thumbnail, 'x', PLAYER_THUMBNAIL_SIZE);
  return 0;
}

static constexpr T_MEDIA_INFO kSong = {
    .media_type = MEDIA_TYPE_MUSIC,
    .media_path = "/mnt/usb/sda1/Music/An artist/An album of songs/01 The title of a song.flac",
    .recid = 4711,
    .favourite = 1,
    .date = {.iyear = 2026, .imonth = 11, .iday = 22, .ihour = 21, .iminute = 7, .isecond = 59},
    .u = {.music_info = {.track = "1",
                         .title = "The title of a song",
                         .artist = "An artist",
                         .album = "An album of songs",
                         .genre = "Jazz",
                         .duration = 241}}};
INT32 a_vextvapi_get_list_by_count(T_MEDIA_INFO* list, INT32, const char*, INT32, INT32* count) {
  std::fill_n(list, *count, kSong);
  return 0;
}

char host_buffer[DTV_JSP_RESPONSE_MAX + 1];

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
static void ours_get_channel() {
  a_dtv_jsp_get(kChannel, kChannelRequest, host_buffer);
  keep(host_buffer);
}
static void ours_get_events() {
  a_dtv_jsp_get(kEvents, kEventsRequest, host_buffer);
  keep(host_buffer);
}
static void ours_get_media_info() {
  a_dtv_jsp_get(kPlayback, kPlaybackRequest, host_buffer);
  keep(host_buffer);
}
static void ours_get_thumbnail() {
  a_dtv_jsp_get(kPlayback, kThumbnailRequest, host_buffer);
  keep(host_buffer);
}
static void ours_get_media_list() {
  a_dtv_jsp_get(kMediaList, kMediaListRequest, host_buffer);
  keep(host_buffer);
}
static void ours_set() { a_dtv_jsp_set(kVolume, kSetRequest); }
static void ours_notify_single() { raise_volume(23); }
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

static void* word(uintptr_t number) { return reinterpret_cast<void*>(number); }

static void ours_notify_channel() {
  channel_callback(1, channel_tag, word(3), word(VEXTVAPI_CHANNEL_LIST_CHANGED), word(5), word(6));
}
static void ours_empty_channels() { a_dtv_jsp_get_listener_buffer(kChannelEvent, host_buffer, sizeof host_buffer); }
static void ours_start_channels() {
  ours_empty_channels();
  ours_notify_channel();
}
static void ours_append_channels() {
  for (int i = 0; i < kAppended; ++i) ours_notify_channel();
}

// Servers of the home network: the only notification that can be pending a hundred times.
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

// The time of two readings of the clock.
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
  int count;  // calls of operate in one repetition
  Side ours;
  Side floor;
  int size = 1;  // operations that one call of operate carries out
};

// Nanoseconds of one call of operate.
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

static constexpr Operation kOperations[] = {
    {"get_volume", 50, {nullptr, ours_get_request}, {nullptr, floor_get_request}},
    {"get_volume_without_request", 50, {nullptr, ours_get_plain}, {nullptr, floor_get_plain}},
    {"get_config_number", 50, {nullptr, ours_get_number}, {nullptr, floor_get_number}},
    {"get_language_string", 50, {nullptr, ours_get_text}, {nullptr, floor_get_text}},
    {"get_channel", 50, {nullptr, ours_get_channel}, {nullptr, floor_get_channel}},
    {"get_64_events", 5, {nullptr, ours_get_events}, {nullptr, floor_get_events}},
    {"get_media_info", 50, {nullptr, ours_get_media_info}, {nullptr, floor_get_media_info}},
    {"get_24_media", 5, {nullptr, ours_get_media_list}, {nullptr, floor_get_media_list}},
    {"get_thumbnail", 2, {nullptr, ours_get_thumbnail}, {nullptr, floor_get_thumbnail}},
    {"set_volume", 200, {nullptr, ours_set}, {nullptr, floor_set}},
    {"notify_single", 100, {nullptr, ours_notify_single}, {nullptr, floor_notify_single}},
    {"notify_queued_empty", 100, {ours_empty_queue, ours_notify_queued}, {floor_fetch, floor_notify_queued}},
    {"notify_appended", 20, {ours_start_queue, ours_append}, {floor_start_queue, floor_append}, kAppended},
    {"notify_channel_appended",
     20,
     {ours_start_channels, ours_append_channels},
     {floor_start_channels, floor_append_channels},
     kAppended},
    // No floor code here: the plugin with a hundred pending is compared with the plugin with one pending.
    {"notify_behind_100",
     5,
     {ours_fill_servers, ours_append_servers},
     {ours_start_servers, ours_append_servers},
     kAppended},
    {"notify_and_fetch", 100, {nullptr, ours_notify_and_fetch}, {nullptr, floor_notify_and_fetch}},
    {"fetch_nothing", 1000, {nullptr, ours_fetch}, {nullptr, floor_fetch}},
};

// Repetitions are short, so that even on a busy machine most are undisturbed, the median among them.
static constexpr int kRepetitions = 501;

// Plugin and floor must make the same text, or else the comparison is worthless.
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
  const WantedPath languages = {.what = WantedPath::kBound, .content = argc > 1 ? argv[1] : ""};
  if (argc != 2 || !sandbox_enter({{"/3rd/i18n", languages}}, NewFolders::kReadOnly, error)) {
    fprintf(stderr, "bench_plugin: %s\n", error.c_str());
    return 1;
  }
  a_dtv_jsp_init_res();
  a_dtv_jsp_init();
  UINT8 type;
  if (tv_ctrl_get_info_with_uri(kPlayerEvent, &player_event_id, &type) != 0 ||
      tv_ctrl_get_info_with_uri(kServerEvent, &server_event_id, &type) != 0 || !volume_callback || !channel_callback) {
    fprintf(stderr, "bench_plugin: the plugin has not started\n");
    return 1;
  }
  a_dtv_jsp_add_listener_buffer(kVolumeEvent);
  a_dtv_jsp_add_listener_buffer(kPlayerEvent);
  a_dtv_jsp_add_listener_buffer(kServerEvent);
  a_dtv_jsp_add_listener_buffer(kChannelEvent);

  const auto ours_queued = [] { ours_start_queue(), ours_append(), ours_empty_queue(); };
  const auto floor_queued = [] { floor_start_queue(), floor_append(), floor_fetch(); };
  const auto ours_channels = [] { ours_start_channels(), ours_append_channels(), ours_empty_channels(); };
  const auto floor_channels = [] { floor_start_channels(), floor_append_channels(), floor_fetch(); };
  if (!same_text("get", ours_get_request, floor_get_request) ||
      !same_text("get of a configuration number", ours_get_number, floor_get_number) ||
      !same_text("get of a language string", ours_get_text, floor_get_text) ||
      !same_text("get of a channel", ours_get_channel, floor_get_channel) ||
      !same_text("get of 64 events", ours_get_events, floor_get_events) ||
      !same_text("get of media information", ours_get_media_info, floor_get_media_info) ||
      !same_text("get of 24 media", ours_get_media_list, floor_get_media_list) ||
      !same_text("get of a thumbnail", ours_get_thumbnail, floor_get_thumbnail) ||
      !same_text("channel notification", ours_channels, floor_channels) ||
      !same_text("single notification", ours_notify_and_fetch, floor_notify_and_fetch) ||
      !same_text("queued notification", ours_queued, floor_queued))
    return 1;

  const double clock_ns = clock_cost();
  for (const Operation& operation : kOperations) {
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
