// The functions of libdtv_upnp.so that the rooms of libdtv_tv.so call. To add one, add a row below, include the header
// of rooms/<room>/upnp/ that declares it, and call it through upnp_library(), on the thread (home_loop_post). Results
// come back through a std::function that the room passes. Both libraries are built together. Of libdtv_tv.so,
// libdtv_upnp.so contains only core/text.cpp and near.cpp.
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

// Defined in libdtv_upnp.so: the table of its functions.
extern "C" const UpnpLibrary* dtv_upnp_library();

// Defined in libdtv_tv.so: loads libdtv_upnp.so on the first call, and keeps it loaded. Null with ret_error: it cannot
// be loaded. Any thread.
const UpnpLibrary* upnp_library(std::string& ret_error);
