// Plain HTTP: GET, HEAD and PUT on the URIs themselves, JSON-RPC by POST, and the files of the page. Knows no sockets.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "rpc.h"

// The subprotocol that a WebSocket client may ask for.
inline constexpr std::string_view kHttpWebsocketProtocol = "jsonrpc";

struct HttpRequest {
  std::string method = {};
  std::string path = {};         // decoded, without the query
  std::string host = {};         // checked by the policy before
  std::string target_host = {};  // of a target in absolute form, likewise
  bool has_parameter = false;
  std::string parameter = {};  // GET's ?parameter=, decoded
  std::string body = {};
  bool announces_body = false;  // whatever has come of it
  bool keeps_alive = false;     // the client wants to use the connection again
  bool expects_continue = false;

  // Headers as they came; empty where there is none.
  std::string origin = {};
  std::string authorization = {};
  std::string accept_encoding = {};  // the lines of one name joined with a comma
  std::string if_none_match = {};    // likewise
  std::string fetch_site = {};
  std::string fetch_mode = {};
  std::string fetch_dest = {};

  bool wants_websocket = false;  // the following only then
  std::string websocket_key = {};
  std::string websocket_version = {};
  std::string_view websocket_protocol = {};  // of those offered, the one that is spoken here
  std::string head = {};                     // request line and headers as they came
};

// A regular file that is open for reading, at its beginning. Whoever takes the answer closes it.
struct OpenFile {
  int descriptor = -1;  // -1: none
  std::uint64_t bytes = 0;
};

struct HttpAnswer {
  unsigned status = 0;
  std::string type = "application/json";
  std::string body = {};    // that of a GET also when a HEAD is answered, which is sent without it
  std::string allow = {};   // methods, of a 405
  std::string policy = {};  // Content-Security-Policy, of a page
  std::string more = {};    // further header lines, each "name: value\r\n" with the name in small letters
  OpenFile file = {};       // with a descriptor: the body comes from it, in place of body
};

// Whether a path belongs to the page's files, not to a URI or JSON-RPC.
bool http_is_page(std::string_view path, const Catalogue& catalogue);

enum class HttpRoute { kAnswer, kCall, kRpc };

// Decides what a request is: answered at once, a call whose outcome http_outcome answers, or JSON-RPC in its body.
HttpRoute http_route(const HttpRequest& request, const Catalogue& catalogue, const std::string& web_folder,
                     HttpAnswer& ret_answer, Call& ret_call);

HttpAnswer http_outcome(const Call& call, const Outcome& outcome);
HttpAnswer http_error(unsigned status, std::string_view message);
