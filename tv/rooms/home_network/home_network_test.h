// A media server for tests, on a loopback address. The test supplies its answers. It announces itself by multicast on
// the loopback.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

struct FakeRequest {
  std::string path = {};
  std::string head = {};
  std::string body = {};
  int socket = -1;  // the connection, for an answer that is sent in parts
};

// Returns the bytes of the answer; empty: the server answers nothing, and the connection stays open until the server
// ends.
using FakeAnswer = std::function<std::string(const FakeRequest& request)>;

inline std::string http_answer(const std::string& body, const std::string& type = "text/xml; charset=\"utf-8\"",
                               const std::string& status = "200 OK") {
  return "HTTP/1.1 " + status + "\r\nContent-Type: " + type + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\n\r\n" + body;
}

struct FakeServer {
  std::string address;
  std::string udn;
  int port = 0;
  FakeAnswer answer;
  std::atomic<int> requests = 0;

  FakeServer(std::string name, FakeAnswer answers, std::string host = "127.0.0.1")
      : address(std::move(host)),
        udn("uuid:" + std::move(name) + "-" + std::to_string(getpid())),  // a set of another process may hear it too
        answer(std::move(answers)) {
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    inet_pton(AF_INET, address.c_str(), &own.sin_addr);
    socklen_t size = sizeof own;
    EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    EXPECT_EQ(listen(listener, 64), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&own), &size), 0);
    port = ntohs(own.sin_port);
    accepting = std::thread([this] { accept_all(); });
  }
  ~FakeServer() {
    shutdown(listener, SHUT_RDWR);
    accepting.join();
    {
      const std::lock_guard guard(lock);
      for (const int each : sockets) shutdown(each, SHUT_RDWR);
    }
    for (std::thread& each : threads) each.join();
    for (const int each : sockets) close(each);
    close(listener);
  }
  FakeServer(const FakeServer&) = delete;
  FakeServer& operator=(const FakeServer&) = delete;

  std::string url(const std::string& path) const { return "http://" + address + ":" + std::to_string(port) + path; }

  // "ssdp:alive" or "ssdp:byebye".
  void announce(const std::string& what = "ssdp:alive", const std::string& other_udn = "") const {
    const std::string device = "urn:schemas-upnp-org:device:MediaServer:1";
    const std::string text =
        "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nCACHE-CONTROL: max-age=1800\r\n"
        "LOCATION: " +
        url("/desc.xml") + "\r\nSERVER: test UPnP/1.0 test/1\r\nNT: " + device +
        "\r\nUSN: " + (other_udn.empty() ? udn : other_udn) + "::" + device + "\r\nNTS: " + what + "\r\n\r\n";
    const int out = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    in_addr loopback{};
    loopback.s_addr = htonl(INADDR_LOOPBACK);
    setsockopt(out, IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback);
    sockaddr_in group{};
    group.sin_family = AF_INET;
    group.sin_port = htons(1900);
    inet_pton(AF_INET, "239.255.255.250", &group.sin_addr);
    EXPECT_GT(sendto(out, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&group), sizeof group), 0);
    close(out);
  }

  std::string description(const std::string& name = "Attic", const std::string& control = "/control") const {
    return R"(<?xml version="1.0"?><root xmlns="urn:schemas-upnp-org:device-1-0"><device>)"
           "<deviceType>urn:schemas-upnp-org:device:MediaServer:1</deviceType><friendlyName>" +
           name + "</friendlyName><UDN>" + udn +
           "</UDN><serviceList><service>"
           "<serviceType>urn:schemas-upnp-org:service:ContentDirectory:1</serviceType><controlURL>" +
           control + "</controlURL></service></serviceList></device></root>";
  }

 private:
  void accept_all() {
    for (;;) {
      const int socket = accept(listener, nullptr, nullptr);
      if (socket < 0) return;
      const std::lock_guard guard(lock);
      sockets.push_back(socket);
      threads.emplace_back([this, socket] { serve(socket); });
    }
  }
  void serve(int socket) {
    std::string text;
    char part[4096];
    std::size_t head = std::string::npos;
    std::size_t length = 0;
    while (head == std::string::npos || text.size() < head + 4 + length) {
      const ssize_t bytes = recv(socket, part, sizeof part, 0);
      if (bytes <= 0) return;
      text.append(part, static_cast<std::size_t>(bytes));
      head = text.find("\r\n\r\n");
      const std::size_t at = text.find("Content-Length: ");
      if (head != std::string::npos && at < head) length = std::stoul(text.substr(at + 16));
    }
    ++requests;
    const std::size_t first = text.find(' ') + 1;
    const std::string reply = answer({.path = text.substr(first, text.find(' ', first) - first),
                                      .head = text.substr(0, head),
                                      .body = text.substr(head + 4),
                                      .socket = socket});
    if (reply.empty()) return;
    send_all(socket, reply);
    shutdown(socket, SHUT_RDWR);
  }

  int listener = -1;
  std::thread accepting;
  std::mutex lock;  // guards the two lists until the accepting thread has ended
  std::list<int> sockets;
  std::list<std::thread> threads;

 public:
  // Returns how many bytes could be sent before the other side closed the connection.
  static std::size_t send_all(int socket, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t part = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (part <= 0) break;
      sent += static_cast<std::size_t>(part);
    }
    return sent;
  }
};

// Waits until the condition holds, for at most 30 s. Returns whether it does.
template <typename Condition>
bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// ---- Answers of a content directory ----

inline std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '<') {
      result += "&lt;";
    } else if (c == '>') {
      result += "&gt;";
    } else if (c == '&') {
      result += "&amp;";
    } else {
      result += c;
    }
  }
  return result;
}

inline std::string didl(const std::string& objects) {
  return R"(<DIDL-Lite xmlns="urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/" )"
         R"(xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:upnp="urn:schemas-upnp-org:metadata-1-0/upnp/">)" +
         objects + "</DIDL-Lite>";
}

inline std::string browse_answer(const std::string& result, const std::string& returned, const std::string& total,
                                 const std::string& action = "Browse") {
  return http_answer(R"(<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body><u:)" + action +
                     R"(Response xmlns:u="urn:schemas-upnp-org:service:ContentDirectory:1"><Result>)" +
                     escaped(result) + "</Result><NumberReturned>" + returned + "</NumberReturned><TotalMatches>" +
                     total + "</TotalMatches><UpdateID>1</UpdateID></u:" + action + "Response></s:Body></s:Envelope>");
}

inline std::string container(const std::string& id, const std::string& title, const std::string& children) {
  return "<container id=\"" + id + "\" parentID=\"0\" restricted=\"1\" childCount=\"" + children + "\"><dc:title>" +
         title + "</dc:title><upnp:class>object.container.storageFolder</upnp:class></container>";
}

// resources: whole <res> elements and other properties.
inline std::string item(const std::string& id, const std::string& title, const std::string& upnp_class,
                        const std::string& resources) {
  return "<item id=\"" + id + "\" parentID=\"1\" restricted=\"1\"><dc:title>" + title + "</dc:title><upnp:class>" +
         upnp_class + "</upnp:class>" + resources + "</item>";
}

// The text between two marks of a request.
inline std::string between(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t first = text.find(begin);
  if (first == std::string::npos) return "";
  const std::size_t from = first + begin.size();
  return text.substr(from, text.find(end, from) - from);
}
