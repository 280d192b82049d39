// A service list that is held while it is read or written.
#pragma once

#include "tv_ctrl_util/log.h"
#include "tvapi/channel.h"

// Holds a service list from its construction, unless that failed, to its end.
struct ChannelLock {
  UINT32 h_svl = 0;
  UINT32 h_tsl = 0;
  bool held = false;

  ChannelLock(const char* operation, UINT16 svl_id) {
    h_svl = a_vextvapi_channellist_get_svl_handle_by_svl_id(svl_id);
    if (h_svl) h_tsl = a_vextvapi_channellist_get_tsl_handle_by_svl_id(svl_id);
    if (h_svl && h_tsl) held = !tvc_failed(a_vextvapi_channellist_lock_database(h_svl, h_tsl), operation);
  }
  ChannelLock(const ChannelLock&) = delete;
  ChannelLock& operator=(const ChannelLock&) = delete;
  ~ChannelLock() {
    if (held) a_vextvapi_channellist_unlock_database(h_svl, h_tsl);
  }

  // The list stays locked beyond the end.
  void leave_locked() { held = false; }
};
