// Conversions to integers as the 32-bit target makes them, bounded text copies, and the parser's error position.
#include "tv_ctrl_util/number.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <thread>

#include "support.h"
#include "tv_ctrl_util/json_parse.h"
#include "tv_ctrl_util/text.h"

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

template <typename T>
class DoubleTo : public testing::Test {};
using Integers = testing::Types<INT8, UINT8, INT16, UINT16, INT32, UINT32, INT64, UINT64>;
TYPED_TEST_SUITE(DoubleTo, Integers);

TYPED_TEST(DoubleTo, TruncatesAndSaturates) {
  using T = TypeParam;
  constexpr T kLeast = std::numeric_limits<T>::min(), kMost = std::numeric_limits<T>::max();
  // 2^n, exact: the first value above the type.
  const double above = std::ldexp(1.0, std::numeric_limits<T>::digits);
  EXPECT_EQ(tvc_double_to<T>(above), kMost);
  EXPECT_EQ(tvc_double_to<T>(above * 2), kMost);
  EXPECT_EQ(tvc_double_to<T>(kInfinity), kMost);
  EXPECT_EQ(tvc_double_to<T>(std::numeric_limits<double>::max()), kMost);
  EXPECT_EQ(tvc_double_to<T>(-kInfinity), kLeast);
  EXPECT_EQ(tvc_double_to<T>(-std::numeric_limits<double>::max()), kLeast);
  EXPECT_EQ(tvc_double_to<T>(static_cast<double>(kLeast)), kLeast);
  EXPECT_EQ(tvc_double_to<T>(static_cast<double>(kLeast) * 2 - 1), kLeast);
  EXPECT_EQ(tvc_double_to<T>(kNan), T{0});
  EXPECT_EQ(tvc_double_to<T>(-kNan), T{0});
  EXPECT_EQ(tvc_double_to<T>(0.0), T{0});
  EXPECT_EQ(tvc_double_to<T>(-0.0), T{0});
  EXPECT_EQ(tvc_double_to<T>(0.999), T{0});
  EXPECT_EQ(tvc_double_to<T>(-0.999), T{0});
  EXPECT_EQ(tvc_double_to<T>(1.999), T{1});
  EXPECT_EQ(tvc_double_to<T>(std::numeric_limits<double>::denorm_min()), T{0});
  const double below = std::nextafter(above, 0.0);
  EXPECT_EQ(tvc_double_to<T>(below), static_cast<T>(std::trunc(below)));
  if constexpr (std::numeric_limits<T>::is_signed)
    EXPECT_EQ(tvc_double_to<T>(-1.999), T{-1});
  else
    EXPECT_EQ(tvc_double_to<T>(-1.0), T{0});
}

TEST(DoubleTo, KeepsWholeNumbers) {
  EXPECT_EQ(tvc_double_to<INT32>(2147483647.0), 2147483647);
  EXPECT_EQ(tvc_double_to<INT32>(2147483647.9), 2147483647);
  EXPECT_EQ(tvc_double_to<INT32>(-2147483648.9), std::numeric_limits<INT32>::min());
  EXPECT_EQ(tvc_double_to<UINT32>(4294967295.0), 4294967295u);
  EXPECT_EQ(tvc_double_to<INT64>(9007199254740993.0), 9007199254740992);
  EXPECT_EQ(tvc_double_to<INT64>(1.9e9), 1900000000);
  EXPECT_EQ(tvc_double_to<UINT64>(9223372036854775808.0), 9223372036854775808u);
}

struct TextCase {
  const char* text;
  INT32 int32;
  UINT32 uint32;
  INT64 int64;
  UINT64 uint64;
};

constexpr INT32 kMax32 = std::numeric_limits<INT32>::max(), kMin32 = std::numeric_limits<INT32>::min();
constexpr INT64 kMax64 = std::numeric_limits<INT64>::max(), kMin64 = std::numeric_limits<INT64>::min();
constexpr UINT64 kAll64 = std::numeric_limits<UINT64>::max();
constexpr UINT32 kAll32 = std::numeric_limits<UINT32>::max();

// Decimal for 32-bit signed, else the base that the text says. Unsigned conversions negate modulo 2^n; what does not
// fit saturates, for unsigned ones by its magnitude.
constexpr TextCase kTextCases[] = {
    {"", 0, 0, 0, 0},
    {"0", 0, 0, 0, 0},
    {"7", 7, 7, 7, 7},
    {"+7", 7, 7, 7, 7},
    {"-7", -7, kAll32 - 6, -7, kAll64 - 6},
    {" \t\n\v\f\r7", 7, 7, 7, 7},
    {"7 8", 7, 7, 7, 7},
    {"12abc", 12, 12, 12, 12},
    {"abc", 0, 0, 0, 0},
    {"1.9", 1, 1, 1, 1},
    {"1e3", 1, 1, 1, 1},
    {"- 7", 0, 0, 0, 0},
    {"--7", 0, 0, 0, 0},
    {"+-7", 0, 0, 0, 0},
    {"\xC2\xA0"
     "7",
     0, 0, 0, 0},
    {"010", 10, 8, 8, 8},
    {"-010", -10, kAll32 - 7, -8, kAll64 - 7},
    {"08", 8, 0, 0, 0},
    {"019", 19, 1, 1, 1},
    {"0x10", 0, 16, 16, 16},
    {"0XfF", 0, 255, 255, 255},
    {"-0x10", 0, kAll32 - 15, -16, kAll64 - 15},
    {"0x", 0, 0, 0, 0},
    {"0xg", 0, 0, 0, 0},
    {"x10", 0, 0, 0, 0},
    {"ff", 0, 0, 0, 0},
    {"2147483647", kMax32, 2147483647u, 2147483647, 2147483647u},
    {"2147483648", kMax32, 2147483648u, 2147483648, 2147483648u},
    {"-2147483648", kMin32, 2147483648u, -2147483648, kAll64 - 2147483647u},
    {"-2147483649", kMin32, 2147483647u, -2147483649, kAll64 - 2147483648u},
    {"4294967295", kMax32, kAll32, 4294967295, 4294967295u},
    {"4294967296", kMax32, kAll32, 4294967296, 4294967296u},
    {"-4294967295", kMin32, 1, -4294967295, kAll64 - 4294967294u},
    {"-4294967296", kMin32, kAll32, -4294967296, kAll64 - 4294967295u},
    {"0xFFFFFFFF", 0, kAll32, 4294967295, 4294967295u},
    {"0x100000000", 0, kAll32, 4294967296, 4294967296u},
    {"9223372036854775807", kMax32, kAll32, kMax64, 9223372036854775807u},
    {"9223372036854775808", kMax32, kAll32, kMax64, 9223372036854775808u},
    {"-9223372036854775808", kMin32, kAll32, kMin64, 9223372036854775808u},
    {"-9223372036854775809", kMin32, kAll32, kMin64, 9223372036854775807u},
    {"18446744073709551615", kMax32, kAll32, kMax64, kAll64},
    {"18446744073709551616", kMax32, kAll32, kMax64, kAll64},
    {"-18446744073709551614", kMin32, kAll32, kMin64, 2},
    {"-18446744073709551615", kMin32, kAll32, kMin64, 1},
    {"-18446744073709551616", kMin32, kAll32, kMin64, kAll64},
    {"-18446744073709551617", kMin32, kAll32, kMin64, kAll64},
    {"99999999999999999999999999999999999999", kMax32, kAll32, kMax64, kAll64},
    {"-99999999999999999999999999999999999999", kMin32, kAll32, kMin64, kAll64},
    {"00000000000000000000000000000000000000000000000000000000000000000000000017", 17, 15, 15, 15},
};

TEST(TextTo, ConvertsAsTheTarget) {
  for (const TextCase& row : kTextCases) {
    EXPECT_EQ(tvc_text_to_int32(row.text), row.int32) << row.text;
    EXPECT_EQ(tvc_text_to_uint32(row.text), row.uint32) << row.text;
    EXPECT_EQ(tvc_text_to_int64(row.text), row.int64) << row.text;
    EXPECT_EQ(tvc_text_to_uint64(row.text), row.uint64) << row.text;
  }
}

TEST(CopyText, CutsAndTerminates) {
  struct {
    char text[8];
    char guard[8];
  } copy;
  for (std::size_t length = 0; length < 20; ++length) {
    std::memset(&copy, '#', sizeof copy);
    const std::string text(length, 'a');
    tvc_copy_text(copy.text, text.c_str());
    EXPECT_EQ(std::string(copy.text), text.substr(0, 7)) << length;
    EXPECT_EQ(std::string(copy.guard, 8), "########") << length;
  }
}

TEST(CopyText, FillsTheSmallestArray) {
  char text[1] = {'#'};
  tvc_copy_text(text, "abc");
  EXPECT_EQ(text[0], '\0');
}

const char* const kMalformed[] = {
    "",          " ",     "{",  "{\"A\":}",          "{\"A\":1,}", "[1,2",    "nul",         "\"abc",        "{A:1}",
    "{\"A\" 1}", "[1 2]", "\\", "{\"A\":{\"B\":]}}", "-",          "\"\\q\"", "\"\\uD800\"", "\xEF\xBB\xBF", "}"};

TEST(JsonParse, TellsWhereTheParserStopped) {
  for (const char* const text : kMalformed) {
    const JsonParse parsed = tvc_json_parse(text);
    EXPECT_EQ(parsed.root, nullptr) << text;
    EXPECT_EQ(parsed.error_at, cJSON_GetErrorPtr()) << text;  // the library's own report of this parse
    ASSERT_TRUE(parsed.error_at >= text && parsed.error_at <= text + std::strlen(text)) << text;
  }
}

TEST(JsonParse, PositionIsEmptyAfterSuccess) {
  for (const char* const text : {"{}", "[]", "0", "null", " {\"A\": [1, \"b\"]} ", "{}{", "1 2"}) {
    const JsonParse parsed = tvc_json_parse(text);
    ASSERT_NE(parsed.root, nullptr) << text;
    EXPECT_STREQ(parsed.error_at, "");
    cJSON_Delete(parsed.root);
  }
}

TEST(JsonParse, ThreadsSeeTheirOwnPosition) {
  std::atomic<int> foreign = 0;
  const auto parse_often = [&foreign](const char* text, std::size_t error_offset) {
    for (int i = 0; i < 20000; ++i) {
      const JsonParse parsed = tvc_json_parse(text);
      if (parsed.root || parsed.error_at != text + error_offset) ++foreign;
      cJSON_Delete(parsed.root);
    }
  };
  const auto offset_of = [](const char* text) {
    return static_cast<std::size_t>(tvc_json_parse(text).error_at - text);
  };
  const char* const early = "{\"A\":?}";
  const char* const late = "{\"A\":[1,2,3,4,5,6,7,8,9,{\"B\":\"text\",\"C\":?}]}";
  std::thread first(parse_often, early, offset_of(early));
  std::thread second(parse_often, late, offset_of(late));
  first.join();
  second.join();
  EXPECT_EQ(foreign, 0);
}

// The library keeps its error position in one variable, so a second parse waits until the first has ended.
std::atomic<bool> parsed_second, parsed_second_meanwhile;
std::thread second_parse;

// At its first call, during the first parse, starts a second parse on another thread.
void* malloc_beside_a_parse(std::size_t size) {
  if (!second_parse.joinable()) {
    second_parse = std::thread([] {
      tvc_json_parse("{");
      parsed_second = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    parsed_second_meanwhile = parsed_second.load();
  }
  return std::malloc(size);
}

TEST(JsonParse, ParsesExcludeEachOther) {
  cJSON_Hooks hooks = {.malloc_fn = malloc_beside_a_parse, .free_fn = std::free};
  cJSON_InitHooks(&hooks);
  cJSON* const first = tvc_json_parse("7").root;
  second_parse.join();
  cJSON_InitHooks(nullptr);
  EXPECT_NE(first, nullptr);
  cJSON_Delete(first);
  EXPECT_FALSE(parsed_second_meanwhile);
  EXPECT_TRUE(parsed_second);
}

TEST(Text, OnlyTheLettersAToZHaveAnUpperCase) {
  for (int code = 0; code < 256; ++code) {
    const char character = static_cast<char>(code);
    const bool lower = code >= 'a' && code <= 'z';
    EXPECT_EQ(tvc_upper(character), lower ? static_cast<char>(code - 32) : character) << code;
  }
}

TEST(Text, LettersAreTheSameInEitherCase) {
  EXPECT_TRUE(tvc_same_letters("IPEPG_INFO_NOW", "ipepg_Info_now"));
  EXPECT_TRUE(tvc_same_letters("", ""));
  EXPECT_FALSE(tvc_same_letters("IPEPG", "IPEPG_"));
  EXPECT_FALSE(tvc_same_letters("IPEPG_", "IPEPG"));
  EXPECT_FALSE(tvc_same_letters("", "x"));
  EXPECT_FALSE(tvc_same_letters("[", "{"));
}

}  // namespace
