// What every handler does with a generic record first.
#pragma once

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/text.h"

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
