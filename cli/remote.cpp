// The session through a host: JSON-RPC 2.0 over WebSocket. The only thread runs the network handlers while it waits.
#include <boost/asio/connect.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/json.hpp>
#include <csignal>
#include <deque>

#include "base/rpc_error.h"
#include "base/text.h"
#include "dtvctl.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace json = boost::json;
namespace websocket = boost::beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr std::size_t kMessageMax = std::size_t{64} << 20;  // bytes of one message of the host

// How long a deadline may be exceeded to read what arrived before it.
constexpr std::chrono::milliseconds kGrace{100};

struct Connection {
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> work{
      context.get_executor()};  // so that run_one waits even without handlers
  tcp::resolver resolver{context};
  websocket::stream<tcp::socket, false> socket{context};
  enum { kConnecting, kUpgrading, kOpen, kEnded } state = kConnecting;
  error_code failure;                // why it ended
  websocket::response_type upgrade;  // how the host answered the request for a WebSocket
  beast::flat_buffer received;
  std::deque<std::string> outbox;  // messages that are not yet written; the first is being written
  std::deque<std::string> inbox;
  std::deque<Message> notifications;
  std::uint64_t last_id = 0;
  std::string host;
  double timeout = 0;
  Token token;
};

void end(Connection& connection, const error_code& failure) {
  connection.state = Connection::kEnded;
  connection.failure = failure;
}

void read_on(Connection& connection) {
  connection.socket.async_read(connection.received, [&connection](const error_code& failure, std::size_t size) {
    if (failure) return end(connection, failure);
    connection.inbox.push_back(beast::buffers_to_string(connection.received.data()));
    connection.received.consume(size);
    read_on(connection);
  });
}

// A failed write is not reported: the read beside it fails as well, and may know the host's reason.
void write_on(Connection& connection) {
  connection.socket.async_write(asio::buffer(connection.outbox.front()),
                                [&connection](const error_code& failure, std::size_t) {
                                  if (failure) return;
                                  connection.outbox.pop_front();
                                  if (!connection.outbox.empty()) write_on(connection);
                                });
}

// Returns the request's identifier.
std::uint64_t send(Connection& connection, std::string_view method, const std::string& params) {
  const std::uint64_t id = ++connection.last_id;
  connection.outbox.push_back(R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" +
                              std::string(method) + R"(","params":)" + params + "}");
  if (connection.outbox.size() == 1) write_on(connection);
  return id;
}

// Shows the token with the request for a WebSocket: a host whose connections are all taken lets nobody else in.
void show_token(Connection& connection) {
  connection.socket.set_option(websocket::stream_base::decorator([&connection](websocket::request_type& request) {
    if (!connection.token.hex.empty()) request.set(http::field::authorization, "Bearer " + connection.token.hex);
  }));
}

// Looks the name up, connects to the first of its addresses that answers, and asks for a WebSocket.
void connect(Connection& connection, const Options& options, const std::string& address, int port) {
  const auto upgrade = [&connection, &options](const error_code& failure, const tcp::endpoint& peer) {
    if (failure) return end(connection, failure);
    connection.token = token_find(options, peer.address().is_loopback());
    show_token(connection);
    error_code ignored;
    connection.socket.next_layer().set_option(tcp::no_delay(true), ignored);
    connection.state = Connection::kUpgrading;
    connection.socket.async_handshake(connection.upgrade, connection.host, "/jsonrpc",
                                      [&connection](const error_code& refused) {
                                        if (refused) return end(connection, refused);
                                        connection.state = Connection::kOpen;
                                        read_on(connection);
                                      });
  };
  connection.resolver.async_resolve(
      address, std::to_string(port),
      [&connection, upgrade](const error_code& failure, const tcp::resolver::results_type& found) {
        if (failure) return end(connection, failure);
        asio::async_connect(connection.socket.next_layer(), found, upgrade);
      });
}

// Runs handlers until done() is true or the time is over. Returns whether done() is true. Signals do not interrupt it.
template <typename Done>
bool run_until(Connection& connection, std::optional<Clock::time_point> until, Done done) {
  while (!done()) {
    if (!until) {
      connection.context.run_one();
    } else if (connection.context.run_one_until(*until) == 0 &&
               (Clock::now() > *until + kGrace || connection.context.poll_one() == 0)) {
      return false;
    }
  }
  return true;
}

Clock::time_point in_seconds(double seconds) {
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

Failure unreachable(const Connection& connection, const std::string& reason) {
  return {kExitUnreachable, "no host at " + connection.host + " (" + reason +
                                "). Start one with \"make run\", name another with --host ADDR:PORT, or use --local."};
}

// Status and reason of the answer, with the error in the body of a dtv-host.
std::string refusal(const websocket::response_type& upgrade) {
  std::string text = std::to_string(upgrade.result_int()) + " " + std::string(upgrade.reason());
  json::value body;
  if (json_parse(upgrade.body(), body) && body.is_object()) {
    const json::value* const error = body.get_object().if_contains("error");
    if (error != nullptr && error->is_string()) text += ": " + std::string(error->get_string());
  }
  return text;
}

// Why there is no session. If the connection is closed at once, any program may be listening there; if the answer is
// something else, it is not a host.
Failure not_open(const Connection& connection) {
  const error_code& failure = connection.failure;
  if (connection.state != Connection::kEnded) return unreachable(connection, "no answer within the --timeout");
  const bool closed = failure == http::error::end_of_stream || failure == http::error::partial_message;
  const bool answered = failure.category() == error_code(http::error::bad_version).category() ||
                        failure.category() == error_code(websocket::error::upgrade_declined).category();
  if (closed) return unreachable(connection, "it closed the connection");
  if (!answered) return unreachable(connection, failure.message());
  const std::string reason =
      failure == websocket::error::upgrade_declined ? refusal(connection.upgrade) : failure.message();
  return {kExitProtocol, "the server at " + connection.host + " is not a dtv-host, or it refuses that name (" +
                             printable(reason) + ")"};
}

// Why the session is over.
Failure lost(const Connection& connection) {
  const error_code closed = websocket::error::closed;
  if (connection.failure != closed && connection.failure.category() == closed.category()) {
    return {kExitProtocol,
            "the host at " + connection.host + " sent an invalid message: " + connection.failure.message()};
  }
  const websocket::close_reason& close = connection.socket.reason();
  const bool usual = close.code == websocket::close_code::none || close.code == websocket::close_code::normal ||
                     close.code == websocket::close_code::going_away;
  std::string why = usual ? "" : " (" + std::to_string(close.code);
  if (!usual && !close.reason.empty()) why += " " + printable({close.reason.data(), close.reason.size()});
  return {kExitUnreachable, "the host at " + connection.host + " closed the connection" + why + (usual ? "" : ")")};
}

// The failure for a JSON-RPC error. Only its message is used; the data is for programs.
Failure rpc_failure(const Connection& connection, const json::object& error) {
  const json::value* const message = error.if_contains("message");
  const json::value* const code = error.if_contains("code");
  const auto is = [&](RpcError expected) { return code != nullptr && *code == static_cast<std::int64_t>(expected); };
  if (is(RpcError::kForbidden)) {
    return {kExitRefused,
            "the host at " + connection.host +
                " wants its token for this; give its state folder with --state, or the token in DTV_TOKEN" +
                (connection.token.trouble.empty() ? "" : " (" + connection.token.trouble + ")")};
  }
  const bool refused = is(RpcError::kUnknownUri) || is(RpcError::kPlatform);
  return {refused ? kExitRefused : kExitProtocol, message != nullptr && message->is_string()
                                                      ? std::string(message->get_string())
                                                      : "the host answered an error: " + json::serialize(error)};
}

// Sorts the received messages: puts notifications into their queue, and returns the answer to the call with this id.
std::optional<std::string> take_answer(Connection& connection, std::uint64_t id, Failure& ret_failure) {
  while (!connection.inbox.empty()) {
    std::string text = std::move(connection.inbox.front());
    connection.inbox.pop_front();
    json::value parsed;
    const json::object* message = json_parse(text, parsed) ? parsed.if_object() : nullptr;
    if (message == nullptr) {
      ret_failure = {kExitProtocol, "the host sent a text that is not a JSON object: " + text.substr(0, 200)};
      return std::nullopt;
    }
    if (const json::value* method = message->if_contains("method"); method != nullptr && method->is_string()) {
      connection.notifications.push_back(
          {std::string(method->get_string()), std::string(json_member(text, "params").value_or("{}"))});
      continue;
    }
    const json::value* answered = message->if_contains("id");
    if (answered == nullptr || answered->is_null() || *answered == json::value(id)) return text;
  }
  return std::nullopt;
}

bool call(Connection& connection, std::string_view method, const std::string& params, std::string& ret_result,
          Failure& ret_failure) {
  if (connection.state == Connection::kEnded) {
    ret_failure = lost(connection);
    return false;
  }
  const std::uint64_t id = send(connection, method, params);
  std::optional<std::string> answer;
  Failure failure;
  const bool done = run_until(connection, in_seconds(connection.timeout), [&] {
    answer = take_answer(connection, id, failure);
    return answer || failure.exit_code != kExitOk || connection.state == Connection::kEnded;
  });
  if (!answer) {
    ret_failure =
        failure.exit_code != kExitOk ? failure
        : done                       ? lost(connection)
               : Failure{kExitProtocol, "the host at " + connection.host + " has not answered within the --timeout"};
    return false;
  }
  json::value parsed;
  json_parse(*answer, parsed);
  if (const json::value* error = parsed.get_object().if_contains("error"); error != nullptr && error->is_object()) {
    ret_failure = rpc_failure(connection, error->get_object());
    return false;
  }
  const std::optional<std::string_view> result = json_member(*answer, "result");
  if (!result) {
    ret_failure = {kExitProtocol, "the host's answer has neither a result nor an error: " + answer->substr(0, 200)};
    return false;
  }
  ret_result = std::string(*result);
  return true;
}

Waited wait(Connection& connection, std::optional<Clock::time_point> until, Message& ret_message,
            Failure& ret_failure) {
  Failure failure;
  const bool done = run_until(connection, until, [&] {
    while (!connection.inbox.empty() && failure.exit_code == kExitOk) take_answer(connection, 0, failure);
    return !connection.notifications.empty() || connection.state == Connection::kEnded || failure.exit_code != kExitOk;
  });
  if (!connection.notifications.empty()) {
    ret_message = std::move(connection.notifications.front());
    connection.notifications.pop_front();
    return Waited::kMessage;
  }
  if (!done) return Waited::kTimeout;
  ret_failure = failure.exit_code != kExitOk ? failure : lost(connection);
  return Waited::kFailed;
}

bool parse_host(const std::string& host, std::string& ret_address, int& ret_port) {
  std::string address = host;
  int port = 8080;
  const std::size_t colon = host.rfind(':');
  const bool bracketed = !host.empty() && host.front() == '[';
  const std::size_t bracket = bracketed ? host.find(']') : std::string::npos;
  if (bracketed && bracket == std::string::npos) return false;
  if (colon != std::string::npos && (!bracketed || colon > bracket)) {
    const auto given = parse_number_within(std::string_view(host).substr(colon + 1), 1, 65535);
    if (!given) return false;
    port = *given;
    address = host.substr(0, colon);
  }
  if (bracketed) {
    if (address.size() != bracket + 1) return false;
    address = address.substr(1, bracket - 1);
  }
  if (address.empty()) return false;
  ret_address = address;
  ret_port = port;
  return true;
}

}  // namespace

bool split_host(const std::string& host, std::string& ret_address, int& ret_port, Failure& ret_failure) {
  if (parse_host(host, ret_address, ret_port)) return true;
  ret_failure = {kExitUsage, "the host \"" + host + "\" is not ADDR:PORT, for example 127.0.0.1:8080"};
  return false;
}

bool session_open_remote(const Options& options, Session& ret_session, Failure& ret_failure) {
  std::string address;
  int port = 0;
  if (!split_host(options.host, address, port, ret_failure)) return false;
  std::signal(SIGPIPE, SIG_IGN);
  // It is never destroyed: its destructor would wait for a name server that does not answer.
  static Connection& connection = *new Connection;
  connection.host = options.host;
  connection.timeout = options.timeout;
  connection.socket.read_message_max(kMessageMax);
  connection.socket.auto_fragment(false);
  connect(connection, options, address, port);
  const bool done =
      run_until(connection, in_seconds(options.timeout), [] { return connection.state >= Connection::kOpen; });
  if (!done || connection.state == Connection::kEnded) {
    ret_failure = not_open(connection);
    return false;
  }
  // The reply is not awaited: the following requests show whether the token was right or needed at all.
  if (!connection.token.hex.empty()) send(connection, "authorize", R"({"token":")" + connection.token.hex + R"("})");

  ret_session.call = [](std::string_view method, const std::string& params, std::string& ret_result, Failure& failure) {
    return call(connection, method, params, ret_result, failure);
  };
  ret_session.wait = [](std::optional<Clock::time_point> until, Message& ret_message, Failure& failure) {
    return wait(connection, until, ret_message, failure);
  };
  ret_session.close = [] {};
  return true;
}
