#include "tvctl_common/handler.h"

#include "tv_ctrl_util/log.h"

const StoredRecord* tvc_find_record(const Handler& handler, UINT16 ui2_id) {
  for (const StoredRecord& row : handler.records.rows)
    if (row.record == tvc_record(ui2_id)) return &row;
  return nullptr;
}

// Calls the row's get or set function. operation: the name of that function in the log.
static INT32 carry_out(const Handler& handler, const StoredRecord& row, RecordFunction function, TextOffset operation,
                       UINT16 ui2_id, void* pv_content) {
  // An identifier that belongs to no URI may match a row; its type is TYPE_INVALID.
  if (tv_ctrl_get_type_by_id(ui2_id) != row.type) return VEXTVCTRLR_INV_ARG;
  const char* const texts = handler.records.texts;
  return function({.id = ui2_id,
                   .content = pv_content,
                   .operation = texts + operation,
                   .key = texts + row.key,
                   .name = texts + row.name});
}

static INT32 get_record(const Handler& handler, UINT16 ui2_id, void* pv_content) {
  const StoredRecord* const row = tvc_find_record(handler, ui2_id);
  if (!row) return handler.get_without_row;
  if (!row->get) return handler.get_default;
  if (!pv_content) return VEXTVCTRLR_INV_ARG;
  return carry_out(handler, *row, row->get, row->get_operation, ui2_id, pv_content);
}

INT32 tvc_handle_get(const Handler& handler, UINT16 ui2_id, void* pv_content) {
  if (tvc_group(ui2_id) != handler.group) return VEXTVCTRLR_INV_ARG;
  if (!pv_content && handler.get_needs_record) return VEXTVCTRLR_INV_ARG;
  const char* const frame = handler.framed_get;
  if (frame) tvc_log_progress("[TVC_MAIN][%s][%d] enter.\n", frame, __LINE__);
  const INT32 ret = get_record(handler, ui2_id, pv_content);
  if (frame) tvc_log_progress("[TVC_MAIN][%s][%d] exit.\n", frame, __LINE__);
  return ret;
}

// Returns whether a set of this identifier is refused when it brings no content record. row: the identifier's row, or
// null.
static bool needs_record(const Handler& handler, const StoredRecord* row, UINT16 ui2_id) {
  switch (handler.set_without_record) {
    case WithoutRecord::kRefused:
      return true;
    case WithoutRecord::kRefusedUnlessAction:
      return tv_ctrl_get_type_by_id(ui2_id) != TYPE_ACTION;
    case WithoutRecord::kRefusedUnlessActionOrUnknown: {
      const UINT8 type = tv_ctrl_get_type_by_id(ui2_id);
      return type != TYPE_ACTION && type != TYPE_INVALID;
    }
    case WithoutRecord::kAsRow:
      break;
  }
  return row && row->set && row->type != TYPE_ACTION;
}

// Returns the result of a set that no function carries out.
static INT32 set_answer(const Handler& handler, const StoredRecord* row) {
  return row && row->set_answer ? *row->set_answer : handler.set_default;
}

INT32 tvc_handle_set(const Handler& handler, UINT16 ui2_id, void* pv_content) {
  if (tvc_group(ui2_id) != handler.group) return VEXTVCTRLR_INV_ARG;
  const StoredRecord* const row = tvc_find_record(handler, ui2_id);
  if (!pv_content && needs_record(handler, row, ui2_id)) return VEXTVCTRLR_INV_ARG;
  if (!row || !row->set) return set_answer(handler, row);
  return carry_out(handler, *row, row->set, row->set_operation, ui2_id, pv_content);
}

static Effect answer_effect(INT32 answer) { return answer == VEXTVCTRLR_OK ? Effect::kAccepted : Effect::kRefused; }

Effect tvc_get_effect(const Handler& handler, UINT16 ui2_id) {
  const StoredRecord* const row = tvc_find_record(handler, ui2_id);
  if (!row) return answer_effect(handler.get_without_row);
  return row->get ? Effect::kServed : answer_effect(handler.get_default);
}

Effect tvc_set_effect(const Handler& handler, UINT16 ui2_id, bool has_record) {
  const StoredRecord* const row = tvc_find_record(handler, ui2_id);
  if (!has_record && needs_record(handler, row, ui2_id)) return Effect::kRefused;
  return row && row->set ? Effect::kServed : answer_effect(set_answer(handler, row));
}
