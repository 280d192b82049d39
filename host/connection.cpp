#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "line.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

void LineEnd::operator()(Line* line) const { delete line; }

namespace {

void await_read(Server& server, Client& client);
void await_write(Server& server, Client& client);

void forget_client(Server& server, std::uint64_t id) {
  const auto found = server.clients.find(id);
  Client& client = *found->second;
  for (const char* uri : client.uris) subscriptions_remove(server.subscriptions, uri, id);
  if (client.tracing) tracer_follow(server.tracer, --server.tracing > 0);
  const Line& line = *client.line;
  server.receiving_bytes -= line.receiving_bytes;
  server.reply_bytes -= line.reply_bytes;
  if (const auto peer = server.network->peers.find(line.peer);
      peer != server.network->peers.end() && --peer->second == 0)
    server.network->peers.erase(peer);
  server.clients.erase(found);
}

// Updates the server's sums with the bytes that this client holds.
void account(Server& server, const Client& client) {
  Line& line = *client.line;
  std::size_t held = line.input.size();
  if (line.reader != nullptr) held += http_held(*line.reader);
  if (line.stream != nullptr) held += ws_held(*line.stream);
  const std::size_t receiving = held > kLimitSmallMessageBytes ? held : 0;
  server.receiving_bytes += receiving - line.receiving_bytes;
  line.receiving_bytes = receiving;
  std::size_t replies = client.batch_bytes + client.outbox.replies_bytes + line.unsent.size() - line.sent;
  if (line.stream != nullptr) replies += ws_output(*line.stream).size();
  server.reply_bytes += replies - line.reply_bytes;
  line.reply_bytes = replies;
}

// Whether so many calls or replies of a WebSocket client are waiting that no more of its requests are read.
bool is_full(Server& server, const Client& client) {
  account(server, client);
  const std::size_t most =
      server.reply_bytes > kLimitManyReplyBytes ? kLimitClientReplyBytesOfMany : kLimitClientReplyBytes;
  return client.outstanding >= kLimitClientRequests || client.line->reply_bytes >= most;
}

// Appends the next part of an answer from its file, at most one chunk. Returns false when the file has become shorter.
bool read_file(Line& line) {
  char piece[kLimitChunkBytes];
  const ssize_t bytes = read(line.file.descriptor, piece, std::min<std::size_t>(sizeof piece, line.file.bytes));
  if (bytes <= 0) return false;
  line.unsent.append(piece, static_cast<std::size_t>(bytes));
  line.file.bytes -= static_cast<std::size_t>(bytes);
  if (line.file.bytes == 0) close(std::exchange(line.file.descriptor, -1));
  return true;
}

// Takes the next bytes to send; returns false when there are none.
bool next_chunk(Client& client) {
  Line& line = *client.line;
  line.sent = 0;
  line.write_due = kNever;
  constexpr std::size_t kKeptBytes = 4096;
  if (line.unsent.capacity() > kKeptBytes) line.unsent = {};
  line.unsent.clear();
  if (line.file.descriptor >= 0) {
    line.unsent_replies = true;
    if (!read_file(line)) line.state = State::kDead;
    return !line.unsent.empty();
  }
  if (line.stream == nullptr) return false;
  if (std::string& own = ws_output(*line.stream); !own.empty()) {
    line.unsent.swap(own);
    line.unsent_replies = true;
    return true;
  }
  if (!ws_is_open(*line.stream)) return false;  // nothing follows a close frame
  line.unsent = outbox_take(client.outbox, line.unsent_replies);
  return !line.unsent.empty();
}

// Sends as much as the socket takes now.
void send_output(Server& server, Client& client) {
  Line& line = *client.line;
  while (line.state != State::kDead && (line.sent < line.unsent.size() || next_chunk(client))) {
    boost::system::error_code failure;
    const std::size_t bytes =
        line.socket.write_some(asio::buffer(line.unsent.data() + line.sent, line.unsent.size() - line.sent), failure);
    line.sent += bytes;
    if (failure == asio::error::would_block) {
      // Notifications alone have no deadline: their number is limited, and the oldest are dropped.
      const bool replies = line.unsent_replies || client.outbox.replies_bytes > 0;
      if (replies && line.write_due == kNever) {
        line.write_due = steady_clock::now() + server.options.limits.reply_time;
        server_sweep_at(server, line.write_due);
      }
      return await_write(server, client);
    }
    if (failure) line.state = State::kDead;
  }
  if (line.state == State::kAnswering) {
    line.state = line.keeps_alive ? State::kReading : State::kLeaving;
    client.request = {};
    if (line.keeps_alive) enter_phase(server, line, Phase::kNextRequest);
  }
  if (line.state == State::kLeaving) {
    boost::system::error_code failure;
    line.socket.shutdown(tcp::socket::shutdown_send, failure);
    line.state = failure ? State::kDead : State::kLingering;
    enter_phase(server, line, Phase::kFarewell);
  }
}

// Lets the protocol read from the window, and sends the answers. A client that has sent much is interrupted after a
// while, so that other clients get their turn.
void advance(Server& server, Client& client, std::string_view& window) {
  constexpr std::chrono::microseconds kTurn(100);
  Line& line = *client.line;
  const unsigned steps_between_looks = line.stream != nullptr ? 8 : 1;  // an HTTP request may need a long answer
  line.yielded = false;
  std::optional<TimePoint> end;
  unsigned steps = 0;
  for (bool moved = true; moved;) {
    if (++steps % steps_between_looks == 0) {
      const TimePoint now = steady_clock::now();
      if (!end) end = now + kTurn;
      if (now > *end) {
        line.yielded = true;
        server_mark(server, client);
        break;
      }
    }
    moved = false;
    switch (line.state) {
      case State::kReading:
        if (line.stream == nullptr)
          moved = read_http(server, client, window);
        else if (!is_full(server, client))
          moved = read_websocket(server, client, window);
        else
          enter_phase(server, line, Phase::kNothing);  // the server, not the client, delays the message
        break;
      case State::kAnswering:
      case State::kLeaving:
        send_output(server, client);
        moved = line.state != State::kAnswering && line.state != State::kLeaving;
        break;
      case State::kLingering:
        window = {};
        break;
      case State::kWaiting:
      case State::kDead:
        break;
    }
  }
  // The interim answer 100 Continue.
  if (line.state == State::kReading && line.stream == nullptr && line.sent < line.unsent.size())
    send_output(server, client);
}

// Called after everything that may have changed a connection: enforces limits, and reads or closes it.
void settle(Server& server, Client& client) {
  Line& line = *client.line;
  // Answers that the protocol itself produces, such as pongs.
  if (line.stream != nullptr && !ws_output(*line.stream).empty() && !line.write_awaited) send_output(server, client);
  account(server, client);
  if (line.receiving_bytes > 0 && server.receiving_bytes > kLimitReceivingBytes && line.state == State::kReading) {
    constexpr std::string_view kReason = "too many long messages are being received";
    line.input.clear();
    if (line.stream != nullptr) {
      ws_close(*line.stream, 1013, kReason);
      line.state = State::kLeaving;
    } else {
      refuse_http(server, client, http_error(503, kReason));
    }
    line.input = {};
    send_output(server, client);
  }
  if (server.reply_bytes > kLimitAllReplyBytes && line.reply_bytes > kLimitClientReplyBytesOfMany)
    line.state = State::kDead;
  if (line.state == State::kDead) return forget_client(server, client.id);
  const bool takes = line.state == State::kReading && !line.yielded && !(line.stream && is_full(server, client));
  if (takes || line.state == State::kLingering) await_read(server, client);
}

// Lets the protocol read the bytes that were received earlier.
void resume(Server& server, Client& client) {
  Line& line = *client.line;
  if (line.input.empty()) {
    std::string_view nothing;
    return advance(server, client, nothing);
  }
  std::string_view window = line.input;
  advance(server, client, window);
  constexpr std::size_t kKeptBytes = 4096;
  if (window.empty() && line.input.capacity() > kKeptBytes)
    line.input = {};
  else
    line.input.erase(0, line.input.size() - window.size());
}

// The client has closed its sending side, or the connection is lost.
void on_end(Server& server, Client& client) {
  Line& line = *client.line;
  if (line.state == State::kReading && line.reader != nullptr && http_is_within(*line.reader, line.input)) {
    refuse_http(server, client,
                line.phase == Phase::kBody ? http_error(408, "the body is incomplete")
                                           : http_error(400, "the headers are incomplete"));
    send_output(server, client);
    if (line.state != State::kAnswering) line.state = State::kDead;
    return;
  }
  line.state = State::kDead;
}

void on_readable(Server& server, Client& client) {
  Line& line = *client.line;
  line.read_awaited = false;
  if (line.state != State::kReading && line.state != State::kLingering) return settle(server, client);
  std::array<char, kLimitReadBytes>& buffer = server.network->buffer;
  boost::system::error_code failure;
  const std::size_t bytes = line.socket.read_some(asio::buffer(buffer), failure);
  if (failure == asio::error::would_block) return settle(server, client);
  if (failure) {
    on_end(server, client);
    return settle(server, client);
  }
  if (line.input.empty()) {
    std::string_view window(buffer.data(), bytes);
    advance(server, client, window);
    line.input = window;
  } else {
    line.input.append(buffer.data(), bytes);
    resume(server, client);
  }
  settle(server, client);
}

template <typename Handler>
auto on_line(Server& server, std::uint64_t id, Handler handler) {
  return [&server, id, handler](const boost::system::error_code& failure) {
    runner_begin_turn(server.runner);
    if (failure == asio::error::operation_aborted) return;
    if (const auto found = server.clients.find(id); found != server.clients.end()) handler(server, *found->second);
  };
}

void await_read(Server& server, Client& client) {
  if (std::exchange(client.line->read_awaited, true)) return;
  client.line->socket.async_wait(tcp::socket::wait_read, on_line(server, client.id, on_readable));
}

void await_write(Server& server, Client& client) {
  if (std::exchange(client.line->write_awaited, true)) return;
  client.line->socket.async_wait(tcp::socket::wait_write, on_line(server, client.id, [](Server& of, Client& writable) {
                                   writable.line->write_awaited = false;
                                   server_flush(of, writable);
                                 }));
}

// Whether the client has closed its sending side, or the connection is lost, while the server does not read from it.
bool has_left(Line& line) {
  pollfd ended = {.fd = line.socket.native_handle(), .events = POLLRDHUP, .revents = 0};
  return !line.read_awaited && poll(&ended, 1, 0) > 0;
}

// Closes a connection to make room for a new one, among the excess connections or among the others: the one that has
// waited longest for its next request or its end, or else one whose client has left while its calls wait. Returns false
// when there is none.
bool make_room(Server& server, bool excess) {
  Client* longest = nullptr;
  Client* left = nullptr;
  for (const auto& [id, client] : server.clients) {
    Line& line = *client->line;
    if (line.excess != excess) continue;
    const bool gives_way = line.state == State::kLingering || (line.state == State::kReading && !client->websocket);
    if (gives_way && (longest == nullptr || line.since < longest->line->since)) longest = client.get();
    if (longest == nullptr && left == nullptr && client->outstanding > 0 && has_left(line)) left = client.get();
  }
  Client* const found = longest != nullptr ? longest : left;
  if (found == nullptr) return false;
  forget_client(server, found->id);
  return true;
}

// Finds a place for a connection, regular or excess, and makes one if it can. Returns false when there is none.
bool take_place(Server& server, bool& ret_excess) {
  const std::size_t most = server.options.limits.connections;
  ret_excess = false;
  if (server.clients.size() < most) return true;
  const auto beyond = static_cast<std::size_t>(
      std::ranges::count_if(server.clients, [](const auto& each) { return each.second->line->excess; }));
  ret_excess = server.clients.size() - beyond >= most && !make_room(server, false);
  return !ret_excess || beyond < kLimitExcessConnections || make_room(server, true);
}

// Without this the kernel begins to probe after two hours.
void probe_when_idle(Socket& socket) {
  const auto set = [&](int option, std::int64_t value) {
    const int number = static_cast<int>(value);
    setsockopt(socket.native_handle(), IPPROTO_TCP, option, &number, sizeof number);
  };
  boost::system::error_code failure;
  socket.set_option(asio::socket_base::keep_alive(true), failure);
  set(TCP_KEEPIDLE, kLimitProbeAfter.count());
  set(TCP_KEEPINTVL, kLimitProbeEvery.count());
  set(TCP_KEEPCNT, kLimitProbes);
}

// Handles a deadline that has passed.
void on_overdue(Server& server, Client& client) {
  Line& line = *client.line;
  if (line.write_due <= steady_clock::now()) {
    line.state = State::kDead;  // the client does not read its reply
    return;
  }
  const Phase phase = std::exchange(line.phase, Phase::kNothing);
  line.read_due = kNever;
  switch (phase) {
    case Phase::kHead:
      refuse_http(server, client, http_error(408, "the headers were not complete in time"));
      return send_output(server, client);
    case Phase::kBody:
      refuse_http(server, client, http_error(408, "the body was not complete in time"));
      return send_output(server, client);
    case Phase::kMessage:
      ws_close(*line.stream, 1008, "the message was not complete in time");
      line.state = State::kLeaving;
      return send_output(server, client);
    default:
      line.state = State::kDead;
  }
}

}  // namespace

void connection_begin(Server& server, Socket socket) {
  boost::system::error_code failure;
  const asio::ip::address address = socket.remote_endpoint(failure).address();
  if (failure) return;
  Network& network = *server.network;
  const std::string peer = address.is_loopback() ? "" : address.to_string();
  const auto others = network.peers.find(peer);
  if (others != network.peers.end() && others->second >= kLimitConnectionsPerPeer) return;
  bool excess = false;
  if (!take_place(server, excess)) return;

  socket.non_blocking(true, failure);
  socket.set_option(tcp::no_delay(true), failure);
  probe_when_idle(socket);
  if (!peer.empty()) ++network.peers[peer];
  auto client = std::make_unique<Client>();
  client->id = server.next_client++;
  client->line.reset(new Line(std::move(socket)));
  client->line->peer = peer;
  client->line->excess = excess;
  client->line->reader = http_reader_make(server.options.limits.message_bytes);
  Client& begun = *client;
  server.clients.emplace(begun.id, std::move(client));
  enter_phase(server, *begun.line, Phase::kFirstRequest);
  await_read(server, begun);
}

void connection_sweep(Server& server) {
  const TimePoint now = steady_clock::now();
  std::vector<std::uint64_t> overdue;
  TimePoint next = kNever;
  for (const auto& [id, client] : server.clients) {
    const TimePoint due = std::min(client->line->read_due, client->line->write_due);
    if (due <= now)
      overdue.push_back(id);
    else
      next = std::min(next, due);
  }
  if (next != kNever) server_sweep_at(server, next);
  for (const std::uint64_t id : overdue) {
    Client& client = *server.clients.at(id);
    on_overdue(server, client);
    settle(server, client);
  }
}

void connection_say_goodbye(Server& server) {
  for (const auto& [id, client] : server.clients) {
    Line& line = *client->line;
    if (line.stream == nullptr || !ws_is_open(*line.stream)) continue;
    ws_close(*line.stream, 1001, "the server is shutting down");
    line.state = State::kLeaving;
    send_output(server, *client);
    // Closing a socket with unread bytes resets the connection, and the close frame could be lost.
    boost::system::error_code failure;
    line.socket.read_some(asio::buffer(server.network->buffer), failure);
  }
}

void server_mark(Server& server, Client& client) {
  if (std::exchange(client.dirty, true)) return;
  server.dirty.push_back(client.id);
}

void server_flush(Server& server, Client& client) {
  send_output(server, client);
  resume(server, client);
  settle(server, client);
}

void server_answer(Server& server, Client& client, HttpAnswer answer) {
  Line& line = *client.line;
  line.state = State::kAnswering;
  line.keeps_alive = client.request.keeps_alive && !server.stopping.load();
  enter_phase(server, line, Phase::kNothing);
  const std::string& origin = client.request.origin;
  const bool foreign = policy_is_foreign(server.options.policy, origin);
  line.unsent += http_head(answer, line.keeps_alive, foreign ? origin : "");
  line.unsent_replies = true;
  const bool with_body = client.request.method != "HEAD";
  if (answer.file.descriptor >= 0 && (!with_body || answer.file.bytes == 0))
    close(std::exchange(answer.file.descriptor, -1));
  if (with_body) line.unsent += answer.body;
  line.file = answer.file;
}
