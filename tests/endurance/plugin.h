// The shipped library, loaded as a host loads it.
#pragma once

#include <optional>
#include <string>

#include "tv_ctrl_main.h"

inline constexpr char kVolumeUri[] = "/tv/cast/volume/volume";
inline constexpr char kMuteUri[] = "/tv/cast/volume/mute";
inline constexpr char kVolumeNotify[] = "/tv/ws/notify/volume_ctrl";
inline constexpr char kUsbNotify[] = "/tv/ws/notify/usb_detect";

struct Plugin {
  void* library;
  decltype(&a_dtv_jsp_init_res) init_res;
  decltype(&a_dtv_jsp_init) init;
  decltype(&a_dtv_jsp_get) get;
  decltype(&a_dtv_jsp_set) set;
  decltype(&a_dtv_jsp_add_listener_buffer) subscribe;
  decltype(&a_dtv_jsp_remove_listener_buffer) unsubscribe;
  decltype(&a_dtv_jsp_get_listener_buffer) fetch;
  decltype(&a_dtv_jsp_describe) describe;
  decltype(&tv_ctrl_notify_content) notify_content;
};

// Loads the library; ends the program when that is not possible.
Plugin load_plugin();

// Loads and starts it.
Plugin start_plugin();

// Closes it. False, with a message, when it stays in the process all the same.
bool unload_plugin(const Plugin& plugin);

// The response of a get; empty when it failed.
std::string get_text(const Plugin& plugin, const char* uri);

// Sets the volume. The plugin's result.
INT32 set_volume(const Plugin& plugin, int level);

// The pending text, empty when there is none; nothing when the URI is not subscribed.
std::optional<std::string> fetch_text(const Plugin& plugin, const char* uri);

// Raises a USB notification, which is of the queued form; one of these is distinguished by its label and port.
INT32 raise_usb(const Plugin& plugin, const char* label, UINT32 port);

// The texts that are expected of all these.
std::string volume_response(int level);
inline constexpr char kMuteResponse[] =
    R"({"URI":"/tv/cast/volume/mute","STATUS":0,"ITEMS":[{"NAME":"Mute","TYPE":"TYPE_VALUE","GROUP":4,"STATE":1,)"
    R"("MINIMUM":0,"MAXIMUM":0,"INCREMENT":1,"VALUE":0}]})";
std::string volume_notification(int level);
std::string usb_item(const char* label, unsigned port);
std::string notification(const char* uri, const std::string& items);
