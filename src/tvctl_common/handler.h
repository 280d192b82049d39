// A handler serves one group of URIs. It has a table with a row for each record that it serves, and default results for
// the records that have no row.
#pragma once

#include <iterator>
#include <optional>
#include <span>

#include "tv_ctrl_main.h"
#include "tv_ctrl_util/text_pool.h"

// One request, as a row's function receives it. The texts come from the row; where the row has none, they are empty.
struct RecordRequest {
  UINT16 id;
  void* content;          // content record of the row's item type, owned by the caller; null only in a set of an action
  const char* operation;  // name under which the function logs a failure
  const char* key;        // key in the configuration store
  const char* name;       // display name
};

// Carries out a get or a set. Returns the request's result: 0 or a code of VEX_RET_VALUE or of the platform.
using RecordFunction = INT32 (*)(const RecordRequest& request);

// The row of one record, as its handler writes it. tvc_records turns it into a StoredRecord.
struct RecordRow {
  UINT8 record = 0;
  UINT8 type = TYPE_NONE;               // item type of the record's URI, and so of the content record
  RecordFunction get = nullptr;         // null: a get only returns the handler's default
  RecordFunction set = nullptr;         // null: a set only returns set_answer
  std::optional<INT8> set_answer = {};  // result of a set without a set function; none: the handler's default
  const char* get_operation = "";       // name of the get in the log
  const char* set_operation = "";       // name of the set in the log
  const char* get_needs = "";           // members without which a get does not do what it is for, as "CH_ID INDEX";
                                        // "cfgId|cfgItem": one of them. Only described: the platform decides
  const char* set_needs = "";           // the same of a set; a "MODIFY" always needs its value
  const char* key = "";                 // key in the configuration store
  const char* name = "";                // display name
  const char* help = "";                // one sentence for application developers
  const char* unit = "";                // unit of the value
  UINT8 limit = 0;                      // bytes of a text that count; 0: all that its type has room for
  const char* values = "";  // allowed values: texts "POWER\0" "MUTE\0", numbers "0=off\0" "1=on\0", or a range
                            // of numbers "0..255\0"
};

// A row as the plugin stores it. Texts are offsets into one string: as addresses they would need relocations.
struct StoredRecord {
  RecordFunction get;
  RecordFunction set;
  TextOffset get_operation;
  TextOffset set_operation;
  TextOffset get_needs;
  TextOffset set_needs;
  TextOffset key;
  TextOffset name;
  TextOffset help;
  TextOffset unit;
  TextOffset values;
  UINT8 record;
  UINT8 type;
  UINT8 limit;
  std::optional<INT8> set_answer;
};

struct Records {
  std::span<const StoredRecord> rows;
  const char* texts;  // string that the rows' offsets point into
};

// Which sets without a content record are refused with VEXTVCTRLR_INV_ARG.
enum class WithoutRecord : UINT8 {
  kAsRow,                         // those whose row has a set function and is no action
  kRefused,                       // all
  kRefusedUnlessAction,           // those of URIs whose item type is no action
  kRefusedUnlessActionOrUnknown,  // the same, but those of unregistered URIs are not
};

struct Handler {
  UINT8 group;
  Records records;
  INT32 get_default = VEXTVCTRLR_OK;    // result of a get without a get function
  INT32 get_without_row = get_default;  // the same of a record that has no row
  INT32 set_default = VEXTVCTRLR_OK;    // result of a set without a set function
  bool get_needs_record = true;         // false: only a get that a function carries out needs a content record
  WithoutRecord set_without_record = WithoutRecord::kAsRow;
  bool set_needs_record = false;     // true: tv_ctrl_set refuses every set without a content record itself
  INT32 (*start)() = nullptr;        // called when the core starts; null: there is nothing to start
  UINT8 start_turn = 0;              // order of the starts: 1, 2, ... without gaps or repetition; 0: no start
  const char* framed_get = nullptr;  // name under which every get logs its begin and its end; null: gets log neither
};

// The handlers, each in a file of its own.
#define TVC_GROUP(group, number, enumeration) extern const Handler handler_##group;
#define TVC_GROUP_WITHOUT_HANDLER(group, number, enumeration)
#include "vex_tv_ctrl/uris.def"

// What a request does once its parameters are decoded.
enum class Effect : UINT8 {
  kRefused,   // it fails, whatever its parameters are
  kAccepted,  // it succeeds without effect
  kServed,    // a function carries it out
};

// Returns the handler's row for the record of an identifier, or null.
const StoredRecord* tvc_find_record(const Handler& handler, UINT16 ui2_id);

// Carry out a request with the function of its row. Return the function's result; without a function the default
// result; VEXTVCTRLR_INV_ARG for an identifier of another group or item type, and for a missing content record.
INT32 tvc_handle_get(const Handler& handler, UINT16 ui2_id, void* pv_content);
INT32 tvc_handle_set(const Handler& handler, UINT16 ui2_id, void* pv_content);

// Return what a get or a set of an identifier would do, without doing it. has_record: whether the set brings a content
// record.
Effect tvc_get_effect(const Handler& handler, UINT16 ui2_id);
Effect tvc_set_effect(const Handler& handler, UINT16 ui2_id, bool has_record);

// Notifies the event of this record number, on the caller's thread. pv_content: record of the event's item type, which
// stays the caller's. A failure is logged under the caller's name.
void tvc_notify(TVC_GROUP_WS_NFY record, void* pv_content, const char* operation = __builtin_FUNCTION(),
                int line = __builtin_LINE());

// --- From written rows to stored ones, at compile time ---

template <std::size_t Rows, std::size_t Texts>
struct StoredRecords {
  StoredRecord rows[Rows] = {};
  TextPool<Texts> pool = {};
};

// Returns how many bytes the texts of the rows take in a pool.
template <std::size_t Rows>
constexpr std::size_t tvc_text_size(const RecordRow (&rows)[Rows]) {
  std::size_t size = 1;
  for (const RecordRow& row : rows) {
    for (const char* const text :
         {row.get_operation, row.set_operation, row.get_needs, row.set_needs, row.key, row.name, row.help, row.unit})
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
               .get_needs = add(row.get_needs),
               .set_needs = add(row.set_needs),
               .key = add(row.key),
               .name = add(row.name),
               .help = add(row.help),
               .unit = add(row.unit),
               .values = tvc_pool_add(stored.pool, row.values, tvc_pool_list_size(row.values)),
               .record = row.record,
               .type = row.type,
               .limit = row.limit,
               .set_answer = row.set_answer};
  return stored;
}();

// Returns the stored rows of a constexpr array of RecordRow.
template <const auto& Written>
constexpr Records tvc_records() {
  return {.rows = kStoredRecords<Written>.rows, .texts = kStoredRecords<Written>.pool.texts};
}
