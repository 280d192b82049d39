// Puts load on a WebSocket server and prints the measured figures as one JSON line.
//
//   bench_client PORT requests CONNECTIONS IN-FLIGHT PAUSE SECONDS TEXT EXPECTED PID
//     keeps IN-FLIGHT requests unanswered on each connection; every reply must hold EXPECTED; sleeps PAUSE us between
//     a reply and the next request, so that the server falls asleep as well; PID is the server's, for its CPU time
//   bench_client PORT notifications COUNT
//     has the benchmark's platform raise COUNT volume callbacks, which carry their time, and receives them on another
//     connection
//   bench_client PORT events COUNT
//     sets the volume COUNT times and measures from the sending of a request until another client reads the
//     notification
//   bench_client PORT sets SECONDS
//     sets the volume to another value again and again, each time after the reply
//   bench_client PORT subscribed SECONDS
//     is subscribed to the volume and does nothing else
//   bench_client PORT idle CONNECTIONS
//     keeps this many WebSockets until its standard input ends, and does nothing else
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

static std::int64_t time_ns(clockid_t clock) {
  timespec now;
  if (clock_gettime(clock, &now) != 0) fail("the clock cannot be read");
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

static std::int64_t now_ns() { return time_ns(CLOCK_MONOTONIC); }

static std::string set_volume(int volume) {
  return websocket_frame(R"({"jsonrpc":"2.0","id":1,"method":"set","params":{"uri":"/tv/cast/volume/volume",)"
                         R"("parameter":{"REQUEST":"MODIFY","VALUE":)" +
                         std::to_string(volume) + "}}}");
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

static void expect_success(Connection& connection) {
  const std::string_view reply = receive(connection);
  if (reply.find("\"ret\":0") == std::string_view::npos) fail("a set fails: " + std::string(reply));
}

// --- Requests ---

struct Load {
  std::string frames;          // as many of one request as may be in flight
  std::size_t frame_size = 0;  // of one of them
  std::string expected;        // in every reply
  useconds_t pause_us = 0;
  std::int64_t start = 0, end = 0;  // of the measured time; earlier replies are warm-up
  clockid_t server = 0;             // the server's CPU time
  std::int64_t server_start = 0, server_end = 0;
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

// Takes every reply that was read, and sends as many requests again in one piece.
static void exchange(Load& load, Client& client) {
  websocket_read(client.connection);
  const std::int64_t now = now_ns();
  if (load.server_start == 0 && now >= load.start) load.server_start = time_ns(load.server);
  if (load.server_end == 0 && now >= load.end) load.server_end = time_ns(load.server);
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
  if (clock_getcpuclockid(atoi(words[6]), &load.server) != 0) fail("the server's CPU time cannot be read");

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
  const auto count = static_cast<double>(load.times.size());
  const double cpu_us = static_cast<double>(load.server_end - load.server_start) / 1000;
  printf("{\"count\":%.0f,\"per_second\":%.1f,\"p50\":%.3f,\"p99\":%.3f,\"cpu\":%.3f,\"reply_size\":%zu}\n", count,
         count / seconds, quantile(load.times, 0.5), quantile(load.times, 0.99), cpu_us / count, load.reply_size);
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
  websocket_send(setter, set_volume(count));
  expect_success(setter);

  // On a busy machine a notification may be replaced by the next before it is fetched: then silence is the end.
  std::vector<std::int64_t> times;
  static constexpr int kSilenceMs = 500, kFirstMs = 10'000;
  while (times.size() < static_cast<std::size_t>(count)) {
    std::string_view text;
    while (!websocket_next(subscriber, text)) {
      pollfd readable = {.fd = subscriber.socket, .events = POLLIN, .revents = 0};
      if (poll(&readable, 1, times.empty() ? kFirstMs : kSilenceMs) <= 0) break;
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

static int measure_events(int port, char** words) {
  const int count = atoi(words[0]);
  Connection subscriber = websocket_connect(port);
  Connection setter = websocket_connect(port);
  subscribe(subscriber);
  const std::string frames[] = {set_volume(20), set_volume(30)};
  const std::string expected[] = {"\"volValue\":20", "\"volValue\":30"};
  static constexpr int kWarmUp = 20;
  std::vector<std::int64_t> times;
  for (int i = 0; i < count + kWarmUp; ++i) {
    const std::int64_t start = now_ns();
    websocket_send(setter, frames[i % 2]);
    const std::string_view text = receive(subscriber);
    if (i >= kWarmUp) times.push_back(now_ns() - start);
    if (text.find(expected[i % 2]) == std::string_view::npos) fail("another notification: " + std::string(text));
    expect_success(setter);
  }
  printf("{\"count\":%zu,\"p50\":%.3f,\"p99\":%.3f}\n", times.size(), quantile(times, 0.5), quantile(times, 0.99));
  return 0;
}

static int keep_setting(int port, char** words) {
  Connection setter = websocket_connect(port);
  const std::string frames[] = {set_volume(20), set_volume(30)};
  const std::int64_t end = now_ns() + static_cast<std::int64_t>(atof(words[0]) * 1e9);
  std::vector<std::int64_t> times;
  for (std::int64_t start; (start = now_ns()) < end; times.push_back(now_ns() - start)) {
    websocket_send(setter, frames[times.size() % 2]);
    expect_success(setter);
  }
  printf("{\"count\":%zu,\"p50\":%.3f}\n", times.size(), quantile(times, 0.5));
  return 0;
}

static int stay_idle(int port, char** words) {
  std::vector<Connection> connections(static_cast<std::size_t>(atoi(words[0])));
  for (Connection& connection : connections) connection = websocket_connect(port);
  printf("{\"open\":%zu}\n", connections.size());
  fflush(stdout);
  while (getchar() != EOF) continue;
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
  } kCommands[] = {{"requests", 7, measure_requests},  {"notifications", 1, measure_notifications},
                   {"events", 1, measure_events},      {"sets", 1, keep_setting},
                   {"subscribed", 1, stay_subscribed}, {"idle", 1, stay_idle}};
  for (const auto& command : kCommands)
    if (argc >= 3 && strcmp(argv[2], command.name) == 0 && argc == 3 + command.words)
      return command.run(atoi(argv[1]), argv + 3);
  fprintf(stderr,
          "usage: bench_client PORT requests CONNECTIONS IN-FLIGHT PAUSE SECONDS TEXT EXPECTED PID\n"
          "       bench_client PORT notifications | events COUNT\n"
          "       bench_client PORT sets | subscribed SECONDS\n"
          "       bench_client PORT idle CONNECTIONS\n");
  return 2;
}
