// Typed access to content records, for the functions of rows.
#pragma once

#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/text.h"
#include "tvctl_common/handler.h"

// Returns the request's content record. Record is the record of the row's item type.
template <typename Record>
Record& tvc_content(const RecordRequest& request) {
  return *static_cast<Record*>(request.content);
}

// Fills the header that every generic record begins with, and returns the record. group: the group number to show,
// which is 0 for some records.
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

// The same for a value. Its limits are not reported: they stay 0.
inline T_VALUE& tvc_fill_value_header(const RecordRequest& request, int group) {
  T_VALUE& value = tvc_fill_header<T_VALUE>(request, group);
  value.min_value = 0;
  value.max_value = 0;
  value.increment = 1;
  return value;
}

// Numbers that a callback receives in pointer-sized arguments.
inline INT32 tvc_number_of(const void* argument) { return static_cast<INT32>(reinterpret_cast<intptr_t>(argument)); }
inline UINT32 tvc_unsigned_of(const void* argument) {
  return static_cast<UINT32>(reinterpret_cast<uintptr_t>(argument));
}

// A platform's result as the request's: a failure is logged under the request's operation, and is VEXTVCTRLR_FAIL.
inline INT32 tvc_checked(const RecordRequest& request, INT32 ret, int line = __builtin_LINE()) {
  return tvc_failed(ret, request.operation, line) ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}

// The same where the request succeeds all the same.
inline INT32 tvc_ignored(const RecordRequest& request, INT32 ret, int line = __builtin_LINE()) {
  tvc_failed(ret, request.operation, line);
  return VEXTVCTRLR_OK;
}

// As tvc_checked, where anything but 0 is a failure.
inline INT32 tvc_checked_zero(const RecordRequest& request, INT32 ret, int line = __builtin_LINE()) {
  if (ret == 0) return VEXTVCTRLR_OK;
  tvc_log_fail(request.operation, line, ret);
  return VEXTVCTRLR_FAIL;
}
