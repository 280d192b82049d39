#include "base/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

TEST(ParseNumber, TakesTheWholeText) {
  EXPECT_EQ(parse_number<int>("0"), 0);
  EXPECT_EQ(parse_number<int>("-17"), -17);
  EXPECT_EQ(parse_number<int>("007"), 7);
  for (const char* const text : {"", " 1", "1 ", "+1", "1.0", "1e3", "0x10", "-", "one"})
    EXPECT_EQ(parse_number<int>(text), std::nullopt) << text;
  EXPECT_EQ(parse_number<int>(std::string_view("1\0", 2)), std::nullopt);
}

TEST(ParseNumber, RefusesWhatTheTypeCannotHold) {
  EXPECT_EQ(parse_number<std::uint8_t>("255"), 255);
  EXPECT_EQ(parse_number<std::uint8_t>("256"), std::nullopt);
  EXPECT_EQ(parse_number<std::uint16_t>("-1"), std::nullopt);
  EXPECT_EQ(parse_number<std::int64_t>("9223372036854775807"), INT64_MAX);
  EXPECT_EQ(parse_number<std::int64_t>("9223372036854775808"), std::nullopt);
}

TEST(ParseNumber, TakesOtherBases) {
  EXPECT_EQ(parse_number<std::uint8_t>("fF", 16), 255);
  EXPECT_EQ(parse_number<std::uint8_t>("0x1", 16), std::nullopt);
}

TEST(ParseNumber, LimitsAreIncluded) {
  EXPECT_EQ(parse_number_within("1", 1, 99), 1);
  EXPECT_EQ(parse_number_within("99", 1, 99), 99);
  for (const char* const text : {"0", "100", "-1", "", "x"})
    EXPECT_EQ(parse_number_within(text, 1, 99), std::nullopt) << text;
}

TEST(Utf8, ValidTexts) {
  for (const std::string text : {"", "plain", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                                 "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "Z\xC3\xBCrich"})
    EXPECT_TRUE(is_utf8(text)) << testing::PrintToString(text);
  EXPECT_TRUE(is_utf8(std::string_view("a\0b", 3)));
}

TEST(Utf8, InvalidTexts) {
  for (const std::string text :
       {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2 ", "\xC2\xC0", "\xE0\x9F\xBF", "\xE0\xA0", "\xED\xA0\x80",
        "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF0\x90\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "ab\xE4"})
    EXPECT_FALSE(is_utf8(text)) << testing::PrintToString(text);
}

TEST(Utf8, LengthOfTheFirstCharacter) {
  EXPECT_EQ(utf8_length("ab"), 1u);
  EXPECT_EQ(utf8_length("\xC3\xBC-"), 2u);
  EXPECT_EQ(utf8_length("\xE2\x82\xAC"), 3u);
  EXPECT_EQ(utf8_length("\xF0\x9F\x93\xBA"), 4u);
  EXPECT_EQ(utf8_length("\xF0\x9F\x93"), 0u);
}

TEST(IgnoringCase, OnlyTheLettersOfAscii) {
  EXPECT_TRUE(equal_ignoring_case("", ""));
  EXPECT_TRUE(equal_ignoring_case("Hdmi-1", "hDMI-1"));
  EXPECT_FALSE(equal_ignoring_case("a", "ab"));
  EXPECT_FALSE(equal_ignoring_case("@", "`"));
  EXPECT_FALSE(equal_ignoring_case("[", "{"));
  EXPECT_FALSE(equal_ignoring_case("\xC3\x84", "\xC3\xA4"));  // capital and small a with diaeresis
}

TEST(IgnoringCase, FindsAWordAnywhere) {
  EXPECT_TRUE(contains_ignoring_case("the Volume", "vol"));
  EXPECT_TRUE(contains_ignoring_case("the Volume", "UME"));
  EXPECT_TRUE(contains_ignoring_case("x", ""));
  EXPECT_TRUE(contains_ignoring_case("", ""));
  EXPECT_FALSE(contains_ignoring_case("", "x"));
  EXPECT_FALSE(contains_ignoring_case("volum", "volume"));
}

}  // namespace
