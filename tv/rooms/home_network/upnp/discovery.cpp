// Finds servers. GSSDP receives their announcements; this file fetches their descriptions, within limits.
#include <libgupnp/gupnp.h>

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "core/text.h"
#include "rooms/home_network/near.h"
#include "rooms/home_network/upnp/fetch.h"
#include "rooms/home_network/upnp/servers.h"
#include "rooms/home_network/upnp/thread.h"
#include "rooms/home_network/upnp/xml.h"

namespace {

constexpr const char* kTarget = "urn:schemas-upnp-org:device:MediaServer:1";  // and newer versions
constexpr std::string_view kDevice = "urn:schemas-upnp-org:device:MediaServer:";
constexpr std::string_view kService = "urn:schemas-upnp-org:service:ContentDirectory:";
constexpr std::uint32_t kDescriptionMillis = 5000;
constexpr int kMostAttempts = 3;      // to fetch a description
constexpr guint kNextAttempt = 2000;  // ms
// The search is repeated, since datagrams get lost.
constexpr guint kRescan = 30;   // s
constexpr int kMostUnseen = 2;  // searches that a server may miss after its browser has forgotten it
// The first pause before servers that failed, or for which there was no place, are searched for again. Each further
// pause is twice as long, up to the longest.
constexpr guint kFirstPause = 5;  // s
constexpr guint kLongestPause = 60;
// Numbers of this file's fetches; the rooms' numbers are smaller.
constexpr std::uint64_t kFirstCall = std::uint64_t{1} << 62;

// A server that was announced.
struct Announced {
  std::size_t interface = 0;  // index of the interface on which it was announced first
  std::string location = {};
  std::string host = {};
  int attempts = 0;
  bool described = false;
  int unseen = -1;  // searches since its browser has forgotten it; -1: the browser tells when it has gone
};

// What has been heard through a network interface.
struct Interface {
  GSSDPResourceBrowser* browser = nullptr;
  std::size_t announcements = 0;  // that the browser remembers at most
  bool missed = false;            // a server that may be taken later has been left out
};

struct Discovery {
  UpnpSearch search;
  bool active = false;
  bool ends_with_thread = false;  // an action for upnp_at_end has been added
  std::vector<Interface> interfaces;
  bool restarting = false;  // a browser is being restarted: servers that it reports as gone are not lost
  std::map<std::string, Announced> servers;  // by UDN, at most kMostServers
  std::deque<std::string> waiting;           // UDNs whose descriptions are to be fetched
  std::size_t fetching = 0;
  std::uint64_t next_call = kFirstCall;
  std::map<std::uint64_t, std::string> calls;  // UDNs of the descriptions that are being fetched
  GSource* rescan = nullptr;
  GSource* retry = nullptr;  // null: no server has been left out
  guint pause = kFirstPause;
};

Discovery& self = *new Discovery;

// The UDN in a name such as "uuid:4d69...::urn:schemas-upnp-org:device:MediaServer:1"; empty: it cannot be used.
std::string udn_of(std::string_view usn) {
  const std::string_view udn = usn.substr(0, usn.find("::"));
  const bool fits = udn.starts_with("uuid:") && udn.size() <= kLongestUdn &&
                    std::ranges::all_of(udn, [](unsigned char c) { return c > ' ' && c < 0x7F; });
  return fits ? std::string(udn) : std::string();
}

std::string resolved(const std::string& base, const std::string& reference) {
  gchar* const address = g_uri_resolve_relative(base.c_str(), reference.c_str(), G_URI_FLAGS_NONE, nullptr);
  std::string text = address == nullptr ? "" : address;
  g_free(address);
  return text;
}

// The media server with this UDN among the element's devices and those embedded in them, at most 256 levels deep
// (libxml2's limit).
const xmlNode* device_of(const xmlNode* element, const std::string& udn) {
  for (const xmlNode* each = xml_child(element, "device"); each != nullptr; each = xml_next(each, "device")) {
    if (xml_text(xml_child(each, "UDN")) == udn && xml_text(xml_child(each, "deviceType")).starts_with(kDevice))
      return each;
    if (const xmlNode* const inner = device_of(xml_child(each, "deviceList"), udn)) return inner;
  }
  return nullptr;
}

std::optional<UpnpServer> read_description(std::string_view text, const std::string& udn, const Announced& announced) {
  const XmlDocument document = xml_read(text);
  if (document == nullptr) return std::nullopt;
  const xmlNode* const root = xmlDocGetRootElement(document.get());
  const xmlNode* const device = device_of(root, udn);
  if (device == nullptr) return std::nullopt;
  std::string base = xml_text(xml_child(root, "URLBase"));
  if (base.empty()) base = announced.location;
  const xmlNode* service = xml_child(xml_child(device, "serviceList"), "service");
  while (service != nullptr && !xml_text(xml_child(service, "serviceType")).starts_with(kService))
    service = xml_next(service, "service");
  if (service == nullptr) return std::nullopt;
  UpnpServer server;
  server.udn = udn;
  server.name = clean_text(xml_text(xml_child(device, "friendlyName")), kLongestServerName);
  if (server.name.empty()) server.name = announced.host;
  server.address = announced.host;
  server.interface = upnp_interfaces()[announced.interface];
  server.control = resolved(base, xml_text(xml_child(service, "controlURL")));
  server.service = xml_text(xml_child(service, "serviceType"));
  const bool is_version = server.service.size() == kService.size() + 1 && g_ascii_isdigit(server.service.back());
  if (!is_version || !upnp_is_near(server.control)) return std::nullopt;
  return server;
}

void end_timer(GSource*& timer) {
  if (timer == nullptr) return;
  g_source_destroy(timer);
  g_source_unref(std::exchange(timer, nullptr));
}

// A browser remembers every announcement for half an hour, and reports no server twice; this is how it forgets them.
// A server that is there answers the new search.
void restart(std::size_t number) {
  Interface& interface = self.interfaces[number];
  self.restarting = true;
  gssdp_resource_browser_set_active(interface.browser, FALSE);
  self.restarting = false;
  interface.announcements = 0;
  interface.missed = false;
  for (auto& [udn, announced] : self.servers)
    if (announced.interface == number) announced.unseen = 0;
  gssdp_resource_browser_set_active(interface.browser, TRUE);
}

gboolean retry(gpointer) {
  end_timer(self.retry);
  for (std::size_t i = 0; i < self.interfaces.size(); ++i)
    if (self.interfaces[i].missed) restart(i);
  return G_SOURCE_REMOVE;
}

// The browser would not report this server again.
void look_again(std::size_t interface) {
  self.interfaces[interface].missed = true;
  if (self.retry != nullptr) return;
  self.retry = g_timeout_source_new_seconds(self.pause);
  self.pause = std::min(self.pause * 2, kLongestPause);
  g_source_set_callback(self.retry, retry, nullptr, nullptr);
  g_source_attach(self.retry, g_main_context_get_thread_default());
}

void fetch_next();

void try_again(const std::string& udn) {
  GSource* const source = g_timeout_source_new(kNextAttempt);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        const std::string& waited = *static_cast<std::string*>(data);
        const auto found = self.servers.find(waited);
        if (self.active && found != self.servers.end() && !found->second.described) self.waiting.push_back(waited);
        fetch_next();
        return G_SOURCE_REMOVE;
      },
      std::make_unique<std::string>(udn).release(), [](gpointer data) { delete static_cast<std::string*>(data); });
  g_source_attach(source, g_main_context_get_thread_default());
  g_source_unref(source);
}

void described(std::uint64_t call, const std::string& text, const std::string& why) {
  --self.fetching;
  const auto node = self.calls.extract(call);
  const std::string udn = node.empty() ? std::string() : node.mapped();
  const auto found = self.servers.find(udn);
  if (self.active && found != self.servers.end()) {
    Announced& announced = found->second;
    if (!why.empty()) {
      if (++announced.attempts < kMostAttempts) {
        try_again(udn);
      } else {
        const std::size_t interface = announced.interface;
        self.servers.erase(found);
        look_again(interface);
      }
    } else if (const auto server = read_description(text, udn, announced)) {
      announced.described = true;
      self.search.found(*server);
    } else {
      self.servers.erase(found);
      self.search.refused();
    }
  }
  fetch_next();
}

void fetch_next() {
  while (self.active && !self.waiting.empty() && self.fetching < kMostDescriptions) {
    const std::string udn = std::move(self.waiting.front());
    self.waiting.pop_front();
    const auto found = self.servers.find(udn);
    if (found == self.servers.end()) continue;
    const std::uint64_t call = self.next_call++;
    const auto text = std::make_shared<std::string>();
    ++self.fetching;
    self.calls[call] = udn;
    fetch_start(call, {.address = found->second.location,
                       .most = kLongestDescription,
                       .millis = kDescriptionMillis,
                       .chunk = [text](std::string_view chunk) { return text->append(chunk), true; },
                       .done = [call, text](const std::string& why) { described(call, *text, why); }});
  }
}

gboolean on_restart(gpointer interface) {
  if (self.active && GPOINTER_TO_SIZE(interface) < self.interfaces.size()) restart(GPOINTER_TO_SIZE(interface));
  return G_SOURCE_REMOVE;
}

void count_announcement(std::size_t interface) {
  if (++self.interfaces[interface].announcements != kMostAnnouncements) return;
  // Restarts the browser later, since it is reporting an announcement now.
  GSource* const source = g_idle_source_new();
  g_source_set_callback(source, on_restart, GSIZE_TO_POINTER(interface), nullptr);
  g_source_attach(source, g_main_context_get_thread_default());
  g_source_unref(source);
}

// Chooses the first address whose host is near. False: there is none.
bool choose_location(const GList* locations, std::string& ret_location, std::string& ret_host) {
  HttpAddress read;
  for (const GList* each = locations; each != nullptr; each = each->next) {
    const auto* const location = static_cast<const char*>(each->data);
    if (!upnp_is_near(location) || !read_http_address(location, read)) continue;
    ret_location = location;
    ret_host = read.host;
    return true;
  }
  return false;
}

void on_available(GSSDPResourceBrowser*, const char* usn, GList* locations, gpointer data) {
  const std::size_t interface = GPOINTER_TO_SIZE(data);
  count_announcement(interface);
  const std::string udn = udn_of(usn);
  std::string location;
  std::string host;
  if (udn.empty() || !choose_location(locations, location, host)) return self.search.refused();
  const auto found = self.servers.find(udn);
  if (found != self.servers.end()) {
    if (found->second.interface == interface) found->second.unseen = -1;
    if (found->second.interface != interface || found->second.location == location) return;
  } else {
    const auto of_host =
        std::ranges::count_if(self.servers, [&](const auto& each) { return each.second.host == host; });
    if (self.servers.size() >= kMostServers || static_cast<std::size_t>(of_host) >= kMostServersPerAddress) {
      look_again(interface);
      return self.search.refused();
    }
  }
  self.servers[udn] = {.interface = interface, .location = location, .host = host};
  self.waiting.push_back(udn);
  fetch_next();
}

void on_unavailable(GSSDPResourceBrowser*, const char* usn, gpointer data) {
  const std::size_t interface = GPOINTER_TO_SIZE(data);
  if (self.restarting) return;
  if (std::size_t& count = self.interfaces[interface].announcements; count > 0) --count;
  const auto found = self.servers.find(udn_of(usn));
  if (found == self.servers.end() || found->second.interface != interface) return;
  const std::string udn = found->first;
  const bool was_described = found->second.described;
  self.servers.erase(found);
  if (was_described) self.search.lost(udn);
}

// Ends what is known of servers that have not answered since their browser forgot them.
void drop_unseen() {
  for (auto each = self.servers.begin(); each != self.servers.end();) {
    Announced& announced = each->second;
    if (announced.unseen < 0 || ++announced.unseen <= kMostUnseen) {
      ++each;
      continue;
    }
    const std::string udn = each->first;
    const bool was_described = announced.described;
    each = self.servers.erase(each);
    if (was_described) self.search.lost(udn);
  }
}

gboolean rescan(gpointer) {
  drop_unseen();
  if (self.retry == nullptr) self.pause = kFirstPause;
  for (const Interface& each : self.interfaces) gssdp_resource_browser_rescan(each.browser);
  return G_SOURCE_CONTINUE;
}

}  // namespace

void upnp_search_stop() {
  self.active = false;
  self.search = {};
  for (const Interface& interface : std::exchange(self.interfaces, {})) {
    GSSDPResourceBrowser* const each = interface.browser;
    g_signal_handlers_disconnect_matched(each, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr,
                                         reinterpret_cast<gpointer>(on_available), nullptr);
    g_signal_handlers_disconnect_matched(each, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr,
                                         reinterpret_cast<gpointer>(on_unavailable), nullptr);
    g_object_unref(each);
  }
  self.servers.clear();
  self.waiting.clear();
  while (!self.calls.empty()) fetch_cancel(self.calls.begin()->first);  // described takes it out
  end_timer(self.rescan);
  end_timer(self.retry);
  self.pause = kFirstPause;
}

void upnp_search_start(UpnpSearch search) {
  upnp_search_stop();
  self.search = std::move(search);
  self.active = true;
  if (!std::exchange(self.ends_with_thread, true)) {
    upnp_at_end([] {
      upnp_search_stop();
      self.ends_with_thread = false;
    });
  }
  std::size_t interface = 0;
  for (GUPnPContext* const context : upnp_contexts()) {
    GSSDPResourceBrowser* const browser = gssdp_resource_browser_new(GSSDP_CLIENT(context), kTarget);
    g_signal_connect(browser, "resource-available", G_CALLBACK(on_available), GSIZE_TO_POINTER(interface));
    g_signal_connect(browser, "resource-unavailable", G_CALLBACK(on_unavailable), GSIZE_TO_POINTER(interface));
    self.interfaces.push_back({.browser = browser});
    gssdp_resource_browser_set_active(browser, TRUE);
    ++interface;
  }
  self.rescan = g_timeout_source_new_seconds(kRescan);
  g_source_set_callback(self.rescan, rescan, nullptr, nullptr);
  g_source_attach(self.rescan, g_main_context_get_thread_default());
}
