// What waits to be sent to one WebSocket client: replies, which are never dropped, and notifications, which are
// dropped, oldest first, when a client does not keep up. Frames are built here, so that many leave in one write and a
// notification's frame is built once for all its clients.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

// A notification's frame.
struct Notice {
  std::shared_ptr<const std::string> frame;
  const char* uri;  // the catalogue's; null for a trace line
};

struct Outbox {
  std::deque<std::string> replies;  // whole frames, several to a chunk
  std::size_t replies_bytes = 0;
  std::size_t open_at = 0;  // where the reply that is being written begins, in the last chunk
  std::deque<Notice> notices;
  std::size_t notices_bytes = 0;
  std::uint64_t dropped = 0;  // notifications, since the client was last told
};

// A text as one WebSocket frame of a server.
std::string ws_frame(std::string_view text);

void outbox_reply(Outbox& outbox, std::string_view text);

// The same for a text that is yet to be written: it is appended to what the first returns, before the second.
std::string& outbox_open_reply(Outbox& outbox);
void outbox_close_reply(Outbox& outbox);

// Drops the oldest notices beyond kLimitClientNotices and kLimitClientNoticeBytes.
void outbox_notice(Outbox& outbox, Notice notice);

// Forgets the waiting notifications of one URI (or, with null, the trace lines).
void outbox_forget(Outbox& outbox, const char* uri);

// The next chunk to send, of whole frames; empty when nothing waits. ret_replies: whether it has replies.
std::string outbox_take(Outbox& outbox, bool& ret_replies);
