// HTTP/1.1 (RFC 9112) as bytes: reads requests from the bytes that a connection received, and writes the heads of
// answers. Boost.Beast parses; the checks that it leaves to its user are done here. Knows nothing of sockets.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "http.h"

struct HttpReader;
struct HttpReaderEnd {
  void operator()(HttpReader* reader) const;
};
using HttpReaderPtr = std::unique_ptr<HttpReader, HttpReaderEnd>;

HttpReaderPtr http_reader_make(std::size_t longest_body);

enum class HttpRead {
  kMore,     // more bytes are needed
  kHead,     // request line and headers are read; the next call goes on with the body
  kRequest,  // a whole request is read
  kRefused,  // answer with ret_refusal and close: the beginning of the next request cannot be trusted
};

// Reads up to the next of these steps. The window is a view of the connection's bytes; http_read removes from its front
// what it has read, and the rest must be at the front of the next window. A request without a body passes both steps.
HttpRead http_read(HttpReader& reader, std::string_view& window, HttpRequest& request, HttpAnswer& ret_refusal);

// Whether a part of a request has been read.
bool http_is_within(const HttpReader& reader, std::string_view window);

// Bytes of an unfinished body that the reader holds or has reserved.
std::size_t http_held(const HttpReader& reader);

// The status line and headers of an answer, with the blank line. origin: the allowed foreign origin of the request, or
// empty.
std::string http_head(const HttpAnswer& answer, bool keeps_alive, std::string_view origin);

inline constexpr std::string_view kHttpContinue = "HTTP/1.1 100 Continue\r\n\r\n";

// The answer that refuses an upgrade request to a WebSocket; status 0: the request is valid.
HttpAnswer http_upgrade_refusal(const HttpRequest& request);
