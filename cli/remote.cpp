// The session through a host: JSON-RPC 2.0 over WebSocket. The only thread runs the network handlers while it waits.
#include <unistd.h>

#include <algorithm>
#include <boost/asio/connect.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/json.hpp>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <deque>
#include <memory>

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

// A connection that is kept alive: after so long without a byte of the host the program sends a ping, and after so long
// without an answer to it takes the host as gone. The host is noticed to be gone within 10 seconds.
constexpr std::chrono::seconds kPingAfter{3};
constexpr std::chrono::seconds kPingAnswer{6};

// How long one attempt to connect again may take.
constexpr std::chrono::seconds kAttempt{5};

// After so long without an answer, the program says that it waits.
constexpr std::chrono::seconds kPatience{1};

// One WebSocket. Its handlers share it, so that those of a given-up one still find it when they are run.
struct Link {
  explicit Link(asio::io_context& context) : socket(context) {}
  websocket::stream<tcp::socket, false> socket;
  enum { kConnecting, kUpgrading, kOpen, kEnded } state = kConnecting;
  error_code failure;                // why it ended
  websocket::response_type upgrade;  // how the host answered the request for a WebSocket
  beast::flat_buffer received;
  std::deque<std::string> outbox;  // messages that are not yet written; the first is being written
  std::deque<std::string> inbox;
  Clock::time_point heard = Clock::now();  // when the latest bytes came
  std::optional<Clock::time_point> ping;   // when a ping was sent that nothing has come after
  bool silent = false;                     // the host did not answer the ping
  Token token;
};
using LinkPointer = std::shared_ptr<Link>;

struct Connection {
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> work{
      context.get_executor()};  // so that run_one waits even without handlers
  tcp::resolver resolver{context};
  LinkPointer link;
  std::deque<Message> notifications;
  std::uint64_t last_id = 0;
  Options options;
  std::string address;
  int port = 0;
  bool keeps_alive = false;  // pings a silent host
  bool told = false;         // has said that it waits
};

void end(Link& link, const error_code& failure) {
  link.state = Link::kEnded;
  link.failure = failure;
}

// Reads pieces, since a long message may take longer than a silent host is waited for.
void read_on(const LinkPointer& link) {
  link->socket.async_read_some(link->received, 0, [link](const error_code& failure, std::size_t) {
    if (failure) return end(*link, failure);
    link->heard = Clock::now();
    link->ping.reset();
    if (link->socket.is_message_done()) {
      link->inbox.push_back(beast::buffers_to_string(link->received.data()));
      link->received.clear();
    }
    read_on(link);
  });
}

// A failed write is not reported: the read beside it fails as well, and may know the host's reason.
void write_on(const LinkPointer& link) {
  link->socket.async_write(asio::buffer(link->outbox.front()), [link](const error_code& failure, std::size_t) {
    if (failure) return;
    link->outbox.pop_front();
    if (!link->outbox.empty()) write_on(link);
  });
}

// Returns the request's identifier.
std::uint64_t send(Connection& connection, std::string_view method, const std::string& params) {
  const std::uint64_t id = ++connection.last_id;
  const LinkPointer& link = connection.link;
  link->outbox.push_back(R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + std::string(method) +
                         R"(","params":)" + params + "}");
  if (link->outbox.size() == 1) write_on(link);
  return id;
}

// Shows the token with the request for a WebSocket: a host whose connections are all taken lets nobody else in.
void show_token(Link& link) {
  link.socket.set_option(websocket::stream_base::decorator([&link](websocket::request_type& request) {
    if (!link.token.hex.empty()) request.set(http::field::authorization, "Bearer " + link.token.hex);
  }));
}

// Looks the name up, connects to the first of its addresses that answers, and asks for a WebSocket.
void connect(Connection& connection) {
  const LinkPointer link = std::make_shared<Link>(connection.context);
  connection.link = link;
  link->socket.read_message_max(kMessageMax);
  link->socket.auto_fragment(false);
  const auto upgrade = [link, &connection](const error_code& failure, const tcp::endpoint& peer) {
    if (failure) return end(*link, failure);
    link->token = token_find(connection.options, peer.address().is_loopback());
    show_token(*link);
    error_code ignored;
    link->socket.next_layer().set_option(tcp::no_delay(true), ignored);
    link->state = Link::kUpgrading;
    link->socket.async_handshake(link->upgrade, connection.options.host, "/jsonrpc", [link](const error_code& refused) {
      if (refused) return end(*link, refused);
      link->state = Link::kOpen;
      link->heard = Clock::now();
      read_on(link);
    });
  };
  connection.resolver.async_resolve(
      connection.address, std::to_string(connection.port),
      [link, upgrade](const error_code& failure, const tcp::resolver::results_type& found) {
        if (failure) return end(*link, failure);
        if (link->state == Link::kEnded) return;  // given up meanwhile
        asio::async_connect(link->socket.next_layer(), found, upgrade);
      });
}

// Gives a link up. Its handlers run with an error later.
void give_up(Connection& connection) {
  connection.resolver.cancel();
  if (connection.link == nullptr) return;
  error_code ignored;
  connection.link->socket.next_layer().close(ignored);
  connection.link->state = Link::kEnded;
}

// Pings a host that has been silent for long, and ends the link when the ping has no answer either. Time during which
// this program did not run counts for nothing, since what came meanwhile has been read by now. Returns when to look
// again.
Clock::time_point keep_alive(Connection& connection) {
  Link& link = *connection.link;
  if (link.state != Link::kOpen) return Clock::time_point::max();
  const Clock::time_point now = Clock::now();
  if (!link.ping && now >= link.heard + kPingAfter) {
    send(connection, "ping", "{}");
    link.ping = now;
  }
  if (!link.ping) return link.heard + kPingAfter;
  if (now < *link.ping + kPingAnswer) return *link.ping + kPingAnswer;
  link.silent = true;
  give_up(connection);
  return Clock::time_point::max();
}

// Runs one handler, or returns false when the time is over and nothing that arrived before is unread.
bool run_one(Connection& connection, std::optional<Clock::time_point> until) {
  if (!until) return connection.context.run_one() > 0;
  return connection.context.run_one_until(*until) > 0 ||
         (Clock::now() <= *until + kGrace && connection.context.poll_one() > 0);
}

// Runs handlers until done() is true or the time is over. Returns whether done() is true; once it is, it is not called
// again. Signals do not interrupt it.
template <typename Done>
bool run_until(Connection& connection, std::optional<Clock::time_point> until, Done done) {
  while (!done()) {
    if (until && Clock::now() > *until + kGrace) return false;
    std::optional<Clock::time_point> wake = until;
    if (connection.keeps_alive) {
      if (connection.context.poll_one() > 0) continue;
      const Clock::time_point look = keep_alive(connection);
      if (connection.link->silent) continue;
      if (look < until.value_or(Clock::time_point::max())) wake = look;
    }
    if (!run_one(connection, wake) && until && Clock::now() >= *until) return false;
  }
  return true;
}

// Like run_until, for an answer of the host. On a terminal it prints once that the program waits.
template <typename Done>
bool run_patiently(Connection& connection, Clock::time_point until, Done done) {
  const Clock::time_point patience = Clock::now() + kPatience;
  if (!connection.told && patience < until && isatty(STDERR_FILENO) != 0) {
    if (run_until(connection, patience, done)) return true;
    connection.told = true;
    std::fprintf(stderr, "dtvctl: waiting for the host at %s to answer; Ctrl-C ends it\n",
                 connection.options.host.c_str());
  }
  return run_until(connection, until, done);
}

Clock::time_point in_seconds(double seconds) {
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

constexpr const char* kWaysToAHost =
    " Start one with \"make run\", name another with --host ADDR:PORT, or use --local.";

Failure unreachable(const Connection& connection, const std::string& reason) {
  return {kExitUnreachable, "no host at " + connection.options.host + " (" + reason + ")." + kWaysToAHost};
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
  const Link& link = *connection.link;
  const error_code& failure = link.failure;
  if (link.state != Link::kEnded)
    return {kExitUnreachable, "no answer within the --timeout from " + connection.options.host +
                                  ": the host there hangs, or there is none." + kWaysToAHost};
  const bool closed = failure == http::error::end_of_stream || failure == http::error::partial_message;
  const bool answered = failure.category() == error_code(http::error::bad_version).category() ||
                        failure.category() == error_code(websocket::error::upgrade_declined).category();
  if (closed) return unreachable(connection, "it closed the connection");
  if (!answered) return unreachable(connection, failure.message());
  const std::string reason = failure == websocket::error::upgrade_declined ? refusal(link.upgrade) : failure.message();
  return {kExitProtocol, "the server at " + connection.options.host + " is not a dtv-host, or it refuses that name (" +
                             printable(reason) + ")"};
}

// Why the session is over.
Failure lost(const Connection& connection) {
  const Link& link = *connection.link;
  const std::string host = "the host at " + connection.options.host;
  if (link.silent) {
    constexpr auto kSilence = std::chrono::seconds(kPingAfter + kPingAnswer).count();
    return {kExitUnreachable, host + " has given no sign of life for " + std::to_string(kSilence) + " seconds"};
  }
  const error_code closed = websocket::error::closed;
  if (link.failure != closed && link.failure.category() == closed.category())
    return {kExitProtocol, host + " sent an invalid message: " + link.failure.message()};
  const websocket::close_reason& close = link.socket.reason();
  const bool usual = close.code == websocket::close_code::none || close.code == websocket::close_code::normal ||
                     close.code == websocket::close_code::going_away;
  std::string why = usual ? "" : " (" + std::to_string(close.code);
  if (!usual && !close.reason.empty()) why += " " + printable({close.reason.data(), close.reason.size()});
  return {kExitUnreachable, host + " closed the connection" + why + (usual ? "" : ")")};
}

// The warnings for which --strict has refused a request; none: it was refused for something else.
std::vector<std::string> warnings_of(const json::object& error) {
  const json::value* const data = error.if_contains("data");
  const json::value* const warnings =
      data != nullptr && data->is_object() ? data->get_object().if_contains("warnings") : nullptr;
  std::vector<std::string> texts;
  if (warnings == nullptr || !warnings->is_array()) return texts;
  for (const json::value& each : warnings->get_array())
    if (each.is_string()) texts.emplace_back(each.get_string());
  return texts;
}

// The failure for a JSON-RPC error. Only its message is used; the data is for programs.
Failure rpc_failure(const Connection& connection, const json::object& error) {
  const json::value* const message = error.if_contains("message");
  const json::value* const code = error.if_contains("code");
  const auto is = [&](RpcError expected) { return code != nullptr && *code == static_cast<std::int64_t>(expected); };
  if (is(RpcError::kForbidden)) {
    return {kExitRefused,
            "the host at " + connection.options.host +
                " wants its token for this; give its state folder with --state, or the token in DTV_TOKEN" +
                (!connection.link->token.trouble.empty() ? " (" + connection.link->token.trouble + ")"
                 : connection.link->token.hex.empty()    ? ""
                                                         : " (the token that was found is another host's)")};
  }
  if (is(RpcError::kInvalidParams)) {
    if (const std::vector<std::string> warnings = warnings_of(error); !warnings.empty())
      return strict_failure(warnings);
  }
  const bool refused = is(RpcError::kUnknownUri) || is(RpcError::kPlatform);
  return {refused ? kExitRefused : kExitProtocol, message != nullptr && message->is_string()
                                                      ? std::string(message->get_string())
                                                      : "the host answered an error: " + json::serialize(error)};
}

// Sorts the received messages: puts notifications into their queue, and returns the answer to the call with this id.
std::optional<std::string> take_answer(Connection& connection, std::uint64_t id, Failure& ret_failure) {
  std::deque<std::string>& inbox = connection.link->inbox;
  while (!inbox.empty()) {
    std::string text = std::move(inbox.front());
    inbox.pop_front();
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
  if (connection.link->state == Link::kEnded) {
    ret_failure = lost(connection);
    return false;
  }
  const std::uint64_t id = send(connection, method, params);
  std::optional<std::string> answer;
  Failure failure;
  const bool done = run_patiently(connection, in_seconds(connection.options.timeout), [&] {
    answer = take_answer(connection, id, failure);
    return answer || failure.exit_code != kExitOk || connection.link->state == Link::kEnded;
  });
  if (!answer) {
    ret_failure = failure.exit_code != kExitOk ? failure
                  : done                       ? lost(connection)
                                               : Failure{kExitProtocol,
                                   "the host at " + connection.options.host + " has not answered within the --timeout"};
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
    while (!connection.link->inbox.empty() && failure.exit_code == kExitOk) take_answer(connection, 0, failure);
    return !connection.notifications.empty() || connection.link->state == Link::kEnded || failure.exit_code != kExitOk;
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

// "ADDR:PORT", "ADDR" or "[ADDR]:PORT" (IPv6).
bool parse_host(const std::string& host, std::string& ret_address, int& ret_port) {
  const bool bracketed = host.starts_with('[');
  const std::size_t end = bracketed ? host.find(']') : host.find(':');
  if (bracketed && end == std::string::npos) return false;
  const std::string address = bracketed ? host.substr(1, end - 1) : host.substr(0, end);
  const std::string_view rest =
      end == std::string::npos ? "" : std::string_view(host).substr(bracketed ? end + 1 : end);
  int port = 8080;
  if (!rest.empty()) {
    const auto given = parse_number_within(rest.substr(1), 1, 65535);
    if (rest[0] != ':' || !given) return false;
    port = *given;
  }
  error_code no_address;
  if (bracketed) asio::ip::make_address_v6(address, no_address);
  const auto of_name = [](unsigned char c) {
    return std::isalnum(c) != 0 || c >= 0x80 || c == '-' || c == '.' || c == '_';
  };
  if (no_address || address.empty() || (!bracketed && !std::ranges::all_of(address, of_name))) return false;
  ret_address = address;
  ret_port = port;
  return true;
}

// Waits for the connection to open, and shows it the token. The reply is not awaited: the following requests show
// whether the token was right or needed at all.
bool open(Connection& connection, Clock::time_point until, Failure& ret_failure) {
  connect(connection);
  const LinkPointer& link = connection.link;
  if (!run_patiently(connection, until, [&link] { return link->state >= Link::kOpen; }) ||
      link->state == Link::kEnded) {
    ret_failure = not_open(connection);
    give_up(connection);
    return false;
  }
  if (!link->token.hex.empty()) send(connection, "authorize", R"({"token":")" + link->token.hex + R"("})");
  return true;
}

}  // namespace

Failure strict_failure(std::span<const std::string> warnings) {
  std::string text = "not sent to the set, because of --strict: ";
  for (const std::string& each : warnings) text += (&each == warnings.data() ? "" : "; ") + printable(each);
  return {kExitRefused, text};
}

bool split_host(const std::string& host, std::string& ret_address, int& ret_port, Failure& ret_failure) {
  if (parse_host(host, ret_address, ret_port)) return true;
  ret_failure = {kExitUsage, "the host \"" + printable(host) +
                                 "\" is not ADDR:PORT, for example 127.0.0.1:8080 or [::1]:8080; a port is a number "
                                 "from 1 to 65535"};
  return false;
}

bool session_open_remote(const Options& options, Session& ret_session, Failure& ret_failure) {
  // It is never destroyed: its destructor would wait for a name server that does not answer.
  static Connection& connection = *new Connection;
  connection.options = options;
  if (!split_host(options.host, connection.address, connection.port, ret_failure)) return false;
  std::signal(SIGPIPE, SIG_IGN);
  if (!open(connection, in_seconds(options.timeout), ret_failure)) return false;

  ret_session.call = [](std::string_view method, const std::string& params, std::string& ret_result, Failure& failure) {
    return call(connection, method, params, ret_result, failure);
  };
  ret_session.wait = [](std::optional<Clock::time_point> until, Message& ret_message, Failure& failure) {
    return wait(connection, until, ret_message, failure);
  };
  ret_session.keep_alive = [] { connection.keeps_alive = true; };
  ret_session.heard = [] { return connection.link->heard; };
  ret_session.reopen = [](Clock::time_point until, Failure& failure) {
    give_up(connection);
    connection.notifications.clear();
    connection.told = true;  // the caller says what happens
    return open(connection, std::min(until, Clock::now() + kAttempt), failure);
  };
  ret_session.close = [] {};
  return true;
}
