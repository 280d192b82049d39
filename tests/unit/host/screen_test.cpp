// GET /screen.jpg: the newest frame, its tag, and platforms without a screen.
#include "screen.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include "bounds.h"

namespace {

std::string frame = "the frame";
std::uint64_t number = 7;

std::uint64_t give(std::uint64_t after, std::uint8_t** ret_jpeg, std::uint32_t* ret_size) {
  if (number <= after) return number;
  *ret_jpeg = static_cast<std::uint8_t*>(malloc(frame.size()));
  memcpy(*ret_jpeg, frame.data(), frame.size());
  *ret_size = static_cast<std::uint32_t>(frame.size());
  return number;
}

HttpAnswer ask(const std::string& if_none_match = "") {
  Stack stack{};
  stack.tv_screen = give;
  return screen_answer({.method = "GET", .path = "/screen.jpg", .if_none_match = if_none_match}, stack);
}

TEST(HostScreen, GivesTheFrameWithItsNumberAsTheTag) {
  const HttpAnswer answer = ask();
  EXPECT_EQ(answer.status, 200U);
  EXPECT_EQ(answer.type, "image/jpeg");
  EXPECT_EQ(answer.body, "the frame");
  EXPECT_NE(answer.more.find("etag: \"7\"\r\n"), std::string::npos) << answer.more;
  EXPECT_NE(answer.more.find("no-store"), std::string::npos) << answer.more;
}

TEST(HostScreen, AFrameThatTheClientHasIsNotSentAgain) {
  for (const char* tags : {"\"7\"", "W/\"7\"", "\"6\", \"7\"", "*"}) {
    const HttpAnswer answer = ask(tags);
    EXPECT_EQ(answer.status, 304U) << tags;
    EXPECT_EQ(answer.body, "") << tags;
  }
  for (const char* tags : {"\"6\"", "7", "\"\"", "\"77\"", "\"99999999999999999999\""})
    EXPECT_EQ(ask(tags).status, 200U) << tags;
}

TEST(HostScreen, ATelevisionWithoutAPictureSaysSo) {
  number = 0;
  const HttpAnswer answer = ask();
  number = 7;
  EXPECT_EQ(answer.status, 404U);
  EXPECT_NE(answer.body.find("has no picture"), std::string::npos) << answer.body;
}

TEST(HostScreen, AnotherPlatformSaysSo) {
  const HttpAnswer answer = screen_answer({.method = "GET", .path = "/screen.jpg"}, Stack{});
  EXPECT_EQ(answer.status, 404U);
  EXPECT_NE(answer.body.find("only the virtual television has one"), std::string::npos) << answer.body;
}

TEST(HostScreen, AFrameThatIsTooLongIsRefused) {
  frame.assign(kLimitScreenBytes + 1, 'x');
  const HttpAnswer answer = ask();
  frame.pop_back();
  EXPECT_EQ(answer.status, 502U);
  EXPECT_EQ(ask().body.size(), kLimitScreenBytes);
  frame = "the frame";
}

}  // namespace
