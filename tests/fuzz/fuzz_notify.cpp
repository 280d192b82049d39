// Fuzzes notifications: records of arbitrary bytes for every type that notifies, between subscriptions and fetches,
// some of them on other threads.
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <memory>
#include <thread>

#include "platform.h"
#include "plugin.h"
#include "records.h"
#include "seeds.h"

static constexpr int kMostOperations = 64;

// What has been raised for a URI since it was last fetched.
struct Since {
  std::size_t most = 0;  // items that can be pending
  bool some = false;     // a text must be pending
};
using Raised = std::map<std::string, Since>;

static void notify(Bytes& bytes, const Tables& tables, const Subscriptions& subscriptions, const char* uri,
                   Raised& raised) {
  const UriInfo* const row = plugin_find(tables, uri);
  const std::string path = take_text(bytes).c_str();
  const std::unique_ptr<char[]> record =
      take_record(bytes, row ? row->type : static_cast<UINT8>(TYPE_INVALID), kNotify, path);
  void* const content = take_chance(bytes, 64) ? nullptr : record.get();
  if (row && take_chance(bytes, 2)) {
    require(tv_ctrl_notify_content(row->id, content) == (content ? 0 : -2), "a known identifier is passed on");
  } else if (take_chance(bytes, 16)) {
    const auto id = static_cast<UINT16>(take_number<UINT16>(bytes) | 0x8000);  // groups that do not exist
    require(tv_ctrl_notify_content(id, content) == (content ? -1 : -2), "an unknown identifier is refused");
    return;
  } else {
    tv_ctrl_api_notify_func(uri, content);
  }
  if (!uri || !content || !is_subscribed(subscriptions, uri)) return;
  ++raised[uri].most;
  if (row && !row->info->notify_member.empty()) raised[uri].some = true;
}

static void operate(Bytes& bytes, const Tables& tables, Subscriptions& subscriptions, Raised& raised,
                    std::string& text) {
  const std::size_t operation = take_below(bytes, 10);
  const Owned uri = own_text(take_uri(bytes, tables, tables.active, text) ? &text : nullptr);
  if (operation < 6) return notify(bytes, tables, subscriptions, uri.get(), raised);
  if (operation == 6) return subscribe(subscriptions, uri.get());
  if (operation == 7) {
    unsubscribe(subscriptions, uri.get());
    if (!is_subscribed(subscriptions, uri.get())) raised[text].some = false;
    return;
  }
  const Fetched fetched = fetch(bytes, tables, subscriptions, uri.get());
  if (!fetched.subscribed || text == subscriptions.shared) return;  // other threads fetch this one as well
  Since& since = raised[text];
  require(fetched.items <= since.most, "no item is delivered that was not raised, or twice", text);
  require(fetched.came || !since.some, "what was raised is delivered", text);
  since = {};
  if (fetched.items > 0) seed_reached(plugin_find(tables, text.c_str())->type_name);
}

// The seeds deliver and fetch each type that notifies.
std::set<std::string> seed_goals() {
  std::set<std::string> goals;
  for (const UriInfo& row : plugin_start().uris)
    if (!row.info->notify_member.empty()) goals.insert(row.type_name);
  return goals;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Tables& tables = plugin_start();
  Bytes bytes = {.next = data, .left = size};
  static constexpr int kLevels[] = {0, 0, 0, 0, 0, -1, 2, 10};
  plugin_log_level(kLevels[take_below(bytes, std::size(kLevels))]);
  const std::vector<std::size_t>& rows = tables.notifying[take_below(bytes, tables.notifying.size())];
  const UriInfo& watched = tables.uris[rows[take_below(bytes, rows.size())]];
  const bool concurrent = take_chance(bytes, 16);

  Subscriptions subscriptions;
  Raised raised;
  subscribe(subscriptions, watched.uri.c_str());
  std::vector<std::thread> beside;
  if (concurrent) {
    subscriptions.shared = watched.uri;
    for (const auto meanwhile : {fetch_meanwhile, fetch_meanwhile, resubscribe_meanwhile})
      beside.emplace_back(meanwhile, std::cref(watched));
  }
  std::string uri = watched.uri;
  for (int i = 0; i < kMostOperations && bytes.left > 0; ++i) operate(bytes, tables, subscriptions, raised, uri);
  for (std::thread& thread : beside) thread.join();
  unsubscribe_all(subscriptions);
  return 0;
}
