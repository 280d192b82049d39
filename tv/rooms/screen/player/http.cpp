#include "rooms/screen/player/http.h"

#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

struct HttpReader {
  std::shared_ptr<HttpSource> source;
  asio::io_context context{1};
  std::atomic<bool> cancelled = false;
  // The members below belong to the reading thread, which also runs what other threads post to the context.
  std::optional<beast::tcp_stream> stream;
  beast::flat_buffer buffer{kHttpLongestHead + (64U << 10)};
  std::optional<http::response_parser<http::buffer_body>> answer;
  std::int64_t asked = 0;   // position at which the answer began
  std::int64_t at = 0;      // position of the next byte of the answer
  std::int64_t wanted = 0;  // position of the next byte for the caller
};

namespace {

struct Address {
  std::string host;
  std::uint16_t port = 80;
  std::string target = "/";
};

constexpr std::string_view kScheme = "http://";

std::optional<Address> parse(std::string_view text) {
  if (text.size() > kHttpLongestAddress || !text.starts_with(kScheme)) return std::nullopt;
  const bool is_plain = std::ranges::all_of(text, [](char c) { return c > ' ' && c < 0x7F; });
  if (!is_plain) return std::nullopt;
  text.remove_prefix(kScheme.size());
  Address address;
  std::size_t end = std::min(text.find_first_of("/?#"), text.size());
  std::string_view host = text.substr(0, end);
  if (const std::size_t fragment = text.find('#', end); fragment != std::string_view::npos)
    text = text.substr(0, fragment);
  if (end < text.size()) address.target = text[end] == '/' ? text.substr(end) : "/" + std::string(text.substr(end));
  std::size_t colon = host.rfind(':');
  if (host.starts_with('[')) {
    const std::size_t bracket = host.find(']');
    if (bracket == std::string_view::npos) return std::nullopt;
    colon = bracket + 1 < host.size() ? bracket + 1 : std::string_view::npos;
    if (colon != std::string_view::npos && host[colon] != ':') return std::nullopt;
  }
  if (colon != std::string_view::npos) {
    const std::string_view port = host.substr(colon + 1);
    const auto [after, failed] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    if (failed != std::errc() || after != port.data() + port.size() || address.port == 0) return std::nullopt;
    host = host.substr(0, colon);
  }
  if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
  address.host = host;
  return address;
}

bool fail(HttpReader& reader, std::string why) {
  const std::lock_guard guard(reader.source->lock);
  if (!reader.cancelled) reader.source->trouble = std::move(why);
  return false;
}

// Runs an operation to its end, which comes within `time`. start: begins the operation, with the handler that it must
// call.
template <typename Start>
beast::error_code run(HttpReader& reader, std::chrono::seconds time, Start start) {
  beast::error_code result = asio::error::operation_aborted;
  if (reader.cancelled) return result;
  reader.context.restart();
  reader.stream->expires_after(time);
  start([&result](beast::error_code error, auto&&...) { result = error; });
  reader.context.run();
  return reader.cancelled ? beast::error_code(asio::error::operation_aborted) : result;
}

std::string cause(beast::error_code error) {
  if (error == beast::error::timeout) return "it does not answer";
  if (error == http::error::header_limit) return "its answer's head is longer than 16 KiB";
  if (error == http::error::partial_message || error == http::error::end_of_stream)
    return "it closed the connection before the end";
  if (error.category() == http::make_error_code(http::error::bad_version).category()) return "its answer is not HTTP";
  return error.message();
}

// Removes the number at the beginning of the text and returns it; -1: there is none.
std::int64_t take_number(std::string_view& text) {
  std::int64_t number = -1;
  const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failed != std::errc() || number < 0) return -1;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// Reads "bytes FIRST-LAST/SIZE"; ret_size is -1 for the size "*". False: the text is something else.
bool parse_range(std::string_view text, std::int64_t& ret_first, std::int64_t& ret_size) {
  constexpr std::string_view kUnit = "bytes ";
  if (!text.starts_with(kUnit)) return false;
  text.remove_prefix(kUnit.size());
  const std::int64_t first = take_number(text);
  if (first < 0 || !text.starts_with('-')) return false;
  text.remove_prefix(1);
  const std::int64_t last = take_number(text);
  if (last < first || !text.starts_with('/')) return false;
  text.remove_prefix(1);
  const std::int64_t size = text == "*" ? -1 : take_number(text);
  if (text != "*" && (size <= last || !text.empty())) return false;
  ret_first = first;
  ret_size = size;
  return true;
}

bool connect(HttpReader& reader, const Address& address) {
  beast::error_code failed;
  const asio::ip::address host = asio::ip::make_address(address.host, failed);
  if (failed) return fail(reader, "the address of the server is not a number: " + address.host);
  reader.stream.emplace(reader.context);
  reader.buffer.clear();
  failed = run(reader, kHttpConnectTime, [&](auto handler) {
    reader.stream->async_connect(asio::ip::tcp::endpoint(host, address.port), handler);
  });
  return !failed || fail(reader, "the server " + address.host + " cannot be reached: " + cause(failed));
}

// Sends the request and reads the answer's head.
bool ask(HttpReader& reader, const Address& address, std::int64_t from) {
  http::request<http::empty_body> request(http::verb::get, address.target, 11);
  request.set(http::field::host, address.port == 80 ? address.host : address.host + ":" + std::to_string(address.port));
  request.set(http::field::range, "bytes=" + std::to_string(from) + "-");
  request.set(http::field::connection, "close");
  request.set("transferMode.dlna.org", "Streaming");
  beast::error_code failed =
      run(reader, kHttpHeadTime, [&](auto handler) { http::async_write(*reader.stream, request, handler); });
  if (failed) return fail(reader, "the request cannot be sent to the server: " + cause(failed));
  reader.answer.emplace();
  reader.answer->header_limit(kHttpLongestHead);
  reader.answer->body_limit(boost::none);  // read in pieces
  failed = run(reader, kHttpHeadTime,
               [&](auto handler) { http::async_read_header(*reader.stream, reader.buffer, *reader.answer, handler); });
  return !failed || fail(reader, "the server's answer cannot be read: " + cause(failed));
}

// The target of a redirection; nothing: it is on another host or port.
std::optional<Address> redirected(const Address& from, std::string_view place) {
  if (place.starts_with('/') && !place.starts_with("//")) {
    const std::string host = from.host.find(':') == std::string::npos ? from.host : "[" + from.host + "]";
    return parse(std::string(kScheme) + host + ":" + std::to_string(from.port) + std::string(place));
  }
  const auto to = parse(place);
  return to && to->host == from.host && to->port == from.port ? to : std::nullopt;
}

// Checks the head of an answer that is no redirection, and takes the file's size from it.
bool take_head(HttpReader& reader, std::int64_t from) {
  const auto& head = reader.answer->get();
  const unsigned status = head.result_int();
  std::int64_t size = -1;
  bool seekable = false;
  if (status == 206) {
    std::int64_t first = 0;
    if (!parse_range(head[http::field::content_range], first, size) || first != from)
      return fail(reader, "the server sends another part of the file than was requested");
    seekable = true;
  } else if (status == 200) {
    if (from != 0) return fail(reader, "the server sends the file only from its beginning");
    if (const auto length = reader.answer->content_length())
      size = static_cast<std::int64_t>(std::min<std::uint64_t>(*length, INT64_MAX));
    seekable = head[http::field::accept_ranges] == "bytes";
  } else {
    return fail(reader, "the server does not send the file: HTTP status " + std::to_string(status));
  }
  const std::lock_guard guard(reader.source->lock);
  if (from == 0) {
    reader.source->size = size;
    reader.source->seekable = seekable;
  }
  return true;
}

// Requests the file from a position on, and follows redirections.
bool request_from(HttpReader& reader, std::int64_t from) {
  auto address = parse(reader.source->address);
  if (!address) return fail(reader, "it is not an http address of a file");
  if (reader.source->is_near == nullptr || !reader.source->is_near(reader.source->address))
    return fail(reader, "the server is not in the home network: " + address->host);
  reader.answer.reset();
  for (int i = 0; i <= kHttpMostRedirects; ++i) {
    if (!connect(reader, *address) || !ask(reader, *address, from)) return false;
    if (reader.answer->get().result_int() / 100 != 3) {
      reader.asked = reader.at = reader.wanted = from;
      if (take_head(reader, from)) return true;
      reader.answer.reset();
      return false;
    }
    address = redirected(*address, reader.answer->get()[http::field::location]);
    if (!address) return fail(reader, "the server redirects to another host");
  }
  return fail(reader, "the server redirects too often");
}

// Reads a piece of the body. 0: the end, or an error.
std::size_t read_piece(HttpReader& reader, std::span<char> room) {
  while (reader.answer && !reader.answer->is_done()) {
    auto& body = reader.answer->get().body();
    body.data = room.data();
    body.size = room.size();
    const beast::error_code failed = run(reader, kHttpReadTime, [&](auto handler) {
      http::async_read_some(*reader.stream, reader.buffer, *reader.answer, handler);
    });
    const std::size_t count = room.size() - body.size;
    if (failed && failed != http::error::need_buffer) {
      fail(reader, "the server stopped sending the file: " + cause(failed));
      reader.answer.reset();
    }
    if (count != 0) {
      reader.at += static_cast<std::int64_t>(count);
      return count;
    }
  }
  return 0;
}

// Whether the answer ended before the file did.
bool is_short(const HttpReader& reader) {
  const std::lock_guard guard(reader.source->lock);
  return reader.source->size >= 0 && reader.at < reader.source->size;
}

}  // namespace

void HttpEnd::operator()(HttpReader* reader) const { delete reader; }

HttpReaderHandle http_create(const std::shared_ptr<HttpSource>& source) {
  HttpReaderHandle reader(new HttpReader);
  reader->source = source;
  return reader;
}

bool http_begin(HttpReader& reader) {
  {
    const std::lock_guard guard(reader.source->lock);
    reader.source->trouble.clear();
  }
  return request_from(reader, 0);
}

std::size_t http_read(HttpReader& reader, std::span<char> room) {
  if (room.empty() || reader.cancelled) return 0;
  {
    const std::lock_guard guard(reader.source->lock);
    if (reader.source->size >= 0 && reader.wanted >= reader.source->size) return 0;
  }
  if (reader.wanted != reader.at) {
    const std::int64_t ahead = reader.wanted - reader.at;
    if (ahead < 0 || ahead > kHttpSkip || !reader.answer) {
      if (!request_from(reader, reader.wanted)) return 0;
    }
    while (reader.at < reader.wanted) {
      const auto left = static_cast<std::size_t>(reader.wanted - reader.at);
      if (read_piece(reader, room.first(std::min(room.size(), left))) == 0) return 0;
    }
  }
  std::size_t count = read_piece(reader, room);
  if (count == 0 && reader.answer && is_short(reader)) {
    // A server may answer with a part of the range at a time, but each answer must have some bytes.
    if (reader.at == reader.asked)
      fail(reader, "the server sends less than it promises");
    else if (request_from(reader, reader.at))
      count = read_piece(reader, room);
  }
  reader.wanted = reader.at;
  return count;
}

bool http_seek(HttpReader& reader, std::int64_t position) {
  const std::lock_guard guard(reader.source->lock);
  if (position < 0 || !reader.source->seekable) return false;
  reader.wanted = position;
  return true;
}

std::int64_t http_size(HttpReader& reader) {
  const std::lock_guard guard(reader.source->lock);
  return reader.source->size;
}

bool http_is_seekable(HttpReader& reader) {
  const std::lock_guard guard(reader.source->lock);
  return reader.source->seekable;
}

// The stream belongs to the reading thread, so the close is posted to that thread.
void http_cancel(HttpReader& reader) {
  reader.cancelled = true;
  asio::post(reader.context, [&reader] {
    if (reader.stream) reader.stream->close();
  });
}

std::string http_trouble(HttpSource& source) {
  const std::lock_guard guard(source.lock);
  return source.trouble;
}
