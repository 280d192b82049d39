// Links the plugin alone, as a set's own process does: this program defines every function of the TV API. Reads the
// volume.
#include <dtv_js_plugin.h>
#include <tvapi/all.h>

#include <cstdio>
#include <string_view>
#include <type_traits>

// What a function of the TV API returns: the volume is 23, the handle of the USB detection 1, everything else 0.
template <class Result>
static Result answer(std::string_view function) {
  if constexpr (std::is_integral_v<Result>) {
    if (function == "a_vextvapi_volctrl_getVolume") return 23;
    if (function == "a_vextvapi_cb_usb_detect_init") return 1;
  }
  return Result();
}

#define TVAPI_CALLBACK(...)
#define TVAPI_FN(result, name, ...) \
  result name(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) { return answer<result>(#name); }
#include <tvapi/all.h>

int main() {
  static char response[DTV_JSP_RESPONSE_MAX + 1];
  a_dtv_jsp_init_res();
  a_dtv_jsp_init();
  if (a_dtv_jsp_get("/tv/cast/volume/volume", nullptr, response) != 0) return 1;
  std::puts(response);
  return 0;
}
