// What several handlers need: how they ask the configuration store, and what they do with a generic record first.
#pragma once

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/text.h"

inline constexpr INT32 kEveryInput = -1;  // of a configuration value: the set's, not one input's own
inline constexpr INT32 kNoUpdate = 0;     // a value is kept, and nothing else is done

// Fills what every generic record begins with, and leaves the rest.
template <typename Record>
Record& tvc_fill_header(void* pv_content, UINT16 ui2_id, const char* name, int group) {
  Record& record = *static_cast<Record*>(pv_content);
  record.id = ui2_id;
  record.size = sizeof record;
  record.pt_next = nullptr;
  tvc_copy_text(record.name, name);
  record.group = group;
  record.state = 1;
  return record;
}
