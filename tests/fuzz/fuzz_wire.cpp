// Fuzzes the server over its sockets: the real one runs on threads of its own in this process, with a made-up plugin
// behind it, and each input is what one to four connections send, cut anywhere and interleaved. Whatever they send,
// they end in time, the answers have the protocols' form, and another client is served all the while. For a connection
// that is not damaged the answers are known: each request gets one, a refused request has no effect, and nothing after
// a refusal or a close is carried out.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "require.h"
#include "seeds.h"
#include "server.h"
#include "wire_received.h"
#include "wire_script.h"
#include "wire_stack.h"

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Below the fuzzer's own limit, so that the message says what took so long.
static constexpr milliseconds kEnd{15'000};
static constexpr milliseconds kReply{5'000};
// How long the server waits for a client that must send or read.
static constexpr milliseconds kDeadline{200};
static constexpr std::size_t kConnections = 12;

static WireTarget target;
static std::uint16_t port;

// --- The server ---

static const fs::path& web_folder() {
  static const fs::path folder = [] {
    std::string name = (fs::temp_directory_path() / "fuzz_wire.XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr, "there is room for a folder");
    fs::create_directories(fs::path(name) / "web");
    std::ofstream(fs::path(name) / "web" / "index.html") << "page";
    std::ofstream(fs::path(name) / "web" / "empty.txt") << "";
    std::ofstream(fs::path(name) / "web" / "big.txt") << std::string(200'000, 'b');
    std::ofstream(fs::path(name) / "secret.txt") << "not to be served";
    return fs::path(name) / "web";
  }();
  return folder;
}

static Server* server;
static std::thread* serving;

static void stop_server() {
  server_stop(*server);
  serving->join();
  delete serving;
  server_end(server);
  fs::remove_all(web_folder().parent_path());
}

static void start_server() {
  target = {.authority = "",
            .token = std::string(64, 'a'),
            .origin = "http://allowed.example",
            .message_bytes = 4096,
            .catalogue = new Catalogue,
            .methods = {}};
  std::string error;
  auto& catalogue = const_cast<Catalogue&>(*target.catalogue);
  require(catalogue_read(wire_description(), catalogue, error), "the description is read", error);
  target.methods = host_methods(catalogue);
  const ServerOptions options{.policy = {.address = "127.0.0.1", .port = 0, .allowed_origins = {target.origin}},
                              .web_folder = web_folder().string(),
                              .token = target.token,
                              .watchdog = false,  // it would end the process before the fuzzer keeps the input
                              .limits = {.message_bytes = target.message_bytes,
                                         .connections = kConnections,
                                         .subscriptions = 2,
                                         .requests = 16,
                                         .header_time = kDeadline,
                                         .body_time = kDeadline,
                                         .reply_time = kDeadline,
                                         .idle_time = kDeadline}};
  server = server_start(options, wire_stack, nullptr, error);
  require(server != nullptr, "the server starts", error);
  port = static_cast<std::uint16_t>(server_policy(*server).port);
  target.authority = "127.0.0.1:" + std::to_string(port);
  serving = new std::thread([] { server_run(*server); });
  atexit(stop_server);
}

// --- Connections ---

struct Line {
  int socket = -1;
  Script script = {};
  std::size_t sent = 0;
  Received received = {};
  bool broken = false;  // takes no more bytes
  bool ended = false;
  bool reset = false;
  steady_clock::time_point begun = {};
  milliseconds lasted{0};  // from before the connection to after its end
};

static std::vector<Line> lines;

static void tell_lines() {
  for (const Line& line : lines) {
    fprintf(stderr, "connection: %s%s%s%s%s, %lld ms; sent %zu of %zu bytes:\n",
            line.script.doubtful ? "damaged" : "undamaged", line.script.ended ? ", ends" : "",
            line.script.slow ? ", slow" : "", line.script.waits ? ", waits" : "", line.reset ? ", reset" : "",
            static_cast<long long>(line.lasted.count()), line.sent, line.script.bytes.size());
    for (const char c : line.script.bytes.substr(0, 4000))
      c == '\n' || (c >= 0x20 && c < 0x7F) ? fputc(c, stderr)
                                           : fprintf(stderr, "\\x%02x", static_cast<unsigned char>(c));
    fprintf(stderr, "\n  statuses:");
    for (const Answer& answer : line.received.answers) fprintf(stderr, " %u", answer.status);
    fprintf(stderr, "; wanted:");
    for (const WantedAnswer& wanted : line.script.answers) fprintf(stderr, " %u", wanted.statuses[0]);
    fprintf(stderr, "\n  replies: %zu of %zu, other: %zu of %zu, closes: %zu\n", line.received.replies.size(),
            line.script.replies.size(), line.received.other_replies, line.script.other_replies,
            line.received.closes.size());
  }
}

// Each connection comes from an address of its own, since one address has not enough ports for all of them.
static int connect_one(bool slow) {
  static std::uint32_t number = 0;
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  require(made >= 0, "there is a socket for each connection");
  const int on = 1;
  setsockopt(made, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
  setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (slow) {
    const int few_bytes = 2048;
    setsockopt(made, SOL_SOCKET, SO_RCVBUF, &few_bytes, sizeof few_bytes);
    // Segments that fit into the rest of the buffer: the system waits a fifth of a second before any other.
    const int small_segment = 512;
    setsockopt(made, IPPROTO_TCP, TCP_MAXSEG, &small_segment, sizeof small_segment);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  ++number;
  address.sin_addr.s_addr =
      htonl(0x7F000000u | (1 + number / 250 / 250 % 250) << 16 | (number / 250 % 250) << 8 | (1 + number % 250));
  require(bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "a loopback address is there");
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  if (connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    require(errno == EINPROGRESS, "the server is there", strerror(errno));
    pollfd connecting{.fd = made, .events = POLLOUT, .revents = 0};
    const auto end = steady_clock::now() + kReply;
    while (poll(&connecting, 1, 100) <= 0) require(steady_clock::now() < end, "the server takes connections");
  }
  return made;
}

// Reads the bytes that have arrived.
static void read_some(Line& line) {
  static std::array<char, 65536> buffer;
  while (!line.ended) {
    const ssize_t bytes = recv(line.socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (bytes > 0) {
      receive(line.received, line.script, {buffer.data(), static_cast<std::size_t>(bytes)});
      continue;
    }
    if (bytes < 0 && errno == EINTR) continue;
    if (bytes < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    line.ended = true;
    line.reset = bytes < 0;
    line.lasted = std::chrono::duration_cast<milliseconds>(steady_clock::now() - line.begun);
  }
}

// Reads from all connections until something holds.
template <typename Condition>
static void read_until(std::vector<Line>& all, milliseconds patience, const char* what, Condition holds) {
  const auto end = steady_clock::now() + patience;
  while (!holds()) {
    require(steady_clock::now() < end, what);
    std::vector<pollfd> polled;
    for (const Line& line : all)
      if (!line.ended) polled.push_back({.fd = line.socket, .events = POLLIN, .revents = 0});
    poll(polled.data(), polled.size(), 50);
    for (Line& line : all) read_some(line);
  }
}

// Sends the next bytes. While the server takes none, reads all connections: it may be waiting for that.
static void send_some(Line& line, std::size_t bytes) {
  const std::size_t until = line.sent + bytes;
  const auto end = steady_clock::now() + kEnd;
  while (line.sent < until && !line.broken) {
    const ssize_t sent = send(line.socket, line.script.bytes.data() + line.sent, until - line.sent, MSG_NOSIGNAL);
    if (sent > 0) {
      line.sent += static_cast<std::size_t>(sent);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      line.broken = true;
      break;
    }
    require(steady_clock::now() < end, "the server reads from a client that reads");
    for (Line& other : lines) read_some(other);
    pollfd waiting{.fd = line.socket, .events = POLLIN | POLLOUT, .revents = 0};
    poll(&waiting, 1, 50);
  }
}

// --- Somebody who is connected all the while ---

static std::vector<Line>& resident() {
  static std::vector<Line>& one = *new std::vector<Line>;
  if (!one.empty()) return one;
  Line& line = one.emplace_back();
  line.script.websocket = true;
  line.script.answers.push_back({.statuses = {101}});
  line.script.bytes = wire_upgrade(target);
  line.socket = connect_one(false);
  send_some(line, line.script.bytes.size());
  read_until(one, kReply, "the server takes a WebSocket client in time", [&] { return line.received.websocket; });
  return one;
}

// Gets a value; the answer must come in time.
static void ask_resident() {
  Line& line = resident()[0];
  const std::string id = wire_new_mark();
  line.script.replies = {{id, {.mark = id}}};
  line.received.replies.clear();
  line.sent = 0;
  line.script.bytes = wire_text_frame(R"({"jsonrpc":"2.0","id":")" + id + R"(","method":"get","params":{"uri":")" +
                                      kWireUri + R"(","parameter":)" + wire_parameter(id, Act::kPlain) + "}}");
  send_some(line, line.script.bytes.size());
  read_until(resident(), kReply, "a client that stays is answered in time",
             [&] { return line.ended || !line.received.replies.empty(); });
  require(!line.ended, "a client that stays is not cut off");
  const Reply& reply = line.received.replies.begin()->second;
  // Its request may find the queue full, like any other.
  require(reply.text.find(reply.failed ? "-32005" : R"("MARK":")" + id) != std::string::npos,
          "a client that stays has its own answer", reply.text);
}

// --- What is known of the answers ---

// Checks that a set was carried out if and only if its answer says so, and that a get's answer repeats its mark.
static void check_marked(const Marked& marked, bool carried_out, bool repeats, std::string_view text) {
  if (marked.mark.empty()) return;
  if (marked.sets)
    require(wire_sets(marked.mark) == (carried_out ? 1u : 0u), "a set was carried out as its answer says", text);
  else if (repeats)
    require(text.find(marked.mark) != std::string_view::npos, "an answer is its request's own", text);
}

static void check_answers(const Line& line) {
  const Script& script = line.script;
  const Received& received = line.received;
  require(received.answers.size() == script.answers.size(), "each request has an answer, up to the last one");
  for (std::size_t i = 0; i < script.answers.size(); ++i) {
    const WantedAnswer& wanted = script.answers[i];
    const Answer& answer = received.answers[i];
    require(std::ranges::find(wanted.statuses, answer.status) != wanted.statuses.end(),
            "an answer has the status of its request", answer.body);
    const bool refused = answer.status == 503 || (answer.status >= 400 && answer.status <= 431 && answer.status != 422);
    check_marked(wanted.marked, !refused, answer.status == 200, answer.body);
  }
  require(received.continues <= script.continues, "100 answers only a request that expects it");
}

static void check_replies(const Line& line) {
  const Script& script = line.script;
  const Received& received = line.received;
  for (const auto& [id, reply] : received.replies) {
    constexpr std::string_view kBusy = "\"code\":-32005";
    check_marked(script.replies.at(id), reply.text.find(kBusy) == std::string::npos, !reply.failed, reply.text);
  }
  require(received.pongs.size() <= script.pings.size() &&
              std::equal(received.pongs.begin(), received.pongs.end(), script.pings.begin()),
          "pongs repeat the pings");
  require(received.other_replies <= script.other_replies, "no more replies than requests");
  if (!script.ended) {
    require(received.pongs.size() == script.pings.size(), "each ping is answered");
    require(received.other_replies == script.other_replies, "each message is answered");
  }
  require(received.closes.empty() == script.close_codes.empty(), "a close frame comes where one is due");
  for (const unsigned code : received.closes)
    require(std::ranges::find(script.close_codes, code) != script.close_codes.end(), "a close frame says why",
            std::to_string(code));
}

// --- One input ---

// Whether everything that is due on a WebSocket connection has come. What the server has not sent when the client shuts
// down its side is lost, so the client first waits for the server's close frame, as the protocol requires.
static bool has_all(const Line& line) {
  const Script& script = line.script;
  const Received& received = line.received;
  if (line.ended || script.doubtful || !script.websocket) return true;
  if (script.ended) return received.websocket && (script.close_codes.empty() || !received.closes.empty());
  return received.websocket && received.replies.size() == script.replies.size() &&
         received.other_replies >= script.other_replies && received.pongs.size() == script.pings.size();
}

// Sends everything, in pieces.
static void play(Bytes& bytes) {
  bool waited = false;
  for (;;) {
    std::vector<Line*> left;
    for (Line& line : lines)
      if (line.sent < line.script.bytes.size() && !line.broken) left.push_back(&line);
    if (left.empty()) return;
    Line& line = *left[take_below(bytes, left.size())];
    const std::size_t rest = line.script.bytes.size() - line.sent;
    const std::size_t form = take_below(bytes, 8);
    const std::size_t piece = form < 3 ? rest : 1 + take_below(bytes, form < 6 ? 16 : 1024);
    send_some(line, std::min(piece, rest));
    if (take_chance(bytes, 3)) ask_resident();  // so that the server has seen the piece before the next one
    if (!waited && take_chance(bytes, 128)) {
      waited = true;
      std::this_thread::sleep_for(kDeadline + milliseconds(50));
    }
    for (Line& reader : lines)
      if (!reader.script.slow) read_some(reader);
  }
}

static void end_lines() {
  read_until(lines, kEnd, "requests are answered in time",
             [] { return std::ranges::all_of(lines, has_all) || lines.empty(); });
  for (const Line& line : lines)
    if (!line.script.waits) shutdown(line.socket, SHUT_WR);
  read_until(lines, kEnd, "a connection ends in time",
             [] { return std::ranges::all_of(lines, [](const Line& line) { return line.ended; }); });
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (server == nullptr) start_server();
  Bytes bytes = {.next = data, .left = size};
  require_tell = tell_lines;
  wire_forget_sets();
  const std::size_t connections = 1 + take_below(bytes, 8) % 4;
  const bool crowded = take_chance(bytes, 64);
  for (std::size_t i = 0; i < connections; ++i) lines.push_back({.script = take_wire_script(bytes, target)});
  std::vector<int> crowd;
  for (Line& line : lines) {
    line.begun = steady_clock::now();
    line.socket = connect_one(line.script.slow);
  }
  for (std::size_t i = 0; crowded && i < kConnections; ++i) crowd.push_back(connect_one(false));
  play(bytes);
  end_lines();
  for (const int one : crowd) close(one);
  ask_resident();
  for (const Line& line : lines) {
    close(line.socket);
    constexpr std::size_t kBuffered = 32768;
    receive_end(line.received, line.reset || line.script.slow || line.received.bytes > kBuffered);
    // Must hold even when a deadline has ended the connection.
    for (const std::string& mark : line.script.forbidden)
      require(wire_sets(mark) == 0, "what stands behind a refusal or a close is not carried out", mark);
    if (line.script.doubtful || crowded || line.lasted >= kDeadline) continue;
    require(!line.reset, "a connection ends in order");
    check_answers(line);
    check_replies(line);
    seed_reached(line.script.websocket ? "checked WebSocket" : "checked HTTP");
  }
  lines.clear();
  // The server notices an end a little later than the client.
  for (const auto end = steady_clock::now() + kReply; wire_is_followed(); ask_resident())
    require(steady_clock::now() < end, "nothing stays subscribed for a client that is gone");
  return 0;
}

std::set<std::string> seed_goals() {
  return {"HTTP 101",   "HTTP 200",   "HTTP 204",   "HTTP 400",     "HTTP 403",         "HTTP 404", "HTTP 405",
          "HTTP 408",   "HTTP 413",   "HTTP 422",   "HTTP 426",     "HTTP 431",         "HTTP 500", "HTTP 502",
          "continue",   "gzip",       "pong",       "batch",        "notify",           "trace",    "close 1000",
          "close 1002", "close 1007", "close 1009", "checked HTTP", "checked WebSocket"};
}
