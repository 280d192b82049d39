// A plugin for the tests of the host that answers what no plugin should: cut and broken texts, a start-up that fails.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "dtv_js_plugin.h"
#include "tv_ctrl_main.h"

namespace {

// Whether a text is pending for the listener of /odd/notify, which gets it once.
bool pending = false;

struct OddRow {
  std::string_view uri;
  std::string_view text;
};

constexpr OddRow kRows[] = {
    {.uri = "/odd/broken", .text = "{\"URI\":\"/odd/broken\",\"ITEMS\":[}"},
    {.uri = "/odd/latin1", .text = "{\"TEXT\":\"gr\xfc\xdf\"}"},
    {.uri = "/odd/spaced", .text = "{ \"a\" : 1e2 , \"b\":\"\\u00e4\" }"},
};

void copy(std::string_view text, void* target) {
  memcpy(target, text.data(), text.size() < DTV_JSP_RESPONSE_MAX ? text.size() : DTV_JSP_RESPONSE_MAX);
}

}  // namespace

int32_t a_dtv_jsp_init_res() { return 0; }

int32_t a_dtv_jsp_init() { return 0; }

int32_t tvc_ctrl_cec_detect_init() { return -1; }

int32_t tv_ctrl_broadcast_init() { return -1; }

int32_t a_dtv_jsp_get(const char* uri, const char* param, void* pv_content) {
  for (const OddRow& row : kRows)
    if (row.uri == uri) copy(row.text, pv_content);
  if (std::string_view(uri) == "/odd/echo" && param != nullptr) copy(param, pv_content);
  if (std::string_view(uri) == "/odd/cut") copy("{\"TEXT\":\"" + std::string(20000, 'x') + "\"}", pv_content);
  return 0;
}

int32_t a_dtv_jsp_set(const char*, const char*) { return 0; }

int32_t a_dtv_jsp_add_listener_buffer(const char*) {
  pending = true;
  return 0;
}

int32_t a_dtv_jsp_remove_listener_buffer(const char*) { return 0; }

int32_t a_dtv_jsp_get_listener_buffer(const char*, void* pv_buffer, int32_t) {
  if (pending) memcpy(pv_buffer, "{\"ITEMS\":[1,", 12);
  pending = false;
  return 0;
}

char* a_dtv_jsp_describe() {
  return strdup(R"({"uris":[{"uri":"/odd/broken"},{"uri":"/odd/latin1"},{"uri":"/odd/spaced"},{"uri":"/odd/echo"},)"
                R"({"uri":"/odd/cut"},{"uri":"/odd/notify","notify":true}],"types":{}})");
}
