// The media servers that the set knows: those that are on, and those that were. They are remembered with the addresses
// of their network cards, so that they can be woken. A server's number stays the same while it is known.
#include <algorithm>
#include <boost/json.hpp>
#include <chrono>
#include <map>
#include <mutex>
#include <utility>

#include "core/events.h"
#include "core/reply.h"
#include "core/store.h"
#include "core/text.h"
#include "core/timers.h"
#include "rooms/home_network/home_network.h"
#include "rooms/home_network/loop.h"
#include "rooms/home_network/parts.h"

namespace {

constexpr TextSetting kKnown{.key = "home_network_servers", .factory = "[]", .longest = 65536};
// The highest number that any server has had.
constexpr Setting kLastId{.key = "home_network_last_server", .factory = 0, .minimum = 0, .maximum = INT32_MAX};
constexpr std::chrono::seconds kSavePause(1);  // changes within it are written together
constexpr std::size_t kLongestMac = 17;

struct Known {
  Server server;
  std::uint64_t seen = 0;  // greater than that of one that was found earlier
};

struct State {
  std::mutex lock;  // guards all members below
  std::map<INT32, Known> servers;
  INT32 last_id = 0;
  std::uint64_t finds = 0;
  bool changed = false;  // what is stored
  a_vextvapi_cb_dms_detect_nfy_fct callback = nullptr;
  void* tag = nullptr;
  bool by_viewer = false;  // the viewer has switched the search on
  std::size_t refused = 0;
  std::uint64_t search = 0;  // the number of the latest one; reports of earlier ones are dropped
};

std::mutex searching_lock;  // held while the search is started or ended; taken before the state's lock
Timer save_timer;

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// ---- What is remembered ----

std::string stored_text(const std::map<INT32, Known>& servers) {
  boost::json::array list;
  for (const auto& [id, known] : servers) {
    const Server& server = known.server;
    list.push_back({{"id", id},
                    {"udn", server.upnp.udn},
                    {"name", server.upnp.name},
                    {"address", server.upnp.address},
                    {"mac", server.mac}});
  }
  return boost::json::serialize(list);
}

std::string member(const boost::json::object& row, std::string_view name, std::size_t longest) {
  const boost::json::value* const value = row.if_contains(name);
  return value != nullptr && value->is_string() ? clean_text(value->get_string(), longest) : std::string();
}

void read_stored(const std::string& text, std::map<INT32, Known>& ret_servers) {
  boost::system::error_code wrong;
  const boost::json::value list = boost::json::parse(text, wrong);
  if (wrong || !list.is_array()) return;
  for (const boost::json::value& each : list.get_array()) {
    if (!each.is_object() || ret_servers.size() >= kMostServers) continue;
    const boost::json::object& row = each.get_object();
    const boost::json::value* const id = row.if_contains("id");
    Server server;
    server.id = id != nullptr && id->is_int64() && id->get_int64() > 0 && id->get_int64() <= INT32_MAX
                    ? static_cast<INT32>(id->get_int64())
                    : 0;
    server.upnp.udn = member(row, "udn", kLongestUdn);
    server.upnp.name = member(row, "name", kLongestServerName);
    server.upnp.address = member(row, "address", kLongestUdn);
    server.mac = member(row, "mac", kLongestMac);
    if (server.id != 0 && !server.upnp.udn.empty()) ret_servers[server.id] = {.server = server};
  }
}

// On the timer thread, and when the set is switched off. A failure is on stderr; the next change tries again.
void save() {
  std::string text;
  INT32 last_id = 0;
  {
    const std::lock_guard guard(state.lock);
    if (!std::exchange(state.changed, false)) return;
    text = stored_text(state.servers);
    last_id = state.last_id;
  }
  const SettingValue values[] = {{kKnown.key, text}, {kLastId.key, std::int64_t{last_id}}};
  if (store_write(values)) return;
  const std::lock_guard guard(state.lock);
  state.changed = true;
}

// The caller holds the lock.
void save_soon() {
  state.changed = true;
  timer_set(save_timer, timer_now() + kSavePause, save);
}

// ---- Discovery ----

// The caller holds the lock.
void notify(INT32 type, INT32 id, const std::string& name, UINT32 arg1 = 0, UINT32 arg2 = 0) {
  if (state.callback == nullptr) return;
  events_post([=] {
    a_vextvapi_cb_dms_detect_nfy_fct callback = nullptr;
    void* tag = nullptr;
    {
      const std::lock_guard guard(state.lock);
      callback = state.callback;
      tag = state.tag;
    }
    if (callback != nullptr) callback(type, tag, name.c_str(), id, arg1, arg2);
  });
}

auto find_udn(const std::string& udn) {
  return std::ranges::find_if(state.servers, [&](const auto& each) { return each.second.server.upnp.udn == udn; });
}

// Makes room for another server; false: all that are known are on. The caller holds the lock.
bool make_room() {
  if (state.servers.size() < kMostServers) return true;
  auto oldest = state.servers.end();
  for (auto each = state.servers.begin(); each != state.servers.end(); ++each)
    if (!each->second.server.online && (oldest == state.servers.end() || each->second.seen < oldest->second.seen))
      oldest = each;
  if (oldest == state.servers.end()) return false;
  notify(DMS_FORGOTTEN, oldest->first, oldest->second.server.upnp.name);
  state.servers.erase(oldest);
  return true;
}

void found(std::uint64_t search, const UpnpServer& upnp) {
  const std::string mac = mac_now(upnp.address);
  const std::lock_guard guard(state.lock);
  if (search != state.search) return;
  auto each = find_udn(upnp.udn);
  if (each == state.servers.end()) {
    if (state.last_id == INT32_MAX || !make_room()) {
      ++state.refused;
      return;
    }
    const INT32 id = ++state.last_id;
    each = state.servers.emplace(id, Known{.server = {.id = id}}).first;
  }
  Known& known = each->second;
  Server& server = known.server;
  const bool is_other = server.upnp.name != upnp.name || server.upnp.address != upnp.address ||
                        server.upnp.control != upnp.control || (!mac.empty() && server.mac != mac);
  const bool was_online = std::exchange(server.online, true);
  server.upnp = upnp;
  if (!mac.empty()) server.mac = mac;
  known.seen = ++state.finds;
  if (is_other) save_soon();
  if (!was_online || is_other) notify(was_online ? DMS_CHANGED : DMS_FOUND, server.id, upnp.name);
}

void lost(std::uint64_t search, const std::string& udn) {
  const std::lock_guard guard(state.lock);
  const auto each = find_udn(udn);
  if (search != state.search || each == state.servers.end()) return;
  if (std::exchange(each->second.server.online, false)) notify(DMS_LOST, each->first, each->second.server.upnp.name);
}

void refused(std::uint64_t search) {
  const std::lock_guard guard(state.lock);
  if (search == state.search) ++state.refused;
}

// Starts or ends the search, as the viewer and the application want it. Returns why it cannot be started.
std::string follow_wishes(bool again) {
  const std::lock_guard searching(searching_lock);
  std::string why;
  std::uint64_t search = 0;
  bool wanted = false;
  bool runs = false;
  {
    const std::lock_guard guard(state.lock);
    wanted = state.by_viewer || state.callback != nullptr;
    runs = state.search % 2 == 1;  // odd numbers are searches, even ones the time between them
    if (wanted == runs && !(again && runs)) return {};
  }
  const UpnpLibrary* const library = upnp_library(why);
  if (wanted && (library == nullptr || !home_loop_start(why))) return why;
  {
    const std::lock_guard guard(state.lock);
    state.search += wanted && runs ? 2 : 1;
    search = state.search;
    state.refused = 0;
    if (!wanted)
      for (auto& [id, known] : state.servers) known.server.online = false;
  }
  if (!wanted) {
    home_loop_post([library] { library->upnp_search_stop(); });
    return {};
  }
  home_loop_post([library, search] {
    library->upnp_search_start({.found = [search](const UpnpServer& server) { found(search, server); },
                                .lost = [search](const std::string& udn) { lost(search, udn); },
                                .refused = [search] { refused(search); }});
  });
  return {};
}

}  // namespace

void servers_load() {
  const std::lock_guard guard(state.lock);
  state.servers.clear();
  read_stored(store_read(kKnown), state.servers);
  state.last_id = static_cast<INT32>(store_read(kLastId));
  if (!state.servers.empty()) state.last_id = std::max(state.last_id, state.servers.rbegin()->first);
  state.finds = 0;
  state.changed = false;
  state.callback = nullptr;
  state.tag = nullptr;
  state.by_viewer = false;
  state.refused = 0;
  state.search += state.search % 2;  // the thread of an earlier search has ended
}

bool servers_reset() {
  {
    const std::lock_guard guard(state.lock);
    for (const auto& [id, known] : state.servers) notify(DMS_FORGOTTEN, id, known.server.upnp.name);
    state.servers.clear();
    state.by_viewer = false;
    state.changed = true;  // the store has been reset, and applications may still have numbers of servers
  }
  follow_wishes(true);
  return true;
}

void servers_stop() { save(); }

std::optional<Server> servers_find(INT32 id) {
  const std::lock_guard guard(state.lock);
  const auto each = state.servers.find(id);
  if (each == state.servers.end()) return std::nullopt;
  return each->second.server;
}

std::vector<Server> servers_all() {
  std::vector<Server> all;
  const std::lock_guard guard(state.lock);
  for (const auto& [id, known] : state.servers) all.push_back(known.server);
  return all;
}

bool servers_searching() {
  const std::lock_guard guard(state.lock);
  return state.search % 2 == 1;
}

std::size_t servers_refused() {
  const std::lock_guard guard(state.lock);
  return state.refused;
}

std::string servers_search(bool on) {
  {
    const std::lock_guard guard(state.lock);
    state.by_viewer = on;
  }
  std::string why = follow_wishes(on);
  if (why.empty()) return why;
  const std::lock_guard guard(state.lock);
  state.by_viewer = false;
  return why;
}

std::vector<HomeServer> home_servers() {
  std::vector<HomeServer> all;
  const std::lock_guard guard(state.lock);
  for (const auto& [id, known] : state.servers)
    all.push_back({.id = id, .name = known.server.upnp.name, .online = known.server.online});
  return all;
}

std::optional<HomeServer> home_server(INT32 id) {
  const auto server = servers_find(id);
  if (!server) return std::nullopt;
  return HomeServer{.id = id, .name = server->upnp.name, .online = server->online};
}

std::string home_search() { return servers_searching() ? std::string() : servers_search(true); }

std::string servers_wake(INT32 id) {
  const auto server = servers_find(id);
  if (!server) return "there is no server " + std::to_string(id);
  if (server->mac.empty()) return "the address of this server's network card is not known";
  return wake_card(server->mac, home_interfaces(), kWakePort) ? "" : "the network does not take the packet";
}

std::string servers_forget(INT32 id) {
  const std::lock_guard guard(state.lock);
  const auto each = state.servers.find(id);
  if (each == state.servers.end()) return "there is no server " + std::to_string(id);
  if (each->second.server.online) return "this server is on; only one that is off can be forgotten";
  notify(DMS_FORGOTTEN, id, each->second.server.upnp.name);
  state.servers.erase(each);
  save_soon();
  return {};
}

void servers_notify(INT32 type, INT32 id, UINT32 arg1, UINT32 arg2) {
  const std::lock_guard guard(state.lock);
  const auto each = state.servers.find(id);
  notify(type, id, each == state.servers.end() ? std::string() : each->second.server.upnp.name, arg1, arg2);
}

// ---- The TV API ----

INT32 a_vextvapi_cb_dms_detect_register_callback(a_vextvapi_cb_dms_detect_nfy_fct callback, void* tag) {
  {
    const std::lock_guard guard(state.lock);
    state.callback = callback;
    state.tag = tag;
    for (const auto& [id, known] : state.servers)
      if (known.server.online) notify(DMS_FOUND, id, known.server.upnp.name);
  }
  const std::string why = follow_wishes(callback != nullptr);
  if (why.empty()) return 0;
  const std::lock_guard guard(state.lock);
  state.callback = nullptr;
  return refuse_call(__func__, why);
}

INT32 a_vextvapi_dmp_getDmsType(INT32 dev_id, INT32* type) {
  if (type == nullptr) return refuse_call(__func__, "type is null");
  const auto server = servers_find(dev_id);
  if (!server) return refuse_call(__func__, "there is no server " + std::to_string(dev_id));
  *type = server->online ? DMS_TYPE_ON : DMS_TYPE_OFF;
  return 0;
}

INT32 a_vextvapi_dmp_getRealDms(INT32 dev_id, INT32* real_dev_id) {
  if (real_dev_id == nullptr) return refuse_call(__func__, "real_dev_id is null");
  const auto server = servers_find(dev_id);
  if (!server) return refuse_call(__func__, "there is no server " + std::to_string(dev_id));
  INT32 real = dev_id;
  if (!server->online && !server->mac.empty()) {
    for (const Server& each : servers_all())
      if (each.online && each.mac == server->mac && each.upnp.name == server->upnp.name) real = each.id;
  }
  *real_dev_id = real;
  return 0;
}

INT32 a_vextvapi_dmp_isDmsWakable(INT32 dev_id, INT32* wakable) {
  if (wakable == nullptr) return refuse_call(__func__, "wakable is null");
  const auto server = servers_find(dev_id);
  if (!server) return refuse_call(__func__, "there is no server " + std::to_string(dev_id));
  *wakable = server->mac.empty() ? 0 : 1;
  return 0;
}

INT32 a_vextvapi_dmp_wakeDmsByMac(INT32 dev_id) {
  const std::string why = servers_wake(dev_id);
  return why.empty() ? 0 : refuse_call(__func__, why);
}

INT32 a_vextvapi_dmp_clearOffDms(INT32 dev_id) {
  const std::string why = servers_forget(dev_id);
  return why.empty() ? 0 : refuse_call(__func__, why);
}
