// What the socket library gives up it closes without a word, or with a page of its own. These are the words instead.
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "server.h"

std::uint64_t server_received(int socket) {
  tcp_info info{};
  socklen_t length = sizeof info;
  return getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 ? info.tcpi_bytes_received : 0;
}

void server_last_word(int socket, const HttpAnswer& answer) {
  std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " \r\ncontent-type: " + answer.type +
                     "\r\ncontent-length: " + std::to_string(answer.body.size()) + "\r\nconnection: close\r\n";
  if (!answer.allow.empty()) text += "allow: " + answer.allow + "\r\n";
  text += "\r\n" + answer.body;
  if (send(socket, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) return;
  shutdown(socket, SHUT_WR);
  // A socket that is closed with bytes unread resets the connection, and the answer may be lost with it.
  constexpr int most_reads = 64;
  char unread[16 * 1024];
  for (int reads = 0; reads < most_reads && recv(socket, unread, sizeof unread, MSG_DONTWAIT) > 0;) ++reads;
}
