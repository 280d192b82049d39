// Announces the renderer by SSDP, and answers searches for it. All functions are for the home network's thread.
#pragma once

#include <string>
#include <vector>

// The set's own addresses on the interfaces of the home network (home_interfaces).
std::vector<std::string> renderer_hosts();

struct Announcement {
  std::vector<std::string> locations;  // addresses of the description, one for each address at which the server listens
  std::string udn;
  std::vector<std::string> types;  // of the device and its services
};

// Announces the renderer until renderer_withdraw or the thread's end, both of which announce that it has gone.
void renderer_announce(const Announcement& announcement);
void renderer_withdraw();
