/* Links the plugin and, as its platform, the tap with a script; reads the volume. */
#include <dtv_js_plugin.h>
#include <dtv_tap.h>
#include <stdio.h>

int main(void) {
  static char response[DTV_JSP_RESPONSE_MAX + 1];
  static const char script[] =
      "[{\"call\":\"a_vextvapi_volctrl_getVolume\",\"ret\":23},"
      "{\"call\":\"a_vextvapi_cb_usb_detect_init\",\"ret\":1}]";
  if (dtv_tap_script(script, NULL) != 0) return 1;
  a_dtv_jsp_init_res();
  a_dtv_jsp_init();
  if (a_dtv_jsp_get("/tv/cast/volume/volume", NULL, response) != 0) return 1;
  puts(response);
  return 0;
}
