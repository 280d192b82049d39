// Boost.Beast and Boost.Asio, for the files that touch sockets or HTTP.
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

// ---- routes.cpp: what a request's answer is. On the server's thread. ----

// peer: the address of who asks. own: the address and port that the request came to.
HttpResponse route(const HttpRequest& request, const std::string& peer, const std::string& own);

HttpResponse answer(http::status status, std::string body = "");

// ---- server.cpp ----

asio::io_context& server_context();

// ---- subscribers.cpp: SUBSCRIBE and UNSUBSCRIBE to the events of the service with that place in services() ----

HttpResponse subscribers_answer(const HttpRequest& request, std::size_t service);
