#include "rooms/home_network/near.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "base/text.h"

namespace {

struct AddressesEnd {
  void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

using Bytes = std::vector<unsigned char>;

Bytes bytes_of(const sockaddr& address) {
  if (address.sa_family == AF_INET) {
    in_addr number{};
    std::memcpy(&number, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, sizeof number);
    const auto* const first = reinterpret_cast<const unsigned char*>(&number);
    return {first, first + sizeof number};
  }
  if (address.sa_family == AF_INET6) {
    const auto& number = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
    const auto* const first = reinterpret_cast<const unsigned char*>(&number);
    return {first, first + sizeof number};
  }
  return {};
}

Bytes bytes_of(const std::string& host) {
  Bytes bytes(sizeof(in6_addr));
  if (inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1) return bytes;
  bytes.resize(sizeof(in_addr));
  if (inet_pton(AF_INET, host.c_str(), bytes.data()) == 1) return bytes;
  return {};
}

bool in_network(const Bytes& host, const Bytes& own, const Bytes& mask) {
  if (host.empty() || host.size() != own.size() || host.size() != mask.size()) return false;
  for (std::size_t i = 0; i < host.size(); ++i)
    if (((host[i] ^ own[i]) & mask[i]) != 0) return false;
  return true;
}

}  // namespace

std::vector<std::string> interfaces_of(std::string_view names) {
  std::vector<std::string> list;
  while (!names.empty()) {
    const std::size_t end = std::min(names.find(','), names.size());
    const std::string name(names.substr(0, end));
    names.remove_prefix(std::min(end + 1, names.size()));
    if (!name.empty() && name.size() < IF_NAMESIZE && std::ranges::find(list, name) == list.end()) list.push_back(name);
  }
  return list;
}

bool read_http_address(std::string_view address, HttpAddress& ret_address) {
  constexpr std::string_view kScheme = "http://";
  if (address.size() > kLongestAddress || !address.starts_with(kScheme)) return false;
  if (std::ranges::any_of(address, [](unsigned char c) { return c <= ' ' || c == 0x7F; })) return false;
  std::string_view authority = address.substr(kScheme.size());
  authority = authority.substr(0, authority.find_first_of("/?#"));
  HttpAddress read;
  std::string_view port;
  if (authority.starts_with('[')) {
    const std::size_t end = authority.find(']');
    if (end == std::string_view::npos) return false;
    read.host = authority.substr(1, end - 1);
    port = authority.substr(end + 1);
  } else {
    const std::size_t end = std::min(authority.find(':'), authority.size());
    read.host = authority.substr(0, end);
    port = authority.substr(end);
  }
  if (!port.empty()) {
    const auto number = port[0] == ':' ? parse_number<int>(port.substr(1)) : std::nullopt;
    if (!number || *number < 1 || *number > 65535) return false;
    read.port = *number;
  }
  if (bytes_of(read.host).empty()) return false;
  ret_address = std::move(read);
  return true;
}

bool is_near(const std::string& host, std::span<const std::string> interfaces) {
  const Bytes bytes = bytes_of(host);
  ifaddrs* found = nullptr;
  if (bytes.empty() || getifaddrs(&found) != 0) return false;
  const std::unique_ptr<ifaddrs, AddressesEnd> list(found);
  for (const ifaddrs* each = found; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || each->ifa_netmask == nullptr) continue;
    if (std::ranges::find(interfaces, std::string_view(each->ifa_name)) == interfaces.end()) continue;
    if (in_network(bytes, bytes_of(*each->ifa_addr), bytes_of(*each->ifa_netmask))) return true;
  }
  return false;
}
