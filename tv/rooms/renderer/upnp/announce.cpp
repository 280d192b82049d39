#include "rooms/renderer/upnp/announce.h"

#include <libgupnp/gupnp.h>

#include <algorithm>
#include <utility>

#include "rooms/home_network/near.h"
#include "rooms/home_network/upnp/thread.h"

namespace {

constexpr unsigned kMaxAge = 1800;  // s until an announcement expires; GSSDP repeats it before

std::vector<GSSDPResourceGroup*>& groups = *new std::vector<GSSDPResourceGroup*>;
bool ends_with_thread = false;  // the thread's end calls renderer_withdraw

std::string host_of(GUPnPContext* context) {
  const char* const host = gssdp_client_get_host_ip(GSSDP_CLIENT(context));
  return host == nullptr ? "" : host;
}

GSSDPResourceGroup* announce_to(GUPnPContext* context, const std::string& location, const Announcement& announcement) {
  GSSDPResourceGroup* const group = gssdp_resource_group_new(GSSDP_CLIENT(context));
  gssdp_resource_group_set_max_age(group, kMaxAge);
  const auto add = [&](const std::string& target) {
    const std::string name = target == announcement.udn ? target : announcement.udn + "::" + target;
    gssdp_resource_group_add_resource_simple(group, target.c_str(), name.c_str(), location.c_str());
  };
  add("upnp:rootdevice");
  add(announcement.udn);
  for (const std::string& type : announcement.types) add(type);
  gssdp_resource_group_set_available(group, TRUE);
  return group;
}

}  // namespace

std::vector<std::string> renderer_hosts() {
  std::vector<std::string> hosts;
  for (GUPnPContext* const context : upnp_contexts()) {
    const std::string host = host_of(context);
    if (!host.empty() && std::ranges::find(hosts, host) == hosts.end()) hosts.push_back(host);
  }
  return hosts;
}

void renderer_announce(const Announcement& announcement) {
  renderer_withdraw();
  for (GUPnPContext* const context : upnp_contexts()) {
    for (const std::string& location : announcement.locations) {
      HttpAddress address;
      if (read_http_address(location, address) && address.host == host_of(context))
        groups.push_back(announce_to(context, location, announcement));
    }
  }
  if (std::exchange(ends_with_thread, true)) return;
  upnp_at_end([] {
    renderer_withdraw();
    ends_with_thread = false;
  });
}

void renderer_withdraw() {
  for (GSSDPResourceGroup* const group : std::exchange(groups, {})) g_object_unref(group);
}
