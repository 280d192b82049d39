// Fetches a file from the host by HTTP.
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/json.hpp>
#include <cerrno>
#include <memory>
#include <system_error>

#include "dtvctl.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace json = boost::json;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr std::uint64_t kMostBytes = std::uint64_t{128} << 20;

struct Exchange {
  asio::io_context context{1};
  tcp::resolver resolver{context};
  beast::tcp_stream stream{context};
  http::request<http::empty_body> request;
  beast::flat_buffer received;
  http::response_parser<http::string_body> parser;
  error_code failure = asio::error::timed_out;  // until it is over
};

void read_answer(Exchange& exchange) {
  http::async_read(exchange.stream, exchange.received, exchange.parser,
                   [&exchange](const error_code& failure, std::size_t) { exchange.failure = failure; });
}

void send_request(Exchange& exchange, const Options& options) {
  error_code ignored;
  const tcp::endpoint peer = exchange.stream.socket().remote_endpoint(ignored);
  const Token token = token_find(options, peer.address().is_loopback());
  exchange.request.set(http::field::host, options.host);
  if (!token.hex.empty()) exchange.request.set(http::field::authorization, "Bearer " + token.hex);
  http::async_write(exchange.stream, exchange.request, [&exchange](const error_code& failure, std::size_t) {
    if (failure)
      exchange.failure = failure;
    else
      read_answer(exchange);
  });
}

std::string error_text(const http::response<http::string_body>& answer) {
  json::value body;
  const json::value* error =
      json_parse(answer.body(), body) && body.is_object() ? body.get_object().if_contains("error") : nullptr;
  return error != nullptr && error->is_string() ? std::string(error->get_string())
                                                : "status " + std::to_string(answer.result_int());
}

}  // namespace

bool write_file(const std::string& file, std::string_view bytes, Failure& ret_failure) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(std::fopen(file.c_str(), "wb"), std::fclose);
  const bool written = opened != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), opened.get()) == bytes.size() &&
                       std::fflush(opened.get()) == 0;
  if (!written) ret_failure = {kExitOutput, "cannot write " + file + ": " + std::generic_category().message(errno)};
  return written;
}

bool download(const Options& options, const std::string& path, const std::string& file, Failure& ret_failure) {
  std::string address;
  int port = 0;
  if (!split_host(options.host, address, port, ret_failure)) return false;
  Exchange exchange;
  exchange.request = {http::verb::get, path, 11};
  exchange.parser.body_limit(kMostBytes);
  exchange.resolver.async_resolve(
      address, std::to_string(port), [&](const error_code& failure, const tcp::resolver::results_type& found) {
        exchange.failure = failure;
        if (failure) return;
        exchange.stream.async_connect(found, [&](const error_code& refused, const tcp::endpoint&) {
          exchange.failure = refused;
          if (!refused) send_request(exchange, options);
        });
      });
  exchange.context.run_for(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(options.timeout)));
  if (exchange.failure || !exchange.parser.is_done()) {
    const std::string why = exchange.failure ? exchange.failure.message() : "no answer within the --timeout";
    ret_failure = {kExitUnreachable, "the host at " + options.host + " does not give " + path + " (" + why + ")"};
    return false;
  }
  const http::response<http::string_body>& answer = exchange.parser.get();
  if (answer.result() != http::status::ok) {
    ret_failure = {kExitRefused,
                   "the host at " + options.host + " does not give " + path + ": " + printable(error_text(answer))};
    return false;
  }
  return write_file(file, answer.body(), ret_failure);
}
