// HTTP/1.1 (RFC 9112) as bytes: reads requests out of what a connection received, and writes the heads of answers.
// Framing is Boost.Beast's strict parser, and what that leaves to its user. Knows no sockets.
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
  kHead,     // the request is there but for its body; http_read goes on with the body, or with the next request
  kRequest,  // a whole request is there
  kRefused,  // answer with ret_refusal and close: where the next request would begin cannot be trusted
};

// Reads on to the next of these steps. Takes what it has read from the front of the window, which is the connection's
// bytes in order: what it has not taken must stand at the front of the next window. A request without a body passes
// both steps.
HttpRead http_read(HttpReader& reader, std::string_view& window, HttpRequest& request, HttpAnswer& ret_refusal);

// Whether part of a request has been read, and its next bytes are due.
bool http_is_within(const HttpReader& reader, std::string_view window);

// Bytes of an unfinished body that the reader holds, or has promised to hold.
std::size_t http_held(const HttpReader& reader);

// The status line and headers of an answer, with the blank line. origin: the allowed foreign origin that asks, else
// empty.
std::string http_head(const HttpAnswer& answer, bool keeps_alive, std::string_view origin);

inline constexpr std::string_view kHttpContinue = "HTTP/1.1 100 Continue\r\n\r\n";

// What is wrong with an upgrade request to a WebSocket, as the answer that refuses it; status 0: nothing.
HttpAnswer http_upgrade_refusal(const HttpRequest& request);
