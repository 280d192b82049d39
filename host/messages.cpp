#include <algorithm>

#include "json_text.h"
#include "serving.h"

namespace {

// Sends a complete reply; an empty text means that there is none.
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

// Bytes that a batch holds before its first reply.
std::size_t places_bytes(const Batch& batch) { return batch.replies.size() * sizeof(std::string); }

bool has_room(const Batch& batch, std::size_t bytes) { return batch.bytes + bytes <= kLimitBatchReplyBytes; }

// The reply to a request that exceeds a limit. allowed: the sentence up to the number, unit: what follows it.
std::string beyond_limit(std::string_view id, std::string_view allowed, std::size_t limit, std::string_view unit) {
  const std::string number = std::to_string(limit);
  return rpc_error(id, RpcError::kLimit, std::string(allowed).append(number).append(unit),
                   "{\"limit\":" + number + "}");
}

// Replaces a reply that does not fit into its batch.
std::string no_room(std::string_view id) {
  return beyond_limit(id, "the replies of a batch may have ", kLimitBatchReplyBytes, " bytes together");
}

// Sends the reply to one request, or keeps it until its batch is complete. An empty id marks a JSON-RPC
// notification: it gets no reply, by HTTP an empty 204.
void reply(Server& server, Client& client, std::uint64_t batch_id, std::size_t slot, std::string_view id,
           std::string text) {
  if (id.empty()) text = {};  // not clear(), which would keep its memory until the batch is complete
  if (batch_id == 0) return send_reply(server, client, std::move(text));
  const auto found = client.batches.find(batch_id);
  if (found == client.batches.end()) return;
  Batch& batch = found->second;
  if (!has_room(batch, text.size())) text = no_room(id);
  batch.bytes += text.size();
  client.batch_bytes += text.size();
  batch.replies[slot] = std::move(text);
  if (--batch.waiting > 0) return;
  std::string all;
  for (const std::string& one : batch.replies) {
    if (one.empty()) continue;
    all += all.empty() ? "[" : ",";
    all += one;
  }
  if (!all.empty()) all += "]";
  client.batch_bytes -= batch.bytes + places_bytes(batch);
  client.batches.erase(found);
  send_reply(server, client, std::move(all));
}

std::string subscribe(Server& server, Client& client, const RpcRequest& request) {
  if (std::ranges::find(client.uris, request.call.uri) != client.uris.end()) return rpc_result(request.id, "{}");
  if (client.uris.size() >= server.options.limits.subscriptions)
    return beyond_limit(request.id, "a client may have ", server.options.limits.subscriptions, " subscriptions");
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
    return rpc_error(request.id, RpcError::kPlatform, "tracing needs the tap, and this server runs without it");
  if (client.tracing != request.on) {
    client.tracing = request.on;
    server.tracing += request.on ? 1 : std::size_t(-1);
    if (!request.on) outbox_forget(client.outbox, nullptr);
    tracer_follow(server.tracer, server.tracing > 0);
  }
  return rpc_result(request.id, "{}");
}

std::string authorize(const Server& server, Client& client, const RpcRequest& request) {
  client.authorized = policy_is_token(request.token, server.options.token);
  return client.authorized ? rpc_result(request.id, "{}")
                           : rpc_error(request.id, RpcError::kForbidden, "this is not the token of this server");
}

// The reply to a request that needs no get, set or control command.
std::string answer_at_once(Server& server, Client& client, const RpcRequest& request) {
  if (request.method == RpcMethod::kList)
    return request.id.empty() ? std::string() : rpc_result(request.id, server.catalogue.description);
  if (request.method == RpcMethod::kPing) return request.id.empty() ? std::string() : rpc_result(request.id, "{}");
  if (!client.websocket)
    return rpc_error(request.id, RpcError::kInvalidRequest,
                     "subscribe, unsubscribe, trace and authorize need a WebSocket connection; by POST, the header "
                     "Authorization: Bearer TOKEN shows the token");
  switch (request.method) {
    case RpcMethod::kSubscribe:
      return subscribe(server, client, request);
    case RpcMethod::kUnsubscribe:
      return unsubscribe(server, client, request);
    case RpcMethod::kAuthorize:
      return authorize(server, client, request);
    default:
      return trace(server, client, request);
  }
}

bool makes_call(RpcMethod method) {
  return method == RpcMethod::kGet || method == RpcMethod::kSet || method == RpcMethod::kTv;
}

// Whether the request needs the token and its client has not shown it. Control commands always need it: they do what
// only a viewer or the surroundings of a set can do.
bool is_forbidden(const Server& server, const Client& client, RpcMethod method) {
  if (client.authorized || method == RpcMethod::kAuthorize || method == RpcMethod::kPing) return false;
  return method == RpcMethod::kTv || server.options.require_token;
}

constexpr std::string_view kForbiddenText =
    "this needs the token of this server, from the file \"token\" in its state folder; see the method authorize";
constexpr std::string_view kBusyText = "too many requests wait for the platform; try again";
constexpr std::string_view kBusyClientText = "too many commands of this connection wait; try again";

void handle_request(Server& server, Client& client, RpcRequest& request, std::uint64_t batch, std::size_t slot) {
  const auto refuse = [&](RpcError code, std::string_view text, std::string_view data = {}) {
    reply(server, client, batch, slot, request.id, rpc_error(request.id, code, text, data));
  };
  if (is_forbidden(server, client, request.method)) return refuse(RpcError::kForbidden, kForbiddenText);
  if (!request.error.empty()) return reply(server, client, batch, slot, request.id, std::move(request.error));
  // Checked before the list is copied: a batch may ask for a thousand.
  if (request.method == RpcMethod::kList && batch != 0 && !request.id.empty() &&
      !has_room(client.batches.at(batch), server.catalogue.description.size()))
    return reply(server, client, batch, slot, request.id, no_room(request.id));
  if (!makes_call(request.method))
    return reply(server, client, batch, slot, request.id, answer_at_once(server, client, request));
  request.call.strict |= server.options.strict;
  Job job{.client = client.id, .batch = batch, .slot = slot, .id = request.id, .call = std::move(request.call)};
  const RunnerAdd added = runner_add(server.runner, job, server.options.limits.requests);
  if (added == RunnerAdd::kAdded) {
    ++client.outstanding;
    return;
  }
  refuse(RpcError::kBusy, added == RunnerAdd::kFull ? kBusyText : kBusyClientText,
         "{\"waiting\":" + std::to_string(runner_waiting(server.runner)) + "}");
}

void give_notice(Server& server, std::uint64_t client_id, const Notice& notice) {
  const auto found = server.clients.find(client_id);
  if (found == server.clients.end()) return;
  outbox_notice(found->second->outbox, notice);
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

// Delivers an outcome that runner_run does not deliver: of a slow call, or one that waited for the disk.
void deliver_later(Server& server, Finished& one) {
  const std::uint64_t id = one.job.client;
  server_deliver(server, one.job, one.outcome);
  if (const auto found = server.clients.find(id); found != server.clients.end()) server_mark(server, *found->second);
}

// Delivers the outcomes that wait for the disk; those whose change is not reported yet go on waiting.
void take_kept_reports(Server& server) {
  std::vector<KeptReport> reports;
  {
    const std::lock_guard lock(server.kept_mutex);
    reports.swap(server.kept_reports);
  }
  if (reports.empty()) return;
  for (const KeptReport& report : reports) {
    if (report.failure != 0) {
      server.unkept_from = server.kept_change;
      server.unkept_report = report;
    }
    server.kept_change = std::max(server.kept_change, report.change);
  }
  std::vector<Finished> waiting;
  waiting.swap(server.unkept);
  for (Finished& one : waiting) deliver_later(server, one);
}

}  // namespace

void server_handle_message(Server& server, Client& client, std::string_view text) {
  rpc_read(text, server.catalogue, server.message);
  std::uint64_t batch = 0;
  if (server.message.batch) {
    batch = client.next_batch++;
    const std::size_t size = server.message.requests.size();
    const auto begun =
        client.batches.emplace(batch, Batch{.replies = std::vector<std::string>(size), .waiting = size, .bytes = 0});
    client.batch_bytes += places_bytes(begun.first->second);
  }
  for (std::size_t slot = 0; slot < server.message.requests.size(); ++slot)
    handle_request(server, client, server.message.requests[slot], batch, slot);
}

void server_add_call(Server& server, Client& client, Call call) {
  call.strict = server.options.strict;
  Job job{.client = client.id, .call = std::move(call)};
  if (runner_add(server.runner, job, server.options.limits.requests) != RunnerAdd::kAdded)
    return server_answer(server, client, http_error(503, kBusyText));
  ++client.outstanding;
}

void server_deliver(Server& server, Job& job, Outcome& outcome) {
  if (outcome.change > server.kept_change) {
    server.unkept.push_back({std::move(job), std::move(outcome)});
    return;
  }
  if (outcome.change > server.unkept_from && outcome.change <= server.unkept_report.change)
    outcome.not_kept = server.unkept_report.failure;
  const auto found = server.clients.find(job.client);
  if (found == server.clients.end()) return;  // disconnected in the meantime
  Client& client = *found->second;
  --client.outstanding;
  if (!client.websocket && client.request.path != "/jsonrpc")
    return server_answer(server, client, http_outcome(job.call, outcome));
  if (client.websocket && job.batch == 0) {
    if (job.id.empty()) return;
    rpc_append_outcome(outbox_open_reply(client.outbox), job.id, job.call, outcome);
    outbox_close_reply(client.outbox);
    return server_mark(server, client);
  }
  std::string text;
  if (!job.id.empty()) rpc_append_outcome(text, job.id, job.call, outcome);
  reply(server, client, job.batch, job.slot, job.id, std::move(text));
}

void server_serve_inboxes(Server& server) {
  // Cleared before the inboxes are read, so that whatever arrives later wakes the leader again.
  if (!server.woken.exchange(false)) return;
  std::vector<Finished> finished;
  runner_take_finished(server.runner, finished);
  for (Finished& one : finished) deliver_later(server, one);
  take_kept_reports(server);
  if (server.event.exchange(false)) subscriptions_fetch(server.subscriptions, on_notification, &server);
  if (server.tracing > 0) serve_traces(server);
  if (server.record_ended.exchange(false)) {
    tracer_record(server.tracer, false);
    if (server.recorder.on.load()) tracer_record(server.tracer, true);  // another record has begun meanwhile
  }
}
