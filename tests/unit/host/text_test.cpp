// JSON as text, "did you mean", and the outbox of a client.
#include <gtest/gtest.h>

#include "bounds.h"
#include "json_text.h"
#include "nearest.h"
#include "outbox.h"

namespace {

TEST(JsonText, KnowsWholeTexts) {
  for (const char* text : {"{}", " [1, 2] \n", "\"a\"", "null", "-0.5e3", "{\"a\":{\"b\":[true,false,\"\\u00e4\"]}}"})
    EXPECT_TRUE(json_is_whole(text)) << text;
  for (const char* text : {"", " ", "{", "{}}", "{} x", "[1,]", "{\"a\"}", "nul", "01", "'a'", "\"\\x\"", "\"a",
                           "\"\xff\"", "\"\xc0\xaf\"", "\"\xed\xa0\x80\"", "\"\n\"", "// a\n1", "NaN"})
    EXPECT_FALSE(json_is_whole(text)) << text;
  EXPECT_FALSE(json_is_whole(std::string_view("{\0}", 3)));
}

TEST(JsonText, NestsAsDeepAsTheLimit) {
  const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  EXPECT_TRUE(json_is_whole(nested(kJsonMaxDepth)));
  std::string error;
  EXPECT_FALSE(json_is_whole(nested(kJsonMaxDepth + 1), &error));
  EXPECT_NE(error.find("deeper"), std::string::npos);
  EXPECT_FALSE(json_is_whole(std::string(5'000'000, '[')));
}

TEST(JsonText, ReturnsMembersAsWritten) {
  std::string_view rest = R"( { "a" : {"x":"}]\"" , "y":[1,{}]} ,"b":1.50, "c":"t\\" , "d":null })";
  rest.remove_prefix(1);
  const char* expected[][2] = {
      {"\"a\"", R"({"x":"}]\"" , "y":[1,{}]})"}, {"\"b\"", "1.50"}, {"\"c\"", R"("t\\")"}, {"\"d\"", "null"}};
  for (const auto& [key, value] : expected) {
    const auto member = json_next_member(rest);
    ASSERT_TRUE(member);
    EXPECT_EQ(member->key, key);
    EXPECT_EQ(member->value, value);
  }
  EXPECT_FALSE(json_next_member(rest));
  std::string_view empty = "{ }";
  EXPECT_FALSE(json_next_member(empty));
}

TEST(JsonText, CutsElements) {
  std::string_view rest = R"([[],"a,b" , -1 ,{"a":[0]}])";
  for (const char* expected : {"[]", "\"a,b\"", "-1", "{\"a\":[0]}"}) EXPECT_EQ(json_next_element(rest), expected);
  EXPECT_FALSE(json_next_element(rest));
  std::string_view empty = "[ ]";
  EXPECT_FALSE(json_next_element(empty));
}

TEST(JsonText, QuotesAnything) {
  EXPECT_EQ(json_quote("a\"\\\n\x1f/"), R"("a\"\\\u000a\u001f/")");
  EXPECT_EQ(json_quote("gr\xc3\xbc\xf0\x9f\x93\xba"), "\"gr\xc3\xbc\xf0\x9f\x93\xba\"");
  for (const char* broken : {"\xff", "\xc3", "\xe2\x82", "\xf5\x80\x80\x80", "\xed\xa0\x80", "\xc0\x80", "a\x80z"}) {
    EXPECT_TRUE(json_is_whole(json_quote(broken))) << broken;
    EXPECT_NE(json_quote(broken).find("\xEF\xBF\xBD"), std::string::npos);
  }
  EXPECT_EQ(json_string(R"("\u0061\n\"")"), "a\n\"");
  EXPECT_TRUE(json_string_is(R"("\u0061b")", "ab"));
  EXPECT_FALSE(json_string_is(R"("ab")", "a"));
}

TEST(Nearest, FindsMistypedNames) {
  const std::string names[] = {"/tv/cast/volume/volume", "/tv/cast/volume/mute", "/tv/menu/video/brightness"};
  EXPECT_EQ(nearest("/tv/cast/volume/volme", names, 1), std::vector<std::string>{names[0]});
  EXPECT_EQ(nearest("brightness", names, 3), std::vector<std::string>{names[2]});
  EXPECT_EQ(nearest("/tv/menu/sound/volume", names, 3), std::vector<std::string>{names[0]})
      << "ends with the same part";
  EXPECT_TRUE(nearest("/tv/menu/sound/tv", names, 3).empty()) << "no part of a path is tv";
  EXPECT_TRUE(nearest("", names, 3).empty());
  EXPECT_TRUE(nearest("quite something else altogether", names, 3).empty());
  EXPECT_TRUE(nearest(std::string(100000, 'a'), names, 3).empty());
}

Notice notice(std::string text, const char* uri = "/a") {
  return {.frame = std::make_shared<const std::string>(std::move(text)), .uri = uri};
}

TEST(Outbox, FramesAreThoseOfTheProtocol) {
  EXPECT_EQ(ws_frame("hi"), "\x81\x02hi");
  const std::string medium = ws_frame(std::string(126, 'x'));
  EXPECT_EQ(medium.substr(0, 4), std::string("\x81\x7e\x00\x7e", 4));
  const std::string large = ws_frame(std::string(65536, 'x'));
  EXPECT_EQ(large.substr(0, 10), std::string("\x81\x7f\0\0\0\0\0\x01\0\0", 10));
  EXPECT_EQ(large.size(), 65546u);
}

TEST(Outbox, AReplyIsFramedAsItIsWritten) {
  Outbox outbox;
  std::string expected;
  for (const std::size_t length : {0u, 1u, 125u, 126u, 65535u, 65536u}) {
    const std::string text(length, 't');
    std::string& open = outbox_open_reply(outbox);
    open += text.substr(0, length / 2);
    open += text.substr(length / 2);
    outbox_close_reply(outbox);
    expected += ws_frame(text);
  }
  EXPECT_EQ(outbox.replies_bytes, expected.size());
  std::string all;
  bool replies = false;
  for (std::string chunk = outbox_take(outbox, replies); !chunk.empty(); chunk = outbox_take(outbox, replies))
    all += chunk;
  EXPECT_TRUE(all == expected);
}

TEST(Outbox, ChunksHoldWholeFrames) {
  Outbox outbox;
  const std::string text(1000, 'r');
  for (int i = 0; i < 200; ++i) outbox_reply(outbox, text);
  EXPECT_EQ(outbox.replies_bytes, 200u * 1004);
  std::size_t total = 0;
  bool replies = false;
  for (std::string chunk = outbox_take(outbox, replies); !chunk.empty(); chunk = outbox_take(outbox, replies)) {
    EXPECT_TRUE(replies);
    EXPECT_EQ(chunk.size() % 1004, 0u);
    EXPECT_LE(chunk.size(), kLimitChunkBytes + 1004);
    total += chunk.size();
  }
  EXPECT_EQ(total, 200u * 1004);
  EXPECT_EQ(outbox.replies_bytes, 0u);
}

TEST(Outbox, OldestNotificationsGoFirstAndTheClientIsTold) {
  Outbox outbox;
  const std::size_t all = kLimitClientNotices + 7;
  for (std::size_t i = 0; i < all; ++i) outbox_notice(outbox, notice("<" + std::to_string(i) + ">"));
  outbox_reply(outbox, "reply");
  bool replies = false;
  EXPECT_EQ(outbox_take(outbox, replies), ws_frame("reply")) << "replies are never dropped";
  EXPECT_TRUE(replies);
  const std::string chunk = outbox_take(outbox, replies);
  EXPECT_FALSE(replies);
  EXPECT_NE(chunk.find(R"({"jsonrpc":"2.0","method":"overflow","params":{"dropped":7}})"), std::string::npos);
  EXPECT_EQ(chunk.find("<6>"), std::string::npos);
  EXPECT_NE(chunk.find("<7><8>"), std::string::npos);
  EXPECT_TRUE(chunk.ends_with("<" + std::to_string(all - 1) + ">"));
  EXPECT_TRUE(outbox_take(outbox, replies).empty());
}

TEST(Outbox, BytesAreBoundedToo) {
  Outbox outbox;
  const std::size_t bytes = kLimitClientNoticeBytes / 4;
  for (int i = 0; i < 7; ++i) outbox_notice(outbox, notice(std::string(bytes, 'n')));
  EXPECT_EQ(outbox.notices.size(), 4u);
  EXPECT_EQ(outbox.notices_bytes, kLimitClientNoticeBytes);
  EXPECT_EQ(outbox.dropped, 3u);
}

TEST(Outbox, ForgetsAnUnsubscribedUri) {
  Outbox outbox;
  const char* a = "/a";
  const char* b = "/b";
  for (int i = 0; i < 3; ++i) {
    outbox_notice(outbox, notice("a", a));
    outbox_notice(outbox, notice("b", b));
  }
  outbox_forget(outbox, a);
  bool replies = false;
  EXPECT_EQ(outbox_take(outbox, replies), "bbb");
  EXPECT_EQ(outbox.notices_bytes, 0u);
}

}  // namespace
