// JSON-RPC 2.0 as text: reads messages and writes replies and notifications. Knows no sockets and calls nothing.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/rpc_error.h"
#include "calls.h"
#include "catalogue.h"

enum class RpcMethod { kGet, kSet, kSubscribe, kUnsubscribe, kList, kTrace, kTv, kAuthorize };

// One request of a message. It owns its texts and outlives the message; uri is the catalogue's.
struct RpcRequest {
  RpcMethod method = RpcMethod::kList;
  std::string id;     // JSON text as the client wrote it; empty: a notification, which gets no reply
  Call call;          // get, set, tv; of the other methods only call.uri
  bool on = false;    // trace
  std::string token;  // authorize
  std::string error;  // not empty: the request is refused with this finished reply
};

struct RpcMessage {
  bool batch = false;  // replies are collected into one array
  std::vector<RpcRequest> requests;
};

// Requests that one batch may hold.
inline constexpr std::size_t kRpcBatchMax = 1000;

// Reads one message. Whatever it is, ret_message has at least one request, an error if nothing else.
void rpc_read(std::string_view text, const Catalogue& catalogue, RpcMessage& ret_message);

// Reads a URI's parameter and makes the plugin's text of it. Where it cannot, returns what it is refused with and a
// message.
RpcError rpc_plugin_text(std::string_view parameter, std::string& ret_text, std::string& ret_error);

// Replies. id is JSON text; data is JSON text or empty.
std::string rpc_error(std::string_view id, RpcError code, std::string_view message, std::string_view data = {});
std::string rpc_result(std::string_view id, std::string_view result);
void rpc_append_outcome(std::string& reply, std::string_view id, const Call& call, const Outcome& outcome);

// The error object's data for a URI that is not registered, and what to say of it. among: where the nearest ones are
// searched for, which takes about a millisecond; may be empty.
std::string rpc_unknown_uri(std::span<const std::string> among, std::string_view uri, std::string& ret_message);

// The message about a plugin's text that is not whole.
std::string rpc_broken_message(const Outcome& outcome);

// The message about a change that did not get to the disk.
std::string rpc_not_kept_message(const Outcome& outcome);

// Notifications of this server. text: the plugin's, passed on as it is when it is whole.
std::string rpc_notify(std::string_view uri, std::string_view text);
std::string rpc_trace(std::string_view line);
std::string rpc_overflow(std::uint64_t dropped);
