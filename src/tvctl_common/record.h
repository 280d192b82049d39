// Content records as the functions of rows see them.
#pragma once

#include "tv_ctrl_util/text.h"
#include "tvctl_common/handler.h"

// The content record of a request whose row says that it is one of this kind.
template <typename Record>
Record& tvc_content(const RecordRequest& request) {
  return *static_cast<Record*>(request.content);
}

// The same, after what every generic record begins with is filled: the request's identifier, the row's name, the group.
template <typename Record>
Record& tvc_fill_header(const RecordRequest& request, int group) {
  Record& record = tvc_content<Record>(request);
  record.id = request.id;
  record.size = sizeof record;
  record.pt_next = nullptr;
  tvc_copy_text(record.name, request.name);
  record.group = group;
  record.state = 1;
  return record;
}

// The same for a value, whose limits are the platform's own and not reported.
inline T_VALUE& tvc_fill_value_header(const RecordRequest& request, int group) {
  T_VALUE& value = tvc_fill_header<T_VALUE>(request, group);
  value.min_value = 0;
  value.max_value = 0;
  value.increment = 1;
  return value;
}
