// Fuzzes requests: sequences of gets, sets, subscriptions and fetches, with platform answers, and callbacks before,
// during and beside them; and the core's exported functions with records of any content.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <thread>

#include "platform.h"
#include "plugin.h"
#include "records.h"
#include "requests.h"
#include "seeds.h"
#include "tv_ctrl_api/request.h"

static constexpr int kMostOperations = 32;

// A request as the URI's type takes it.
static void reached_word(const UriInfo& row, const std::string& word) {
  if (word.empty()) return;
  seed_reached(row.type_name + " " + word);
  if (word != kWordQuery && row.sets) seed_reached(row.type_name + " set " + row.uri);
}

// A response in one of several forms.
static std::string form_goal(const std::string& type_name, std::size_t form) {
  return type_name + " form " + std::to_string(form);
}

static void get(Bytes& bytes, const Tables& tables, const char* uri) {
  const UriInfo* const row = plugin_find(tables, uri);
  std::string word;
  const std::string text = take_parameter(bytes, tables, row, false, word);
  const Owned parameter = own_text(take_chance(bytes, 4) ? nullptr : &text);
  if (row && parameter) reached_word(*row, word);
  // Exactly as long as what may be copied. Cleared for known URIs, so that the text has an end.
  const std::unique_ptr<char[]> buffer(new char[DTV_JSP_RESPONSE_MAX]);
  memset(buffer.get(), row ? 0 : '\xA5', DTV_JSP_RESPONSE_MAX);
  if (take_chance(bytes, 64)) {
    require(a_dtv_jsp_get(uri, parameter.get(), nullptr) == -1, "a get without a buffer fails");
    return;
  }
  const INT32 ret = a_dtv_jsp_get(uri, parameter.get(), buffer.get());
  if (row) {
    const std::size_t length = strnlen(buffer.get(), DTV_JSP_RESPONSE_MAX);
    if (length == 0)
      return require(ret == -1 || row->info->may_be_silent, "a get that succeeds has a response", row->uri);
    const std::size_t form = check_response(*row, ret, {buffer.get(), length});
    seed_reached(row->type_name);
    seed_reached(form_goal(row->type_name, form));
    if (row->gets) seed_reached(row->type_name + " get " + row->uri);
    return;
  }
  require(ret == -1, "a get of an unknown URI fails");
  require(buffer[0] == '\xA5' && memcmp(buffer.get(), buffer.get() + 1, DTV_JSP_RESPONSE_MAX - 1) == 0,
          "a get of an unknown URI writes nothing");
}

static void set(Bytes& bytes, const Tables& tables, const char* uri) {
  const UriInfo* const row = plugin_find(tables, uri);
  std::string word;
  const std::string text = take_parameter(bytes, tables, row, true, word);
  const Owned parameter = own_text(take_chance(bytes, 32) ? nullptr : &text);
  if (row && parameter) reached_word(*row, word);
  const INT32 ret = a_dtv_jsp_set(uri, parameter.get());
  if (!row || !parameter) require(ret == -1, "a set of an unknown URI, or without parameters, fails", uri ? uri : "");
}

// The core's functions take a record of the URI's type, whatever is in it.
static void call_core(Bytes& bytes, const Tables& tables, const char* uri) {
  const UriInfo* const row = plugin_find(tables, uri);
  const UINT8 type = row ? row->type : static_cast<UINT8>(TYPE_INVALID);
  const UINT16 id = row ? row->id : take_number<UINT16>(bytes);
  const std::string text = take_text(bytes);
  const ItemType* const item = tvc_item_type(type);
  const bool has_record = item && item->record_size > 0 && !take_chance(bytes, 16);
  const std::unique_ptr<char[]> record = has_record ? take_record(bytes, type, kEverywhere, text) : nullptr;
  // Types without a record are left out: a set could not tell their null record from one that it takes.
  if (!has_record && row && !item) return;
  if (take_chance(bytes, 2))
    tv_ctrl_set(id, record.get());
  else
    require(tv_ctrl_get(id, record.get()) < 0 || record, "a get without a record fails", row ? row->uri : "");
  if (has_record) tvc_free_record_texts(*item, record.get());
}

static void operate(Bytes& bytes, const Tables& tables, const std::vector<std::size_t>& rows,
                    Subscriptions& subscriptions, std::string& text) {
  const std::size_t operation = take_below(bytes, 14);
  if (operation == 0) return platform_answers(take_text(bytes));
  if (operation == 1) return platform_raise();
  if (operation == 2) return platform_mid_call(static_cast<MidCall>(take_below(bytes, kMidCalls)));

  const Owned uri = own_text(take_uri(bytes, tables, rows, text) ? &text : nullptr);
  if (operation < 7) return get(bytes, tables, uri.get());
  if (operation < 10) return set(bytes, tables, uri.get());
  if (operation == 10) return subscribe(subscriptions, uri.get());
  if (operation == 11) return unsubscribe(subscriptions, uri.get());
  if (operation == 12) return call_core(bytes, tables, uri.get());
  fetch(bytes, tables, subscriptions, uri.get());
}

// Another thread of the host reads, while the platform raises callbacks.
static void read_beside(const UriInfo& row) {
  const std::unique_ptr<char[]> buffer(new char[DTV_JSP_RESPONSE_MAX]);
  for (int i = 0; i < 4; ++i) {
    memset(buffer.get(), 0, DTV_JSP_RESPONSE_MAX);
    const INT32 ret = a_dtv_jsp_get(row.uri.c_str(), nullptr, buffer.get());
    const std::string_view text(buffer.get(), strnlen(buffer.get(), DTV_JSP_RESPONSE_MAX));
    if (!text.empty() || !row.info->may_be_silent) check_response(row, ret, text);
    platform_raise();
  }
}

// The indices of the URIs for most of an input's requests: of one group, of one type, or all.
static const std::vector<std::size_t>& take_rows(Bytes& bytes, const Tables& tables) {
  const std::size_t choice = take_below(bytes, 2 * tables.related.size());
  return choice < tables.related.size() ? tables.related[choice] : tables.active;
}

// Whether DTV_FUZZ_GROUPS names the group of this URI: numbers with commas between them. Without it, all are wanted.
static bool is_wanted(const UriInfo& row) {
  static const char* const wanted = getenv("DTV_FUZZ_GROUPS");
  static const std::string list = std::string(",") + (wanted ? wanted : "") + ",";
  return !wanted || list.find("," + std::to_string(row.id >> 8) + ",") != std::string::npos;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Tables& tables = plugin_start();
  Bytes bytes = {.next = data, .left = size};
  const std::vector<std::size_t>& rows = take_rows(bytes, tables);
  if (!std::ranges::all_of(rows, [&](std::size_t row) { return is_wanted(tables.uris[row]); })) return 0;
  static constexpr int kLevels[] = {0, 0, 0, 0, 0, -1, 2, 10};
  plugin_log_level(kLevels[take_below(bytes, std::size(kLevels))]);
  const bool concurrent = take_chance(bytes, 16);
  platform_begin(take_text(bytes));

  std::thread beside;
  if (concurrent)
    beside = std::thread(read_beside, std::cref(tables.uris[tables.active[take_below(bytes, tables.active.size())]]));
  Subscriptions subscriptions;
  if (take_chance(bytes, 2)) subscribe_all(subscriptions, tables);
  std::string uri;
  for (int i = 0; i < kMostOperations && bytes.left > 0; ++i) operate(bytes, tables, rows, subscriptions, uri);
  if (beside.joinable()) beside.join();
  platform_end();
  fetch_all(tables, subscriptions);
  unsubscribe_all(subscriptions);
  return 0;
}

// The seeds read each type in each form of its responses, use each of its request words with its fields, and make a
// request for each URI that is served.
std::set<std::string> seed_goals() {
  std::set<std::string> goals;
  for (const UriInfo& row : plugin_start().uris) {
    if (!is_wanted(row)) continue;
    if (row.gets) goals.insert(row.type_name + " get " + row.uri);
    if (row.sets) goals.insert(row.type_name + " set " + row.uri);
    if (row.type_name.empty()) continue;
    goals.insert(row.type_name);
    if (!row.info->query.empty()) goals.insert(row.type_name + " " + kWordQuery);
    for (const SetInfo& set : row.info->sets) goals.insert(row.type_name + " " + set.word);
    const std::size_t forms = row.gets ? row.info->forms.size() : 0;
    for (std::size_t form = 0; forms > 1 && form < forms; ++form) goals.insert(form_goal(row.type_name, form));
  }
  return goals;
}
