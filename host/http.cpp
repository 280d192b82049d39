#include "http.h"

#include <algorithm>
#include <utility>

#include "json_text.h"
#include "page_files.h"

namespace {

HttpAnswer not_allowed(const HttpRequest& request, std::string allow) {
  HttpAnswer answer = http_error(405, request.method + " is not served here, but " + allow + " are");
  answer.allow = std::move(allow);
  return answer;
}

// The text with a question mark for each byte that a header's value may not have.
std::string header_text(std::string text) {
  std::ranges::replace_if(
      text, [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

}  // namespace

std::string_view http_needs_token(std::string_view path) {
  if (path == kHttpScreenPath) return "the screen";
  if (path == kHttpRecordPath || path == kHttpCasePath) return "a record";
  return {};
}

bool http_is_page(std::string_view path, const Catalogue& catalogue) {
  return path != "/jsonrpc" && path != kHttpListPath && http_needs_token(path).empty() && !path.starts_with("/tv/") &&
         catalogue_find(catalogue, path) == nullptr;
}

HttpRoute http_route(const HttpRequest& request, const Catalogue& catalogue, const std::string& web_folder,
                     HttpAnswer& ret_answer, Call& ret_call) {
  if (request.path == "/jsonrpc") {
    if (request.method == "POST") return HttpRoute::kRpc;
    ret_answer = not_allowed(request, "POST, and WebSocket connections,");
    ret_answer.allow = "POST";
    return HttpRoute::kAnswer;
  }
  const bool is_list = request.path == kHttpListPath;
  if (is_list || !http_needs_token(request.path).empty()) {
    const bool fetches = request.method == "GET" || request.method == "HEAD";
    if (fetches && is_list) return HttpRoute::kList;
    if (fetches && request.path == kHttpScreenPath) return HttpRoute::kScreen;
    if (fetches && request.path == kHttpRecordPath) return HttpRoute::kRecord;
    if (fetches) {
      ret_call = {.kind = CallKind::kControl, .text = R"(["capture","case"])"};
      return HttpRoute::kCall;
    }
    ret_answer = not_allowed(request, "GET, HEAD");
    return HttpRoute::kAnswer;
  }
  const CatalogueRow* const row = catalogue_find(catalogue, request.path);
  const bool names_page = http_is_page(request.path, catalogue);
  const bool reads = request.method == "GET" || request.method == "HEAD";
  const bool puts = request.method == "PUT";
  if (!reads && (names_page || !puts)) {
    ret_answer = not_allowed(request, names_page ? "GET, HEAD" : "GET, HEAD, PUT");
    return HttpRoute::kAnswer;
  }
  if (names_page) {
    ret_answer = page_answer(request, web_folder);
    return HttpRoute::kAnswer;
  }
  if (row == nullptr) {
    std::string message;
    const std::string data = rpc_unknown_uri(catalogue.uris, request.path, message);
    ret_answer = HttpAnswer{.status = 404, .body = "{\"error\":" + json_quote(message) + ",\"data\":" + data + "}"};
    return HttpRoute::kAnswer;
  }
  Call call{.kind = puts ? CallKind::kSet : CallKind::kGet, .uri = row->uri, .row = row->check};
  call.ignored = request.ignored;
  if (puts || request.has_parameter) {
    std::string wrong;
    const RpcError refused = rpc_plugin_text(puts ? request.body : request.parameter, call.text, wrong);
    if (refused != RpcError::kNone) {
      ret_answer = http_error(refused == RpcError::kLimit ? 413 : 400, wrong);
      return HttpRoute::kAnswer;
    }
  }
  ret_call = std::move(call);
  return HttpRoute::kCall;
}

HttpAnswer http_outcome(const Call& call, const Outcome& outcome) {
  if (outcome.not_kept != 0) return http_error(500, rpc_not_kept_message(outcome));
  // The only command by HTTP makes a conformance case; it refuses with {"error": ...}.
  if (call.kind == CallKind::kControl)
    return {.status = outcome.text.starts_with("{\"error\":") ? 404u : 200u, .body = outcome.text};
  if (outcome.broken) return http_error(502, rpc_broken_message(outcome));
  if (outcome.departs)
    return {.status = 400,
            .body = "{\"error\":" + json_quote(outcome.warnings.front()) + "," + rpc_warnings(outcome) + "}"};
  HttpAnswer answer{.status = outcome.ret == 0 ? 200u : 422u};
  // A get that succeeds answers with the plugin's own text, so its warnings are in the headers.
  if (call.kind == CallKind::kGet && outcome.ret == 0 && !outcome.text.empty()) {
    answer.body = outcome.text;
    for (const std::string& warning : outcome.warnings) answer.more += "dtv-warning: " + header_text(warning) + "\r\n";
    return answer;
  }
  answer.body = "{\"ret\":" + std::to_string(outcome.ret);
  if (call.kind == CallKind::kGet)
    answer.body.append(",\"response\":").append(outcome.text.empty() ? "null" : outcome.text);
  if (outcome.ret != 0) answer.body.append(",\"reason\":").append(json_quote(outcome.reason));
  if (!outcome.warnings.empty()) answer.body.append(",").append(rpc_warnings(outcome));
  answer.body += '}';
  return answer;
}

HttpAnswer http_error(unsigned status, std::string_view message) {
  return {.status = status, .body = "{\"error\":" + json_quote(message) + "}"};
}
