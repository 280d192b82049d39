// What waits to be sent to one WebSocket client: replies, which are never dropped, and notifications, which are
// dropped, oldest first, when a client does not keep up. Frames are built here, so that many leave in one write.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

// A notification's frame, built once for all its clients.
struct Notice {
  std::shared_ptr<const std::string> frame;
  const char* uri;  // the catalogue's; null for a trace line
};

struct OutboxLimits {
  std::size_t notices = 1024;
  std::size_t notices_bytes = std::size_t{8} << 20;
};

struct Outbox {
  std::deque<std::string> replies;  // whole frames, several to a chunk, behind outbox_pad unused bytes
  std::size_t replies_bytes = 0;
  std::deque<Notice> notices;
  std::size_t notices_bytes = 0;
  std::uint64_t dropped = 0;  // notifications, since the client was last told
};

// Bytes that the socket library may want in front of what it sends.
inline constexpr std::size_t outbox_pad = 16;

// A text as one WebSocket frame of a server.
std::string ws_frame(std::string_view text);

void outbox_reply(Outbox& outbox, std::string_view text);
void outbox_notice(Outbox& outbox, const OutboxLimits& limits, Notice notice);

// Forgets the waiting notifications of one URI (or, with null, the trace lines).
void outbox_forget(Outbox& outbox, const char* uri);

// The next chunk to send: whole frames behind outbox_pad bytes; empty when nothing waits.
std::string outbox_take(Outbox& outbox);
