#include "plugin.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

template <typename Function>
static Function* find(void* library, const char* name) {
  void* const address = dlsym(library, name);
  if (!address) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::abort();
  }
  return reinterpret_cast<Function*>(address);
}

Plugin load_plugin() {
  void* const library = dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::abort();
  }
  return {
      .library = library,
      .init_res = find<decltype(a_dtv_jsp_init_res)>(library, "a_dtv_jsp_init_res"),
      .init = find<decltype(a_dtv_jsp_init)>(library, "a_dtv_jsp_init"),
      .get = find<decltype(a_dtv_jsp_get)>(library, "a_dtv_jsp_get"),
      .set = find<decltype(a_dtv_jsp_set)>(library, "a_dtv_jsp_set"),
      .subscribe = find<decltype(a_dtv_jsp_add_listener_buffer)>(library, "a_dtv_jsp_add_listener_buffer"),
      .unsubscribe = find<decltype(a_dtv_jsp_remove_listener_buffer)>(library, "a_dtv_jsp_remove_listener_buffer"),
      .fetch = find<decltype(a_dtv_jsp_get_listener_buffer)>(library, "a_dtv_jsp_get_listener_buffer"),
      .describe = find<decltype(a_dtv_jsp_describe)>(library, "a_dtv_jsp_describe"),
      .notify_content = find<decltype(tv_ctrl_notify_content)>(library, "tv_ctrl_notify_content"),
  };
}

Plugin start_plugin() {
  const Plugin plugin = load_plugin();
  plugin.init_res();
  plugin.init();
  return plugin;
}

bool unload_plugin(const Plugin& plugin) {
  if (dlclose(plugin.library) != 0) {
    std::fprintf(stderr, "%s\n", dlerror());
    return false;
  }
  if (void* const still = dlopen(PLUGIN, RTLD_NOW | RTLD_NOLOAD)) {
    dlclose(still);
    std::fprintf(stderr, "after dlclose the loader still knows the library\n");
    return false;
  }
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);)
    if (line.find("libdtv_js_plugin") != std::string::npos) {
      std::fprintf(stderr, "after dlclose it is still mapped: %s\n", line.c_str());
      return false;
    }
  return true;
}

std::string get_text(const Plugin& plugin, const char* uri) {
  char response[DTV_JSP_RESPONSE_MAX + 1] = {};
  return plugin.get(uri, nullptr, response) == 0 ? response : "";
}

INT32 set_volume(const Plugin& plugin, int level) {
  const std::string request = R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":)" + std::to_string(level) + "}}";
  return plugin.set(kVolumeUri, request.c_str());
}

std::optional<std::string> fetch_text(const Plugin& plugin, const char* uri) {
  char text[4096] = {};
  if (plugin.fetch(uri, text, sizeof text - 1) != 0) return std::nullopt;
  return text;
}

INT32 raise_usb(const Plugin& plugin, const char* label, UINT32 port) {
  T_USB_DETECT_NOTIFY record = {};
  std::strncpy(record.mount_point.label, label, sizeof record.mount_point.label - 1);
  record.mount_point.port = port;
  return plugin.notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_USB_DETECT), &record);
}

std::string volume_response(int level) {
  return R"({"URI":"/tv/cast/volume/volume","STATUS":0,"ITEMS":[{"NAME":"Volume","TYPE":"TYPE_VALUE","GROUP":4,)"
         R"("STATE":1,"MINIMUM":0,"MAXIMUM":0,"INCREMENT":1,"VALUE":)" +
         std::to_string(level) + "}]}";
}

std::string notification(const char* uri, const std::string& items) {
  return R"({"URI":")" + std::string(uri) + R"(","REQUEST":"NOTIFY","ITEMS":[)" + items + "]}";
}

std::string volume_notification(int level) {
  return notification(kVolumeNotify, R"({"volValue":)" + std::to_string(level) + R"(,"muteStatus":0})");
}

std::string usb_item(const char* label, unsigned port) {
  return R"({"TYPE":0,"TAG":0,"DEV":"","PATH":"","LABEL":")" + std::string(label) + R"(","PORT":)" +
         std::to_string(port) + "}";
}
