#include "outbox.h"

#include <utility>

#include "rpc.h"

namespace {

constexpr std::size_t chunk_bytes = 64 * 1024;

void append_frame(std::string& chunk, std::string_view text) {
  constexpr char final_text_frame = '\x81';
  chunk += final_text_frame;
  const std::size_t length = text.size();
  int length_bytes = 0;
  if (length < 126) {
    chunk += static_cast<char>(length);
  } else if (length < 65536) {
    chunk += static_cast<char>(126);
    length_bytes = 2;
  } else {
    chunk += static_cast<char>(127);
    length_bytes = 8;
  }
  for (int i = length_bytes - 1; i >= 0; --i)
    chunk += static_cast<char>((static_cast<std::uint64_t>(length) >> (8 * i)) & 0xFF);
  chunk += text;
}

void drop_front(Outbox& outbox) {
  outbox.notices_bytes -= outbox.notices.front().frame->size();
  outbox.notices.pop_front();
}

}  // namespace

std::string ws_frame(std::string_view text) {
  std::string frame;
  frame.reserve(text.size() + 10);
  append_frame(frame, text);
  return frame;
}

void outbox_reply(Outbox& outbox, std::string_view text) {
  if (outbox.replies.empty() || outbox.replies.back().size() + text.size() > chunk_bytes)
    outbox.replies.emplace_back(outbox_pad, '\0');
  const std::size_t before = outbox.replies.back().size();
  append_frame(outbox.replies.back(), text);
  outbox.replies_bytes += outbox.replies.back().size() - before;
}

void outbox_notice(Outbox& outbox, const OutboxLimits& limits, Notice notice) {
  outbox.notices_bytes += notice.frame->size();
  outbox.notices.push_back(std::move(notice));
  while (outbox.notices.size() > limits.notices || outbox.notices_bytes > limits.notices_bytes) {
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

std::string outbox_take(Outbox& outbox) {
  if (!outbox.replies.empty()) {
    std::string chunk = std::move(outbox.replies.front());
    outbox.replies.pop_front();
    outbox.replies_bytes -= chunk.size() - outbox_pad;
    return chunk;
  }
  if (outbox.notices.empty() && outbox.dropped == 0) return {};
  std::string chunk(outbox_pad, '\0');
  if (outbox.dropped > 0) append_frame(chunk, rpc_overflow(std::exchange(outbox.dropped, 0)));
  while (!outbox.notices.empty() &&
         (chunk.size() == outbox_pad || chunk.size() + outbox.notices.front().frame->size() <= chunk_bytes)) {
    chunk += *outbox.notices.front().frame;
    drop_front(outbox);
  }
  return chunk;
}
