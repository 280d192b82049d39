#include "ws_wire.h"

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <cstdint>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;

namespace {

// Beast requires an executor for timers, which its synchronous functions never start.
asio::io_context& no_context() {
  static asio::io_context& context = *new asio::io_context(1);
  return context;
}

// Thrown when Beast asks for another frame and there is none, or this call has used up its frames. Beast goes on with
// the next call, because its state changes only when it gets bytes. ws_wire_test splits a session at every byte to
// verify this.
struct OutOfFrames {};

// How many bytes of the window Beast gets: a whole frame, or the header of a frame that Beast refuses because of its
// header or length; 0 when neither has arrived. held: bytes of the message's earlier frames.
std::size_t readable_length(std::string_view window, std::size_t longest_message, std::size_t held) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(window[at]); };
  if (window.size() < 2) return 0;
  const std::size_t short_length = byte(1) & 0x7F;
  const std::size_t length_bytes = short_length == 126 ? 2 : short_length == 127 ? 8 : 0;
  const std::size_t mask_bytes = (byte(1) & 0x80) != 0 ? 4 : 0;
  const std::size_t header = 2 + length_bytes + mask_bytes;
  if (window.size() < header) return 0;
  std::uint64_t length = length_bytes == 0 ? short_length : 0;
  for (std::size_t i = 0; i < length_bytes; ++i) length = length << 8 | byte(2 + i);
  const bool unmasked = mask_bytes == 0;
  const bool reserved = (byte(0) & 0x70) != 0;
  const bool long_control = (byte(0) & 0x08) != 0 && short_length > 125;
  if (unmasked || reserved || long_control) return header;
  const bool continues = (byte(0) & 0x0F) == 0;
  if (length > longest_message - (continues ? held : 0)) return header;
  return window.size() - header < length ? 0 : header + static_cast<std::size_t>(length);
}

// RFC 6455 has no close codes from 5000 on, but Beast accepts them.
bool has_unknown_code(std::string_view frame) {
  constexpr unsigned kFirstUnknown = 5000;
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(frame[at]); };
  constexpr std::size_t kHeader = 6;
  if (frame.size() < kHeader + 2 || byte(0) != 0x88 || (byte(1) & 0x80) == 0 || byte(1) > (0x80 | 125)) return false;
  return static_cast<unsigned>((byte(6) ^ byte(2)) << 8 | (byte(7) ^ byte(3))) >= kFirstUnknown;
}

// Replaces such a frame: a close with code 0, which Beast refuses as it should refuse those codes.
constexpr std::string_view kRefusableClose("\x88\x82\0\0\0\0\0\0", 8);

// Beast's next layer: reads from memory, one whole frame after the other, and writes to a text.
struct Pipe {
  using executor_type = asio::io_context::executor_type;

  std::string_view frame;              // the unread rest of the current frame
  std::string_view* window = nullptr;  // the source of the next frames
  unsigned frames = 0;                 // how many more frames may be read now
  std::size_t longest_message = 0;
  const beast::flat_buffer* message = nullptr;  // the earlier frames of the message
  std::string output;

  void take_frame() {
    const std::size_t length =
        window == nullptr || frames == 0 ? 0 : readable_length(*window, longest_message, message->size());
    if (length == 0) throw OutOfFrames();
    --frames;
    frame = window->substr(0, length);
    window->remove_prefix(length);
    if (has_unknown_code(frame)) frame = kRefusableClose;
  }

  executor_type get_executor() { return no_context().get_executor(); }

  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers, beast::error_code& ret_failure) {
    if (frame.empty()) take_frame();
    const std::size_t taken = asio::buffer_copy(buffers, asio::buffer(frame.data(), frame.size()));
    frame.remove_prefix(taken);
    ret_failure = {};
    return taken;
  }
  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers) {
    beast::error_code failure;
    return read_some(buffers, failure);
  }

  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers, beast::error_code& ret_failure) {
    const std::size_t before = output.size();
    for (const asio::const_buffer buffer : beast::buffers_range_ref(buffers))
      output.append(static_cast<const char*>(buffer.data()), buffer.size());
    ret_failure = {};
    return output.size() - before;
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers) {
    beast::error_code failure;
    return write_some(buffers, failure);
  }
};

// The connection ends when the output is sent, so there is nothing to do here.
void teardown(beast::role_type, Pipe&, beast::error_code& ret_failure) { ret_failure = {}; }

}  // namespace

struct WsStream {
  websocket::stream<Pipe, false> beast;
  beast::flat_buffer message;
  bool taken = false;  // the message in the buffer has been returned to the caller

  Pipe& pipe() { return beast.next_layer(); }
};

void WsStreamEnd::operator()(WsStream* stream) const { delete stream; }

WsStreamPtr ws_accept(std::string_view head, std::string_view protocol, std::size_t longest_message) {
  WsStreamPtr stream(new WsStream);
  stream->pipe().longest_message = longest_message;
  stream->pipe().message = &stream->message;
  stream->beast.read_message_max(longest_message);
  stream->beast.set_option(websocket::stream_base::decorator([&](websocket::response_type& response) {
    response.set(beast::http::field::server, "dtv-host");
    if (!protocol.empty())
      response.set(beast::http::field::sec_websocket_protocol, beast::string_view(protocol.data(), protocol.size()));
  }));
  beast::http::request_parser<beast::http::empty_body> parser;
  parser.header_limit(static_cast<std::uint32_t>(head.size()));
  beast::error_code failure;
  parser.put(asio::buffer(head.data(), head.size()), failure);
  // http_wire has read these headers as lists; Beast reads only the first line of each.
  parser.get().set(beast::http::field::connection, "upgrade");
  parser.get().set(beast::http::field::upgrade, "websocket");
  if (!failure) stream->beast.accept(parser.get(), failure);
  // The option refers to variables of this function.
  stream->beast.set_option(websocket::stream_base::decorator([](websocket::response_type&) {}));
  return failure ? nullptr : std::move(stream);
}

WsRead ws_read(WsStream& stream, std::string_view& window, WsMessage& ret_message) {
  if (stream.taken) {
    constexpr std::size_t kKeptBytes = 4096;
    stream.taken = false;
    stream.message.consume(stream.message.size());
    if (stream.message.capacity() > kKeptBytes) stream.message.shrink_to_fit();
  }
  if (!stream.beast.is_open()) return WsRead::kClosed;
  constexpr unsigned kMostFrames = 32;  // so that the caller can check the time
  Pipe& pipe = stream.pipe();
  // The usual end of the received bytes, without the cost of an exception.
  if (readable_length(window, pipe.longest_message, stream.message.size()) == 0) return WsRead::kMore;
  pipe.window = &window;
  pipe.frames = kMostFrames;
  beast::error_code failure;
  bool out_of_frames = false;
  try {
    do stream.beast.read_some(stream.message, 0, failure);
    while (!failure && !stream.beast.is_message_done());
  } catch (const OutOfFrames&) {
    out_of_frames = true;
  }
  pipe.window = nullptr;
  if (out_of_frames) return pipe.frames == 0 ? WsRead::kAgain : WsRead::kMore;
  if (failure) return WsRead::kClosed;
  stream.taken = true;
  const beast::flat_buffer::const_buffers_type data = stream.message.cdata();
  ret_message = {.text = {static_cast<const char*>(data.data()), data.size()}, .binary = stream.beast.got_binary()};
  return WsRead::kMessage;
}

std::size_t ws_held(const WsStream& stream) { return stream.taken ? 0 : stream.message.size(); }

std::string& ws_output(WsStream& stream) { return stream.pipe().output; }

void ws_close(WsStream& stream, unsigned code, std::string_view reason) {
  if (!stream.beast.is_open()) return;
  // close() writes the frame and then waits for the client's close frame; OutOfFrames ends that wait at once.
  const websocket::close_reason why(static_cast<websocket::close_code>(code),
                                    beast::string_view(reason.data(), reason.size()));
  beast::error_code failure;
  try {
    stream.beast.close(why, failure);
  } catch (const OutOfFrames&) {
    return;
  }
}

bool ws_is_open(const WsStream& stream) { return stream.beast.is_open(); }
