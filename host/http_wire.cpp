#include "http_wire.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/http/string_body.hpp>
#include <ctime>
#include <optional>

#include "base/text.h"
#include "bounds.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

namespace {

using Parser = http::request_parser<http::string_body>;
using Fields = Parser::value_type;

std::string_view view(beast::string_view text) { return {text.data(), text.size()}; }

std::string_view field(const Fields& request, http::field name) { return view(request[name]); }

// A field that may occur in several lines, which together are one list.
std::string joined(const Fields& request, http::field name) {
  std::string all;
  const auto [begin, end] = request.equal_range(name);
  for (auto line = begin; line != end; ++line) all.append(all.empty() ? "" : ", ").append(view(line->value()));
  return all;
}

HttpAnswer malformed(std::string_view what) { return http_error(400, what); }

// Searches the blank line that ends a head, from ret_seen on; the bytes before have been checked. Returns the head's
// length, or 0 when its end has not arrived. The boundary between requests must be beyond doubt: only CR LF ends a
// line, lines are not folded, and control characters are not allowed.
std::size_t head_length(std::string_view window, std::size_t& ret_seen, HttpAnswer& ret_refusal) {
  for (std::size_t i = ret_seen; i < window.size(); ++i) {
    const auto c = static_cast<unsigned char>(window[i]);
    if (c == '\r') {
      if (i + 1 == window.size()) {
        ret_seen = i;
        return 0;
      }
      if (window[i + 1] != '\n') {
        ret_refusal = malformed("the headers contain a carriage return without a line feed");
        return 0;
      }
      if (i >= 2 && window[i - 1] == '\n') return i + 2;
      if (i + 2 == window.size()) {  // the next byte decides whether the line is folded
        ret_seen = i;
        return 0;
      }
      if (window[i + 2] == ' ' || window[i + 2] == '\t') {
        ret_refusal = malformed("a header is folded into two lines");
        return 0;
      }
      ++i;
    } else if (c == '\n') {
      ret_refusal = malformed("the headers contain a line feed without a carriage return");
      return 0;
    } else if ((c < 0x20 && c != '\t') || c == 0x7F) {
      ret_refusal = malformed("the headers contain a control character");
      return 0;
    }
  }
  ret_seen = window.size();
  return 0;
}

constexpr std::string_view kVersionFault = "the request line must end with HTTP/1.1 or HTTP/1.0";
constexpr std::string_view kLengthFault = "Content-Length must be a number of decimal digits";
constexpr std::string_view kLengthsFault = "there is more than one Content-Length";
constexpr std::string_view kCodingFault = "a request cannot have both Transfer-Encoding and Content-Length";
constexpr std::string_view kRepeatedFault = "a header that may occur only once occurs twice";
constexpr std::string_view kEscapeFault = "two hexadecimal digits must follow a percent sign";

std::string parse_failure(const beast::error_code& failure) {
  struct Row {
    http::error failure;
    std::string_view text;
  };
  static constexpr Row kRows[] = {
      {http::error::bad_method, "the method is not a token"},
      {http::error::bad_target, "the request line must be METHOD TARGET HTTP/1.1, separated by single spaces"},
      {http::error::bad_version, kVersionFault},
      {http::error::bad_field, "a header's name must be a token, followed by a colon"},
      {http::error::bad_value, "a header's value contains a forbidden character"},
      {http::error::bad_content_length, kLengthFault},
      {http::error::multiple_content_length, kLengthsFault},
      {http::error::bad_transfer_encoding, kCodingFault},
      {http::error::bad_chunk, "a chunk must begin with its length in hexadecimal digits and end with CR LF"},
      {http::error::bad_chunk_extension, "a chunk's extension is malformed"},
  };
  for (const Row& row : kRows)
    if (failure == row.failure) return std::string(row.text);
  return "malformed HTTP: " + failure.message();
}

// Checks the fields that determine the end and the addressee of the request. Returns what is wrong, or an empty text.
std::string_view framing_fault(const Fields& request) {
  if (request.version() != 10 && request.version() != 11) return kVersionFault;
  if (request.count(http::field::host) != 1) return "a request must have exactly one Host header";
  const std::size_t lengths = request.count(http::field::content_length);
  if (lengths > 1) return kLengthsFault;
  const std::string_view length = field(request, http::field::content_length);
  if (lengths == 1 && (length.empty() || length.find_first_not_of("0123456789") != std::string_view::npos))
    return kLengthFault;
  if (const std::size_t codings = request.count(http::field::transfer_encoding); codings > 0) {
    if (lengths > 0) return kCodingFault;
    if (codings > 1 || !equal_ignoring_case(field(request, http::field::transfer_encoding), "chunked") ||
        request.version() == 10)
      return "the only transfer encoding that this server accepts is chunked, in HTTP/1.1";
  }
  for (const http::field name : {http::field::origin, http::field::authorization, http::field::sec_websocket_key,
                                 http::field::sec_websocket_version})
    if (request.count(name) > 1) return kRepeatedFault;
  for (const char* name : {"sec-fetch-site", "sec-fetch-mode", "sec-fetch-dest"})
    if (request.count(name) > 1) return kRepeatedFault;
  return {};
}

// Decodes %HH. Returns false when something else follows a percent sign.
bool decode(std::string_view text, std::string& ret_decoded) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const std::string_view digits = text.substr(i + 1, 2);
    const auto byte = parse_number<unsigned char>(digits, 16);
    if (digits.size() != 2 || !byte) return false;
    decoded += static_cast<char>(*byte);
    i += 2;
  }
  ret_decoded = std::move(decoded);
  return true;
}

bool is_plain(char c) { return static_cast<unsigned char>(c) > 0x20 && static_cast<unsigned char>(c) < 0x7F; }

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// Reads the target into path, parameter and target_host. Returns what is wrong, or an empty text.
std::string_view read_target(std::string_view target, HttpRequest& request) {
  constexpr std::string_view kScheme = "http://";
  if (target == "*" && request.method == "OPTIONS") {
    request.path = "*";
    return {};
  }
  if (equal_ignoring_case(target.substr(0, kScheme.size()), kScheme)) {
    target.remove_prefix(kScheme.size());
    const std::string_view authority = target.substr(0, target.find_first_of("/?"));
    if (authority.empty()) return "the target names no server";
    request.target_host = authority;
    target.remove_prefix(authority.size());
    if (target.empty()) target = "/";
  }
  if (!target.starts_with('/')) return "the target must begin with a slash";
  if (!std::ranges::all_of(target, is_plain) || target.find('#') != std::string_view::npos)
    return "the target contains a byte that must be written as %HH";
  const std::size_t question = target.find('?');
  if (!decode(target.substr(0, question), request.path)) return kEscapeFault;
  if (std::ranges::any_of(request.path, is_control)) return "the path contains a control character";
  if (question == std::string_view::npos) return {};

  constexpr std::string_view kName = "parameter=";
  std::string_view query = target.substr(question + 1);
  while (!query.empty() && !request.has_parameter) {
    const std::string_view argument = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(query.size(), argument.size() + 1));
    if (!argument.starts_with(kName)) {
      if (request.ignored.empty()) request.ignored = argument.substr(0, argument.find('='));
      continue;
    }
    request.has_parameter = true;
    if (!decode(argument.substr(kName.size()), request.parameter)) return kEscapeFault;
  }
  return {};
}

void read_fields(const Parser& parser, HttpRequest& request) {
  const Fields& fields = parser.get();
  request.keeps_alive = parser.keep_alive();
  request.announces_body = parser.chunked() || parser.content_length().value_or(0) > 0;
  request.expects_continue =
      fields.version() == 11 && equal_ignoring_case(field(fields, http::field::expect), "100-continue");
  request.origin = field(fields, http::field::origin);
  request.accept_encoding = joined(fields, http::field::accept_encoding);
  request.if_none_match = joined(fields, http::field::if_none_match);
  request.authorization = field(fields, http::field::authorization);
  request.fetch_site = view(fields["sec-fetch-site"]);
  request.fetch_mode = view(fields["sec-fetch-mode"]);
  request.fetch_dest = view(fields["sec-fetch-dest"]);
  request.wants_websocket = http::token_list{joined(fields, http::field::connection)}.exists("upgrade") &&
                            http::token_list{joined(fields, http::field::upgrade)}.exists("websocket");
  if (!request.wants_websocket) return;
  request.websocket_key = field(fields, http::field::sec_websocket_key);
  request.websocket_version = field(fields, http::field::sec_websocket_version);
  // A client may offer its protocols in several headers.
  const auto [begin, end] = fields.equal_range(http::field::sec_websocket_protocol);
  for (auto offer = begin; offer != end; ++offer)
    for (const auto& protocol : http::token_list{offer->value()})
      if (view(protocol) == kHttpWebsocketProtocol) request.websocket_protocol = kHttpWebsocketProtocol;
}

// The key is 16 bytes in base64: 22 digits, of which the last holds four bits, and two equals signs.
bool is_websocket_key(std::string_view key) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  return key.size() == 24 && key.ends_with("==") &&
         key.substr(0, 22).find_first_not_of(kDigits) == std::string_view::npos;
}

std::string date() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[sizeof "Sun, 06 Nov 1994 08:49:37 GMT"];
  std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &utc);
  return text;
}

}  // namespace

struct HttpReader {
  std::size_t longest_body;
  std::size_t seen = 0;          // bytes at the front of the window that head_length has passed
  bool begun = false;            // some byte of the head has come
  std::optional<Parser> parser;  // from a head's end to its request's end
};

void HttpReaderEnd::operator()(HttpReader* reader) const { delete reader; }

HttpReaderPtr http_reader_make(std::size_t longest_body) {
  return HttpReaderPtr(new HttpReader{.longest_body = longest_body, .parser = {}});
}

static HttpRead refuse(HttpAnswer answer, HttpAnswer& ret_refusal) {
  ret_refusal = std::move(answer);
  return HttpRead::kRefused;
}

static HttpAnswer too_long(const HttpReader& reader) {
  return http_error(413, "a message may have " + std::to_string(reader.longest_body) + " bytes");
}

static HttpRead read_head(HttpReader& reader, std::string_view& window, HttpRequest& request, HttpAnswer& ret_refusal) {
  // Empty lines before a request line are skipped, as RFC 9112 recommends.
  while (!reader.begun && window.starts_with("\r\n")) window.remove_prefix(2);
  if (window.empty() || (!reader.begun && window == "\r")) return HttpRead::kMore;
  reader.begun = true;
  HttpAnswer refusal;
  const std::size_t length = head_length(window, reader.seen, refusal);
  if (refusal.status != 0) return refuse(std::move(refusal), ret_refusal);
  if (length > kLimitHeaderBytes || (length == 0 && window.size() > kLimitHeaderBytes))
    return refuse(http_error(431, "request line and headers may have " + std::to_string(kLimitHeaderBytes) + " bytes"),
                  ret_refusal);
  if (length == 0) return HttpRead::kMore;

  const std::string_view head = window.substr(0, length);
  window.remove_prefix(length);
  reader.seen = 0;
  reader.begun = false;
  if (static_cast<std::size_t>(std::ranges::count(head, '\n')) > kLimitHeaderFields + 2)
    return refuse(http_error(431, "a request may have " + std::to_string(kLimitHeaderFields) + " headers"),
                  ret_refusal);

  Parser& parser = reader.parser.emplace();
  parser.eager(false);
  parser.header_limit(static_cast<std::uint32_t>(kLimitHeaderBytes));
  parser.body_limit(reader.longest_body);
  beast::error_code failure;
  parser.put(asio::buffer(head.data(), head.size()), failure);
  if (failure == http::error::body_limit) return refuse(too_long(reader), ret_refusal);
  if (failure && failure != http::error::need_more) return refuse(malformed(parse_failure(failure)), ret_refusal);
  if (!parser.is_header_done()) return refuse(malformed("the headers end in the wrong place"), ret_refusal);
  if (const std::string_view fault = framing_fault(parser.get()); !fault.empty())
    return refuse(malformed(fault), ret_refusal);

  HttpRequest read{.method = std::string(view(parser.get().method_string())),
                   .host = std::string(field(parser.get(), http::field::host))};
  if (const std::string_view fault = read_target(view(parser.get().target()), read); !fault.empty())
    return refuse(malformed(fault), ret_refusal);
  read_fields(parser, read);
  if (read.wants_websocket) read.head = head;
  request = std::move(read);
  parser.eager(true);
  return HttpRead::kHead;
}

HttpRead http_read(HttpReader& reader, std::string_view& window, HttpRequest& request, HttpAnswer& ret_refusal) {
  if (!reader.parser) return read_head(reader, window, request, ret_refusal);
  Parser& parser = *reader.parser;
  while (!parser.is_done() && !window.empty()) {
    beast::error_code failure;
    const std::size_t taken = parser.put(asio::buffer(window.data(), window.size()), failure);
    window.remove_prefix(taken);
    if (failure == http::error::body_limit) return refuse(too_long(reader), ret_refusal);
    if (failure && failure != http::error::need_more) return refuse(malformed(parse_failure(failure)), ret_refusal);
    if (taken == 0) break;
  }
  if (!parser.is_done()) {
    // The bytes that the parser leaves are the beginning of a chunk's line or of the trailers.
    if (window.size() > kLimitSmallMessageBytes)
      return refuse(malformed("a chunk's line or the trailers are too long"), ret_refusal);
    return HttpRead::kMore;
  }
  request.body = std::move(parser.get().body());
  reader.parser.reset();
  return HttpRead::kRequest;
}

bool http_is_within(const HttpReader& reader, std::string_view window) { return reader.parser || !window.empty(); }

std::size_t http_held(const HttpReader& reader) { return reader.parser ? reader.parser->get().body().capacity() : 0; }

std::string http_head(const HttpAnswer& answer, bool keeps_alive, std::string_view origin) {
  std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " ";
  head += view(http::obsolete_reason(static_cast<http::status>(answer.status)));
  const auto add = [&head](std::string_view name, std::string_view value) {
    if (!value.empty()) head.append("\r\n").append(name).append(": ").append(value);
  };
  const bool has_body = answer.status != 204 && answer.status != 304;
  const std::size_t bytes = answer.file.descriptor >= 0 ? answer.file.bytes : answer.body.size();
  add("server", "dtv-host");
  add("date", date());
  if (has_body && bytes > 0) add("content-type", answer.type);
  if (has_body) add("content-length", std::to_string(bytes));
  add("allow", answer.allow);
  add("content-security-policy", answer.policy);
  add("access-control-allow-origin", origin);
  add("access-control-allow-methods", origin.empty() ? "" : "GET, HEAD, PUT, POST");
  add("access-control-allow-headers", origin.empty() ? "" : "content-type, authorization");
  if (answer.more.find("vary:") == std::string::npos) add("vary", "origin");
  if (answer.more.find("cache-control:") == std::string::npos) add("cache-control", "no-cache");
  add("x-content-type-options", "nosniff");
  add("referrer-policy", "no-referrer");
  add("connection", keeps_alive ? "keep-alive" : "close");
  return head.append("\r\n").append(answer.more).append("\r\n");
}

HttpAnswer http_upgrade_refusal(const HttpRequest& request) {
  if (request.method != "GET") return malformed("a WebSocket upgrade must be a GET");
  // The bytes of a body would be read as frames.
  if (request.announces_body) return malformed("a WebSocket upgrade must not have a body");
  if (request.websocket_version != "13") {
    HttpAnswer answer = http_error(426, "this server speaks version 13 of WebSocket");
    answer.more = "sec-websocket-version: 13\r\n";
    return answer;
  }
  if (!is_websocket_key(request.websocket_key)) return malformed("Sec-WebSocket-Key is 16 bytes in base64");
  return {};
}
