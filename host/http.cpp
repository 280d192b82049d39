#include "http.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "json_text.h"

namespace fs = std::filesystem;

namespace {

struct TypeRow {
  std::string_view extension;
  std::string_view type;
};

constexpr TypeRow types[] = {
    {.extension = ".html", .type = "text/html; charset=utf-8"},
    {.extension = ".js", .type = "text/javascript; charset=utf-8"},
    {.extension = ".mjs", .type = "text/javascript; charset=utf-8"},
    {.extension = ".css", .type = "text/css; charset=utf-8"},
    {.extension = ".json", .type = "application/json"},
    {.extension = ".webmanifest", .type = "application/manifest+json"},
    {.extension = ".map", .type = "application/json"},
    {.extension = ".svg", .type = "image/svg+xml"},
    {.extension = ".png", .type = "image/png"},
    {.extension = ".jpg", .type = "image/jpeg"},
    {.extension = ".ico", .type = "image/x-icon"},
    {.extension = ".woff2", .type = "font/woff2"},
    {.extension = ".wasm", .type = "application/wasm"},
    {.extension = ".txt", .type = "text/plain; charset=utf-8"},
};

std::string_view type_of(const fs::path& file) {
  const std::string extension = file.extension().string();
  const auto row = std::ranges::find(types, std::string_view(extension), &TypeRow::extension);
  return row != std::end(types) ? row->type : "application/octet-stream";
}

// Browsers differ in whether 'self' covers WebSocket connections to the same place: it is named besides.
std::string page_policy(const std::string& host) {
  return "default-src 'self'; connect-src 'self' ws://" + host +
         "; img-src 'self' data:; object-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
}

std::string page(std::string_view title, std::string_view text) {
  std::string html = "<!doctype html><html lang=\"en\"><meta charset=\"utf-8\"><title>";
  return html.append(title).append("</title><h1>").append(title).append("</h1>").append(text).append("</html>\n");
}

// The file that a path names inside the folder; empty where there is none or it leads out of the folder.
fs::path file_of(const std::string& folder, std::string_view path) {
  std::error_code failure;
  const fs::path root = fs::canonical(folder, failure);
  if (failure || path.find('\0') != std::string_view::npos) return {};
  fs::path wanted = root / fs::path(path.substr(std::min(path.find_first_not_of('/'), path.size())));
  if (path.ends_with('/')) wanted /= "index.html";
  const fs::path file = fs::canonical(wanted, failure);
  if (failure || !fs::is_regular_file(file, failure)) return {};
  return std::ranges::mismatch(root, file).in1 == root.end() ? file : fs::path();
}

HttpAnswer static_file(const HttpRequest& request, const std::string& folder) {
  HttpAnswer answer{.status = 404, .type = "text/html; charset=utf-8", .policy = page_policy(request.host)};
  if (request.method != "GET") {
    answer = http_error(405, request.method + " is not served here");
    answer.allow = "GET";
    return answer;
  }
  if (const fs::path file = file_of(folder, request.path); !file.empty()) {
    std::ifstream stream(file, std::ios::binary);
    answer.body.assign(std::istreambuf_iterator<char>(stream), {});
    answer.type = type_of(file);
    answer.status = stream.bad() ? 500 : 200;
    return answer;
  }
  std::error_code ignored;
  answer.body = fs::exists(fs::path(folder) / "index.html", ignored)
                    ? page("Not found", "<p>There is no such page. <a href=\"/\">To the page of this server</a></p>")
                    : page("The page is not built",
                           "<p>Build it with <code>npm ci &amp;&amp; npm run build</code> in the folder "
                           "<code>web</code>, or give its folder with <code>--web</code>, then load again.</p>"
                           "<p>The server itself runs: JSON-RPC 2.0 at <code>/jsonrpc</code>, and "
                           "<code>GET</code> and <code>PUT</code> on every URI.</p>");
  return answer;
}

HttpAnswer not_allowed(const HttpRequest& request, std::string allow) {
  HttpAnswer answer = http_error(405, request.method + " is not served here, but " + allow + " are");
  answer.allow = std::move(allow);
  return answer;
}

}  // namespace

HttpRoute http_route(const HttpRequest& request, const Catalogue& catalogue, const std::string& web_folder,
                     HttpAnswer& ret_answer, Call& ret_call) {
  if (request.path == "/jsonrpc") {
    if (request.method == "POST") return HttpRoute::rpc;
    ret_answer = not_allowed(request, "POST, and WebSocket connections,");
    ret_answer.allow = "POST";
    return HttpRoute::answer;
  }
  const char* uri = catalogue_find(catalogue, request.path);
  if (uri == nullptr && !request.path.starts_with("/tv/")) {
    ret_answer = static_file(request, web_folder);
    return HttpRoute::answer;
  }
  const bool puts = request.method == "PUT";
  if (!puts && request.method != "GET") {
    ret_answer = not_allowed(request, "GET, PUT");
    return HttpRoute::answer;
  }
  if (uri == nullptr) {
    std::string message;
    const std::string data = rpc_unknown_uri(catalogue, request.path, message);
    ret_answer = HttpAnswer{.status = 404, .body = "{\"error\":" + json_quote(message) + ",\"data\":" + data + "}"};
    return HttpRoute::answer;
  }
  Call call{.kind = puts ? CallKind::set : CallKind::get, .uri = uri};
  if (std::string wrong;
      (puts || request.has_parameter) && !rpc_plugin_text(puts ? request.body : request.parameter, call.text, wrong)) {
    ret_answer = http_error(400, wrong);
    return HttpRoute::answer;
  }
  ret_call = std::move(call);
  return HttpRoute::call;
}

HttpAnswer http_outcome(const Call& call, const Outcome& outcome) {
  if (outcome.broken) return http_error(502, rpc_broken_message(outcome));
  const std::string ret = "{\"ret\":" + std::to_string(outcome.ret);
  HttpAnswer answer{.status = outcome.ret == 0 ? 200u : 422u};
  if (call.kind == CallKind::set)
    answer.body = ret + "}";
  else if (outcome.ret == 0 && !outcome.text.empty())
    answer.body = outcome.text;
  else
    answer.body = ret + ",\"response\":" + (outcome.text.empty() ? "null" : outcome.text) + "}";
  return answer;
}

HttpAnswer http_error(unsigned status, std::string_view message) {
  return {.status = status, .body = "{\"error\":" + json_quote(message) + "}"};
}
