#include <chrono>

#include "line.h"
#include "screen.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

milliseconds time_for(const Limits& limits, Phase phase) {
  switch (phase) {
    case Phase::kNothing:
      break;
    case Phase::kFirstRequest:
    case Phase::kHead:
      return limits.header_time;
    case Phase::kNextRequest:
      return limits.idle_time;
    case Phase::kBody:
    case Phase::kMessage:
      return limits.body_time;
    case Phase::kFarewell:
      return kLimitLingerTime;
  }
  return {};
}

// Checks that hold for every request. Status 0: the request is allowed.
HttpAnswer refusal(const Server& server, const Client& client) {
  const HttpRequest& request = client.request;
  const ServerOptions& options = server.options;
  if (std::string reason = policy_refuses(options.policy, request.host, request.origin); !reason.empty())
    return http_error(403, reason);
  if (!request.target_host.empty() && !policy_refuses(options.policy, request.target_host, "").empty())
    return http_error(400, "the target names another server");
  const bool page = http_is_page(request.path, server.catalogue);
  const bool follows_link =
      page && request.method == "GET" && request.fetch_mode == "navigate" && request.fetch_dest == "document";
  if (policy_is_cross_site(request.origin, request.fetch_site, follows_link))
    return http_error(403,
                      "pages of other sites may not use this server; start dtv-host with --allow-origin to let one in");
  if (client.line->excess && !client.authorized)
    return http_error(503, "this server serves " + std::to_string(options.limits.connections) +
                               " connections at a time, and all are in use; see --max-connections");
  const std::string_view guarded = http_needs_token(request.path);
  const bool wants_token = !guarded.empty() || (options.require_token && !page);
  if (wants_token && !client.authorized && !request.wants_websocket && request.method != "OPTIONS") {
    HttpAnswer answer = http_error(
        401, guarded.empty() ? "this server requires its token; see --require-token"
                             : std::string(guarded) + " requires this server's token, in Authorization: Bearer");
    answer.more = "www-authenticate: Bearer\r\n";
    return answer;
  }
  return {};
}

void upgrade(Server& server, Client& client) {
  HttpAnswer refused = client.request.path == "/jsonrpc" ? http_upgrade_refusal(client.request)
                                                         : http_error(404, "WebSocket connections are at /jsonrpc");
  Line& line = *client.line;
  if (refused.status == 0) {
    line.stream =
        ws_accept(client.request.head, client.request.websocket_protocol, server.options.limits.message_bytes);
    if (line.stream == nullptr) refused = http_error(400, "the upgrade request is malformed");
  }
  if (refused.status != 0) return refuse_http(server, client, std::move(refused));
  line.reader.reset();
  client.request = {};
  client.websocket = true;
}

// Handles the head of a request: refuses it, upgrades the connection, or goes on to read its body.
void on_head(Server& server, Client& client) {
  HttpRequest& request = client.request;
  client.authorized = policy_shows_token(request.authorization, server.options.token);
  if (HttpAnswer refused = refusal(server, client); refused.status != 0)
    return refuse_http(server, client, std::move(refused));
  if (request.wants_websocket) return upgrade(server, client);
  if (!request.expects_continue) return;
  // The client waits for permission to send the body. It is refused when the answer does not depend on the body.
  HttpAnswer answer;
  Call call;
  if (http_route(request, server.catalogue, server.options.web_folder, answer, call) == HttpRoute::kAnswer &&
      (answer.status == 404 || answer.status == 405))
    return refuse_http(server, client, std::move(answer));
  if (answer.file.descriptor >= 0) close(answer.file.descriptor);
  client.line->unsent += kHttpContinue;
}

void carry_out(Server& server, Client& client) {
  if (client.request.method == "OPTIONS")
    return server_answer(server, client, {.status = 204, .allow = "GET, HEAD, PUT, POST"});
  HttpAnswer answer;
  Call call;
  switch (http_route(client.request, server.catalogue, server.options.web_folder, answer, call)) {
    case HttpRoute::kAnswer:
      return server_answer(server, client, std::move(answer));
    // Frees the body: only the waiting call's own bytes are counted against the limit.
    case HttpRoute::kCall:
      client.line->state = State::kWaiting;
      client.request.body = {};
      return server_add_call(server, client, std::move(call));
    case HttpRoute::kRpc:
      client.line->state = State::kWaiting;
      return server_handle_message(server, client, std::exchange(client.request.body, {}));
    case HttpRoute::kList:
      return server_answer(server, client, listing_answer(client.request, server.listing));
    case HttpRoute::kScreen:
      return server_answer(server, client, screen_answer(client.request, *server.stack));
    case HttpRoute::kRecord:
      return server_answer(server, client, recorder_answer(server.recorder));
  }
}

}  // namespace

void enter_phase(Server& server, Line& line, Phase phase) {
  const Phase before = std::exchange(line.phase, phase);
  // The time for the first request begins with the connection.
  if (before == phase || (before == Phase::kFirstRequest && phase == Phase::kHead)) return;
  line.read_due = kNever;
  if (phase == Phase::kNothing) return;
  line.since = steady_clock::now();
  line.read_due = line.since + time_for(server.options.limits, phase);
  server_sweep_at(server, line.read_due);
}

void refuse_http(Server& server, Client& client, HttpAnswer answer) {
  client.request.keeps_alive = false;
  server_answer(server, client, std::move(answer));
}

bool read_http(Server& server, Client& client, std::string_view& window) {
  Line& line = *client.line;
  HttpAnswer refused;
  switch (http_read(*line.reader, window, client.request, refused)) {
    case HttpRead::kMore:
      if (line.phase != Phase::kBody && http_is_within(*line.reader, window)) enter_phase(server, line, Phase::kHead);
      return false;
    case HttpRead::kHead:
      enter_phase(server, line, Phase::kBody);
      on_head(server, client);
      return true;
    case HttpRead::kRequest:
      enter_phase(server, line, Phase::kNothing);
      carry_out(server, client);
      return true;
    case HttpRead::kRefused:
      client.request = {};
      refuse_http(server, client, std::move(refused));
      return true;
  }
  return false;
}

bool read_websocket(Server& server, Client& client, std::string_view& window) {
  Line& line = *client.line;
  WsMessage message;
  switch (ws_read(*line.stream, window, message)) {
    case WsRead::kMore:
      // Ending the phase in the middle of a message would extend its deadline.
      if (window.empty() && ws_held(*line.stream) == 0)
        enter_phase(server, line, Phase::kNothing);
      else
        enter_phase(server, line, Phase::kMessage);
      return false;
    case WsRead::kAgain:
      return true;
    case WsRead::kMessage:
      enter_phase(server, line, Phase::kNothing);
      if (message.binary) {
        outbox_reply(client.outbox, rpc_error("null", RpcError::kInvalidRequest, "send text frames, not binary ones"));
        server_mark(server, client);
      } else {
        server_handle_message(server, client, message.text);
      }
      return true;
    case WsRead::kClosed:
      line.state = State::kLeaving;
      return true;
  }
  return false;
}
