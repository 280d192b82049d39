// The session through a host: JSON-RPC 2.0 over WebSocket. One thread, which runs the library's loop while it waits.
#include <libwebsockets.h>

#include <boost/json.hpp>
#include <charconv>
#include <csignal>
#include <deque>
#include <memory>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

// Ends the library's sleep at a deadline. A timer that is due before the sleep begins is spent by then, so it also
// asks that the sleep be cancelled.
struct Alarm {
  lws_sorted_usec_list_t timer;  // first: the library hands its address back
  lws_context* context;
};

void ring(lws_sorted_usec_list_t* timer) { lws_cancel_service(reinterpret_cast<Alarm*>(timer)->context); }

struct Connection {
  lws_context* context = nullptr;
  lws* socket = nullptr;
  bool open = false;
  bool ended = false;
  std::string reason;   // why it ended
  std::string partial;  // fragments of a message that has not ended yet
  std::deque<std::string> inbox;
  std::string outbox;  // one message, behind LWS_PRE bytes that the library wants
  std::deque<Message> notifications;
  std::uint64_t last_id = 0;
  Alarm alarm{};
  std::string host;
  double timeout = 0;

  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    if (context != nullptr) lws_context_destroy(context);
  }
};

int on_socket(lws* socket, lws_callback_reasons reason, void*, void* in, std::size_t length) {
  lws_context* context = lws_get_context(socket);
  auto* const connection = context == nullptr ? nullptr : static_cast<Connection*>(lws_context_user(context));
  if (connection == nullptr) return 0;
  switch (reason) {
    case LWS_CALLBACK_CLIENT_ESTABLISHED:
      connection->open = true;
      break;
    case LWS_CALLBACK_CLIENT_CONNECTION_ERROR:
      connection->ended = true;
      connection->reason = in == nullptr ? "" : std::string(static_cast<const char*>(in), length);
      break;
    case LWS_CALLBACK_CLIENT_CLOSED:
      connection->ended = true;
      break;
    case LWS_CALLBACK_CLIENT_RECEIVE:
      connection->partial.append(static_cast<const char*>(in), length);
      if (lws_is_final_fragment(socket) != 0 && lws_remaining_packet_payload(socket) == 0) {
        connection->inbox.push_back(std::move(connection->partial));
        connection->partial.clear();
      }
      break;
    case LWS_CALLBACK_CLIENT_WRITEABLE: {
      if (connection->outbox.empty()) break;
      const std::size_t size = connection->outbox.size() - LWS_PRE;
      auto* const text = reinterpret_cast<unsigned char*>(connection->outbox.data()) + LWS_PRE;
      const int written = lws_write(socket, text, size, LWS_WRITE_TEXT);
      connection->outbox.clear();
      if (written < 0) return -1;
      break;
    }
    default:
      break;
  }
  return 0;
}

constexpr lws_protocols kProtocols[] = {
    {"dtvctl", on_socket, 0, 65536, 0, nullptr, 0},
    {nullptr, nullptr, 0, 0, 0, nullptr, 0},
};

// Runs the loop until done() or the time is over. Returns whether it was done.
template <typename Done>
bool run_until(Connection& connection, std::optional<Clock::time_point> until, Done done) {
  while (!done()) {
    if (until) {
      const auto left = std::chrono::duration_cast<std::chrono::microseconds>(*until - Clock::now()).count();
      if (left <= 0) return false;
      connection.alarm.context = connection.context;
      lws_sul_schedule(connection.context, 0, &connection.alarm.timer, ring, left);
    }
    lws_service(connection.context, 0);
  }
  return true;
}

Clock::time_point in_seconds(double seconds) {
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

Failure unreachable(const std::string& host, const std::string& reason) {
  if (reason.starts_with("HS:")) {  // the library's mark for a failed handshake: somebody is there
    return {kExitProtocol, "what answers at " + host + " is no dtv-host, or it refuses that name (" + reason + ")"};
  }
  return {kExitUnreachable, "no host at " + host + (reason.empty() ? "" : " (" + reason + ")") +
                                ". Start one with \"make run\", name another with --host ADDR:PORT, or use --local."};
}

Failure lost(const Connection& connection) {
  return {kExitUnreachable, "the host at " + connection.host + " closed the connection"};
}

// What a JSON-RPC error says. Its message stands for itself; the data is for programs.
Failure rpc_failure(const json::object& error) {
  constexpr std::int64_t kUnknownUri = -32001;
  constexpr std::int64_t kPlatformRefused = -32004;
  const json::value* const message = error.if_contains("message");
  const json::value* const code = error.if_contains("code");
  const bool refused = code != nullptr && (*code == kUnknownUri || *code == kPlatformRefused);
  return {refused ? kExitRefused : kExitProtocol, message != nullptr && message->is_string()
                                                      ? std::string(message->get_string())
                                                      : "the host answered an error: " + json::serialize(error)};
}

// Sorts what has arrived: notifications to their queue; the answer to the call with this id is returned.
std::optional<std::string> take_answer(Connection& connection, std::uint64_t id, Failure& ret_failure) {
  while (!connection.inbox.empty()) {
    std::string text = std::move(connection.inbox.front());
    connection.inbox.pop_front();
    json::value parsed;
    const json::object* message = json_parse(text, parsed) ? parsed.if_object() : nullptr;
    if (message == nullptr) {
      ret_failure = {kExitProtocol, "the host sent a text that is no JSON object: " + text.substr(0, 200)};
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
  if (connection.ended) {
    ret_failure = lost(connection);
    return false;
  }
  const std::uint64_t id = ++connection.last_id;
  connection.outbox = std::string(LWS_PRE, ' ') + R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" +
                      std::string(method) + R"(","params":)" + params + "}";
  lws_callback_on_writable(connection.socket);

  std::optional<std::string> answer;
  Failure failure;
  const bool done = run_until(connection, in_seconds(connection.timeout), [&] {
    answer = take_answer(connection, id, failure);
    return answer || failure.exit_code != kExitOk || connection.ended;
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
    ret_failure = rpc_failure(error->get_object());
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
    return !connection.notifications.empty() || connection.ended || failure.exit_code != kExitOk;
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
bool split_host(const std::string& host, std::string& ret_address, int& ret_port) {
  std::string address = host;
  int port = 8080;
  const std::size_t colon = host.rfind(':');
  const bool bracketed = !host.empty() && host.front() == '[';
  const std::size_t bracket = bracketed ? host.find(']') : std::string::npos;
  if (bracketed && bracket == std::string::npos) return false;
  if (colon != std::string::npos && (!bracketed || colon > bracket)) {
    const char* const end = host.data() + host.size();
    const auto [stop, failed] = std::from_chars(host.data() + colon + 1, end, port);
    if (failed != std::errc() || stop != end || port < 1 || port > 65535) return false;
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

bool session_open_remote(const Options& options, Session& ret_session, Failure& ret_failure) {
  std::string address;
  int port = 0;
  if (!split_host(options.host, address, port)) {
    ret_failure = {kExitUsage, "the host \"" + options.host + "\" is not ADDR:PORT, for example 127.0.0.1:8080"};
    return false;
  }
  lws_set_log_level(0, nullptr);
  const auto connection = std::make_shared<Connection>();
  connection->host = options.host;
  connection->timeout = options.timeout;

  lws_context_creation_info context_info{};
  context_info.port = CONTEXT_PORT_NO_LISTEN;
  context_info.protocols = kProtocols;
  context_info.user = connection.get();
  connection->context = lws_create_context(&context_info);
  if (connection->context == nullptr) {
    ret_failure = {kExitUnreachable, "the WebSocket library does not start"};
    return false;
  }
  std::signal(SIGPIPE, SIG_IGN);

  lws_client_connect_info info{};
  info.context = connection->context;
  info.address = address.c_str();
  info.port = port;
  info.path = "/jsonrpc";
  info.host = options.host.c_str();
  info.local_protocol_name = kProtocols[0].name;
  info.pwsi = &connection->socket;
  const bool begun = lws_client_connect_via_info(&info) != nullptr;
  const bool done = begun && run_until(*connection, in_seconds(options.timeout),
                                       [&] { return connection->open || connection->ended; });
  if (!begun || !done || connection->ended) {
    ret_failure = unreachable(options.host, done || !begun ? connection->reason : "no answer within the --timeout");
    return false;
  }
  ret_session.call = [connection](std::string_view method, const std::string& params, std::string& ret_result,
                                  Failure& failure) { return call(*connection, method, params, ret_result, failure); };
  ret_session.wait = [connection](std::optional<Clock::time_point> until, Message& ret_message, Failure& failure) {
    return wait(*connection, until, ret_message, failure);
  };
  ret_session.close = [] {};
  return true;
}
