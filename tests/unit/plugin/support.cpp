#include "support.h"

#include <fcntl.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <regex>
#include <shared_mutex>
#include <unordered_set>

#include "recording_platform.h"
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/listener.h"
#include "tv_ctrl_api/response.h"

std::vector<SetEvent> set_events;
std::function<INT32(UINT16, void*)> get_handler;
std::function<INT32(UINT16, void*)> set_handler;

namespace {
std::optional<std::string> level_file;
std::map<std::string, UINT8> made_up_uris;
std::map<UINT8, const ItemType*> made_up_types;
thread_local std::size_t calloc_size;
std::atomic<int> opened;

// State of the memory watch. Every thread reads `watching`; the rest is used only while it is true.
bool watching;
int fail_at, allocation_count;
bool fails_for_good;
std::unordered_set<void*>* live;
}  // namespace

extern "C" {
FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode);
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);
void __real_free(void* block);
void __wrap_free(void* block);
INT32 __real_tv_ctrl_get_info_with_uri(const char* uri, UINT16* ret_id, UINT8* ret_type);
INT32 __wrap_tv_ctrl_get_info_with_uri(const char* uri, UINT16* ret_id, UINT8* ret_type);
INT32 __real_tv_ctrl_get(UINT16 id, void* record);
const ItemType* __real__Z13tvc_item_typeh(UINT8 type);
const ItemType* __wrap__Z13tvc_item_typeh(UINT8 type) {
  if (!made_up_types.empty())
    if (const auto found = made_up_types.find(type); found != made_up_types.end()) return found->second;
  return __real__Z13tvc_item_typeh(type);
}

INT32 __wrap_tv_ctrl_get(UINT16 id, void* record);
INT32 __real_tv_ctrl_set(UINT16 id, void* record);
INT32 __wrap_tv_ctrl_set(UINT16 id, void* record);
void __real__Z20tv_ctrl_response_sethPK5cJSONi(UINT8 type, const cJSON* tree, INT32 status);
void __wrap__Z20tv_ctrl_response_sethPK5cJSONi(UINT8 type, const cJSON* tree, INT32 status);
}

FILE* __wrap_fopen(const char* path, const char* mode) {
  if (std::strcmp(path, "/3rd_rw/tvc_debug") != 0) return __real_fopen(path, mode);
  if (!level_file) return nullptr;
  FILE* const file = std::tmpfile();
  std::fwrite(level_file->data(), 1, level_file->size(), file);
  std::rewind(file);
  return file;
}

int __wrap_open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if (flags & O_CREAT) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  ++opened;
  return __real_open(std::strcmp(path, "/dev/cli") == 0 ? "/dev/null" : path, flags, mode);
}

int opened_files() { return opened; }

// --- Memory ---

static bool may_allocate() {
  const int number = ++allocation_count;
  return fail_at == 0 || (fails_for_good ? number < fail_at : number != fail_at);
}

static void* remember(void* block) {
  if (block) live->insert(block);
  return block;
}

void* __wrap_malloc(std::size_t size) {
  if (!watching) return __real_malloc(size);
  return may_allocate() ? remember(__real_malloc(size)) : nullptr;
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
  calloc_size = count * size;
  if (!watching) return __real_calloc(count, size);
  return may_allocate() ? remember(__real_calloc(count, size)) : nullptr;
}

void* __wrap_realloc(void* block, std::size_t size) {
  if (!watching) return __real_realloc(block, size);
  if (!may_allocate()) return nullptr;
  live->erase(block);
  return remember(__real_realloc(block, size));
}

void __wrap_free(void* block) {
  if (live) live->erase(block);
  __real_free(block);
}

std::size_t last_calloc_size() { return calloc_size; }

MemoryWatch::MemoryWatch(int fail_at_allocation, bool persistent) {
  cJSON_Hooks hooks = {.malloc_fn = __wrap_malloc, .free_fn = __wrap_free};
  cJSON_InitHooks(&hooks);
  live = new std::unordered_set<void*>;
  allocation_count = 0;
  fail_at = fail_at_allocation;
  fails_for_good = persistent;
  watching = true;
}

MemoryWatch::~MemoryWatch() {
  watching = false;
  delete std::exchange(live, nullptr);
  cJSON_InitHooks(nullptr);
}

int MemoryWatch::allocations() const { return allocation_count; }
std::size_t MemoryWatch::live_blocks() const { return live->size(); }

// --- Between the plugin's parts ---

INT32 __wrap_tv_ctrl_get_info_with_uri(const char* uri, UINT16* ret_id, UINT8* ret_type) {
  if (!made_up_uris.empty() && uri && ret_id && ret_type) {
    if (const auto found = made_up_uris.find(uri); found != made_up_uris.end()) {
      *ret_id = kMadeUpId;
      *ret_type = found->second;
      return VEXTVCTRLR_OK;
    }
  }
  return __real_tv_ctrl_get_info_with_uri(uri, ret_id, ret_type);
}

INT32 __wrap_tv_ctrl_get(UINT16 id, void* record) {
  return get_handler ? get_handler(id, record) : __real_tv_ctrl_get(id, record);
}

INT32 __wrap_tv_ctrl_set(UINT16 id, void* record) {
  if (!set_handler) return __real_tv_ctrl_set(id, record);
  set_events.push_back({SetEvent::kHandler, 0, 0, record != nullptr});
  return set_handler(id, record);
}

INT32 routed_get(UINT16 id, void* record) { return __real_tv_ctrl_get(id, record); }
INT32 routed_set(UINT16 id, void* record) { return __real_tv_ctrl_set(id, record); }

void __wrap__Z20tv_ctrl_response_sethPK5cJSONi(UINT8 type, const cJSON* tree, INT32 status) {
  if (set_handler) set_events.push_back({SetEvent::kHook, type, status, tree != nullptr});
  __real__Z20tv_ctrl_response_sethPK5cJSONi(type, tree, status);
}

std::vector<int> hook_statuses() {
  std::vector<int> statuses;
  for (const SetEvent& event : set_events)
    if (event.receiver == SetEvent::kHook) statuses.push_back(event.status);
  return statuses;
}

void make_up_uri(const std::string& uri, UINT8 type) { made_up_uris[uri] = type; }

void make_up_type(const ItemType& item) { made_up_types[item.type] = &item; }

std::string made_up_uri(UINT8 type) {
  std::string uri = "/tv/made/up/" + std::to_string(type);
  make_up_uri(uri, type);
  return uri;
}

// --- Item types ---

static void append_flat(std::span<const Field> fields, std::vector<FlatField>& ret_rows) {
  for (const Field& field : fields) {
    if (field.kind != FieldKind::kMembers) {
      ret_rows.push_back({field});
      continue;
    }
    const std::size_t first = ret_rows.size();
    append_flat(field.fields, ret_rows);
    for (std::size_t i = first; i < ret_rows.size(); ++i) {
      if (!ret_rows[i].unless) ret_rows[i].unless = field.unless;
      if (!ret_rows[i].when) ret_rows[i].when = field.when;
    }
    if (!field.choice) continue;
    for (const FieldCase& rows : field.choice->cases)
      for (std::size_t i = 0; i < rows.count; ++i) {
        ret_rows[first + rows.first + i].selector = field.choice->selector;
        ret_rows[first + rows.first + i].selected = rows.number;
      }
  }
}

const std::vector<FlatField>& flat(std::span<const Field> fields) {
  static std::map<const Field*, std::vector<FlatField>> tables;
  const auto [table, is_new] = tables.try_emplace(fields.data());
  if (is_new) append_flat(fields, table->second);
  return table->second;
}

std::set<int> decoded_types(FieldUse use) {
  switch (use) {
    case kQuery:
      return {TYPE_TEXT,          TYPE_INTEGER,    TYPE_TIME,      TYPE_BANNER_ITEM,    TYPE_CONFIG,
              TYPE_LANG_STRING,   TYPE_SATL_INFO,  TYPE_LOL_INFO,  TYPE_CHANNEL_INFO,   TYPE_FAV_CHANNEL_INFO,
              TYPE_EVENT_INFO,    TYPE_UPDATE_EPG, TYPE_INPUT_SRC, TYPE_INPUT_DEV_INFO, TYPE_PVR_REC_LIST_INFO,
              TYPE_PVR_FILE_INFO, TYPE_CBROWSER,   TYPE_DLNA_DMP,  TYPE_PVR_RMDR_EVENT, TYPE_CBROWSER_PB,
              TYPE_CBROWSER_IMG,  TYPE_DLNA_DMR,   TYPE_PUS};
    case kModify:
      return {TYPE_VALUE, TYPE_TEXT, TYPE_TINT, TYPE_OPTION_LIST, TYPE_INTEGER, TYPE_TIME};
    case kSet:
      return {TYPE_OPTION_LIST,
              TYPE_CONFIG,
              TYPE_TUNER_SCAN,
              TYPE_CHANNEL_INFO,
              TYPE_CHANNEL_SELECT,
              TYPE_EVENT_INFO,
              TYPE_FAV_CHANNEL_INFO,
              TYPE_ACTIVE_WINDOW_INFO,
              TYPE_UPDATE_EPG,
              TYPE_INPUT_SRC,
              TYPE_PVR_REC_LIST_INFO,
              TYPE_MULTIVIEW,
              TYPE_PVR_RMDR_EVENT,
              TYPE_PVR_FILE_INFO,
              TYPE_PVR_UI_STATUS,
              TYPE_CBROWSER,
              TYPE_CBROWSER_PB,
              TYPE_CBROWSER_IMG,
              TYPE_DLNA_DMP,
              TYPE_DLNA_DMR,
              TYPE_PUS,
              TYPE_HBBTV,
              TYPE_PORTAL,
              TYPE_CECM_CFG};
    default:
      return {TYPE_WLAN_ASSOCIATE};
  }
}

// --- Log, JSON, listener entries ---

void set_level_file(std::optional<std::string> text) { level_file = std::move(text); }

void set_log_level(int level) {
  set_level_file("log=" + std::to_string(level) + "\n");
  testing::internal::CaptureStderr();
  vex_tvc_read_log_lvl();
  testing::internal::GetCapturedStderr();
  set_level_file(std::nullopt);
}

std::string printed_by(const std::function<void()>& action) {
  testing::internal::CaptureStdout();
  action();
  static const std::regex kPrefix(R"(\[TVC_API\]\[(\w+)\]\[\d+\] --> )");
  return std::regex_replace(testing::internal::GetCapturedStdout(), kPrefix, "<$1> ");
}

Json parse_json(std::string_view text) { return {cJSON_ParseWithLength(text.data(), text.size()), cJSON_Delete}; }

std::string print_json(const cJSON* json) {
  char* const text = cJSON_PrintUnformatted(json);
  std::string copy = text ? text : "";
  cJSON_free(text);
  return copy;
}

std::optional<std::string> fetch(const std::string& uri, int size) {
  std::string buffer(static_cast<std::size_t>(size), '\0');
  if (a_dtv_jsp_get_listener_buffer(uri.c_str(), buffer.data(), size) != 0) return std::nullopt;
  return std::string(buffer.c_str());
}

void poke_pending(const std::string& uri, const std::string& text) {
  const std::lock_guard guard(t_nfy_rw_lock);
  TV_CTRL_NOTIFY_BUFFER_T* const entry = _jsp_get_uri_from_slist(uri.c_str());
  ASSERT_NE(entry, nullptr) << uri << " is not subscribed";
  std::free(entry->buffer.text);
  entry->buffer = {
      .text = strdup(text.c_str()), .length = text.size(), .capacity = text.size() + 1, .needs_comma = true};
}

void PluginTest::SetUp() {
  set_log_level(0);
  a_dtv_jsp_init_res();
  set_log_level(0);
  a_dtv_jsp_init();
  platform_reset();
}

void PluginTest::TearDown() {
  get_handler = nullptr;
  set_handler = nullptr;
  set_events.clear();
  made_up_uris.clear();
  made_up_types.clear();
  set_log_level(0);
  const std::lock_guard guard(t_nfy_rw_lock);
  _jsp_empty_slist();
}
