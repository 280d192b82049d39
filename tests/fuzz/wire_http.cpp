#include <algorithm>
#include <iterator>

#include "bounds.h"
#include "wire_script.h"
#include "wire_stack.h"

namespace {

struct Request {
  std::string method = "GET";
  std::string target = kWireUri;
  std::string version = "HTTP/1.1";
  std::string host;  // its line; empty: the right one
  bool no_host = false;
  std::vector<std::string> headers;  // lines
  std::string framing;               // the lines that say how long the body is; empty: as the body needs
  std::string body;
  bool has_body = false;
  bool closes = false;  // the connection ends with the answer
  WantedAnswer wanted;
};

constexpr char kNul[] = "X: a\0b";

// A fault for which a request is refused, whatever else is in it. The connection then ends.
struct Fault {
  enum Where { kLine, kHeader, kFraming, kHost } where;  // kHeader: one more line; the others replace a line
  std::string_view text;
  std::vector<unsigned> statuses = {400};
};

const Fault& take_fault(Bytes& bytes) {
  static const Fault kFaults[] = {
      {Fault::kFraming, "Content-Length: 5\r\nContent-Length: 5"},
      {Fault::kFraming, "Content-Length: 5\r\nContent-Length: 6"},
      {Fault::kFraming, "Content-Length: 5, 5"},
      {Fault::kFraming, "Content-Length: 5,"},
      {Fault::kFraming, "Content-Length: +5"},
      {Fault::kFraming, "Content-Length: -5"},
      {Fault::kFraming, "Content-Length: 0x5"},
      {Fault::kFraming, "Content-Length: 5 5"},
      {Fault::kFraming, "Content-Length: 5.0"},
      {Fault::kFraming, "Content-Length:"},
      {Fault::kFraming, "Content-Length: 18446744073709551621", {400, 413}},
      {Fault::kFraming, "Content-Length: 4097", {413}},
      {Fault::kFraming, "Content-Length: 9999999999", {413}},
      {Fault::kFraming, "Transfer-Encoding: chunked\r\nContent-Length: 5"},
      {Fault::kFraming, "Content-Length: 5\r\nTransfer-Encoding: chunked"},
      {Fault::kFraming, "Transfer-Encoding: gzip"},
      {Fault::kFraming, "Transfer-Encoding: chunked, gzip"},
      {Fault::kFraming, "Transfer-Encoding: gzip, chunked"},
      {Fault::kFraming, "Transfer-Encoding: xchunked"},
      {Fault::kFraming, "Transfer-Encoding: identity"},
      {Fault::kFraming, "Transfer-Encoding:"},
      {Fault::kFraming, "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked"},
      {Fault::kHost, ""},
      {Fault::kHost, "Host:", {400, 403}},
      {Fault::kHost, "Host: evil.example", {403}},
      {Fault::kHost, "Host: 127.0.0.1", {403}},
      {Fault::kHost, "Host: 127.0.0.1:1", {403}},
      {Fault::kHeader, "Host: 127.0.0.1"},
      {Fault::kHeader, "X: a\r\n folded"},
      {Fault::kHeader, "X: a\r\n\tfolded: b"},
      {Fault::kHeader, "X : a"},
      {Fault::kHeader, "X Y: a"},
      {Fault::kHeader, "no colon"},
      {Fault::kHeader, ": no name"},
      {Fault::kHeader, "X: a\nY: b"},
      {Fault::kHeader, "X: a\rb"},
      {Fault::kHeader, {kNul, sizeof kNul - 1}},
      {Fault::kHeader, "X: a\x01"},
      {Fault::kHeader, "X: \x7F"},
      {Fault::kHeader, "Origin: http://evil.example", {403}},
      {Fault::kHeader, "Origin: null", {403}},
      {Fault::kHeader, "Sec-Fetch-Site: cross-site", {403}},
      {Fault::kHeader, "Sec-Fetch-Site: same-site", {403}},
      {Fault::kHeader, "Sec-Fetch-Site: none\r\nSec-Fetch-Site: none"},
      {Fault::kHeader, "Origin: http://a.example\r\nOrigin: http://a.example"},
      {Fault::kHeader, "Authorization: Bearer a\r\nauthorization: Bearer b"},
      {Fault::kLine, "GET  / HTTP/1.1"},
      {Fault::kLine, "GET / HTTP/1.2", {400, 505}},
      {Fault::kLine, "GET / HTTP/2.0", {400, 505}},
      {Fault::kLine, "GET / HTTP/0.9", {400, 505}},
      {Fault::kLine, "GET / http/1.1"},
      {Fault::kLine, "GET /"},
      {Fault::kLine, "GET / HTTP/1.1 "},
      {Fault::kLine, "GET tv HTTP/1.1"},
      {Fault::kLine, "GET http://evil.example/ HTTP/1.1"},
      {Fault::kLine, "GET http:///tv HTTP/1.1"},
      {Fault::kLine, "GET * HTTP/1.1"},
      {Fault::kLine, "G(T / HTTP/1.1"},
      {Fault::kLine, " GET / HTTP/1.1"},
      {Fault::kLine, "GET\t/ HTTP/1.1"},
      {Fault::kLine, "GET /#a HTTP/1.1"},
      {Fault::kLine, "GET /%zz HTTP/1.1"},
      {Fault::kLine, "GET /%0a HTTP/1.1"},
      {Fault::kLine, "GET /%00 HTTP/1.1"},
      {Fault::kLine, "GET /\x80 HTTP/1.1"},
  };
  return kFaults[take_below(bytes, std::size(kFaults))];
}

// What goes wrong inside of a chunked body.
struct BodyFault {
  std::string_view text;
  std::vector<unsigned> statuses = {400};
};

const BodyFault& take_body_fault(Bytes& bytes) {
  static const BodyFault kFaults[] = {
      {"x\r\na\r\n0\r\n\r\n"},
      {"-1\r\na\r\n0\r\n\r\n"},
      {"\r\na\r\n0\r\n\r\n"},
      {"1\r\nab\r\n0\r\n\r\n"},
      {"10000000000000001\r\na\r\n0\r\n\r\n", {400, 413}},
      {"1001\r\na\r\n0\r\n\r\n", {413}},
  };
  return kFaults[take_below(bytes, std::size(kFaults))];
}

std::string url_encoded(std::string_view text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return encoded;
}

void set_body(Request& request, std::string body) {
  request.body = std::move(body);
  request.has_body = true;
}

// A get or a set of the plugin's value.
void take_call(Maker& maker, Request& request, bool refused) {
  Bytes& bytes = maker.bytes;
  struct Row {
    Act act;
    unsigned get, set;
  };
  static constexpr Row kRows[] = {{Act::kPlain, 200, 200},  {Act::kPlain, 200, 200},  {Act::kPlain, 200, 200},
                                  {Act::kFailed, 422, 422}, {Act::kBroken, 502, 200}, {Act::kLongest, 200, 200},
                                  {Act::kSlow, 200, 200},   {Act::kUnkept, 200, 500}};
  const Row& row = kRows[take_below(bytes, std::size(kRows))];
  const bool sets = !take_chance(bytes, 3);
  const std::string mark = sets ? new_set_mark(maker, !refused) : wire_new_mark();
  request.wanted = {.statuses = {sets ? row.set : row.get, 503}, .marked = {.mark = mark, .sets = sets}};
  // Also 200: a later change that reaches the disk saves this one as well.
  if (sets && row.act == Act::kUnkept) request.wanted.statuses.push_back(200);
  const std::string parameter = wire_parameter(mark, row.act);
  if (sets) {
    request.method = "PUT";
    return set_body(request, parameter);
  }
  request.target += "?parameter=" + url_encoded(parameter);
  // A body that the request does not use, and that looks like a request.
  if (take_chance(bytes, 4)) {
    const std::string inside = wire_parameter(new_set_mark(maker, false), Act::kPlain);
    set_body(request, std::string("PUT ") + kWireUri + " HTTP/1.1\r\nHost: " + maker.target.authority +
                          "\r\nContent-Length: " + std::to_string(inside.size()) + "\r\n\r\n" + inside);
  }
}

void take_rpc(Maker& maker, Request& request, bool refused) {
  request.method = "POST";
  request.target = "/jsonrpc";
  bool replies = false;
  // Its replies are those of a WebSocket message, but they come in one answer.
  Script aside;
  aside.ended = true;
  Maker other{.bytes = maker.bytes, .target = maker.target, .script = aside};
  set_body(request, take_wire_message(other, replies));
  std::vector<std::string>& forbidden = maker.script.forbidden;
  if ((refused || maker.script.ended) && !maker.script.doubtful)
    forbidden.insert(forbidden.end(), aside.forbidden.begin(), aside.forbidden.end());
  request.wanted = {.statuses = {replies ? 200u : 204u}};
  if (request.body.size() > maker.target.message_bytes) request.wanted.statuses = {413};
}

void take_page(Maker& maker, Request& request) {
  struct Row {
    std::string_view method, target;
    std::vector<unsigned> statuses;
  };
  static const Row kRows[] = {
      {"GET", "/", {200}},
      {"GET", "/big.txt", {200}},
      {"GET", "/empty.txt", {200}},
      {"GET", "/none", {404}},
      {"GET", "/../secret.txt", {404}},
      {"GET", "/tv/none", {404}},
      {"HEAD", "/", {200, 405}},
      {"HEAD", "/tv/none", {404, 405}},
      {"HEAD", kWireUri, {200, 405, 503}},  // a get, which may find the queue full
      {"DELETE", kWireUri, {405}},
      {"POST", "/", {405}},
      {"GET", "/jsonrpc", {405}},
      {"GET", "/list.json", {200}},
      {"HEAD", "/list.json", {200}},
      {"POST", "/list.json", {405}},
      {"OPTIONS", "*", {204}},
      {"OPTIONS", kWireUri, {204}},
  };
  // An answer to HEAD has a length but no body, which only the request tells. A damaged script sends GET instead.
  const Row& row = kRows[take_below(maker.bytes, std::size(kRows))];
  const bool to_head = row.method == "HEAD" && !maker.script.doubtful;
  request.method = to_head || row.method != "HEAD" ? row.method : "GET";
  request.target = row.target;
  request.wanted = {.statuses = row.statuses, .to_head = to_head};
  if (row.method == "POST") set_body(request, "x");
}

// Whether the connection has become a WebSocket one.
bool take_upgrade(Maker& maker, Request& request) {
  request.target = "/jsonrpc";
  std::string key = "dGhlIHNhbXBsZSBub25jZQ==";
  std::string version = "13";
  request.wanted = {.statuses = {101}};
  switch (take_below(maker.bytes, 16)) {
    case 0:
      version = "8";
      request.wanted.statuses = {426};
      break;
    case 1:
      key = "dGhlIHNhbXBsZSBub25jZQ=";
      request.wanted.statuses = {400};
      break;
    case 2:
      request.method = "POST";
      request.wanted.statuses = {400};
      break;
    case 3:
      request.target = "/";
      request.wanted.statuses = {404};
      break;
    case 4:
      request.version = "HTTP/1.0";
      request.wanted.statuses = {400};
      break;
    default:
      break;
  }
  request.headers.insert(request.headers.end(), {"Connection: keep-alive, Upgrade", "Upgrade: websocket",
                                                 "Sec-WebSocket-Key: " + key, "Sec-WebSocket-Version: " + version});
  if (take_chance(maker.bytes, 4)) request.headers.emplace_back("Sec-WebSocket-Protocol: other, jsonrpc");
  return request.wanted.statuses[0] == 101;
}

// Headers that do not change what a request does. decides: the request may also say whether the connection stays.
void take_headers(Maker& maker, Request& request, bool decides) {
  for (std::size_t more = take_below(maker.bytes, 4); more > 0; --more) {
    switch (take_below(maker.bytes, 8)) {
      case 0:
        if (decides) request.closes = true;
        break;
      case 1:
        request.headers.emplace_back("X-Long: " + std::string(take_below(maker.bytes, 1000), 'x'));
        break;
      case 2:
        if (!request.has_body || request.version != "HTTP/1.1") break;
        request.headers.emplace_back("Expect: 100-continue");
        ++maker.script.continues;
        // Where the path takes no body, the answer says so in place of a 100, and the server does not wait for the
        // body.
        if (request.wanted.statuses[0] == 404 || request.wanted.statuses[0] == 405) request.closes = true;
        break;
      case 3:
        request.headers.emplace_back("X:\t \xC3\xA4 ");
        break;
      case 4:
        request.headers.emplace_back("Accept-Encoding: gzip, br");
        break;
      case 5:
        request.headers.emplace_back("If-None-Match: \"1-a\", W/\"2-b-gz\", \"unended");
        break;
      default:
        request.headers.emplace_back("Cache-Control: no-cache");
        break;
    }
  }
  if (take_chance(maker.bytes, 8)) request.headers.emplace_back("sec-fetch-site:same-origin");
  if (take_chance(maker.bytes, 8)) request.headers.emplace_back("Origin: " + maker.target.origin);
  if (take_chance(maker.bytes, 8)) request.headers.emplace_back("authorization: Bearer " + maker.target.token);
  if (!decides) return;
  const bool old = request.version == "HTTP/1.0";
  if (request.closes) request.headers.emplace_back(old ? "X-Closes: yes" : "connection: x, close");
  if (!request.closes && old) request.headers.emplace_back("Connection: keep-alive");
}

std::string chunks(Bytes& bytes, std::string_view body) {
  static constexpr const char* kExtensions[] = {"", "", ";a", ";a=b", ";a=\"b c\""};
  std::string text;
  while (!body.empty()) {
    const std::size_t length = std::min(1 + take_below(bytes, 1024), body.size());
    std::string size;
    for (std::size_t rest = length; rest > 0; rest /= 16) size.insert(size.begin(), "0123456789abcdef"[rest % 16]);
    if (take_chance(bytes, 4)) size.insert(0, "000");
    size += kExtensions[take_below(bytes, std::size(kExtensions))];
    text.append(size).append("\r\n").append(body.substr(0, length)).append("\r\n");
    body.remove_prefix(length);
  }
  text += take_chance(bytes, 4) ? "00\r\nX-Trailer: a\r\n" : "0\r\n";
  return text + "\r\n";
}

std::string text_of(Bytes& bytes, const WireTarget& target, Request& request, std::string_view line) {
  std::string framing = request.framing;
  std::string body = request.body;
  if (request.has_body && framing.empty()) {
    if (request.version == "HTTP/1.1" && take_chance(bytes, 3)) {
      framing = take_chance(bytes, 2) ? "Transfer-Encoding: chunked" : "transfer-encoding:\tChunked ";
      body = chunks(bytes, body);
    } else {
      framing = (take_chance(bytes, 4) ? "content-length:000" : "Content-Length: ") + std::to_string(body.size());
    }
  }
  std::string text(line);
  if (line.empty()) {
    const bool whole = request.host.empty() && take_chance(bytes, 8) && request.target.starts_with('/');
    text = request.method + " " + (whole ? "http://" + target.authority : "") + request.target + " " + request.version;
  }
  text += "\r\n";
  const auto add = [&](std::string_view lines) {
    if (!lines.empty()) text.append(lines).append("\r\n");
  };
  if (!request.no_host) add(request.host.empty() ? "Host: " + target.authority : request.host);
  const bool early = take_chance(bytes, 2);
  if (early) add(framing);
  for (const std::string& header : request.headers) add(header);
  if (!early) add(framing);
  return text + "\r\n" + body;
}

enum class Fate { kWell, kRefused, kRefusedInBody, kTooLong, kCut };

Fate take_fate(Maker& maker) {
  if (maker.script.ended) return Fate::kWell;
  static constexpr Fate kFates[] = {Fate::kRefused, Fate::kRefused, Fate::kRefusedInBody, Fate::kCut};
  const std::size_t choice = take_below(maker.bytes, 24);
  if (choice == 23) return Fate::kTooLong;
  return choice >= 1 && choice <= std::size(kFates) ? kFates[choice - 1] : Fate::kWell;
}

}  // namespace

void add_http_request(Maker& maker) {
  Bytes& bytes = maker.bytes;
  Script& script = maker.script;
  const Fate fate = take_fate(maker);
  const bool well = fate == Fate::kWell;
  Request request;
  if (take_chance(bytes, 8)) request.version = "HTTP/1.0";
  bool upgrades = false;
  const std::size_t kind = well || fate == Fate::kCut ? take_below(bytes, 8) : 0;
  if (kind == 4) {
    take_rpc(maker, request, !well);
  } else if (kind == 5) {
    take_page(maker, request);
  } else if (kind >= 6) {
    request.version = "HTTP/1.1";
    upgrades = take_upgrade(maker, request);
  } else {
    take_call(maker, request, !well);
  }
  // Other headers might change which fault is found first.
  if (fate != Fate::kRefused) take_headers(maker, request, kind < 6);

  std::string_view line;
  if (fate == Fate::kRefused) {
    const Fault& fault = take_fault(bytes);
    request.wanted = {.statuses = fault.statuses};
    if (fault.where == Fault::kLine) line = fault.text;
    if (fault.where == Fault::kFraming) request.framing = fault.text;
    if (fault.where == Fault::kHeader) request.headers.emplace_back(fault.text);
    if (fault.where == Fault::kHost) request.host = fault.text;
    request.no_host = fault.where == Fault::kHost && fault.text.empty();
  } else if (fate == Fate::kRefusedInBody) {
    const BodyFault& fault = take_body_fault(bytes);
    request.version = "HTTP/1.1";
    request.wanted = {.statuses = fault.statuses};
    request.framing = "Transfer-Encoding: chunked";
    request.body = fault.text;
  } else if (fate == Fate::kTooLong) {
    request.wanted = {.statuses = {431}};
    if (take_chance(bytes, 2))
      request.headers.emplace_back("X: " + std::string(kLimitHeaderBytes, 'x'));
    else
      request.headers.insert(request.headers.end(), kLimitHeaderFields, "X: x");
  }
  std::string text = text_of(bytes, maker.target, request, line);
  if (fate == Fate::kCut) {
    text.resize(1 + take_below(bytes, text.size() - 1));
    request.wanted = {.statuses = {400, 408}};
    script.cut = true;
  }
  if (take_chance(bytes, 16)) text.insert(0, "\r\n");
  script.bytes += text;
  if (script.ended || script.doubtful) return;
  script.websocket = upgrades && well;
  const unsigned status = request.wanted.statuses[0];
  script.ended = !well || request.closes || (kind >= 6 && !upgrades) || status == 413;
  script.answers.push_back(std::move(request.wanted));
}

std::string wire_upgrade(const WireTarget& target) {
  return "GET /jsonrpc HTTP/1.1\r\nHost: " + target.authority +
         "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
}
