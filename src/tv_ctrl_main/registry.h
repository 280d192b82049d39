// The URI registry: constant rows in table order.
#pragma once

#include <span>

#include "tv_ctrl_main.h"

// The largest group number.
inline constexpr int kLastGroup = [] {
  int last = 0;
#define TVC_GROUP(group, number, enumeration) last = number > last ? number : last;
#include "vex_tv_ctrl/uris.def"
  return last;
}();

// Returns every row, in table order.
std::span<const TV_CTRL_URI_ID_MAP_T> tvc_registry();

// Returns the name of a group, as in TV_CTRL_GRPID_<name>; null for a number that is no group.
const char* tvc_group_name(int group);
