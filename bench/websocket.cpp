#include "websocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

static constexpr std::size_t kReadSize = 256 * 1024;

enum Opcode : std::uint8_t { kText = 1, kClose = 8, kPing = 9, kPong = 10 };

void fail(const std::string& what) {
  fprintf(stderr, "bench_client: %s\n", what.c_str());
  exit(1);
}

Connection websocket_connect(int port) {
  Connection connection;
  connection.socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int on = 1;
  static constexpr timeval kPatience = {.tv_sec = 10, .tv_usec = 0};
  setsockopt(connection.socket, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  setsockopt(connection.socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (connect(connection.socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    fail(std::string("cannot connect: ") + strerror(errno));
  websocket_send(connection, "GET /jsonrpc HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                                 "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                                 "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\nSec-WebSocket-Version: 13\r\n\r\n");
  for (;;) {
    websocket_read(connection);
    const std::string_view head(connection.received.data(), connection.received.size());
    const std::size_t end = head.find("\r\n\r\n");
    if (end == std::string_view::npos) continue;
    if (!head.starts_with("HTTP/1.1 101")) fail("the server refused the upgrade: " + std::string(head));
    connection.taken = end + 4;
    return connection;
  }
}

static std::string make_frame(Opcode opcode, std::string_view content) {
  // There must be a mask; to a server it makes no difference that it is always the same.
  static constexpr unsigned char kMask[4] = {0x5A, 0xA5, 0x3C, 0xC3};
  std::string frame(1, static_cast<char>(0x80 | opcode));
  if (content.size() < 126) {
    frame += static_cast<char>(0x80 | content.size());
  } else {
    if (content.size() > 0xFFFF) fail("the message is too long");
    frame += static_cast<char>(0x80 | 126);
    frame += static_cast<char>(content.size() >> 8);
    frame += static_cast<char>(content.size() & 0xFF);
  }
  frame.append(reinterpret_cast<const char*>(kMask), sizeof kMask);
  for (std::size_t i = 0; i < content.size(); ++i) frame += static_cast<char>(content[i] ^ kMask[i % sizeof kMask]);
  return frame;
}

std::string websocket_frame(std::string_view text) { return make_frame(kText, text); }

void websocket_send(Connection& connection, std::string_view frames) {
  while (!frames.empty()) {
    const ssize_t sent = send(connection.socket, frames.data(), frames.size(), MSG_NOSIGNAL);
    if (sent < 0) fail(std::string("cannot send: ") + strerror(errno));
    frames.remove_prefix(static_cast<std::size_t>(sent));
  }
}

void websocket_read(Connection& connection) {
  std::vector<char>& received = connection.received;
  received.erase(received.begin(), received.begin() + static_cast<std::ptrdiff_t>(connection.taken));
  connection.taken = 0;
  const std::size_t kept = received.size();
  // Grows once and keeps its memory: resize clears only what is new, so the room is not cleared at every read.
  static thread_local std::vector<char> room(kReadSize);
  const ssize_t count = recv(connection.socket, room.data(), room.size(), 0);
  if (count < 0 && errno == EAGAIN) fail("nothing came within 10 s");
  if (count < 0) fail(std::string("cannot receive: ") + strerror(errno));
  if (count == 0) fail("the server closed the connection");
  received.resize(kept + static_cast<std::size_t>(count));
  memcpy(received.data() + kept, room.data(), static_cast<std::size_t>(count));
}

bool websocket_next(Connection& connection, std::string_view& ret_text) {
  for (;;) {
    const std::string_view bytes(connection.received.data() + connection.taken,
                                 connection.received.size() - connection.taken);
    if (bytes.size() < 2) return false;
    const auto byte = [&](std::size_t i) { return static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])); };
    std::uint64_t length = byte(1) & 0x7F;
    const std::size_t extra = length == 126 ? 2 : length == 127 ? 8 : 0;
    if (bytes.size() < 2 + extra) return false;
    if (extra > 0) length = 0;
    for (std::size_t i = 0; i < extra; ++i) length = length << 8 | byte(2 + i);
    if (bytes.size() - 2 - extra < length) return false;
    const std::string_view content = bytes.substr(2 + extra, length);
    connection.taken += 2 + extra + length;
    switch (byte(0)) {
      case 0x80 | kText:
        ret_text = content;
        return true;
      case 0x80 | kPing:
        websocket_send(connection, make_frame(kPong, content));
        break;
      case 0x80 | kPong:
        break;
      case 0x80 | kClose:
        fail("the server closed: " + std::string(content.substr(content.size() < 2 ? content.size() : 2)));
      default:
        fail("a frame that is no whole text");
    }
  }
}
