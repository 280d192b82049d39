// Plain HTTP: GET and PUT on the URIs themselves, JSON-RPC by POST, and the files of the page. Knows no sockets.
#pragma once

#include <string>
#include <string_view>

#include "rpc.h"

struct HttpRequest {
  std::string method = {};
  std::string path = {};  // decoded, without the query
  std::string host = {};  // checked by the policy before
  bool has_parameter = false;
  std::string parameter = {};  // GET's ?parameter=, decoded
  std::string body = {};
};

struct HttpAnswer {
  unsigned status = 0;
  std::string type = "application/json";
  std::string body = {};
  std::string allow = {};   // methods, of a 405
  std::string policy = {};  // Content-Security-Policy, of a page
};

enum class HttpRoute { answer, call, rpc };

// Decides what a request is: answered at once, a call whose outcome http_outcome answers, or JSON-RPC in its body.
HttpRoute http_route(const HttpRequest& request, const Catalogue& catalogue, const std::string& web_folder,
                     HttpAnswer& ret_answer, Call& ret_call);

HttpAnswer http_outcome(const Call& call, const Outcome& outcome);
HttpAnswer http_error(unsigned status, std::string_view message);
