#include "outbox.h"

#include <utility>

#include "bounds.h"
#include "rpc.h"

namespace {

constexpr char kFinalTextFrame = '\x81';
constexpr std::size_t kShortHeader = 2;   // for texts below 126 bytes
constexpr std::size_t kMiddleHeader = 4;  // below 65,536 bytes
constexpr std::size_t kLongHeader = 10;

// Writes the header of a frame to a place that has room for it.
void write_header(char* at, std::size_t header, std::size_t length) {
  at[0] = kFinalTextFrame;
  at[1] = static_cast<char>(header == kShortHeader ? length : header == kMiddleHeader ? 126 : 127);
  for (std::size_t i = header; i-- > 2; length >>= 8) at[i] = static_cast<char>(length & 0xFF);
}

std::size_t header_of(std::size_t length) {
  return length < 126 ? kShortHeader : length < 65536 ? kMiddleHeader : kLongHeader;
}

void append_frame(std::string& chunk, std::string_view text) {
  char header[kLongHeader];
  write_header(header, header_of(text.size()), text.size());
  chunk.append(header, header_of(text.size())).append(text);
}

void drop_front(Outbox& outbox) {
  outbox.notices_bytes -= outbox.notices.front().frame->size();
  outbox.notices.pop_front();
}

}  // namespace

std::string ws_frame(std::string_view text) {
  std::string frame;
  frame.reserve(text.size() + kLongHeader);
  append_frame(frame, text);
  return frame;
}

void outbox_reply(Outbox& outbox, std::string_view text) {
  outbox_open_reply(outbox).append(text);
  outbox_close_reply(outbox);
}

std::string& outbox_open_reply(Outbox& outbox) {
  constexpr std::size_t kUsualBytes = 512;
  if (outbox.replies.empty() || outbox.replies.back().size() >= kLimitChunkBytes)
    outbox.replies.emplace_back().reserve(kUsualBytes);
  std::string& chunk = outbox.replies.back();
  outbox.open_at = chunk.size();
  return chunk.append(kMiddleHeader, '\0');  // the size that most replies need
}

void outbox_close_reply(Outbox& outbox) {
  std::string& chunk = outbox.replies.back();
  const std::size_t length = chunk.size() - outbox.open_at - kMiddleHeader;
  const std::size_t header = header_of(length);
  if (header < kMiddleHeader) chunk.erase(outbox.open_at, kMiddleHeader - header);
  if (header > kMiddleHeader) chunk.insert(outbox.open_at, header - kMiddleHeader, '\0');
  write_header(chunk.data() + outbox.open_at, header, length);
  outbox.replies_bytes += header + length;
}

void outbox_notice(Outbox& outbox, Notice notice) {
  outbox.notices_bytes += notice.frame->size();
  outbox.notices.push_back(std::move(notice));
  while (outbox.notices.size() > kLimitClientNotices || outbox.notices_bytes > kLimitClientNoticeBytes) {
    drop_front(outbox);
    ++outbox.dropped;
  }
}

void outbox_forget(Outbox& outbox, const char* uri) {
  std::erase_if(outbox.notices, [&](const Notice& notice) {
    if (notice.uri != uri) return false;
    outbox.notices_bytes -= notice.frame->size();
    return true;
  });
}

std::string outbox_take(Outbox& outbox, bool& ret_replies) {
  ret_replies = !outbox.replies.empty();
  if (ret_replies) {
    std::string chunk = std::move(outbox.replies.front());
    outbox.replies.pop_front();
    outbox.replies_bytes -= chunk.size();
    return chunk;
  }
  std::string chunk;
  if (outbox.dropped > 0) append_frame(chunk, rpc_overflow(std::exchange(outbox.dropped, 0)));
  while (!outbox.notices.empty() &&
         (chunk.empty() || chunk.size() + outbox.notices.front().frame->size() <= kLimitChunkBytes)) {
    chunk += *outbox.notices.front().frame;
    drop_front(outbox);
  }
  return chunk;
}
