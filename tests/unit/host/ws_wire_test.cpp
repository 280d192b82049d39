// WebSocket as bytes: input is read the same however it is split, and a violation of the protocol ends the connection
// with the right code. tests/system has the suite over the network.
#include "ws_wire.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr std::size_t longest = 1000;

constexpr std::string_view request =
    "GET /jsonrpc HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n";

std::string frame(unsigned opcode, std::string payload, bool final = true) {
  const std::string mask = "\x11\x22\x33\x44";
  std::string bytes(1, static_cast<char>((final ? 0x80 : 0) | opcode));
  if (payload.size() < 126) {
    bytes += static_cast<char>(0x80 | payload.size());
  } else {
    bytes += static_cast<char>(0x80 | 126);
    bytes += static_cast<char>(payload.size() >> 8);
    bytes += static_cast<char>(payload.size() & 255);
  }
  for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
  return bytes + mask + payload;
}

// The output of a session: its messages, "|" after each, and the frames of the protocol itself.
struct Heard {
  std::string messages;
  std::string output;
  bool closed = false;

  bool operator==(const Heard&) const = default;
};

// Reads the session's bytes in these pieces. The unread rest of a piece is at the front of the next window.
Heard hear(const std::vector<std::string>& pieces) {
  WsStreamPtr stream = ws_accept(request, "", longest);
  EXPECT_NE(stream, nullptr);
  ws_output(*stream).clear();
  Heard heard;
  std::string waiting;
  for (const std::string& piece : pieces) {
    waiting += piece;
    std::string_view window = waiting;
    WsMessage message;
    WsRead step = WsRead::kMore;
    while ((step = ws_read(*stream, window, message)) == WsRead::kMessage || step == WsRead::kAgain)
      if (step == WsRead::kMessage)
        heard.messages.append(message.binary ? "binary:" : "").append(message.text).append("|");
    if (step == WsRead::kClosed) heard.closed = true;
    waiting.erase(0, waiting.size() - window.size());
  }
  heard.output = ws_output(*stream);
  return heard;
}

std::string close_frame(unsigned code) {
  return {'\x88', 2, static_cast<char>(code >> 8), static_cast<char>(code & 255)};
}

TEST(WsWire, TheUpgradeIsAnswered) {
  const WsStreamPtr plain = ws_accept(request, "", longest);
  ASSERT_NE(plain, nullptr);
  // The key and its answer are the example of RFC 6455, section 1.3.
  EXPECT_NE(ws_output(*plain).find("Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n"), std::string::npos);
  EXPECT_EQ(ws_output(*plain).find("Sec-WebSocket-Protocol"), std::string::npos);
  const WsStreamPtr chosen = ws_accept(request, "jsonrpc", longest);
  ASSERT_NE(chosen, nullptr);
  EXPECT_NE(ws_output(*chosen).find("Sec-WebSocket-Protocol: jsonrpc\r\n"), std::string::npos);
}

// Verifies that Beast goes on after an interruption, which its documentation does not promise.
TEST(WsWire, ASessionIsReadAlikeHoweverItIsCut) {
  std::string session;
  session += frame(1, "first");
  session += frame(9, "ping");
  session +=
      frame(1, "be", false) + frame(9, "between") + frame(0, "", false) + frame(0, "gin", false) + frame(0, "ning");
  session += frame(1, "");
  session += frame(10, "unasked");
  session += frame(2, "bytes");
  session += frame(1, "caf\xC3", false) + frame(0, "\xA9");
  session += frame(1, std::string(300, 'x'), false) + frame(0, std::string(700, 'y'));
  session += frame(8, std::string("\x03\xE8", 2) + "bye");
  session += frame(1, "behind the close");

  Heard expected;
  expected.messages =
      "first|beginning||binary:bytes|caf\xC3\xA9|" + std::string(300, 'x') + std::string(700, 'y') + "|";
  expected.output =
      "\x8A\x04ping\x8A\x07"
      "between" +
      close_frame(1000);
  expected.closed = true;
  EXPECT_EQ(hear({session}), expected);
  for (std::size_t cut = 1; cut < session.size(); ++cut)
    ASSERT_EQ(hear({session.substr(0, cut), session.substr(cut)}), expected) << cut;
  std::vector<std::string> single;
  for (const char byte : session) single.emplace_back(1, byte);
  EXPECT_EQ(hear(single), expected);
}

// A bad header is refused at once, not when the announced payload has arrived.
TEST(WsWire, AFrameThatIsWrongByItsHeaderIsRefusedAtOnce) {
  const std::string headers[] = {
      std::string("\x81\x7E\x01\x00", 4),                  // unmasked
      std::string("\xC1\xFE\x01\x00\x11\x22\x33\x44", 8),  // a reserved bit
      std::string("\x89\xFE\x01\x00\x11\x22\x33\x44", 8),  // a long ping
      std::string("\x81\x7F\0\0\0\0\0\0\1\0", 10),         // unmasked, in the longest form
  };
  for (const std::string& header : headers) {
    const Heard heard = hear({header});
    EXPECT_TRUE(heard.closed) << testing::PrintToString(header);
    EXPECT_EQ(heard.output, close_frame(1002)) << testing::PrintToString(header);
  }
}

TEST(WsWire, WhatBreaksTheProtocolEndsIt) {
  struct Row {
    std::string bytes;
    unsigned code;
  };
  std::string unmasked = "\x81\x02hi";
  const Row rows[] = {
      {unmasked, 1002},
      {frame(3, "x"), 1002},
      {frame(0x40 | 1, "x"), 1002},
      {frame(0, "x"), 1002},
      {frame(1, "x", false) + frame(1, "y"), 1002},
      {frame(9, std::string(126, 'p')), 1002},
      {frame(9, "p", false), 1002},
      {frame(1, "\xFF"), 1007},
      {frame(1, "\xED\xA0\x80"), 1007},
      {frame(1, std::string(longest, 'x')) + frame(1, std::string(longest + 1, 'x')), 1009},
      {frame(1, std::string(longest, 'x'), false) + frame(0, "y"), 1009},
      {frame(8, std::string("\x03", 1)), 1002},
      {frame(8, std::string("\x03\xED", 2)), 1002},
      {frame(8, std::string("\x13\x88", 2)), 1002},
      {frame(8, std::string("\xFF\xFF", 2) + "reason"), 1002},
  };
  for (const Row& row : rows) {
    const Heard heard = hear({row.bytes, frame(1, "behind")});
    EXPECT_TRUE(heard.closed) << row.code;
    EXPECT_TRUE(heard.output.ends_with(close_frame(row.code)))
        << row.code << " " << testing::PrintToString(heard.output);
    EXPECT_EQ(heard.messages.find("behind"), std::string::npos);
  }
}

TEST(WsWire, AMessageThatIsTooLongIsRefusedByItsHeader) {
  const Heard heard = hear({frame(1, std::string(longest + 1, 'x')).substr(0, 8)});
  EXPECT_TRUE(heard.closed);
  EXPECT_EQ(heard.output, close_frame(1009));
  // Lengths whose sum would overflow.
  EXPECT_TRUE(hear({std::string("\x81\xFF\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF\0\0\0\0", 14)}).closed);
  EXPECT_TRUE(hear({std::string("\x81\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\0\0\0\0", 14)}).closed);
}

TEST(WsWire, AContinuationThatIsTooLongIsRefusedByItsHeader) {
  const Heard heard = hear({frame(1, std::string(600, 'x'), false) + frame(0, std::string(401, 'y')).substr(0, 8)});
  EXPECT_TRUE(heard.closed);
  EXPECT_EQ(heard.output, close_frame(1009));
}

TEST(WsWire, ManyFramesAreReadInParts) {
  const WsStreamPtr stream = ws_accept(request, "", longest);
  std::string many;
  for (int i = 0; i < 600; ++i) many += frame(i == 0 ? 1 : 0, "x", false);
  many += frame(0, "y");
  std::string_view window = many;
  WsMessage message;
  int parts = 1;
  while (ws_read(*stream, window, message) == WsRead::kAgain) ++parts;
  EXPECT_EQ(parts, 19);  // of 32 frames, the last of fewer
  EXPECT_EQ(message.text, std::string(600, 'x') + "y");
}

TEST(WsWire, ACloseOfOursIsWrittenOnce) {
  const WsStreamPtr stream = ws_accept(request, "", longest);
  ws_output(*stream).clear();
  EXPECT_TRUE(ws_is_open(*stream));
  ws_close(*stream, 1001, "leaving");
  EXPECT_FALSE(ws_is_open(*stream));
  EXPECT_EQ(ws_output(*stream), "\x88\x09\x03\xE9leaving");
  ws_close(*stream, 1001, "again");
  const std::string more = frame(1, "late");
  std::string_view window = more;
  WsMessage message;
  EXPECT_EQ(ws_read(*stream, window, message), WsRead::kClosed);
  EXPECT_EQ(ws_output(*stream), "\x88\x09\x03\xE9leaving");
}

TEST(WsWire, WhatAnUnfinishedMessageHoldsIsKnown) {
  const WsStreamPtr stream = ws_accept(request, "", longest);
  const std::string half = frame(1, std::string(500, 'x'), false);
  std::string_view window = half;
  WsMessage message;
  EXPECT_EQ(ws_read(*stream, window, message), WsRead::kMore);
  EXPECT_EQ(ws_held(*stream), 500u);
  const std::string rest = frame(0, "y");
  window = rest;
  EXPECT_EQ(ws_read(*stream, window, message), WsRead::kMessage);
  EXPECT_EQ(ws_held(*stream), 0u);
}

}  // namespace
