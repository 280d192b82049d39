// Decides which hosts the set may exchange data with. It uses neither GLib nor a room, since libdtv_tv.so and
// libdtv_upnp.so both contain it.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

// "lo,eth0" as a list, without empty and repeated names. Longer names than an interface can have are left out.
std::vector<std::string> interfaces_of(std::string_view names);

struct HttpAddress {
  std::string host = {};  // an IPv4 or IPv6 address, without brackets
  int port = 80;
};

// Reads an http address whose host is a number, such as "http://192.168.1.7:8200/desc.xml". False: it is none, or is
// longer than kLongestAddress bytes.
inline constexpr std::size_t kLongestAddress = 2048;
bool read_http_address(std::string_view address, HttpAddress& ret_address);

// Whether one of the interfaces has an address in the same network as the host, by the interface's netmask.
bool is_near(const std::string& host, std::span<const std::string> interfaces);
