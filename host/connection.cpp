#include <algorithm>
#include <charconv>
#include <utility>

#include "server.h"

static_assert(outbox_pad >= LWS_PRE);

namespace {

// Connections beyond the maximum that are still told so; what comes beyond them is closed unheard.
constexpr std::size_t told_connections = 32;
// Calls of one client that may wait before it is not read from for a while, and bytes of replies that have not left.
constexpr std::size_t pause_outstanding = 1024;
constexpr std::size_t pause_bytes = std::size_t{1} << 20;
// A refused request's body is read and forgotten, up to this; a longer one's connection is closed.
constexpr std::size_t longest_refused = std::size_t{256} << 20;

Server& server_of(lws* wsi) { return *static_cast<Server*>(lws_context_user(lws_get_context(wsi))); }

Client* client_of(lws* wsi) { return static_cast<Client*>(lws_get_opaque_user_data(wsi)); }

Client& make_client(Server& server, lws* wsi) {
  if (Client* known = client_of(wsi); known != nullptr) return *known;
  const std::uint64_t id = server.next_client++;
  const auto [place, made] = server.clients.emplace(id, std::make_unique<Client>());
  Client& client = *place->second;
  client.id = id;
  client.wsi = wsi;
  lws_set_opaque_user_data(wsi, &client);
  return client;
}

void forget_client(Server& server, lws* wsi) {
  Client* client = client_of(wsi);
  if (client == nullptr) return;
  for (const char* uri : client->uris) subscriptions_remove(server.subscriptions, uri, client->id);
  if (client->tracing) tracer_follow(server.tracer, --server.tracing > 0);
  lws_set_opaque_user_data(wsi, nullptr);
  server.clients.erase(client->id);
}

std::string header(lws* wsi, lws_token_indexes token) {
  const int length = lws_hdr_total_length(wsi, token);
  if (length <= 0) return {};
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  const int copied = lws_hdr_copy(wsi, text.data(), length + 1, token);
  text.resize(copied > 0 ? static_cast<std::size_t>(copied) : 0);
  return text;
}

bool add_header(lws* wsi, const char* name, std::string_view value, unsigned char** at, unsigned char* end) {
  return value.empty() || lws_add_http_header_by_name(wsi, reinterpret_cast<const unsigned char*>(name),
                                                      reinterpret_cast<const unsigned char*>(value.data()),
                                                      static_cast<int>(value.size()), at, end) == 0;
}

// Writes a whole answer. Returns false where the connection is to be closed.
bool write_answer(const Server& server, lws* wsi, const HttpAnswer& answer, const std::string& origin) {
  unsigned char headers[LWS_PRE + 4096];
  unsigned char* at = headers + LWS_PRE;
  unsigned char* end = headers + sizeof headers - 1;
  const bool foreign = policy_is_foreign(server.options.policy, origin);
  if (lws_add_http_common_headers(wsi, answer.status, answer.body.empty() ? nullptr : answer.type.c_str(),
                                  answer.body.size(), &at, end) != 0 ||
      !add_header(wsi, "allow:", answer.allow, &at, end) ||
      !add_header(wsi, "content-security-policy:", answer.policy, &at, end) ||
      !add_header(wsi, "access-control-allow-origin:", foreign ? origin : "", &at, end) ||
      !add_header(wsi, "access-control-allow-methods:", foreign ? "GET, PUT, POST" : "", &at, end) ||
      !add_header(wsi, "access-control-allow-headers:", foreign ? "content-type" : "", &at, end) ||
      !add_header(wsi, "vary:", "Origin", &at, end) || !add_header(wsi, "cache-control:", "no-cache", &at, end) ||
      !add_header(wsi, "x-content-type-options:", "nosniff", &at, end) ||
      !add_header(wsi, "referrer-policy:", "no-referrer", &at, end) ||
      lws_finalize_write_http_header(wsi, headers + LWS_PRE, &at, end) != 0)
    return false;
  if (answer.body.empty() || lws_hdr_total_length(wsi, WSI_TOKEN_HEAD_URI) > 0) return true;
  std::string padded(LWS_PRE, '\0');
  padded += answer.body;
  return lws_write(wsi, reinterpret_cast<unsigned char*>(padded.data()) + LWS_PRE, answer.body.size(),
                   LWS_WRITE_HTTP_FINAL) >= 0;
}

struct MethodRow {
  lws_token_indexes token;
  std::string_view name;
};

constexpr MethodRow http_methods[] = {
    {.token = WSI_TOKEN_GET_URI, .name = "GET"},     {.token = WSI_TOKEN_POST_URI, .name = "POST"},
    {.token = WSI_TOKEN_PUT_URI, .name = "PUT"},     {.token = WSI_TOKEN_OPTIONS_URI, .name = "OPTIONS"},
    {.token = WSI_TOKEN_PATCH_URI, .name = "PATCH"}, {.token = WSI_TOKEN_DELETE_URI, .name = "DELETE"},
    {.token = WSI_TOKEN_HEAD_URI, .name = "HEAD"},
};

std::string method_of(lws* wsi) {
  for (const MethodRow& row : http_methods)
    if (lws_hdr_total_length(wsi, row.token) > 0) return std::string(row.name);
  return "the method";
}

// The first word of a request is no method that the socket library knows.
void on_unknown_method(lws* wsi) {
  HttpAnswer answer = http_error(405, "the method is not served here, but GET, PUT and POST are");
  answer.allow = "GET, PUT, POST";
  server_last_word(lws_get_socket_fd(wsi), answer);
}

// The connection is about to be closed: what came on it without becoming a request is told why.
void on_leaving(const Server& server, lws* wsi) {
  const int socket = lws_get_socket_fd(wsi);
  const Client* client = client_of(wsi);
  if (client != nullptr && client->websocket) return;
  // The end of the client's stream counts as one byte.
  const std::uint64_t nothing = (client != nullptr ? client->heard : 0) + 1;
  if (server_received(socket) <= nothing || server.stopping.load()) return;
  if (client != nullptr && client->reading)
    server_last_word(socket, http_error(408, "the body did not come whole"));
  else
    server_last_word(socket, http_error(400,
                                        "the headers did not end, or have a name that this server cannot read, "
                                        "such as one of a single letter"));
}

// What speaks against a request, whatever it wants; status 0: nothing.
HttpAnswer refusal(const Server& server, const std::string& host, const std::string& origin) {
  if (std::string reason = policy_refuses(server.options.policy, host, origin); !reason.empty())
    return http_error(403, reason);
  if (server.connections > server.options.max_connections)
    return http_error(503, "this server serves " + std::to_string(server.options.max_connections) +
                               " connections, and has them; see --max-connections");
  return {};
}

void read_parameter(lws* wsi, HttpRequest& request) {
  std::vector<char> text(server_header_bytes);
  const char* value = lws_get_urlarg_by_name(wsi, "parameter=", text.data(), static_cast<int>(text.size()));
  request.has_parameter = value != nullptr;
  request.parameter = value != nullptr ? value : "";
}

void carry_out(Server& server, Client& client) {
  // The answer may take as long as the platform does.
  lws_set_timeout(client.wsi, NO_PENDING_TIMEOUT, 0);
  if (client.request.method == "OPTIONS")
    return server_answer(server, client, {.status = 204, .allow = "GET, PUT, POST"});
  HttpAnswer answer;
  Call call;
  switch (http_route(client.request, server.catalogue, server.options.web_folder, answer, call)) {
    case HttpRoute::answer:
      return server_answer(server, client, std::move(answer));
    case HttpRoute::call:
      return server_add_call(server, client, std::move(call));
    case HttpRoute::rpc:
      return server_handle_message(server, client, client.request.body);
  }
}

// Headers are here. A body may follow; the request is then carried out when it is complete.
int on_http(Server& server, lws* wsi, std::string_view path) {
  Client& client = make_client(server, wsi);
  client.answer = {};
  client.request = {.method = method_of(wsi), .path = std::string(path), .host = header(wsi, WSI_TOKEN_HOST)};
  client.origin = header(wsi, WSI_TOKEN_ORIGIN);
  client.heard = server_received(lws_get_socket_fd(wsi));
  read_parameter(wsi, client.request);

  std::size_t length = 0;
  const std::string length_text = header(wsi, WSI_TOKEN_HTTP_CONTENT_LENGTH);
  std::from_chars(length_text.data(), length_text.data() + length_text.size(), length);
  HttpAnswer refused = refusal(server, client.request.host, client.origin);
  if (refused.status == 0 && !header(wsi, WSI_TOKEN_HTTP_TRANSFER_ENCODING).empty())
    refused = http_error(411, "send the body with a Content-Length");
  if (refused.status == 0 && length > server.options.max_message)
    refused = http_error(413, "a message may have " + std::to_string(server.options.max_message) + " bytes");
  if (length > longest_refused) {
    if (refused.status == 0) refused = http_error(413, "the body is too long");
    server_last_word(lws_get_socket_fd(wsi), refused);
    return -1;
  }

  client.reading = length > 0;
  if (refused.status != 0) {
    // Answered when the body has been read: an earlier answer would be lost with the connection.
    client.answer = std::move(refused);
    if (!client.reading) lws_callback_on_writable(wsi);
    return 0;
  }
  if (!client.reading) carry_out(server, client);
  return 0;
}

void on_body(const Server& server, Client& client, std::string_view piece) {
  if (client.answer.status == 0 && client.request.body.size() + piece.size() <= server.options.max_message)
    client.request.body += piece;
}

void on_body_end(Server& server, Client& client) {
  if (!client.reading) return;
  client.reading = false;
  client.heard = server_received(lws_get_socket_fd(client.wsi));
  if (client.answer.status != 0)
    lws_callback_on_writable(client.wsi);
  else
    carry_out(server, client);
}

int on_http_writable(Server& server, lws* wsi) {
  Client* client = client_of(wsi);
  if (client == nullptr || client->answer.status == 0 || client->reading) return 0;
  const HttpAnswer answer = std::move(client->answer);
  client->answer = {};
  client->request = {};
  if (!write_answer(server, wsi, answer, client->origin)) return -1;
  return lws_http_transaction_completed(wsi) != 0 ? -1 : 0;
}

// 0 lets the upgrade go on; otherwise it has been answered, and lws goes on with the connection.
int on_upgrade(Server& server, lws* wsi, std::string_view protocol) {
  const std::string origin = header(wsi, WSI_TOKEN_ORIGIN);
  HttpAnswer refused = refusal(server, header(wsi, WSI_TOKEN_HOST), origin);
  const std::string path = header(wsi, WSI_TOKEN_GET_URI);
  if (refused.status == 0 && protocol != "websocket")
    refused = http_error(400, "this server speaks HTTP/1.1 and WebSocket");
  if (refused.status == 0 && path != "/jsonrpc") refused = http_error(404, "WebSocket connections are at /jsonrpc");
  make_client(server, wsi).heard = server_received(lws_get_socket_fd(wsi));
  if (refused.status == 0) return 0;
  return write_answer(server, wsi, refused, origin) ? 1 : -1;
}

void refuse_message(Server& server, Client& client, RpcError code, const std::string& message,
                    const std::string& data = {}) {
  outbox_reply(client.outbox, rpc_error("null", code, message, data));
  server_mark(server, client);
  server_pace(client);
}

void on_receive(Server& server, Client& client, std::string_view piece) {
  const bool first = lws_is_first_fragment(client.wsi) != 0;
  const bool last = lws_is_final_fragment(client.wsi) != 0;
  const std::size_t limit = server.options.max_message;
  if (first) client.too_long = false;
  if (client.message.size() + piece.size() > limit) client.too_long = true;
  if (client.too_long) {
    client.message = {};
    if (last)
      refuse_message(server, client, RpcError::limit, "a message may have " + std::to_string(limit) + " bytes",
                     "{\"limit\":" + std::to_string(limit) + "}");
    return;
  }
  if (!first || !last) client.message += piece;
  if (!last) return;
  if (lws_frame_is_binary(client.wsi) != 0)
    refuse_message(server, client, RpcError::invalid_request, "send text frames, not binary ones");
  else
    server_handle_message(server, client, first ? piece : std::string_view(client.message));
  if (!first) client.message = {};
}

}  // namespace

int server_callback(lws* wsi, lws_callback_reasons reason, void*, void* in, std::size_t length) {
  const std::string_view text(static_cast<const char*>(in), in != nullptr ? length : 0);
  switch (reason) {
    case LWS_CALLBACK_FILTER_NETWORK_CONNECTION: {
      const Server& server = server_of(wsi);
      return server.connections >= server.options.max_connections + told_connections ? 1 : 0;
    }
    case LWS_CALLBACK_WSI_CREATE:
      ++server_of(wsi).connections;
      return 0;
    case LWS_CALLBACK_WSI_DESTROY:
      --server_of(wsi).connections;
      forget_client(server_of(wsi), wsi);
      return 0;

    case LWS_CALLBACK_CLOSED_HTTP:
      on_leaving(server_of(wsi), wsi);
      return 0;
    case LWS_CALLBACK_RAW_RX:
      on_unknown_method(wsi);
      return -1;

    case LWS_CALLBACK_HTTP:
      return on_http(server_of(wsi), wsi, text);
    case LWS_CALLBACK_HTTP_BODY:
      if (Client* client = client_of(wsi); client != nullptr) on_body(server_of(wsi), *client, text);
      return 0;
    case LWS_CALLBACK_HTTP_BODY_COMPLETION:
      if (Client* client = client_of(wsi); client != nullptr) on_body_end(server_of(wsi), *client);
      return 0;
    case LWS_CALLBACK_HTTP_WRITEABLE:
      return on_http_writable(server_of(wsi), wsi);

    case LWS_CALLBACK_HTTP_CONFIRM_UPGRADE:
      return on_upgrade(server_of(wsi), wsi, in != nullptr ? static_cast<const char*>(in) : "");
    case LWS_CALLBACK_ESTABLISHED:
      make_client(server_of(wsi), wsi).websocket = true;
      return 0;
    case LWS_CALLBACK_RECEIVE:
      if (Client* client = client_of(wsi); client != nullptr) on_receive(server_of(wsi), *client, text);
      return 0;
    case LWS_CALLBACK_SERVER_WRITEABLE:
      if (Client* client = client_of(wsi); client != nullptr) server_flush(server_of(wsi), *client);
      return 0;
    case LWS_CALLBACK_CLOSED:
      forget_client(server_of(wsi), wsi);
      return 0;
    default:
      return 0;
  }
}

void server_mark(Server& server, Client& client) {
  if (std::exchange(client.dirty, true)) return;
  server.dirty.push_back(client.id);
}

void server_flush(Server&, Client& client) {
  if (!client.websocket) return;
  while (!lws_partial_buffered(client.wsi)) {
    std::string chunk = outbox_take(client.outbox);
    if (chunk.empty()) {
      server_pace(client);
      return;
    }
    const std::size_t length = chunk.size() - outbox_pad;
    auto* frames = reinterpret_cast<unsigned char*>(chunk.data()) + outbox_pad;
    if (lws_write(client.wsi, frames, length, LWS_WRITE_RAW) < 0) {
      lws_set_timeout(client.wsi, PENDING_TIMEOUT_USER_REASON_BASE, LWS_TO_KILL_ASYNC);
      return;
    }
  }
  lws_callback_on_writable(client.wsi);
}

void server_pace(Client& client) {
  if (!client.websocket) return;
  const bool full = client.outstanding >= pause_outstanding || client.outbox.replies_bytes >= pause_bytes;
  const bool ready = client.outstanding < pause_outstanding / 2 && client.outbox.replies_bytes < pause_bytes / 2;
  if (client.paused ? !ready : !full) return;
  client.paused = !client.paused;
  lws_rx_flow_control(client.wsi, client.paused ? 0 : 1);
}

void server_answer(Server&, Client& client, HttpAnswer answer) {
  client.answer = std::move(answer);
  lws_callback_on_writable(client.wsi);
}
