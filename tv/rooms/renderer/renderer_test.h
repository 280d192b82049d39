// A controller for the tests of the renderer: plain HTTP on the loopback.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "rooms/renderer/xml.h"
#include "tests/unit/tv/support.h"

inline constexpr int kLongWaitMillis = 20'000;  // an upper limit; the tests wait for milliseconds

struct Socket {
  int number = -1;
  explicit Socket(int of = -1) : number(of) {}
  ~Socket() {
    if (number >= 0) close(number);
  }
  Socket(Socket&& other) noexcept : number(std::exchange(other.number, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(number, other.number);
    return *this;
  }
};

inline sockaddr_in address_of(const std::string& host, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  EXPECT_EQ(inet_pton(AF_INET, host.c_str(), &address.sin_addr), 1) << host;
  return address;
}

inline std::pair<std::string, int> split_place(const std::string& place) {
  const std::size_t colon = place.find(':');
  return {place.substr(0, colon), std::stoi(place.substr(colon + 1))};
}

// from: the client's own address.
inline Socket connect_to(const std::string& place, const std::string& from = "127.0.0.1") {
  Socket client(socket(AF_INET, SOCK_STREAM, 0));
  const sockaddr_in own = address_of(from, 0);
  EXPECT_EQ(bind(client.number, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
  const auto [host, port] = split_place(place);
  const sockaddr_in to = address_of(host, port);
  EXPECT_EQ(connect(client.number, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
  return client;
}

inline void send_text(const Socket& socket, std::string_view text) {
  while (!text.empty()) {
    const ssize_t sent = send(socket.number, text.data(), text.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;  // the other side has closed: what it answered tells why
    text.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// Everything until the other side closes, or has sent what Content-Length says.
inline std::string receive_text(const Socket& socket) {
  std::string text;
  for (;;) {
    if (const std::size_t end = text.find("\r\n\r\n"); end != std::string::npos) {
      const std::size_t length = text.find("Content-Length: ");
      if (length < end && text.size() >= end + 4 + std::stoul(text.substr(length + 16))) return text;
    }
    pollfd wait{socket.number, POLLIN, 0};
    if (poll(&wait, 1, kLongWaitMillis) != 1) return text + " (nothing more came)";
    char buffer[4096];
    const ssize_t got = recv(socket.number, buffer, sizeof buffer, 0);
    if (got <= 0) return text;
    text.append(buffer, static_cast<std::size_t>(got));
  }
}

struct HttpAnswer {
  int status = 0;  // 0: no answer
  std::string text = {};

  std::string header(const std::string& name) const {
    const std::size_t at = text.find("\r\n" + name + ": ");
    if (at == std::string::npos) return "";
    const std::size_t begin = at + name.size() + 4;
    return text.substr(begin, text.find("\r\n", begin) - begin);
  }
  std::string body() const {
    const std::size_t end = text.find("\r\n\r\n");
    return end == std::string::npos ? "" : text.substr(end + 4);
  }
  // The text of the first element of that name, without references.
  std::string element(const std::string& name) const {
    std::optional<std::string> found;
    xml_read(body(), {.begin = [](int, std::string_view, const XmlAttributes&) {},
                      .end =
                          [&](int, std::string_view each, const std::string& content) {
                            if (each == name && !found) found = content;
                          }});
    return found.value_or("(no " + name + ")");
  }
  int error() const { return status == 500 ? std::stoi(element("errorCode")) : status == 200 ? 0 : -status; }
};

inline HttpAnswer read_answer(const Socket& socket) {
  HttpAnswer answer{.text = receive_text(socket)};
  if (answer.text.starts_with("HTTP/1.1 ")) answer.status = std::stoi(answer.text.substr(9, 3));
  return answer;
}

using Words = std::vector<std::pair<std::string, std::string>>;

inline HttpAnswer exchange(const std::string& place, const std::string& method, const std::string& path,
                           const Words& headers = {}, const std::string& body = "",
                           const std::string& from = "127.0.0.1") {
  std::string text = method + " " + path + " HTTP/1.1\r\n";
  bool host = false;
  for (const auto& [name, value] : headers) {
    text += name + ": " + value + "\r\n";
    host = host || name == "Host";
  }
  if (!host) text += "Host: " + place + "\r\n";
  if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  const Socket socket = connect_to(place, from);
  send_text(socket, text + "\r\n" + body);
  return read_answer(socket);
}

inline HttpAnswer act(const std::string& place, const std::string& service, const std::string& action,
                      const Words& arguments = {}, const std::string& from = "127.0.0.1") {
  const std::string type = "urn:schemas-upnp-org:service:" + service + ":1";
  std::string body = "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body><u:" + action +
                     " xmlns:u=\"" + type + "\">";
  for (const auto& [name, value] : arguments) body += xml_element(name, value);
  body += "</u:" + action + "></s:Body></s:Envelope>";
  return exchange(place, "POST", "/" + service + "/control",
                  {{"Content-Type", "text/xml; charset=\"utf-8\""}, {"SOAPACTION", "\"" + type + "#" + action + "\""}},
                  body, from);
}

inline boost::json::object renderer_reply(const std::string& word = "") {
  return boost::json::parse(tv_control(word.empty() ? R"(["renderer"])" : R"(["renderer",")" + word + "\"]"))
      .as_object();
}

template <typename Condition>
bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kLongWaitMillis);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// Where the renderer's server listens.
inline std::string wait_for_place() {
  std::string place;
  EXPECT_TRUE(eventually([&] {
    const boost::json::object reply = renderer_reply();
    if (!reply.contains("description")) return false;
    place = std::string(reply.at("description").as_string()).substr(7);
    return true;
  }));
  return place.substr(0, place.find('/'));
}

// What the renderer asked of an application.
struct Asked {
  INT32 type;
  std::string url, protocol_info;
  UINT32 arg1;
  INT32 arg2;
  bool operator==(const Asked&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Asked& asked) {
  return out << "{" << asked.type << ", " << asked.url << ", " << asked.protocol_info << ", " << asked.arg1 << ", "
             << asked.arg2 << "}";
}

struct Application {
  std::mutex lock;
  std::vector<Asked> asked;
  UINT32 instance = 0;

  static INT32 hear(INT32 type, void* tag, const char* url, const char* protocol_info, UINT32 arg1, INT32 arg2) {
    auto& self = *static_cast<Application*>(tag);
    const std::lock_guard guard(self.lock);
    self.asked.push_back({type, url, protocol_info, arg1, arg2});
    return 0;
  }
  void begin() {
    instance = a_vextvapi_dmr_file_create();
    ASSERT_NE(instance, 0u);
    ASSERT_EQ(a_vextvapi_cb_dmr_nfy_register_callback(instance, hear, this), 0);
  }
  // Waits for that many requests, and forgets them.
  std::vector<Asked> take(std::size_t count) {
    eventually([&] {
      const std::lock_guard guard(lock);
      return asked.size() >= count;
    });
    const std::lock_guard guard(lock);
    return std::exchange(asked, {});
  }
};

inline const std::string kFilm = "http://127.0.0.1:9/films/One%20night.mp4";
inline const std::string kFilmDescription =
    R"(<DIDL-Lite xmlns="urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/" xmlns:dc="http://purl.org/dc/elements/1.1/" )"
    R"(xmlns:upnp="urn:schemas-upnp-org:metadata-1-0/upnp/"><item id="1" parentID="0" restricted="1">)"
    R"(<dc:title>Eine Nacht &amp; ein Tag</dc:title><dc:creator>K. Author</dc:creator><upnp:artist>An Artist</upnp:artist>)"
    R"(<upnp:album>Collected</upnp:album><dc:date>2019-08-07T06:05:04</dc:date><upnp:class>object.item.videoItem.movie</upnp:class>)"
    R"(<res protocolInfo="http-get:*:image/jpeg:*" resolution="160x90">http://127.0.0.1:9/small.jpg</res>)"
    R"(<res protocolInfo="http-get:*:video/mp4:DLNA.ORG_OP=01" size="3000000000" duration="1:02:03.500" resolution="1920x1080">)" +
    kFilm + "</res></item></DIDL-Lite>";
inline const std::string kFilmProtocol = "http-get:*:video/mp4:DLNA.ORG_OP=01";

inline Words load_film() {
  return {{"InstanceID", "0"}, {"CurrentURI", kFilm}, {"CurrentURIMetaData", kFilmDescription}};
}

// A set that is a renderer, with an application that records requests. The clock stands still unless the test advances
// it.
struct TvRenderer : testing::Test {
  ManualClock clock;
  TvFolder folder;
  Application application;
  std::string place;
  TvRenderer() { EXPECT_EQ(tv_start(folder.path), ""); }
  ~TvRenderer() override { dtv_tv_stop(); }
  void begin() {
    application.begin();
    place = wait_for_place();
  }
  HttpAnswer transport(const std::string& action, const Words& arguments = {{"InstanceID", "0"}}) {
    return act(place, "AVTransport", action, arguments);
  }
  std::string state() { return transport("GetTransportInfo").element("CurrentTransportState"); }
};
