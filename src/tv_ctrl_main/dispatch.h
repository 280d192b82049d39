// Which handler serves which group.
#pragma once

#include "tv_ctrl_main.h"

using Handler = INT32 (*)(UINT16 ui2_id, void* pv_content);

struct GroupRoute {
  UINT8 group;
  Handler get;               // null: nothing serves it
  Handler set;               // null: nothing serves it
  bool set_needs_record;     // a set without a record is refused before the handler
  bool get_refuses = false;  // the get handler serves another group and refuses this one
};

// The route of a group; null for a number that is no group.
const GroupRoute* tvc_route(int group);
