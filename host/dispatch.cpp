#include <algorithm>

#include "json_text.h"
#include "server.h"

namespace {

// A batch's replies are held until the last one is there.
constexpr std::size_t longest_batch_reply = std::size_t{16} << 20;

// A whole reply, or an empty text where nothing is to be said.
void send_reply(Server& server, Client& client, std::string text) {
  if (client.websocket) {
    if (text.empty()) return;
    outbox_reply(client.outbox, text);
    server_mark(server, client);
    return;
  }
  const unsigned status = text.empty() ? 204 : 200;
  server_answer(server, client, {.status = status, .body = std::move(text)});
}

// The reply to one request: sent, or kept until its batch is complete. id empty: a notification's, not sent.
void reply(Server& server, Client& client, std::uint64_t batch_id, std::size_t slot, std::string_view id,
           std::string text) {
  if (id.empty()) text.clear();
  if (batch_id == 0) return send_reply(server, client, std::move(text));
  const auto found = client.batches.find(batch_id);
  if (found == client.batches.end()) return;
  Batch& batch = found->second;
  if (batch.bytes + text.size() > longest_batch_reply)
    text = rpc_error(id, RpcError::limit,
                     "the replies of a batch may have " + std::to_string(longest_batch_reply) + " bytes together",
                     "{\"limit\":" + std::to_string(longest_batch_reply) + "}");
  batch.bytes += text.size();
  batch.replies[slot] = std::move(text);
  if (--batch.waiting > 0) return;
  std::string all;
  for (const std::string& one : batch.replies) {
    if (one.empty()) continue;
    all += all.empty() ? "[" : ",";
    all += one;
  }
  if (!all.empty()) all += "]";
  client.batches.erase(found);
  send_reply(server, client, std::move(all));
}

std::string subscribe(Server& server, Client& client, const RpcRequest& request) {
  if (std::ranges::find(client.uris, request.call.uri) != client.uris.end()) return rpc_result(request.id, "{}");
  if (client.uris.size() >= server.options.max_subscriptions)
    return rpc_error(request.id, RpcError::limit,
                     "a client may have " + std::to_string(server.options.max_subscriptions) + " subscriptions",
                     "{\"limit\":" + std::to_string(server.options.max_subscriptions) + "}");
  client.uris.push_back(request.call.uri);
  subscriptions_add(server.subscriptions, request.call.uri, client.id);
  return rpc_result(request.id, "{}");
}

std::string unsubscribe(Server& server, Client& client, const RpcRequest& request) {
  if (std::erase(client.uris, request.call.uri) > 0) {
    subscriptions_remove(server.subscriptions, request.call.uri, client.id);
    outbox_forget(client.outbox, request.call.uri);
  }
  return rpc_result(request.id, "{}");
}

std::string trace(Server& server, Client& client, const RpcRequest& request) {
  if (server.stack->watch == nullptr)
    return rpc_error(request.id, RpcError::platform, "tracing needs the tap, and this server runs without it");
  if (client.tracing != request.on) {
    client.tracing = request.on;
    server.tracing += request.on ? 1 : std::size_t(-1);
    if (!request.on) outbox_forget(client.outbox, nullptr);
    tracer_follow(server.tracer, server.tracing > 0);
  }
  return rpc_result(request.id, "{}");
}

// The reply to a request that calls nothing.
std::string answer_at_once(Server& server, Client& client, const RpcRequest& request) {
  if (request.method == RpcMethod::list) return rpc_result(request.id, server.catalogue.description);
  if (!client.websocket)
    return rpc_error(request.id, RpcError::invalid_request,
                     "subscribe, unsubscribe and trace need a WebSocket connection, which notifications can come by");
  switch (request.method) {
    case RpcMethod::subscribe:
      return subscribe(server, client, request);
    case RpcMethod::unsubscribe:
      return unsubscribe(server, client, request);
    default:
      return trace(server, client, request);
  }
}

bool calls_platform(RpcMethod method) {
  return method == RpcMethod::get || method == RpcMethod::set || method == RpcMethod::tv;
}

bool is_full(const Server& server) {
  return server.runner.jobs.size() >= server.options.max_requests ||
         server.runner.jobs_bytes >= server.options.max_requests_bytes;
}

constexpr std::string_view busy_text = "too many requests wait for the platform; try again";

void handle_request(Server& server, Client& client, RpcRequest& request, std::uint64_t batch, std::size_t slot) {
  if (!request.error.empty()) return reply(server, client, batch, slot, request.id, std::move(request.error));
  if (!calls_platform(request.method))
    return reply(server, client, batch, slot, request.id, answer_at_once(server, client, request));
  if (is_full(server)) {
    std::string error = rpc_error(request.id, RpcError::busy, busy_text,
                                  "{\"waiting\":" + std::to_string(server.runner.jobs.size()) + "}");
    return reply(server, client, batch, slot, request.id, std::move(error));
  }
  ++client.outstanding;
  runner_add(server.runner, {.client = client.id,
                             .batch = batch,
                             .slot = slot,
                             .id = std::move(request.id),
                             .call = std::move(request.call)});
}

void give_notice(Server& server, std::uint64_t client_id, const Notice& notice) {
  const auto found = server.clients.find(client_id);
  if (found == server.clients.end()) return;
  outbox_notice(found->second->outbox, server.options.outbox, notice);
  server_mark(server, *found->second);
}

void on_notification(void* context, const char* uri, const std::vector<std::uint64_t>& clients, std::string_view text) {
  auto& server = *static_cast<Server*>(context);
  const Notice notice{.frame = std::make_shared<const std::string>(ws_frame(rpc_notify(uri, text))), .uri = uri};
  for (const std::uint64_t client : clients) give_notice(server, client, notice);
}

void serve_traces(Server& server) {
  std::vector<std::string> lines;
  const std::size_t lost = tracer_take(server.tracer, lines);
  for (auto& [id, client] : server.clients) {
    if (!client->tracing) continue;
    client->outbox.dropped += lost;
    if (lost > 0) server_mark(server, *client);
  }
  for (const std::string& line : lines) {
    const Notice notice{.frame = std::make_shared<const std::string>(ws_frame(rpc_trace(line))), .uri = nullptr};
    for (auto& [id, client] : server.clients)
      if (client->tracing) give_notice(server, id, notice);
  }
}

}  // namespace

void server_handle_message(Server& server, Client& client, std::string_view text) {
  rpc_read(text, server.catalogue, server.message);
  std::uint64_t batch = 0;
  if (server.message.batch) {
    batch = client.next_batch++;
    const std::size_t size = server.message.requests.size();
    client.batches.emplace(batch, Batch{.replies = std::vector<std::string>(size), .waiting = size, .bytes = 0});
  }
  for (std::size_t slot = 0; slot < server.message.requests.size(); ++slot)
    handle_request(server, client, server.message.requests[slot], batch, slot);
  server_pace(client);
}

void server_add_call(Server& server, Client& client, Call call) {
  if (is_full(server)) return server_answer(server, client, http_error(503, busy_text));
  ++client.outstanding;
  runner_add(server.runner, {.client = client.id, .call = std::move(call)});
}

void server_deliver(Server& server, Job& job, Outcome& outcome) {
  const auto found = server.clients.find(job.client);
  if (found == server.clients.end()) return;  // gone meanwhile
  Client& client = *found->second;
  --client.outstanding;
  if (!client.websocket && client.request.path != "/jsonrpc")
    return server_answer(server, client, http_outcome(job.call, outcome));
  std::string text = job.id.empty() ? std::string() : rpc_outcome(job.id, job.call, outcome);
  reply(server, client, job.batch, job.slot, job.id, std::move(text));
}

void server_serve_inboxes(Server& server) {
  // Cleared before the inboxes are looked at: what comes later wakes again.
  if (!server.woken.exchange(false)) return;
  std::vector<Finished> finished;
  runner_take_finished(server.runner, finished);
  for (Finished& one : finished) server_deliver(server, one.job, one.outcome);
  if (server.event.exchange(false)) subscriptions_fetch(server.subscriptions, on_notification, &server);
  if (server.tracing > 0) serve_traces(server);
}
