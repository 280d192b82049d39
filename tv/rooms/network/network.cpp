// The network: the machine's own interfaces, except that a viewer can simulate a pulled cable. A netlink message from
// the kernel only means that something has changed: the network thread then reads all interfaces again and compares
// them with its last reading. So messages may be lost in a burst, and renewing an address's lifetime is not an event.
//
// Events: 1 an Ethernet interface is plugged, 2 unplugged, 3 an interface's addresses have changed, 15 a WLAN interface
// has been removed. The parameter is the interface's index, or 0 if a viewer pulls the cable and no interface is
// plugged. The loopback interface is ignored. Interfaces named "wl...", Linux's names, are WLAN; any other with
// Ethernet frames is Ethernet, including bridges and virtual interfaces.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <boost/json.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <vector>

#include "core/contract.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"

namespace {

constexpr INT32 kPlugged = 1;
constexpr std::size_t kMostListeners = 32;
constexpr Setting kLost{.key = "network_lost", .factory = 0, .minimum = 0, .maximum = 1};

enum class InterfaceKind : std::uint8_t { kEthernet, kWlan, kOther };

constexpr const char* kKindNames[] = {"ethernet", "wlan", "other"};

struct Interface {
  std::string name;
  InterfaceKind kind = InterfaceKind::kOther;
  bool runs = false;                // up, with a carrier
  bool idle = false;                // a virtual one that is switched off: shown only if it has an address
  std::set<std::string> addresses;  // as "192.0.2.5/24"
};

using Facts = std::map<int, Interface>;  // by interface index

struct Listener {
  a_vextvapi_nw_nfy_fct callback;
  void* tag;
};

struct State {
  std::mutex lock;  // guards the listeners, the facts and lost
  std::vector<Listener> listeners;
  Facts facts;        // the last reading, for which all events have been posted
  bool lost = false;  // a viewer has pulled the cable

  // Used only by start and stop, except that the network thread reads the descriptors.
  std::thread thread;
  int netlink = -1;
  int stop = -1;
};

// Never destroyed: the process may exit without switching the set off, while the thread still waits here.
State& state = *new State;

// ---- Reading the facts ----

std::string address_text(const sockaddr& address, const sockaddr* mask) {
  const bool six = address.sa_family == AF_INET6;
  const auto bytes = [six](const sockaddr* of) -> const unsigned char* {
    return six ? reinterpret_cast<const sockaddr_in6*>(of)->sin6_addr.s6_addr
               : reinterpret_cast<const unsigned char*>(&reinterpret_cast<const sockaddr_in*>(of)->sin_addr);
  };
  char text[INET6_ADDRSTRLEN];
  inet_ntop(address.sa_family, bytes(&address), text, sizeof text);
  int prefix = 0;
  for (int i = 0; mask != nullptr && i < (six ? 16 : 4); ++i) prefix += std::popcount(bytes(mask)[i]);
  return std::string(text) + "/" + std::to_string(prefix);
}

InterfaceKind kind_of(std::string_view name, const sockaddr_ll& link) {
  if (name.starts_with("wl")) return InterfaceKind::kWlan;
  return link.sll_hatype == ARPHRD_ETHER ? InterfaceKind::kEthernet : InterfaceKind::kOther;
}

// Whether the interface belongs to a device of the machine, such as a network card. What the kernel says of it does not
// depend on the file systems that are mounted.
bool is_real(const char* name) {
  const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ethtool_drvinfo about{};
  about.cmd = ETHTOOL_GDRVINFO;
  ifreq request{};
  std::strncpy(request.ifr_name, name, sizeof request.ifr_name - 1);
  request.ifr_data = reinterpret_cast<char*>(&about);
  const bool told = any >= 0 && ioctl(any, SIOCETHTOOL, &request) == 0;
  if (any >= 0) close(any);
  const std::string_view bus(about.bus_info, strnlen(about.bus_info, sizeof about.bus_info));
  return told && !bus.empty() && bus != "N/A";  // "N/A": a bridge
}

bool read_facts(Facts& ret_facts) {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    std::fprintf(stderr, "dtv_tv: the network cannot be read: %s\n", std::generic_category().message(errno).c_str());
    return false;
  }
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, freeifaddrs);
  Facts facts;
  std::map<std::string_view, Interface*> named;
  for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_PACKET || (each->ifa_flags & IFF_LOOPBACK) != 0) {
      continue;
    }
    const auto& link = *reinterpret_cast<const sockaddr_ll*>(each->ifa_addr);
    Interface& interface = facts[link.sll_ifindex];
    interface.name = each->ifa_name;
    interface.kind = kind_of(each->ifa_name, link);
    interface.runs = (each->ifa_flags & IFF_UP) != 0 && (each->ifa_flags & IFF_RUNNING) != 0;
    interface.idle = (each->ifa_flags & IFF_UP) == 0 && !is_real(each->ifa_name);
    named[each->ifa_name] = &interface;
  }
  for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || (each->ifa_addr->sa_family != AF_INET && each->ifa_addr->sa_family != AF_INET6)) {
      continue;
    }
    const std::string_view label =
        each->ifa_name;  // an address can have a label such as "eth0:1"; the interface is eth0
    const auto found = named.find(label.substr(0, label.find(':')));
    if (found != named.end()) found->second->addresses.insert(address_text(*each->ifa_addr, each->ifa_netmask));
  }
  ret_facts = std::move(facts);
  return true;
}

// ---- Notifications; the caller of these functions holds the lock ----

void notify(INT32 id, int index) {
  for (const Listener& listener : state.listeners) {
    events_post([listener, id, index] {
      listener.callback(listener.tag, id, reinterpret_cast<void*>(static_cast<std::intptr_t>(index)));
    });
  }
}

// While the cable is pulled, Ethernet interfaces raise no events.
bool is_connected(const Interface& interface) { return !state.lost || interface.kind != InterfaceKind::kEthernet; }

void notify_differences(const Facts& before, const Facts& after) {
  static const Interface& none = *new Interface;  // never destroyed: the thread may outlive main
  const auto look_up = [](const Facts& facts, int index) -> const Interface& {
    const auto found = facts.find(index);
    return found == facts.end() ? none : found->second;
  };
  const auto is_plugged = [](const Interface& each) { return each.kind == InterfaceKind::kEthernet && each.runs; };
  for (const auto& [index, old] : before) {
    if (!is_connected(old)) continue;
    if (is_plugged(old) && !is_plugged(look_up(after, index))) notify(VEXVAPI_NW_NFY_ID_ETHERNET_UNPLUG, index);
    if (old.kind == InterfaceKind::kWlan && !after.contains(index)) notify(VEXVAPI_NW_NFY_ID_WLAN_DEINIT_IND, index);
    if (!after.contains(index) && !old.addresses.empty()) notify(VEXVAPI_NW_NFY_ID_ADDRESS_CHANGED, index);
  }
  for (const auto& [index, now] : after) {
    if (!is_connected(now)) continue;
    const Interface& old = look_up(before, index);
    if (is_plugged(now) && !is_plugged(old)) notify(kPlugged, index);
    if (now.addresses != old.addresses) notify(VEXVAPI_NW_NFY_ID_ADDRESS_CHANGED, index);
  }
}

// Reads all facts and posts events for the changes. Returns false if they cannot be read.
bool update_facts() {
  Facts now;
  if (!read_facts(now)) return false;
  notify_differences(state.facts, now);
  state.facts = std::move(now);
  return true;
}

// ---- The thread ----

void run_network() {
  pthread_setname_np(pthread_self(), "dtv_tv-network");
  pollfd sources[] = {{state.netlink, POLLIN, 0}, {state.stop, POLLIN, 0}};
  while (poll(sources, std::size(sources), -1) >= 0 || errno == EINTR) {
    if (sources[1].revents != 0) return;
    char message;  // its content is not used: update_facts reads everything
    while (recv(state.netlink, &message, sizeof message, 0) >= 0 || errno == ENOBUFS || errno == EINTR) {
    }
    const std::lock_guard guard(state.lock);
    update_facts();
  }
}

int open_netlink() {
  const int opened = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  sockaddr_nl groups{};
  groups.nl_family = AF_NETLINK;
  groups.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
  if (opened < 0 || bind(opened, reinterpret_cast<const sockaddr*>(&groups), sizeof groups) == 0) return opened;
  const int reason = errno;
  close(opened);
  errno = reason;
  return -1;
}

void close_descriptors() {
  for (int* const each : {&state.netlink, &state.stop}) {
    if (*each >= 0) close(*each);
    *each = -1;
  }
}

// ---- The control ----

// Simulates pulling or plugging the cable. Returns false if the store refuses the change.
bool simulate(bool lost) {
  const std::lock_guard guard(state.lock);
  if (lost == state.lost) return true;
  const SettingValue values[] = {{kLost.key, static_cast<std::int64_t>(lost)}};
  if (!store_write(values)) return false;
  state.lost = lost;
  const auto cable = std::ranges::find_if(
      state.facts, [](const auto& each) { return each.second.kind == InterfaceKind::kEthernet && each.second.runs; });
  const int index = cable == state.facts.end() ? 0 : cable->first;
  notify(lost ? VEXVAPI_NW_NFY_ID_ETHERNET_UNPLUG : kPlugged, index);
  if (!lost) notify(VEXVAPI_NW_NFY_ID_ADDRESS_CHANGED, index);
  return true;
}

boost::json::object shown(int index, const Interface& interface) {
  const bool connected = is_connected(interface);
  const boost::json::array addresses(interface.addresses.begin(), interface.addresses.end());
  return {{"index", index},
          {"kind", kKindNames[static_cast<int>(interface.kind)]},
          {"state", connected && interface.runs ? "plugged" : "unplugged"},
          {"addresses", connected ? addresses : boost::json::array()}};
}

}  // namespace

INT32 a_vextvapi_nw_register(a_vextvapi_nw_nfy_fct callback, void* tag, UINT32* nfy_id) {
  if (callback == nullptr || nfy_id == nullptr) return -1;
  const std::lock_guard guard(state.lock);
  if (state.listeners.size() == kMostListeners) {
    return refuse_call(__func__, std::to_string(kMostListeners) + " listeners are registered, which is the maximum");
  }
  state.listeners.push_back({callback, tag});
  *nfy_id = static_cast<UINT32>(state.listeners.size());
  return 0;
}

namespace {

void load() {
  const std::lock_guard guard(state.lock);
  state.lost = store_read(kLost) != 0;
  state.listeners.clear();  // listeners register again each time the set is switched on
}

void start() {
  state.netlink = open_netlink();
  state.stop = eventfd(0, EFD_CLOEXEC);
  if (state.netlink < 0 || state.stop < 0) {
    std::fprintf(stderr, "dtv_tv: network changes will not be reported: %s\n",
                 std::generic_category().message(errno).c_str());
    close_descriptors();
    return;
  }
  {
    const std::lock_guard guard(state.lock);
    read_facts(state.facts);  // from here on netlink reports changes
  }
  state.thread = std::thread(run_network);
}

void stop() {
  if (state.thread.joinable()) {
    eventfd_write(state.stop, 1);
    state.thread.join();
  }
  close_descriptors();
}

bool reset() { return simulate(false); }

// Reports only a pulled cable; "network" shows the network.
void report(boost::json::object& answer) {
  const std::lock_guard guard(state.lock);
  if (state.lost) answer["network"] = "lost";
}

boost::json::object network_command(Arguments arguments) {
  const std::string_view action = arguments.empty() ? "" : arguments[0];
  if (!action.empty() && action != "lose" && action != "restore") {
    return reply_takes("network", "lose or restore", action);
  }
  if (!action.empty() && !simulate(action == "lose")) return reply_not_kept();
  const std::lock_guard guard(state.lock);
  // The thread may be late. Updating here posts the events of all that the reply shows.
  if (!update_facts()) return reply_see_log("the network cannot be read");
  // The kernel may have made virtual interfaces that nobody uses. They are shown only where there is nothing else.
  const auto is_used = [](const auto& each) { return !each.second.idle || !each.second.addresses.empty(); };
  const bool any = std::ranges::any_of(state.facts, is_used);
  boost::json::object interfaces;
  for (const auto& each : state.facts)
    if (!any || is_used(each)) interfaces[each.second.name] = shown(each.first, each.second);
  return {{"cable", state.lost ? "pulled" : "as the machine has it"}, {"interfaces", std::move(interfaces)}};
}

constexpr Command kCommands[] = {
    {"network", "[lose|restore]", 1, "Shows the network interfaces; lose simulates a pulled cable until restore",
     network_command},
};

}  // namespace

const Room room_network = {
    .commands = kCommands, .load = load, .reset = reset, .report = report, .start = start, .stop = stop};
