#include <gtest/gtest.h>

#include <string>

#include "broadcast/text.h"

namespace {

struct Case {
  const char* utf8;
  const char* set;
  std::string bytes;
};

TEST(TextForBroadcast, LeadBytesAndCharactersOfEachSet) {
  const Case cases[] = {
      {"Abc 1", "ISO6937", "Abc 1"},
      {"é", "ISO6937",
       "\xC2"
       "e"},
      {"Ø", "ISO6937", "\xE9"},
      {"ab", "ISO-8859-1",
       std::string("\x10\x00\x01"
                   "ab",
                   5)},
      {"ł", "ISO-8859-2", std::string("\x10\x00\x02\xB3", 4)},
      {"Б", "ISO-8859-5", "\x01\xB1"},
      {"α", "ISO-8859-7", "\x03\xE1"},
      {"ğ", "ISO-8859-9", "\x05\xF0"},
      {"ą", "ISO-8859-13", "\x09\xE0"},
      {"€", "ISO-8859-15", "\x0B\xA4"},
      {"あ", "UCS-2BE", "\x11\x30\x42"},
      {"한", "EUC-KR", "\x12\xC7\xD1"},
      {"中", "GB2312", "\x13\xD6\xD0"},
      {"é", "UTF-8", "\x15\xC3\xA9"},
  };
  for (const Case& each : cases) EXPECT_EQ(text_for_broadcast(each.utf8, each.set), each.bytes) << each.set;
}

TEST(TextForBroadcast, EuroAndLineBreakHaveCodesOfTheirOwn) {
  EXPECT_EQ(text_for_broadcast("1 €\n2 €", "ISO6937"),
            "1 \xA4\x8A"
            "2 \xA4");
  EXPECT_EQ(text_for_broadcast("а\nб", "ISO-8859-5"), "\x01\xD0\x8A\xD1");
  EXPECT_EQ(text_for_broadcast("\n", "UCS-2BE"), "\x11\xE0\x8A");
  EXPECT_EQ(text_for_broadcast("a\nb", "UTF-8"),
            "\x15"
            "a\xEE\x82\x8A"
            "b");
}

TEST(TextForBroadcast, RefusesWhatTheSetCannotSay) {
  EXPECT_EQ(text_for_broadcast("aあ", "ISO6937"), "");
  EXPECT_EQ(text_for_broadcast("ж", "ISO-8859-7"), "");
  EXPECT_EQ(text_for_broadcast("\U0001F600", "UCS-2BE"), "");
  EXPECT_EQ(text_for_broadcast("a", "ISO-8859-12"), "");
  EXPECT_EQ(text_for_broadcast("a", ""), "");
  EXPECT_EQ(text_for_broadcast("", "UTF-8"), "");
}

TEST(TextForBroadcast, RefusesInvalidUtf8AndControlCharacters) {
  for (const char* text : {"\xFF", "a\xC3", "\xE2\x82", "\xC0\x80", "a\tb", "a\x7F", "\xC2\x86!"})
    for (const char* set : {"UTF-8", "ISO6937", "UCS-2BE", "EUC-KR"})
      EXPECT_EQ(text_for_broadcast(text, set), "") << set;
}

TEST(TextForBroadcast, TakesTextsOfAnyLength) {
  std::string text;
  for (int index = 0; index < 10000; ++index) text += "ß€\n";
  EXPECT_EQ(text_for_broadcast(text, "ISO6937").size(), 30000U);
}

}  // namespace
