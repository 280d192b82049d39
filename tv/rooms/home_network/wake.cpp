// Wakes a server by a packet with the address of its network card.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>

#include "base/text.h"
#include "rooms/home_network/parts.h"

namespace {

constexpr std::size_t kCard = 6;             // bytes of a card's address
constexpr std::size_t kTimes = 16;           // repetitions of the address in a packet
constexpr std::size_t kTableBytes = 262144;  // of the kernel's table that are read

using Card = std::array<unsigned char, kCard>;

// Reads an address such as "02:00:5e:10:00:01". False: it is none, or has only zeros.
bool read_card(std::string_view mac, Card& ret_card) {
  if (mac.size() != kCard * 3 - 1) return false;
  Card card{};
  for (std::size_t i = 0; i < kCard; ++i) {
    const auto byte = parse_number<unsigned>(mac.substr(i * 3, 2), 16);
    if (!byte || (i + 1 < kCard && mac[i * 3 + 2] != ':')) return false;
    card[i] = static_cast<unsigned char>(*byte);
  }
  if (card == Card{}) return false;
  ret_card = card;
  return true;
}

struct AddressesEnd {
  void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

// The address that all hosts on the interface receive. The loopback interface does not state one.
bool broadcast_address(const ifaddrs& each, sockaddr_in& ret_address) {
  if (each.ifa_addr == nullptr || each.ifa_addr->sa_family != AF_INET) return false;
  sockaddr_in address{};
  if ((each.ifa_flags & IFF_LOOPBACK) != 0) {
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK | 0x00FFFFFF);
  } else if ((each.ifa_flags & IFF_BROADCAST) != 0 && each.ifa_broadaddr != nullptr) {
    std::memcpy(&address, each.ifa_broadaddr, sizeof address);
  } else {
    return false;
  }
  ret_address = address;
  return true;
}

}  // namespace

std::string mac_of(std::string_view table, std::string_view address) {
  std::istringstream lines{std::string(table)};
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    const std::vector<std::string> row{std::istream_iterator<std::string>(words), {}};
    Card card{};
    // Address, type, flags, hardware address, mask, device.
    if (row.size() >= 4 && row[0] == address && read_card(row[3], card)) return row[3];
  }
  return {};
}

std::string mac_now(std::string_view address) {
  std::ifstream file("/proc/net/arp");
  std::string table(kTableBytes, '\0');
  file.read(table.data(), static_cast<std::streamsize>(table.size()));
  table.resize(static_cast<std::size_t>(file.gcount()));
  return mac_of(table, address);
}

bool wake_card(const std::string& mac, const std::vector<std::string>& interfaces, int port) {
  Card card{};
  if (!read_card(mac, card)) return false;
  std::vector<unsigned char> packet(kCard, 0xFF);
  for (std::size_t i = 0; i < kTimes; ++i) packet.insert(packet.end(), card.begin(), card.end());
  ifaddrs* found = nullptr;
  if (getifaddrs(&found) != 0) return false;
  const std::unique_ptr<ifaddrs, AddressesEnd> list(found);
  const int socket_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket_fd < 0) return false;
  const int on = 1;
  setsockopt(socket_fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  bool sent = false;
  for (const ifaddrs* each = found; each != nullptr; each = each->ifa_next) {
    sockaddr_in address{};
    if (std::ranges::find(interfaces, std::string_view(each->ifa_name)) == interfaces.end()) continue;
    if (!broadcast_address(*each, address)) continue;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const ssize_t bytes = sendto(socket_fd, packet.data(), packet.size(), MSG_DONTWAIT,
                                 reinterpret_cast<const sockaddr*>(&address), sizeof address);
    sent = sent || bytes == static_cast<ssize_t>(packet.size());
  }
  close(socket_fd);
  return sent;
}
