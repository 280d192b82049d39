// Loads a WebSocket server and prints what it measured as one JSON line.
//
//   bench_client PORT requests CONNECTIONS IN-FLIGHT PAUSE SECONDS TEXT EXPECTED
//     keeps IN-FLIGHT requests unanswered on each connection; every reply must hold EXPECTED; sleeps PAUSE us between
//     a reply and the next request, so that the server falls asleep as well
//   bench_client PORT notifications COUNT
//     has the benchmark's platform raise COUNT volume callbacks, which carry their time, and receives them elsewhere
//   bench_client PORT subscribed SECONDS
//     is subscribed to the volume and does nothing else
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "websocket.h"

static constexpr const char* kSubscribe =
    R"({"jsonrpc":"2.0","id":1,"method":"subscribe","params":{"uri":"/tv/ws/notify/volume_ctrl"}})";

static std::int64_t now_ns() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// In microseconds.
static double quantile(std::vector<std::int64_t>& times, double part) {
  if (times.empty()) fail("nothing was measured");
  const auto position = static_cast<std::ptrdiff_t>(part * static_cast<double>(times.size() - 1));
  std::nth_element(times.begin(), times.begin() + position, times.end());
  return static_cast<double>(times[static_cast<std::size_t>(position)]) / 1000;
}

// The next message; waits for it.
static std::string_view receive(Connection& connection) {
  std::string_view text;
  while (!websocket_next(connection, text)) websocket_read(connection);
  return text;
}

// --- Requests ---

struct Load {
  std::string frames;          // as many of one request as may be in flight
  std::size_t frame_size = 0;  // of one of them
  std::string expected;        // in every reply
  useconds_t pause_us = 0;
  std::int64_t start = 0, end = 0;  // of what is counted; replies before are warm-up
  std::vector<std::int64_t> times;
  std::size_t reply_size = 0;
};

struct Client {
  Connection connection;
  std::deque<std::int64_t> sent;  // when each unanswered request left, oldest first
};

static void send_requests(Load& load, Client& client, std::size_t count) {
  if (count == 0) return;
  client.sent.insert(client.sent.end(), count, now_ns());
  websocket_send(client.connection, std::string_view(load.frames).substr(0, count * load.frame_size));
}

// Takes every reply that was read and asks again for each, in one piece.
static void exchange(Load& load, Client& client) {
  websocket_read(client.connection);
  const std::int64_t now = now_ns();
  std::size_t replies = 0;
  for (std::string_view text; websocket_next(client.connection, text); ++replies) {
    if (client.sent.empty()) fail("more replies than requests: " + std::string(text));
    if (text.find(load.expected) == std::string_view::npos) fail("an unexpected reply: " + std::string(text));
    if (now >= load.start && now < load.end) load.times.push_back(now - client.sent.front());
    client.sent.pop_front();
    load.reply_size = text.size();
  }
  if (now >= load.end) return;
  if (load.pause_us > 0) usleep(load.pause_us);
  send_requests(load, client, replies);
}

static int measure_requests(int port, char** words) {
  const auto connections = static_cast<std::size_t>(atoi(words[0]));
  const auto in_flight = static_cast<std::size_t>(atoi(words[1]));
  const double seconds = atof(words[3]);
  Load load;
  load.pause_us = static_cast<useconds_t>(atoi(words[2]));
  const std::string frame = websocket_frame(words[4]);
  for (std::size_t i = 0; i < in_flight; ++i) load.frames += frame;
  load.frame_size = frame.size();
  load.expected = words[5];

  std::vector<Client> clients(connections);
  const int events = epoll_create1(EPOLL_CLOEXEC);
  for (Client& client : clients) {
    client.connection = websocket_connect(port);
    epoll_event event = {.events = EPOLLIN, .data = {.ptr = &client}};
    epoll_ctl(events, EPOLL_CTL_ADD, client.connection.socket, &event);
  }
  static constexpr std::int64_t kWarmUpNs = 100'000'000;
  load.start = now_ns() + kWarmUpNs;
  load.end = load.start + static_cast<std::int64_t>(seconds * 1e9);
  for (Client& client : clients) send_requests(load, client, in_flight);

  // A single connection is read at once: waiting for one socket needs no epoll.
  if (connections == 1) {
    while (!clients[0].sent.empty()) exchange(load, clients[0]);
  } else {
    const auto busy = [&] { return std::ranges::any_of(clients, [](const Client& c) { return !c.sent.empty(); }); };
    while (now_ns() < load.end || busy()) {
      epoll_event ready[64];
      const int count = epoll_wait(events, ready, 64, 2000);
      if (count <= 0) fail("no reply within 2 s");
      for (int i = 0; i < count; ++i) exchange(load, *static_cast<Client*>(ready[i].data.ptr));
    }
  }
  printf("{\"count\":%zu,\"per_second\":%.1f,\"p50\":%.3f,\"p99\":%.3f,\"request_size\":%zu,\"reply_size\":%zu}\n",
         load.times.size(), static_cast<double>(load.times.size()) / seconds, quantile(load.times, 0.5),
         quantile(load.times, 0.99), strlen(words[4]), load.reply_size);
  return 0;
}

// --- Notifications ---

static void subscribe(Connection& connection) {
  websocket_send(connection, websocket_frame(kSubscribe));
  const std::string_view reply = receive(connection);
  if (reply.find("\"result\"") == std::string_view::npos) fail("cannot subscribe: " + std::string(reply));
}

static int measure_notifications(int port, char** words) {
  const int count = atoi(words[0]);
  Connection subscriber = websocket_connect(port);
  Connection setter = websocket_connect(port);
  subscribe(subscriber);
  websocket_send(setter, websocket_frame(R"({"jsonrpc":"2.0","id":1,"method":"set","params":{"uri":)"
                                         R"("/tv/cast/volume/volume","parameter":{"REQUEST":"MODIFY","VALUE":)" +
                                         std::to_string(count) + "}}}"));
  const std::string_view reply = receive(setter);
  if (reply.find("\"ret\":0") == std::string_view::npos) fail("the platform raises nothing: " + std::string(reply));

  // On a busy machine one may be replaced, unread, by the next: then the silence at the end says that all have come.
  std::vector<std::int64_t> times;
  static constexpr int kSilenceMs = 500;
  while (times.size() < static_cast<std::size_t>(count)) {
    std::string_view text;
    while (!websocket_next(subscriber, text)) {
      pollfd readable = {.fd = subscriber.socket, .events = POLLIN, .revents = 0};
      if (poll(&readable, 1, kSilenceMs) <= 0) break;
      websocket_read(subscriber);
    }
    if (text.empty()) break;
    const std::int64_t now = now_ns();
    static constexpr std::string_view kKey = "\"volValue\":";
    const std::size_t key = text.find(kKey);
    if (key == std::string_view::npos) fail("no volume notification: " + std::string(text));
    const std::int64_t raised = atoll(text.data() + key + kKey.size());
    times.push_back((now - raised) & 0x7FFFFFFF);
  }
  printf("{\"count\":%zu,\"p50\":%.3f,\"p99\":%.3f}\n", times.size(), quantile(times, 0.5), quantile(times, 0.99));
  return 0;
}

static int stay_subscribed(int port, char** words) {
  Connection connection = websocket_connect(port);
  subscribe(connection);
  printf("{\"subscribed\":true}\n");
  fflush(stdout);
  usleep(static_cast<useconds_t>(atof(words[0]) * 1e6));
  return 0;
}

int main(int argc, char** argv) {
  static constexpr struct {
    const char* name;
    int words;
    int (*run)(int port, char** words);
  } commands[] = {{"requests", 6, measure_requests},
                  {"notifications", 1, measure_notifications},
                  {"subscribed", 1, stay_subscribed}};
  for (const auto& command : commands)
    if (argc >= 3 && strcmp(argv[2], command.name) == 0 && argc == 3 + command.words)
      return command.run(atoi(argv[1]), argv + 3);
  fprintf(stderr,
          "usage: bench_client PORT requests CONNECTIONS IN-FLIGHT PAUSE SECONDS TEXT EXPECTED\n"
          "       bench_client PORT notifications COUNT\n"
          "       bench_client PORT subscribed SECONDS\n");
  return 2;
}
