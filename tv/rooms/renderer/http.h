// What the renderer's files that use Boost.Beast and Boost.Asio share.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <string>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using boost::asio::ip::tcp;
using boost::system::error_code;

using HttpRequest = http::request<http::string_body>;
using HttpResponse = http::response<http::string_body>;

inline constexpr const char* kServerName = "Linux UPnP/1.0 dtv/1.0";

// ---- routes.cpp: the answers to requests. On the server's thread. ----

// The answer to a request. peer: the client's address. own: the "address:port" to which the request came.
HttpResponse route(const HttpRequest& request, const std::string& peer, const std::string& own);

HttpResponse answer(http::status status, std::string body = "");

// ---- server.cpp ----

asio::io_context& server_context();

// ---- subscribers.cpp ----

// The answer to a SUBSCRIBE or UNSUBSCRIBE request. service: the index in services() of the service whose events it
// concerns. On the server's thread.
HttpResponse subscribers_answer(const HttpRequest& request, std::size_t service);
