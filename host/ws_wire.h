// WebSocket (RFC 6455) as bytes: Boost.Beast's server side over memory. Knows nothing of sockets.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

struct WsStream;
struct WsStreamEnd {
  void operator()(WsStream* stream) const;
};
using WsStreamPtr = std::unique_ptr<WsStream, WsStreamEnd>;

// Answers the head of an upgrade request that http_wire has accepted. protocol: the chosen subprotocol, or empty. The
// answer is in the stream's output. Returns null when Beast refuses the request.
WsStreamPtr ws_accept(std::string_view head, std::string_view protocol, std::size_t longest_message);

enum class WsRead {
  kMore,     // the window has no more whole frames; more bytes are needed
  kAgain,    // many frames were read without reaching the end of a message; call again
  kMessage,  // a message is complete
  kClosed,   // the client has closed the connection or violated the protocol; its further bytes are ignored
};

struct WsMessage {
  std::string_view text;  // valid until the next ws_read
  bool binary = false;
};

// Reads up to the end of the next message, and removes the bytes it has read from the front of the window. Answers to
// pings and close frames are written to the output.
WsRead ws_read(WsStream& stream, std::string_view& window, WsMessage& ret_message);

// Bytes of an unfinished, fragmented message that the stream holds.
std::size_t ws_held(const WsStream& stream);

// Output of the protocol itself, which must be sent before anything else: the handshake, pongs, the close frame. The
// caller takes it out.
std::string& ws_output(WsStream& stream);

// Writes a close frame to the output. Nothing is read or sent after it.
void ws_close(WsStream& stream, unsigned code, std::string_view reason);

bool ws_is_open(const WsStream& stream);
