// Messages that wait to be sent to one WebSocket client: replies, which are never dropped, and notifications, of which
// the oldest are dropped when the client reads too slowly. The frames are built here, so that one write sends many, and
// the frame of a notification is built only once for all clients.
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
  std::size_t open_at = 0;  // the beginning of the reply that is being written, in the last chunk
  std::deque<Notice> notices;
  std::size_t notices_bytes = 0;
  std::uint64_t dropped = 0;  // notifications, since the client was last told
};

// A text as one WebSocket frame of a server.
std::string ws_frame(std::string_view text);

void outbox_reply(Outbox& outbox, std::string_view text);

// The same for a reply that is written in place: the caller appends it to the text that outbox_open_reply returns, and
// then calls outbox_close_reply.
std::string& outbox_open_reply(Outbox& outbox);
void outbox_close_reply(Outbox& outbox);

// Drops the oldest notices beyond kLimitClientNotices and kLimitClientNoticeBytes.
void outbox_notice(Outbox& outbox, Notice notice);

// Removes the waiting notifications of one URI, or with null the trace lines.
void outbox_forget(Outbox& outbox, const char* uri);

// Takes the next chunk of whole frames to send; empty when nothing waits. ret_replies: whether it contains replies.
std::string outbox_take(Outbox& outbox, bool& ret_replies);
