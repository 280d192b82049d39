// JSON-RPC 2.0 as text: reads messages and writes replies and notifications. Uses no sockets and makes no calls.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/rpc_error.h"
#include "calls.h"
#include "catalogue.h"

enum class RpcMethod { kGet, kSet, kSubscribe, kUnsubscribe, kList, kTrace, kTv, kPing, kAuthorize };

// One request of a message. It owns its texts and outlives the message; call.uri belongs to the catalogue.
struct RpcRequest {
  RpcMethod method = RpcMethod::kList;
  std::string id;     // JSON text as the client sent it; empty: a notification, which gets no reply
  Call call;          // for get, set and tv; other methods use only call.uri
  bool on = false;    // trace
  std::string token;  // authorize
  std::string error;  // when not empty, the request is refused with this complete reply
};

struct RpcMessage {
  bool batch = false;  // the replies are sent in one array
  std::vector<RpcRequest> requests;
};

// Largest number of requests in a batch.
inline constexpr std::size_t kRpcBatchMax = 1000;

// Reads one message. ret_message has at least one request, for an invalid message one with an error.
void rpc_read(std::string_view text, const Catalogue& catalogue, RpcMessage& ret_message);

// Checks a URI's parameter and makes the plugin's text from it. Returns the error, with a message, if it is refused.
RpcError rpc_plugin_text(std::string_view parameter, std::string& ret_text, std::string& ret_error);

// Replies. id is JSON text; data is JSON text or empty.
std::string rpc_error(std::string_view id, RpcError code, std::string_view message, std::string_view data = {});
std::string rpc_result(std::string_view id, std::string_view result);
void rpc_append_outcome(std::string& reply, std::string_view id, const Call& call, const Outcome& outcome);

// The member "warnings" of a reply, without a comma: an array of texts.
std::string rpc_warnings(const Outcome& outcome);

// The error object's data and message for a URI that is not registered. among: the URIs of which the nearest are named,
// a search that takes about a millisecond; may be empty.
std::string rpc_unknown_uri(std::span<const std::string> among, std::string_view uri, std::string& ret_message);

// The message about a plugin's text that is cut or not JSON.
std::string rpc_broken_message(const Outcome& outcome);

// The message about a change that could not be written to the disk.
std::string rpc_not_kept_message(const Outcome& outcome);

// Notifications of this server. text: the plugin's, which is passed on unchanged when it is valid.
std::string rpc_notify(std::string_view uri, std::string_view text);
std::string rpc_trace(std::string_view line);
std::string rpc_overflow(std::uint64_t dropped);
