// A server on the loopback, for tests.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace http_test {

// Accepts one connection after the other, and calls a function to answer each.
struct Server {
  using Answer = std::function<void(int socket, const std::string& request)>;
  int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::uint16_t port = 0;
  std::atomic<int> connections = 0;
  std::atomic<int> open = -1;  // the socket that is served
  std::thread thread;

  explicit Server(Answer answer) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(listening, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(listening, 8), 0);
    EXPECT_EQ(getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port = ntohs(address.sin_port);
    thread = std::thread([this, answer = std::move(answer)] {
      while (true) {
        const int client = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return;
        ++connections;
        open = client;
        std::string request;
        char bytes[4096];
        while (request.find("\r\n\r\n") == std::string::npos) {
          const ssize_t count = recv(client, bytes, sizeof bytes, 0);
          if (count <= 0) break;
          request.append(bytes, static_cast<std::size_t>(count));
        }
        answer(client, request);
        open = -1;
        close(client);
      }
    });
  }
  ~Server() {
    shutdown(listening, SHUT_RDWR);
    if (const int client = open; client >= 0) shutdown(client, SHUT_RDWR);
    close(listening);
    thread.join();
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  std::string address(const std::string& path = "/film") const {
    return "http://127.0.0.1:" + std::to_string(port) + path;
  }
};

inline void say(int socket, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = send(socket, text.data(), text.size(), MSG_NOSIGNAL);
    if (count <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

// Waits until the reader has gone.
inline void hang(int socket) {
  char byte = 0;
  while (recv(socket, &byte, 1, 0) > 0) {
  }
}

inline std::size_t wanted_from(const std::string& request) {
  const std::size_t at = request.find("Range: bytes=");
  return at == std::string::npos ? 0 : std::stoul(request.substr(at + std::strlen("Range: bytes=")));
}

}  // namespace http_test
