#include <algorithm>
#include <iterator>

#include "bounds.h"
#include "wire_script.h"
#include "wire_stack.h"

namespace {

struct Request {
  std::string method = "GET";
  std::string target = wire_uri;
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

// What makes a request one that is refused, whatever else is in it. The connection then ends.
struct Fault {
  enum Where { line, header, framing, host } where;  // replaces the request line, the framing or Host; or a line more
  std::string_view text;
  std::vector<unsigned> statuses = {400};
};

const Fault& take_fault(Bytes& bytes) {
  static const Fault kFaults[] = {
      {Fault::framing, "Content-Length: 5\r\nContent-Length: 5"},
      {Fault::framing, "Content-Length: 5\r\nContent-Length: 6"},
      {Fault::framing, "Content-Length: 5, 5"},
      {Fault::framing, "Content-Length: 5,"},
      {Fault::framing, "Content-Length: +5"},
      {Fault::framing, "Content-Length: -5"},
      {Fault::framing, "Content-Length: 0x5"},
      {Fault::framing, "Content-Length: 5 5"},
      {Fault::framing, "Content-Length: 5.0"},
      {Fault::framing, "Content-Length:"},
      {Fault::framing, "Content-Length: 18446744073709551621", {400, 413}},
      {Fault::framing, "Content-Length: 4097", {413}},
      {Fault::framing, "Content-Length: 9999999999", {413}},
      {Fault::framing, "Transfer-Encoding: chunked\r\nContent-Length: 5"},
      {Fault::framing, "Content-Length: 5\r\nTransfer-Encoding: chunked"},
      {Fault::framing, "Transfer-Encoding: gzip"},
      {Fault::framing, "Transfer-Encoding: chunked, gzip"},
      {Fault::framing, "Transfer-Encoding: gzip, chunked"},
      {Fault::framing, "Transfer-Encoding: xchunked"},
      {Fault::framing, "Transfer-Encoding: identity"},
      {Fault::framing, "Transfer-Encoding:"},
      {Fault::framing, "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked"},
      {Fault::host, ""},
      {Fault::host, "Host:", {400, 403}},
      {Fault::host, "Host: evil.example", {403}},
      {Fault::host, "Host: 127.0.0.1", {403}},
      {Fault::host, "Host: 127.0.0.1:1", {403}},
      {Fault::header, "Host: 127.0.0.1"},
      {Fault::header, "X: a\r\n folded"},
      {Fault::header, "X: a\r\n\tfolded: b"},
      {Fault::header, "X : a"},
      {Fault::header, "X Y: a"},
      {Fault::header, "no colon"},
      {Fault::header, ": no name"},
      {Fault::header, "X: a\nY: b"},
      {Fault::header, "X: a\rb"},
      {Fault::header, {kNul, sizeof kNul - 1}},
      {Fault::header, "X: a\x01"},
      {Fault::header, "X: \x7F"},
      {Fault::header, "Origin: http://evil.example", {403}},
      {Fault::header, "Origin: null", {403}},
      {Fault::header, "Sec-Fetch-Site: cross-site", {403}},
      {Fault::header, "Sec-Fetch-Site: same-site", {403}},
      {Fault::header, "Sec-Fetch-Site: none\r\nSec-Fetch-Site: none"},
      {Fault::header, "Origin: http://a.example\r\nOrigin: http://a.example"},
      {Fault::header, "Authorization: Bearer a\r\nauthorization: Bearer b"},
      {Fault::line, "GET  / HTTP/1.1"},
      {Fault::line, "GET / HTTP/1.2", {400, 505}},
      {Fault::line, "GET / HTTP/2.0", {400, 505}},
      {Fault::line, "GET / HTTP/0.9", {400, 505}},
      {Fault::line, "GET / http/1.1"},
      {Fault::line, "GET /"},
      {Fault::line, "GET / HTTP/1.1 "},
      {Fault::line, "GET tv HTTP/1.1"},
      {Fault::line, "GET http://evil.example/ HTTP/1.1"},
      {Fault::line, "GET http:///tv HTTP/1.1"},
      {Fault::line, "GET * HTTP/1.1"},
      {Fault::line, "G(T / HTTP/1.1"},
      {Fault::line, " GET / HTTP/1.1"},
      {Fault::line, "GET\t/ HTTP/1.1"},
      {Fault::line, "GET /#a HTTP/1.1"},
      {Fault::line, "GET /%zz HTTP/1.1"},
      {Fault::line, "GET /%0a HTTP/1.1"},
      {Fault::line, "GET /%00 HTTP/1.1"},
      {Fault::line, "GET /\x80 HTTP/1.1"},
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
  static constexpr Row kRows[] = {{Act::plain, 200, 200},  {Act::plain, 200, 200},  {Act::plain, 200, 200},
                                  {Act::failed, 422, 422}, {Act::broken, 502, 200}, {Act::longest, 200, 200},
                                  {Act::slow, 200, 200},   {Act::unkept, 200, 500}};
  const Row& row = kRows[take_below(bytes, std::size(kRows))];
  const bool sets = !take_chance(bytes, 3);
  const std::string mark = sets ? new_set_mark(maker, !refused) : wire_new_mark();
  request.wanted = {.statuses = {sets ? row.set : row.get, 503}, .marked = {.mark = mark, .sets = sets}};
  // A later change that got to the disk has taken this one with it.
  if (sets && row.act == Act::unkept) request.wanted.statuses.push_back(200);
  const std::string parameter = wire_parameter(mark, row.act);
  if (sets) {
    request.method = "PUT";
    return set_body(request, parameter);
  }
  request.target += "?parameter=" + url_encoded(parameter);
  // A body that is none of the request's business, and looks like a request.
  if (take_chance(bytes, 4)) {
    const std::string inside = wire_parameter(new_set_mark(maker, false), Act::plain);
    set_body(request, std::string("PUT ") + wire_uri + " HTTP/1.1\r\nHost: " + maker.target.authority +
                          "\r\nContent-Length: " + std::to_string(inside.size()) + "\r\n\r\n" + inside);
  }
}

void take_rpc(Maker& maker, Request& request, bool refused) {
  request.method = "POST";
  request.target = "/jsonrpc";
  bool replies = false;
  // Its replies are those of a WebSocket message; here only one answer comes of it.
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
      {"HEAD", wire_uri, {200, 405, 503}},  // a get, which may find the queue full
      {"DELETE", wire_uri, {405}},
      {"POST", "/", {405}},
      {"GET", "/jsonrpc", {405}},
      {"OPTIONS", "*", {204}},
      {"OPTIONS", wire_uri, {204}},
  };
  // What has no body though it has a length is told by the request before it alone, which may be spoiled.
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

// Headers that do not change what is asked for. Those about the connection's end are for requests that may decide it.
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
        // Whose path takes no body is told so in place of a word to go on, and the body is not waited for.
        if (request.wanted.statuses[0] == 404 || request.wanted.statuses[0] == 405) request.closes = true;
        break;
      case 3:
        request.headers.emplace_back("X:\t \xC3\xA4 ");
        break;
      case 4:
        request.headers.emplace_back("Accept-Encoding: gzip, br");
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

enum class Fate { well, refused, refused_in_body, too_long, cut };

Fate take_fate(Maker& maker) {
  if (maker.script.ended) return Fate::well;
  static constexpr Fate kFates[] = {Fate::refused, Fate::refused, Fate::refused_in_body, Fate::cut};
  const std::size_t choice = take_below(maker.bytes, 24);
  if (choice == 23) return Fate::too_long;
  return choice >= 1 && choice <= std::size(kFates) ? kFates[choice - 1] : Fate::well;
}

}  // namespace

void add_http_request(Maker& maker) {
  Bytes& bytes = maker.bytes;
  Script& script = maker.script;
  const Fate fate = take_fate(maker);
  const bool well = fate == Fate::well;
  Request request;
  if (take_chance(bytes, 8)) request.version = "HTTP/1.0";
  bool upgrades = false;
  const std::size_t kind = well || fate == Fate::cut ? take_below(bytes, 8) : 0;
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
  if (fate != Fate::refused) take_headers(maker, request, kind < 6);

  std::string_view line;
  if (fate == Fate::refused) {
    const Fault& fault = take_fault(bytes);
    request.wanted = {.statuses = fault.statuses};
    if (fault.where == Fault::line) line = fault.text;
    if (fault.where == Fault::framing) request.framing = fault.text;
    if (fault.where == Fault::header) request.headers.emplace_back(fault.text);
    if (fault.where == Fault::host) request.host = fault.text;
    request.no_host = fault.where == Fault::host && fault.text.empty();
  } else if (fate == Fate::refused_in_body) {
    const BodyFault& fault = take_body_fault(bytes);
    request.version = "HTTP/1.1";
    request.wanted = {.statuses = fault.statuses};
    request.framing = "Transfer-Encoding: chunked";
    request.body = fault.text;
  } else if (fate == Fate::too_long) {
    request.wanted = {.statuses = {431}};
    if (take_chance(bytes, 2))
      request.headers.emplace_back("X: " + std::string(kLimitHeaderBytes, 'x'));
    else
      request.headers.insert(request.headers.end(), kLimitHeaderFields, "X: x");
  }
  std::string text = text_of(bytes, maker.target, request, line);
  if (fate == Fate::cut) {
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
