// Plain HTTP: GET, HEAD and PUT on the URIs, JSON-RPC by POST, and the files of the page. Knows nothing of sockets.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "rpc.h"

// The subprotocol that a WebSocket client may offer.
inline constexpr std::string_view kHttpWebsocketProtocol = "jsonrpc";

struct HttpRequest {
  std::string method = {};
  std::string path = {};         // decoded, without the query
  std::string host = {};         // already checked by the policy
  std::string target_host = {};  // from a target in absolute form; likewise checked
  bool has_parameter = false;
  std::string parameter = {};  // GET's ?parameter=, decoded
  std::string ignored = {};    // name of the first argument of the query before "parameter"; it has no meaning
  std::string body = {};
  bool announces_body = false;  // whether or not it has arrived
  bool keeps_alive = false;     // the client wants to keep the connection open
  bool expects_continue = false;

  // Headers as received; empty when missing.
  std::string origin = {};
  std::string authorization = {};
  std::string accept_encoding = {};  // all lines with this name, joined with commas
  std::string if_none_match = {};    // likewise
  std::string fetch_site = {};
  std::string fetch_mode = {};
  std::string fetch_dest = {};

  bool wants_websocket = false;  // the following are set only then
  std::string websocket_key = {};
  std::string websocket_version = {};
  std::string_view websocket_protocol = {};  // kHttpWebsocketProtocol when the client offers it
  std::string head = {};                     // request line and headers as received
};

// A regular file, open for reading at its beginning. The receiver of the answer closes it.
struct OpenFile {
  int descriptor = -1;  // -1: none
  std::uint64_t bytes = 0;
};

struct HttpAnswer {
  unsigned status = 0;
  std::string type = "application/json";
  std::string body = {};    // also set for a HEAD, whose answer is sent without it
  std::string allow = {};   // the methods of a 405
  std::string policy = {};  // the Content-Security-Policy of a page
  std::string more = {};    // further header lines, each "name: value\r\n" with the name in lower case
  OpenFile file = {};       // with a descriptor, the body is read from it instead of body
};

// The virtual television's picture; see screen.h.
inline constexpr std::string_view kHttpScreenPath = "/screen.jpg";

// The latest record and a conformance case made of it; see recorder.h.
inline constexpr std::string_view kHttpRecordPath = "/record.jsonl";
inline constexpr std::string_view kHttpCasePath = "/record.case.json";

// What the method "list" returns; see listing.h.
inline constexpr std::string_view kHttpListPath = "/list.json";

// What a path that always requires the token serves, for a message; empty: it does not.
std::string_view http_needs_token(std::string_view path);

// Whether a path belongs to the page's files, not to a URI, to JSON-RPC, to the list, to the picture or to a record.
bool http_is_page(std::string_view path, const Catalogue& catalogue);

enum class HttpRoute { kAnswer, kCall, kRpc, kList, kScreen, kRecord };

// Decides how a request is served: answered at once, by a call whose outcome http_outcome turns into the answer, as
// JSON-RPC in its body, by listing_answer, by screen_answer, or by recorder_answer.
HttpRoute http_route(const HttpRequest& request, const Catalogue& catalogue, const std::string& web_folder,
                     HttpAnswer& ret_answer, Call& ret_call);

HttpAnswer http_outcome(const Call& call, const Outcome& outcome);
HttpAnswer http_error(unsigned status, std::string_view message);
