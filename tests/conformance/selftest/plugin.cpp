// The plugin of the conformance runner's own test. Its URIs do what the runner must be able to observe: print, write,
// crash, hang, call the platform, use files, a language library and the command device.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "tv_ctrl_main.h"
#include "tvapi/all.h"

static std::string pending;
static int started = 0;

static INT32 on_volume(INT32, void* pv_tag, void* pv_arg1, void*, void*, void*) {
  pending = "volume " + std::to_string(static_cast<INT32>(reinterpret_cast<intptr_t>(pv_arg1))) + " tag " +
            std::to_string(reinterpret_cast<intptr_t>(pv_tag));
  a_vextvapi_volctrl_getMute();
  return 17;
}

static std::string file_content(const char* path) {
  std::FILE* file = std::fopen(path, "r");
  if (file == nullptr) return "absent";
  char text[256] = "";
  const std::size_t length = std::fread(text, 1, sizeof text - 1, file);
  std::fclose(file);
  return length == 0 && access((std::string(path) + "/.").c_str(), F_OK) == 0 ? "folder" : std::string(text, length);
}

// param: "PATH ID".
static std::string language_text(const std::string& param) {
  const std::size_t blank = param.find(' ');
  void* library = dlopen(param.substr(0, blank).c_str(), RTLD_LAZY);
  if (library == nullptr) return "no library";
  const auto look_up = reinterpret_cast<const char* (*)(const char*)>(dlsym(library, "vexuiGetLangStr"));
  const char* text = look_up == nullptr ? nullptr : look_up(param.substr(blank + 1).c_str());
  std::string result = text == nullptr ? "no text" : text;
  dlclose(library);
  return result;
}

static INT32 press(const char* keys) {
  const int device = open("/dev/cli", O_RDWR);
  if (device < 0) return -1;
  for (const char* key = keys; *key != '\0'; ++key) ioctl(device, 0, key);
  ioctl(device, 1, "x");  // another request: not a character
  close(device);
  return 0;
}

extern "C" {

int32_t a_dtv_jsp_init_res(void) {
  ++started;
  return 0;
}

int32_t a_dtv_jsp_init(void) {
  ++started;
  std::printf("starting\n");
  a_vextvapi_volctrl_reg_callback(on_volume, reinterpret_cast<void*>(42));
  return 0;
}

int32_t a_dtv_jsp_get(const char* uri, const char* param, void* pv_content) {
  if (uri == nullptr || pv_content == nullptr) return -1;
  const std::string_view what = uri;
  std::string text;
  if (what == "/param") text = param == nullptr ? "none" : param;
  if (what == "/started") text = std::to_string(started);
  if (what == "/file") text = file_content(param);
  if (what == "/language" && param != nullptr) text = language_text(param);
  if (what == "/volume") text = "{\"a\":" + std::to_string(a_vextvapi_volctrl_getVolume()) + ",\"b\":[1,\"x\"]}";
  if (what == "/print") std::printf("[A][f][%d] --> one\r\n[B]%s\nlast", __LINE__, param);
  if (what == "/complain") std::fprintf(stderr, "[E][%d] %s\n", __LINE__, param);
  if (what == "/crash") std::abort();
  if (what == "/exit") _exit(0);
  if (what == "/hang") pause();
  std::memcpy(pv_content, text.data(), text.size());
  return static_cast<int32_t>(what.size());
}

int32_t a_dtv_jsp_set(const char* uri, const char* param) {
  const std::string_view what = uri == nullptr ? "" : uri;
  if (what == "/press") return press(param);
  if (what == "/volume") {
    a_vextvapi_volctrl_setVolume(static_cast<INT16>(std::atoi(param)));
    return a_vextvapi_volctrl_setMute(1);
  }
  return -1;
}

int32_t a_dtv_jsp_add_listener_buffer(const char* ps_uri) { return ps_uri == nullptr ? -1 : 0; }
int32_t a_dtv_jsp_remove_listener_buffer(const char* ps_uri) { return ps_uri == nullptr ? -1 : 0; }

int32_t a_dtv_jsp_get_listener_buffer(const char*, void* pv_buffer, int32_t buffer_len) {
  if (pv_buffer == nullptr || buffer_len < 1) return -1;
  std::memcpy(pv_buffer, pending.data(), std::min(pending.size(), static_cast<std::size_t>(buffer_len)));
  pending.clear();
  return 0;
}

char* a_dtv_jsp_describe(void) {
  return strdup(R"({"uris":[
    {"uri":"/volume","id":1025,"group":"A","get":true,"set":true,"notify":false},
    {"uri":"/unused","id":1026,"group":"B","get":false,"set":false,"notify":false},
    {"uri":"/nobody","id":1027,"group":"A","get":true,"set":true,"notify":true},
    {"uri":"/told","id":1028,"group":"A","get":false,"set":false,"notify":true},
    {"uri":"/param","id":1029,"group":"A","get":true,"set":true,"notify":false},
    {"uri":"/press","id":1030,"group":"A","get":true,"set":true,"notify":false},
    {"uri":"/v","id":1031,"group":"A","get":true,"set":false,"notify":true},
    {"uri":"/a","id":1032,"group":"A","get":false,"set":false,"notify":true},
    {"uri":"/idle","id":1033,"group":"A","get":false,"set":false,"notify":false},
    {"uri":"/accepted","id":1037,"group":"A","get":false,"set":false,"notify":false,"without_effect":["get"]},
    {"uri":"/file","id":1034,"group":"A","get":false,"set":false,"notify":false},
    {"uri":"/words","id":1035,"group":"A","type":"T_SET","get":true,"set":true,"notify":false},
    {"uri":"/right","id":1036,"group":"A","type":"T_BOTH","get":true,"set":true,"notify":false}],
   "types":{"T_SET":{"query":null,"set":{"request":"SET"}},"T_BOTH":{"query":[],"set":{"request":"SET"}}}})");
}

INT32 tv_ctrl_init(tv_ctrl_nfy_fct pv_func) { return pv_func == nullptr ? -1 : 0; }

INT32 tv_ctrl_get(UINT16 ui2_id, void* pv_content) {
  if (pv_content == nullptr) return -2;
  T_VALUE& value = *static_cast<T_VALUE*>(pv_content);
  value.id = ui2_id;
  value.value += 1;
  std::strcpy(value.name, "Volume");
  return 0;
}

INT32 tv_ctrl_notify_content(UINT16, void* pv_content) {
  const T_PUS_NOTIFY& notify = *static_cast<const T_PUS_NOTIFY*>(pv_content);
  pending = reinterpret_cast<const char*>(notify.value);
  return 0;
}

void tv_ctrl_api_notify_func(const char*, void*) {}

INT32 tv_ctrl_get_info_with_uri(const char* uri, UINT16* ret_id, UINT8* ret_type) {
  if (uri == nullptr || ret_id == nullptr || ret_type == nullptr) return -2;
  *ret_id = static_cast<UINT16>(*ret_id + 0x400);
  *ret_type = 1;
  return 0;
}

INT32 tv_ctrl_get_uri_by_id(UINT16, char* ret_uri) {
  std::strcpy(ret_uri, "/volume");
  return 0;
}

void* tv_ctrl_malloc_content(UINT8 ui1_type) { return ui1_type == 0 ? nullptr : std::calloc(1, 16); }
}
