// Which servers there are. GSSDP hears their announcements; their descriptions are fetched within limits.
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
constexpr guint kRescan = 30;  // s
// Calls of this part have numbers of their own.
constexpr std::uint64_t kFirstCall = std::uint64_t{1} << 62;

// A server that was announced.
struct Announced {
  std::size_t interface = 0;  // the number of the one that it was found through first
  std::string location = {};
  std::string host = {};
  int attempts = 0;
  bool described = false;
};

struct Discovery {
  UpnpSearch search;
  bool active = false;
  bool ends_with_thread = false;                // upnp_at_end knows of it
  std::vector<GSSDPResourceBrowser*> browsers;  // one for each interface
  std::vector<std::size_t> announcements;       // that each of them remembers at most
  bool restarting = false;                      // a browser forgets all: no server is lost for that
  std::map<std::string, Announced> servers;     // by UDN, at most kMostServers
  std::deque<std::string> waiting;              // UDNs whose descriptions are to be fetched
  std::size_t fetching = 0;
  std::uint64_t next_call = kFirstCall;
  std::map<std::uint64_t, std::string> calls;  // the descriptions that are being fetched: UDNs
  GSource* rescan = nullptr;
};

Discovery& self = *new Discovery;

// "uuid:4d69...::urn:schemas-upnp-org:device:MediaServer:1"; empty: the name is not usable.
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

// The device of this UDN among the element's device and those embedded in it, which libxml2 nests 256 deep at most.
const xmlNode* device_of(const xmlNode* element, const std::string& udn) {
  for (const xmlNode* each = xml_child(element, "device"); each != nullptr; each = xml_next(each->next, "device")) {
    if (xml_text(xml_child(each, "UDN")) == udn && xml_text(xml_child(each, "deviceType")).starts_with(kDevice))
      return each;
    if (const xmlNode* const inner = device_of(xml_child(each, "deviceList"), udn)) return inner;
    if (each->next == nullptr) break;
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
    service = service->next == nullptr ? nullptr : xml_next(service->next, "service");
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

void fetch_next();

void try_again(const std::string& udn) {
  GSource* const source = g_timeout_source_new(kNextAttempt);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        const std::unique_ptr<std::string> owned(static_cast<std::string*>(data));
        const auto found = self.servers.find(*owned);
        if (self.active && found != self.servers.end() && !found->second.described) self.waiting.push_back(*owned);
        fetch_next();
        return G_SOURCE_REMOVE;
      },
      std::make_unique<std::string>(udn).release(), nullptr);
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
        self.servers.erase(found);
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

// A browser remembers every announcement for half an hour; this is how it forgets them.
void restart(std::size_t interface) {
  self.restarting = true;
  gssdp_resource_browser_set_active(self.browsers[interface], FALSE);
  self.restarting = false;
  self.announcements[interface] = 0;
  gssdp_resource_browser_set_active(self.browsers[interface], TRUE);
}

gboolean on_restart(gpointer interface) {
  if (self.active && GPOINTER_TO_SIZE(interface) < self.browsers.size()) restart(GPOINTER_TO_SIZE(interface));
  return G_SOURCE_REMOVE;
}

void count_announcement(std::size_t interface) {
  if (++self.announcements[interface] != kMostAnnouncements) return;
  // Not now: the browser is reporting an announcement.
  GSource* const source = g_idle_source_new();
  g_source_set_callback(source, on_restart, GSIZE_TO_POINTER(interface), nullptr);
  g_source_attach(source, g_main_context_get_thread_default());
  g_source_unref(source);
}

// The first of the addresses whose host is near, and that host.
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
    if (found->second.interface != interface || found->second.location == location) return;
  } else {
    const auto of_host =
        std::ranges::count_if(self.servers, [&](const auto& each) { return each.second.host == host; });
    if (self.servers.size() >= kMostServers || static_cast<std::size_t>(of_host) >= kMostServersPerAddress)
      return self.search.refused();
  }
  self.servers[udn] = {.interface = interface, .location = location, .host = host};
  self.waiting.push_back(udn);
  fetch_next();
}

void on_unavailable(GSSDPResourceBrowser*, const char* usn, gpointer data) {
  const std::size_t interface = GPOINTER_TO_SIZE(data);
  if (self.restarting) return;
  if (self.announcements[interface] > 0) --self.announcements[interface];
  const auto found = self.servers.find(udn_of(usn));
  if (found == self.servers.end() || found->second.interface != interface) return;
  const std::string udn = found->first;
  const bool was_described = found->second.described;
  self.servers.erase(found);
  if (was_described) self.search.lost(udn);
}

gboolean rescan(gpointer) {
  for (GSSDPResourceBrowser* const each : self.browsers) gssdp_resource_browser_rescan(each);
  return G_SOURCE_CONTINUE;
}

}  // namespace

void upnp_search_stop() {
  self.active = false;
  self.search = {};
  for (GSSDPResourceBrowser* const each : std::exchange(self.browsers, {})) {
    g_signal_handlers_disconnect_matched(each, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr,
                                         reinterpret_cast<gpointer>(on_available), nullptr);
    g_signal_handlers_disconnect_matched(each, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr,
                                         reinterpret_cast<gpointer>(on_unavailable), nullptr);
    g_object_unref(each);
  }
  self.announcements.clear();
  self.servers.clear();
  self.waiting.clear();
  for (const auto& [call, udn] : self.calls) fetch_cancel(call);
  if (self.rescan == nullptr) return;
  g_source_destroy(self.rescan);
  g_source_unref(std::exchange(self.rescan, nullptr));
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
    self.browsers.push_back(browser);
    self.announcements.push_back(0);
    gssdp_resource_browser_set_active(browser, TRUE);
    ++interface;
  }
  self.rescan = g_timeout_source_new_seconds(kRescan);
  g_source_set_callback(self.rescan, rescan, nullptr, nullptr);
  g_source_attach(self.rescan, g_main_context_get_thread_default());
}
