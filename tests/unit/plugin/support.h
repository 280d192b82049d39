// What the plugin's unit tests share: the log level, captured output, and functions of the plugin that a test replaces.
#pragma once

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_main.h"
#include "tv_ctrl_util/json_field.h"

// --- Log ---

// The plugin then reads this text from /3rd_rw/tvc_debug; nullopt: the file is missing.
void set_level_file(std::optional<std::string> text);

// Lets the plugin read this log level, without the line that it prints about it.
void set_log_level(int level);

// What `action` prints on standard output, with each "[TVC_API][name][line] --> " as "<name> ".
std::string printed_by(const std::function<void()>& action);

// --- JSON ---

using Json = std::unique_ptr<cJSON, void (*)(cJSON*)>;
Json parse_json(std::string_view text);
std::string print_json(const cJSON* json);

// --- Interposed calls ---

// A call of the function that answers a set (the hook), or of the handler.
struct SetEvent {
  enum Receiver { kHook, kHandler } receiver;
  int type;       // kHook: item type
  int status;     // kHook: status
  bool has_tree;  // kHook: there was a parsed parameter; kHandler: there was a record
};
extern std::vector<SetEvent> set_events;  // in order

// The statuses that the hook received, in order.
std::vector<int> hook_statuses();

// Called in place of the router (routed_get and routed_set), unless empty.
extern std::function<INT32(UINT16 id, void* record)> get_handler;
extern std::function<INT32(UINT16 id, void* record)> set_handler;
INT32 routed_get(UINT16 id, void* record);
INT32 routed_set(UINT16 id, void* record);

// Makes a URI known under an item type of the test's choice, with an identifier that no registry row has.
inline constexpr UINT16 kMadeUpId = 0x04FF;
void make_up_uri(const std::string& uri, UINT8 type);
std::string made_up_uri(UINT8 type);  // makes "/tv/made/up/<type>" known and returns it

// Replaces the row of an item type until the test ends; the new row must live as long.
void make_up_type(const ItemType& item);

// Bytes of the last calloc.
std::size_t last_calloc_size();

// How many files the plugin has opened. Its command device is the null device.
int opened_files();

// --- Item types ---

// A row of a field table, in which the members' own rows replace a row of kind kMembers. They take over its conditions,
// and, where it has a choice, the place and the number of their operation.
struct FlatField : Field {
  IntegerPlace selector = {};
  UINT16 selected = 0;
};
// The rows stay where they are.
const std::vector<FlatField>& flat(std::span<const Field> fields);

// The types whose parameters a use decodes (kQuery, kModify, kSet, kAssociate).
std::set<int> decoded_types(FieldUse use);

// --- Memory failures ---

// Makes the n-th allocation of the plugin or the JSON library fail, counted from 1, and all after it when `persistent`;
// 0: none fails. Counts the allocations, and the blocks that are not freed yet. Single-threaded.
struct MemoryWatch {
  explicit MemoryWatch(int fail_at = 0, bool persistent = false);
  ~MemoryWatch();
  MemoryWatch(const MemoryWatch&) = delete;
  MemoryWatch& operator=(const MemoryWatch&) = delete;
  int allocations() const;
  std::size_t live_blocks() const;
};

// --- Listener entries ---

// A fetch into a cleared buffer: the text, empty when nothing is pending, nothing when the URI is not subscribed.
std::optional<std::string> fetch(const std::string& uri, int size = 65536);

// Replaces the pending text of a subscribed URI.
void poke_pending(const std::string& uri, const std::string& text);

// Starts the plugin; forgets interposed answers, events, subscriptions and pending texts; log level 0.
class PluginTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};
