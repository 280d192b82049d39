// A handler serves one group: a table with a row for each record, and answers for the records that have none.
#pragma once

#include <iterator>
#include <optional>
#include <span>

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/text_pool.h"

// One request, as a row's function receives it. The texts are the row's; empty: it has none.
struct RecordRequest {
  UINT16 id;
  void* content;          // content record of the row's item type, the caller's; null only in a set of an action
  const char* operation;  // under which the function logs a failure
  const char* key;        // of the configuration store
  const char* name;       // for display
};

// Carries a get or a set out. Returns the request's result.
using RecordFunction = INT32 (*)(const RecordRequest& request);

// The row of one record, as its handler writes it; tvc_records turns it into a StoredRecord.
struct RecordRow {
  UINT8 record = 0;
  UINT8 type = TYPE_NONE;               // item type of the record's URI, by which the functions see the content
  RecordFunction get = nullptr;         // null: a get has no effect
  RecordFunction set = nullptr;         // null: a set has no effect
  std::optional<INT8> set_answer = {};  // without a set function: what a set answers in place of the handler's default
  const char* get_operation = "";       // names in the log
  const char* set_operation = "";       //
  const char* key = "";                 // of the configuration store
  const char* name = "";                // for display
  const char* help = "";                // one sentence for people
  const char* unit = "";                // of the value
  const char* values = "";              // what the value may be: "POWER\0" "MUTE\0", or of a number "0=off\0" "1=on\0"
};

// The same without addresses of texts.
struct StoredRecord {
  RecordFunction get;
  RecordFunction set;
  TextOffset get_operation;
  TextOffset set_operation;
  TextOffset key;
  TextOffset name;
  TextOffset help;
  TextOffset unit;
  TextOffset values;
  UINT8 record;
  UINT8 type;
  std::optional<INT8> set_answer;
};

struct Records {
  std::span<const StoredRecord> rows;
  const char* texts;  // what the rows' offsets count from
};

// When a set without a content record is refused with VEXTVCTRLR_INV_ARG.
enum class WithoutRecord : UINT8 {
  kAsRow,                // where a row has a set function, unless it is an action
  kRefused,              // always
  kRefusedUnlessAction,  // unless the URI is an action
};

struct Handler {
  UINT8 group;
  Records records;
  INT32 get_default = VEXTVCTRLR_OK;  // answer to a get that no row's function serves
  INT32 set_default = VEXTVCTRLR_OK;  // likewise of a set
  WithoutRecord set_without_record = WithoutRecord::kAsRow;
  bool set_needs_record = false;     // tv_ctrl_set refuses a set without a content record before the handler sees it
  INT32 (*start)() = nullptr;        // the core calls it as it starts; null: there is nothing to start
  UINT8 start_turn = 0;              // 1: first; no two handlers have the same turn, and no turn is left out
  const char* framed_get = nullptr;  // the name under which each get logs that it begins and ends; null: it does not
};

// The handlers, each in a file of its own.
#define TVC_GROUP(group, number, enumeration) extern const Handler handler_##group;
#define TVC_GROUP_WITHOUT_HANDLER(group, number, enumeration)
#include "vex_tv_ctrl/uris.def"

// What becomes of a request whose parameters were decoded.
enum class Effect : UINT8 {
  kRefused,   // it fails, whatever its parameters are
  kAccepted,  // it succeeds, and nothing happens
  kServed,    // a function carries it out
};

// The handler's row of an identifier; null when it has none.
const StoredRecord* tvc_find_record(const Handler& handler, UINT16 ui2_id);

// Carry a request out, or answer for the handler. Return the function's result, a default answer, or
// VEXTVCTRLR_INV_ARG for an identifier of another group or item type and for a content record that is missing.
INT32 tvc_handle_get(const Handler& handler, UINT16 ui2_id, void* pv_content);
INT32 tvc_handle_set(const Handler& handler, UINT16 ui2_id, void* pv_content);

// What they would come to; has_record: whether the request brings a content record.
Effect tvc_get_effect(const Handler& handler, UINT16 ui2_id);
Effect tvc_set_effect(const Handler& handler, UINT16 ui2_id, bool has_record);

// Passes an event's record, borrowed for the call, to the notification URI of this record number. A failure is logged
// under the caller's name.
void tvc_notify(TVC_GROUP_WS_NFY record, void* pv_content, const char* operation = __builtin_FUNCTION(),
                int line = __builtin_LINE());

// --- From written rows to stored ones, at compile time ---

template <std::size_t Rows, std::size_t Texts>
struct StoredRecords {
  StoredRecord rows[Rows] = {};
  TextPool<Texts> pool = {};
};

template <std::size_t Rows>
constexpr std::size_t tvc_text_size(const RecordRow (&rows)[Rows]) {
  std::size_t size = 1;
  for (const RecordRow& row : rows) {
    for (const char* const text : {row.get_operation, row.set_operation, row.key, row.name, row.help, row.unit})
      size += tvc_pool_size(text);
    size += tvc_pool_list_size(row.values);
  }
  return size;
}

template <const auto& Written>
inline constexpr auto kStoredRecords = [] {
  StoredRecords<std::size(Written), tvc_text_size(Written)> stored;
  const auto add = [&stored](const char* text) { return tvc_pool_add(stored.pool, text, tvc_pool_size(text)); };
  StoredRecord* next = stored.rows;
  for (const RecordRow& row : Written)
    *next++ = {.get = row.get,
               .set = row.set,
               .get_operation = add(row.get_operation),
               .set_operation = add(row.set_operation),
               .key = add(row.key),
               .name = add(row.name),
               .help = add(row.help),
               .unit = add(row.unit),
               .values = tvc_pool_add(stored.pool, row.values, tvc_pool_list_size(row.values)),
               .record = row.record,
               .type = row.type,
               .set_answer = row.set_answer};
  return stored;
}();

// The rows of a constexpr array of RecordRow.
template <const auto& Written>
constexpr Records tvc_records() {
  return {.rows = kStoredRecords<Written>.rows, .texts = kStoredRecords<Written>.pool.texts};
}
