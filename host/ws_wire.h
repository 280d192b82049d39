// WebSocket (RFC 6455) as bytes: Boost.Beast's server side over memory. Knows no sockets.
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

// Answers the upgrade request head, a whole one that http_wire has accepted; protocol: the subprotocol that was chosen,
// or empty. The answer stands in the stream's output. Null where Beast refuses the request.
WsStreamPtr ws_accept(std::string_view head, std::string_view protocol, std::size_t longest_message);

enum class WsRead {
  kMore,     // the window holds no whole frame any more; more bytes are needed
  kAgain,    // many frames have been read without the end of a message; there may be more
  kMessage,  // a message has come
  kClosed,   // the client has closed, or broken the protocol; nothing that it sends counts any more
};

struct WsMessage {
  std::string_view text;  // lives until the next ws_read
  bool binary = false;
};

// Reads on, up to the end of the next message. Takes what it has read from the front of the window. Pings are answered
// and closes are confirmed into the output.
WsRead ws_read(WsStream& stream, std::string_view& window, WsMessage& ret_message);

// Bytes of an unfinished, fragmented message that the stream holds.
std::size_t ws_held(const WsStream& stream);

// Frames of the protocol's own that are to be sent before anything else: the handshake, pongs, the close frame. The
// caller takes them out.
std::string& ws_output(WsStream& stream);

// Writes a close frame into the output. Nothing is read or sent after it.
void ws_close(WsStream& stream, unsigned code, std::string_view reason);

bool ws_is_open(const WsStream& stream);
