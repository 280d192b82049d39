// Tells the network by SSDP that the renderer is there, and answers searches for it. On the home network's thread.
#pragma once

#include <string>
#include <vector>

// The set's addresses in the networks of the home network's interfaces.
std::vector<std::string> renderer_hosts();

struct Announcement {
  std::vector<std::string> locations;  // of the description, one for each host that could be used
  std::string udn;
  std::vector<std::string> types;  // of the device and its services
};

// Announces the renderer until renderer_withdraw or the thread's end, which say that it has gone.
void renderer_announce(const Announcement& announcement);
void renderer_withdraw();
