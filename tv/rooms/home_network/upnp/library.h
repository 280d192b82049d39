// The functions of libdtv_upnp.so for the rooms of libdtv_tv.so: a room adds its own to the rows, includes the header
// of rooms/<room>/upnp/ that declares them here, and calls them by upnp_library() and home_loop_post(). What comes back
// goes through a std::function that the room gives. Both libraries are built together. libdtv_upnp.so contains nothing
// of libdtv_tv.so but core/text.cpp and near.cpp.
#pragma once

#include "rooms/home_network/upnp/servers.h"
#include "rooms/home_network/upnp/thread.h"
#include "rooms/renderer/upnp/announce.h"

#define UPNP_FUNCTIONS(ROW) \
  ROW(upnp_thread_start)    \
  ROW(upnp_thread_stop)     \
  ROW(upnp_thread_post)     \
  ROW(upnp_search_start)    \
  ROW(upnp_search_stop)     \
  ROW(upnp_list)            \
  ROW(upnp_download)        \
  ROW(upnp_cancel)          \
  ROW(renderer_hosts)       \
  ROW(renderer_announce)    \
  ROW(renderer_withdraw)

struct UpnpLibrary {
#define ROW(name) decltype(&::name) name = nullptr;
  UPNP_FUNCTIONS(ROW)
#undef ROW
};

// Of libdtv_upnp.so.
extern "C" const UpnpLibrary* dtv_upnp_library();

// Of libdtv_tv.so: loads the other library on the first call, and keeps it. Null with ret_error: it cannot be loaded.
// Any thread.
const UpnpLibrary* upnp_library(std::string& ret_error);
