// HTTP as bytes: the boundaries between requests, however the bytes are split, and the requests that are refused
// because their end is ambiguous. tests/system has the suite over the network.
#include "http_wire.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bounds.h"

namespace {

constexpr std::size_t longest = 1000;

// The requests read from a connection's bytes, a line for each, and at the end the status of a refusal.
std::string read_all(const std::vector<std::string>& pieces) {
  const HttpReaderPtr reader = http_reader_make(longest);
  std::string told;
  std::string waiting;
  HttpRequest request;
  for (const std::string& piece : pieces) {
    waiting += piece;
    std::string_view window = waiting;
    for (;;) {
      HttpAnswer refused;
      const HttpRead step = http_read(*reader, window, request, refused);
      if (step == HttpRead::kMore) break;
      if (step == HttpRead::kRefused) return told + std::to_string(refused.status);
      if (step == HttpRead::kRequest) {
        told += request.method + " " + request.target_host + request.path + " ";
        if (request.has_parameter) told += "(" + request.parameter + ") ";
        told += request.body + "\n";
      }
    }
    waiting.erase(0, waiting.size() - window.size());
  }
  return told;
}

std::string get(const std::string& line, const std::string& headers = {}) {
  return line + "\r\nHost: localhost\r\n" + headers + "\r\n";
}

TEST(HttpWire, PipelinedRequestsAreReadAlikeHoweverTheyAreCut) {
  const std::string session =
      get("GET / HTTP/1.1") + "PUT /tv/a HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\nGET /" +
      "POST /jsonrpc HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: "
      "chunked\r\n\r\n3;x=\"y\"\r\nabc\r\n2\r\nde\r\n0\r\nHost: evil\r\n\r\n" +
      "\r\n" + get("HEAD /tv/b%20c?parameter=%7B%0a%7D&x=1 HTTP/1.1") + get("GET HTTP://other:1/tv/d HTTP/1.1") +
      get("OPTIONS * HTTP/1.1") + get("PUT /tv/e HTTP/1.1", "content-length: 0\r\n") + get("FOO /tv/f?a=%00 HTTP/1.0");
  const std::string expected =
      "GET / \nPUT /tv/a GET /\nPOST /jsonrpc abcde\nHEAD /tv/b c ({\n}) \nGET other:1/tv/d \nOPTIONS * \nPUT /tv/e "
      "\nFOO "
      "/tv/f \n";
  EXPECT_EQ(read_all({session}), expected);
  for (std::size_t cut = 1; cut < session.size(); ++cut)
    ASSERT_EQ(read_all({session.substr(0, cut), session.substr(cut)}), expected) << cut;
  std::vector<std::string> single;
  for (const char byte : session) single.emplace_back(1, byte);
  EXPECT_EQ(read_all(single), expected);
}

TEST(HttpWire, DoubtfulFramingIsRefused) {
  const std::string body = "GET /behind HTTP/1.1\r\nHost: h\r\n\r\n";
  for (const char* length : {"31, 31", "31abc", "+31", "-5", "", "0x10", "3 1", "99999999999999999999",
                             "5\r\nContent-Length: 5", "5\r\nContent-Length: 6", "5\r\nTransfer-Encoding: chunked"})
    EXPECT_EQ(read_all({"PUT / HTTP/1.1\r\nHost: h\r\nContent-Length: " + std::string(length) + "\r\n\r\n" + body}),
              "400")
        << length;
  for (const char* coding : {"gzip", "xchunked", "chunked, gzip", "gzip, chunked", "chunked, chunked", "identity", "",
                             "chunked;a=b", "chunked\r\nTransfer-Encoding: chunked"})
    EXPECT_EQ(read_all({"PUT / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: " + std::string(coding) + "\r\n\r\n0\r\n\r\n" +
                        body}),
              "400")
        << coding;
  EXPECT_EQ(read_all({"PUT / HTTP/1.0\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"}), "400");
  EXPECT_EQ(read_all({"PUT / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: Chunked\r\n\r\n0\r\n\r\n"}), "PUT / \n");
  for (const char* chunk : {"x\r\n", "-1\r\n", "5 \r\nabcde\r\n", "0x5\r\nabcde\r\n\r\n", "5\r\nabcdeX\r\n0\r\n\r\n",
                            "fffffffffffffffff\r\n"})
    EXPECT_EQ(read_all({"PUT / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n" + std::string(chunk)}), "400")
        << chunk;
}

TEST(HttpWire, DoubtfulHeadsAreRefused) {
  const std::vector<std::string> heads = {
      "GET / HTTP/1.1\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: a\r\nHost: a\r\n\r\n",
      "GET / HTTP/1.1\r\nHost : a\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: a\r\n folded\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: a\r\n\tfolded\r\n\r\n",
      "GET / HTTP/1.1\nHost: a\n\n",
      "GET / HTTP/1.1\r\nHost: a\nX: b\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: a\rX: b\r\n\r\n",
      std::string("GET / HTTP/1.1\r\nHost: a\0b\r\n\r\n", 29),
      "GET / HTTP/1.1\r\nHost: a\x7f\r\n\r\n",
      "GET /\r\n\r\n",
      "GET / \r\nHost: a\r\n\r\n",
      "GET / HTTP/2.0\r\nHost: a\r\n\r\n",
      "GET / HTTP/1.2\r\nHost: a\r\n\r\n",
      "GET / HTTP/1.10\r\nHost: a\r\n\r\n",
      "GET / http/1.1\r\nHost: a\r\n\r\n",
      "GET / HTTP/1.1 \r\nHost: a\r\n\r\n",
      "GET  / HTTP/1.1\r\nHost: a\r\n\r\n",
      " GET / HTTP/1.1\r\nHost: a\r\n\r\n",
      "G(T / HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET /a%0ab HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET /a%00 HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET /a%7f HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET /a%2 HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET /a%zz HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET /?parameter=% HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET /a#b HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET /\xC3\xA9 HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET a HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET * HTTP/1.1\r\nHost: a\r\n\r\n",
      "CONNECT a:80 HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET https://a/ HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET http:///a HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: a\r\nOrigin: b\r\nOrigin: c\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: a\r\nAuthorization: b\r\nauthorization: c\r\n\r\n",
      "\x16\x03\x01\x02",
  };
  for (const std::string& head : heads) EXPECT_EQ(read_all({head}), "400") << head;
}

TEST(HttpWire, HeadsHaveLimits) {
  const auto with_headers = [](std::size_t count) {
    std::string head = "GET / HTTP/1.1\r\nHost: a\r\n";
    for (std::size_t i = 1; i < count; ++i) head += "X-" + std::to_string(i) + ": b\r\n";
    return head + "\r\n";
  };
  EXPECT_EQ(read_all({with_headers(kLimitHeaderFields)}), "GET / \n");
  EXPECT_EQ(read_all({with_headers(kLimitHeaderFields + 1)}), "431");
  const std::string start = "GET / HTTP/1.1\r\nHost: a\r\nX: ";
  const std::string fitting(kLimitHeaderBytes - start.size() - 4, 'x');
  EXPECT_EQ(read_all({start + fitting + "\r\n\r\n"}), "GET / \n");
  EXPECT_EQ(read_all({start + fitting + "x\r\n\r\n"}), "431");
  EXPECT_EQ(read_all({start + fitting + "xxxxx"}), "431") << "not only when they end";
}

TEST(HttpWire, BodiesHaveALimit) {
  const auto put = [](std::size_t bytes) {
    return "PUT / HTTP/1.1\r\nHost: a\r\nContent-Length: " + std::to_string(bytes) + "\r\n\r\n" +
           std::string(bytes, 'x');
  };
  EXPECT_EQ(read_all({put(longest)}), "PUT / " + std::string(longest, 'x') + "\n");
  EXPECT_EQ(read_all({put(longest + 1)}), "413");
  const std::string chunked = "PUT / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n";
  const std::string half = "1f4\r\n" + std::string(500, 'x') + "\r\n";
  EXPECT_EQ(read_all({chunked + half + half + "0\r\n\r\n"}), "PUT / " + std::string(longest, 'x') + "\n");
  EXPECT_EQ(read_all({chunked + half + half + "1\r\nx\r\n0\r\n\r\n"}), "413");
  EXPECT_EQ(read_all({chunked + "1;" + std::string(kLimitSmallMessageBytes + 10, 'x')}), "400");
}

TEST(HttpWire, HeadersAreRead) {
  const HttpReaderPtr reader = http_reader_make(longest);
  const std::string text =
      get("GET /jsonrpc HTTP/1.1",
          "o: 1\r\nOrigin: http://a\r\nSec-Fetch-Site: cross-site\r\nConnection: keep-alive, Upgrade\r\n"
          "Upgrade: WebSocket\r\nSec-WebSocket-Protocol: foo\r\nSec-WebSocket-Protocol: bar, jsonrpc\r\n"
          "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n");
  std::string_view window = text;
  HttpRequest request;
  HttpAnswer refused;
  ASSERT_EQ(http_read(*reader, window, request, refused), HttpRead::kHead);
  EXPECT_EQ(request.origin, "http://a");
  EXPECT_EQ(request.fetch_site, "cross-site");
  EXPECT_TRUE(request.wants_websocket);
  EXPECT_EQ(request.websocket_protocol, "jsonrpc");
  EXPECT_EQ(http_upgrade_refusal(request).status, 0u);
  EXPECT_EQ(request.head, text);
  HttpRequest other = request;
  other.websocket_version = "8";
  EXPECT_EQ(http_upgrade_refusal(other).status, 426u);
  for (const char* key : {"", "dGhlIHNhbXBsZSBub25jZQ=", "dGhlIHNhbXBsZSBub25jZQ===", "dGhlIHNhbXBsZSBub25j*Q==",
                          "dGhlIHNhbXBsZSBub25jZQaa"}) {
    other = request;
    other.websocket_key = key;
    EXPECT_EQ(http_upgrade_refusal(other).status, 400u) << key;
  }
  other = request;
  other.method = "POST";
  EXPECT_EQ(http_upgrade_refusal(other).status, 400u);
}

TEST(HttpWire, AnswersAreWrittenWhole) {
  const std::string head = http_head({.status = 405, .body = "{}", .allow = "GET"}, false, "http://a");
  EXPECT_TRUE(head.starts_with("HTTP/1.1 405 Method Not Allowed\r\n"));
  EXPECT_TRUE(head.ends_with("\r\n\r\n"));
  for (const char* line : {"content-length: 2", "content-type: application/json", "allow: GET", "connection: close",
                           "access-control-allow-origin: http://a", "vary: origin", "cache-control: no-cache"})
    EXPECT_NE(head.find(std::string("\r\n") + line + "\r\n"), std::string::npos) << line;
  const std::string own =
      http_head({.status = 200, .more = "vary: accept-encoding\r\ncache-control: max-age=1\r\n"}, true, "");
  EXPECT_EQ(own.find("no-cache"), std::string::npos);
  EXPECT_EQ(own.find("vary: origin"), std::string::npos);
  EXPECT_EQ(own.find("access-control"), std::string::npos);
  EXPECT_EQ(http_head({.status = 204}, true, "").find("content-length"), std::string::npos);
}

}  // namespace
