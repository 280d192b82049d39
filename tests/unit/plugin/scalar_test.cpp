// The scalar decoders, with every kind of JSON value.
#include <cstring>
#include <limits>
#include <utility>

#include "support.h"
#include "tv_ctrl_util/json_scalar.h"

namespace {

constexpr INT32 kMax32 = std::numeric_limits<INT32>::max(), kMin32 = std::numeric_limits<INT32>::min();
constexpr UINT32 kAll32 = std::numeric_limits<UINT32>::max();
constexpr INT64 kMax64 = std::numeric_limits<INT64>::max(), kMin64 = std::numeric_limits<INT64>::min();
constexpr UINT64 kAll64 = std::numeric_limits<UINT64>::max();

class Scalar : public testing::Test {
 protected:
  void TearDown() override { set_log_level(0); }
};

// One decoder: how it is called, its name and how it traces.
template <typename T>
struct Decoder {
  INT32 (*decode)(const cJSON*, const char*, T*);
  const char* name;
};
constexpr Decoder<INT32> kInt = {_unpackage_json_int, "_unpackage_json_int"};
constexpr Decoder<UINT16> kUshort = {_unpackage_json_ushort, "_unpackage_json_ushort"};
constexpr Decoder<UINT8> kUschar = {_unpackage_json_uschar, "_unpackage_json_uschar"};
constexpr Decoder<UINT32> kUsint = {_unpackage_json_usint, "_unpackage_json_usint"};
constexpr Decoder<UINT32> kUslong = {_unpackage_json_uslong, "_unpackage_json_uslong"};
constexpr Decoder<INT64> kLonglong = {_unpackage_json_longlong, "_unpackage_json_longlong"};
constexpr Decoder<UINT64> kUslonglong = {_unpackage_json_uslonglong, "_unpackage_json_uslonglong"};

template <typename T>
struct Row {
  const char* json;
  T value;
};

// Decodes each row's value into a destination with another value, and checks the trace.
template <typename T, std::size_t N>
void expect_rows(const Decoder<T>& decoder, const Row<T> (&rows)[N]) {
  set_log_level(2);
  for (const Row<T>& row : rows) {
    const Json object = parse_json("{\"OTHER\":3,\"KEY\":" + std::string(row.json) + "}");
    ASSERT_TRUE(object) << row.json;
    auto value = static_cast<T>(~row.value);
    INT32 ret = 99;
    const std::string printed = printed_by([&] { ret = decoder.decode(object.get(), "KEY", &value); });
    EXPECT_EQ(ret, 0) << decoder.name << " " << row.json;
    EXPECT_EQ(value, row.value) << decoder.name << " " << row.json;
    EXPECT_EQ(printed, "<" + std::string(decoder.name) + "> KEY: " + std::to_string(row.value) + "!\n") << row.json;
  }
}

// Kinds that are neither text nor number have no value.
#define NO_VALUE \
  {"false", 0}, {"null", 0}, {"[3]", 0}, {"[]", 0}, {"{\"KEY\":3}", 0}, { "{}", 0 }

constexpr Row<INT32> kIntRows[] = {
    {"5", 5},
    {"-5", -5},
    {"0", 0},
    {"-0", 0},
    {"1.9", 1},
    {"-1.9", -1},
    {"2147483647", kMax32},
    {"2147483648", kMax32},
    {"-2147483648", kMin32},
    {"-2147483649", kMin32},
    {"1e300", kMax32},
    {"-1e300", kMin32},
    {"1e999", kMax32},
    {"-1e999", kMin32},
    {"\"7\"", 7},
    {"\"-7\"", -7},
    {"\"010\"", 10},
    {"\"0x10\"", 0},
    {"\" \\t12abc\"", 12},
    {"\"1.9\"", 1},
    {"\"\"", 0},
    {"\"no\"", 0},
    {"\"2147483648\"", kMax32},
    {"\"-2147483649\"", kMin32},
    {"\"99999999999999999999\"", kMax32},
    {"\"-99999999999999999999\"", kMin32},
    {"true", 1},
    NO_VALUE,
};
TEST_F(Scalar, Int) { expect_rows(kInt, kIntRows); }

constexpr Row<UINT16> kUshortRows[] = {
    {"5", 5},
    {"65535", 65535},
    {"65536", 0},
    {"70000", 4464},
    {"-1", 65535},
    {"1.9", 1},
    {"1e10", 65535},  // the integer value saturates first
    {"-1e10", 0},
    {"\"70000\"", 4464},
    {"\"-1\"", 65535},
    {"\"010\"", 10},
    {"\"0x10\"", 0},
    {"\"99999999999\"", 65535},
    {"\"-99999999999\"", 0},
    {"\"\"", 0},
    {"true", 1},
    NO_VALUE,
};
TEST_F(Scalar, Ushort) { expect_rows(kUshort, kUshortRows); }

constexpr Row<UINT8> kUscharRows[] = {
    {"5", 5},
    {"255", 255},
    {"256", 0},
    {"257", 1},
    {"-1", 255},
    {"1.9", 1},
    {"1e10", 255},
    {"-1e10", 0},
    {"\"257\"", 1},
    {"\"-1\"", 255},
    {"\"010\"", 10},
    {"\"0xFF\"", 0},
    {"\"99999999999\"", 255},
    {"\"\"", 0},
    {"true", 1},
    NO_VALUE,
};
TEST_F(Scalar, Uschar) { expect_rows(kUschar, kUscharRows); }

constexpr Row<UINT32> kUsintRows[] = {
    {"5", 5},
    {"10", 10},
    {"4294967295", kAll32},
    {"4294967296", kAll32},
    {"2147483648", 2147483648u},
    {"1.9", 1},
    {"-1", 0},  // a number saturates
    {"-0.5", 0},
    {"1e300", kAll32},
    {"-1e300", 0},
    {"\"10\"", 10},
    {"\"010\"", 8},
    {"\"08\"", 0},
    {"\"0x10\"", 16},
    {"\"0XfF\"", 255},
    {"\"0x\"", 0},
    {"\"-1\"", kAll32},  // a text wraps
    {"\"-4294967295\"", 1},
    {"\"4294967295\"", kAll32},
    {"\"4294967296\"", kAll32},
    {"\"-4294967296\"", kAll32},
    {"\"0xFFFFFFFF\"", kAll32},
    {"\"0x1FFFFFFFF\"", kAll32},
    {"\" +12z\"", 12},
    {"\"\"", 0},
    NO_VALUE,
};
TEST_F(Scalar, Usint) { expect_rows(kUsint, kUsintRows); }
TEST_F(Scalar, Uslong) { expect_rows(kUslong, kUsintRows); }

constexpr Row<INT64> kLonglongRows[] = {
    {"5", 5},
    {"-5", -5},
    {"1.9e9", 1900000000},
    {"-1.9", -1},
    {"4294967296", 4294967296},
    {"9007199254740992", 9007199254740992},
    {"9223372036854775807", kMax64},  // as a double it is 2^63
    {"9223372036854775808", kMax64},
    {"9223372036854774784", 9223372036854774784},
    {"-9223372036854775808", kMin64},
    {"1e300", kMax64},
    {"-1e300", kMin64},
    {"\"0x10\"", 16},
    {"\"-0x10\"", -16},
    {"\"010\"", 8},
    {"\"10\"", 10},
    {"\"9223372036854775807\"", kMax64},
    {"\"9223372036854775806\"", kMax64 - 1},
    {"\"9223372036854775808\"", kMax64},
    {"\"-9223372036854775808\"", kMin64},
    {"\"-9223372036854775809\"", kMin64},
    {"\" 7 \"", 7},
    {"\"\"", 0},
    NO_VALUE,
};
TEST_F(Scalar, Longlong) { expect_rows(kLonglong, kLonglongRows); }

constexpr Row<UINT64> kUslonglongRows[] = {
    {"5", 5},
    {"-5", 0},
    {"9223372036854775808", 9223372036854775808u},
    {"18446744073709551615", kAll64},  // as a double it is 2^64
    {"18446744073709551616", kAll64},
    {"1e300", kAll64},
    {"\"0x10\"", 16},
    {"\"010\"", 8},
    {"\"18446744073709551615\"", kAll64},
    {"\"18446744073709551616\"", kAll64},
    {"\"-1\"", kAll64},
    {"\"\"", 0},
    NO_VALUE,
};
TEST_F(Scalar, Uslonglong) { expect_rows(kUslonglong, kUslonglongRows); }

// Without a value every decoder leaves the destination as it is, and prints the messages of the log level.
template <typename T>
void expect_absence(const Decoder<T>& decoder) {
  const Json object = parse_json(R"({"key":1,"KEY ":2,"KE":3})");
  const std::string name = "<" + std::string(decoder.name) + "> ";
  const struct {
    const cJSON* object;
    const char* key;
    std::string message;
    int level;  // from which on it is printed
  } cases[] = {
      {nullptr, "KEY", name + "param is NULL!\n", 0},     {object.get(), nullptr, name + "param is NULL!\n", 0},
      {nullptr, nullptr, name + "param is NULL!\n", 0},   {object.get(), "KEY", name + "Can not find [KEY]!\n", 5},
      {object.get(), "", name + "Can not find []!\n", 5},
  };
  for (const auto& absent : cases) {
    for (const int level : {-1, 0, 2, 4, 5, 100}) {
      set_log_level(level);
      T value = 77;
      INT32 ret = 99;
      const std::string printed = printed_by([&] { ret = decoder.decode(absent.object, absent.key, &value); });
      EXPECT_EQ(ret, -1) << name;
      EXPECT_EQ(value, T{77}) << name;
      EXPECT_EQ(printed, level >= absent.level ? absent.message : "") << "level " << level;
    }
  }
}

TEST_F(Scalar, AbsentMembersLeaveTheDestination) {
  expect_absence(kInt);
  expect_absence(kUshort);
  expect_absence(kUschar);
  expect_absence(kUsint);
  expect_absence(kUslong);
  expect_absence(kLonglong);
  expect_absence(kUslonglong);
}

TEST_F(Scalar, MembersOfOtherKindsThanObjectsAreAbsent) {
  for (const char* const text : {"[1,2]", "7", "\"KEY\"", "null"}) {
    const Json json = parse_json(text);
    INT32 value = 77;
    EXPECT_EQ(_unpackage_json_int(json.get(), "KEY", &value), -1) << text;
    EXPECT_EQ(value, 77);
  }
}

TEST_F(Scalar, TheFirstOfEqualMembersCounts) {
  const Json object = parse_json(R"({"KEY":1,"KEY":2})");
  INT32 value = 77;
  EXPECT_EQ(_unpackage_json_int(object.get(), "KEY", &value), 0);
  EXPECT_EQ(value, 1);
}

TEST_F(Scalar, ValuesAreTracedFromLevelTwo) {
  const Json object = parse_json(R"({"KEY":-3})");
  for (const int level : {-1, 0, 1, 2, 5}) {
    set_log_level(level);
    INT32 value;
    EXPECT_EQ(printed_by([&] { _unpackage_json_int(object.get(), "KEY", &value); }),
              level >= 2 ? "<_unpackage_json_int> KEY: -3!\n" : "");
  }
}

// --- Texts ---

constexpr char kFill = '#';

struct TextResult {
  INT32 ret;
  std::string bytes;  // the whole destination, 48 bytes
};

TextResult decode_text(const std::string& json, std::size_t limit) {
  const Json object = parse_json("{\"KEY\":" + json + "}");
  TextResult result = {.ret = 99, .bytes = std::string(48, kFill)};
  result.ret = _unpackage_json_string(object.get(), "KEY", result.bytes.data(), limit);
  return result;
}

TEST_F(Scalar, TextIsCutToTheLimit) {
  for (std::size_t length = 0; length <= 40; ++length) {
    const std::string text(length, 'a');
    const TextResult result = decode_text("\"" + text + "\"", 31);
    EXPECT_EQ(result.ret, 0);
    std::string expected = text.substr(0, 31);
    if (length < 31) expected += '\0';  // no terminator from the limit on
    expected.resize(48, kFill);
    EXPECT_EQ(result.bytes, expected) << length;
  }
}

TEST_F(Scalar, TextIsTraced) {
  const Json object = parse_json(R"({"KEY":"a \"b\" \u00e4"})");
  char text[32] = {};
  for (const int level : {-1, 1, 2}) {
    set_log_level(level);
    EXPECT_EQ(printed_by([&] { _unpackage_json_string(object.get(), "KEY", text, 31); }),
              level >= 2 ? "<_unpackage_json_string> KEY: a \"b\" \xC3\xA4!\n" : "");
    EXPECT_STREQ(text, "a \"b\" \xC3\xA4");
  }
}

TEST_F(Scalar, OtherKindsAreNoText) {
  for (const char* const json : {"5", "0", "true", "false", "null", "[\"a\"]", "{\"KEY\":\"a\"}"}) {
    for (const int level : {-1, 0, 5}) {
      set_log_level(level);
      TextResult result;
      EXPECT_EQ(printed_by([&] { result = decode_text(json, 31); }),
                level >= 0 ? "<_unpackage_json_string> Error before: []\n" : "")
          << json;
      EXPECT_EQ(result.ret, -1) << json;
      EXPECT_EQ(result.bytes, std::string(48, kFill)) << json;
    }
  }
}

TEST_F(Scalar, TextWithoutAPlaceIsRefused) {
  const Json object = parse_json(R"({"KEY":"a","EMPTY":""})");
  char text[4] = {kFill, kFill, kFill, kFill};
  const std::function<INT32()> cases[] = {
      [&] { return _unpackage_json_string(nullptr, "KEY", text, 3); },
      [&] { return _unpackage_json_string(object.get(), nullptr, text, 3); },
      [&] { return _unpackage_json_string(object.get(), "KEY", nullptr, 3); },
      [&] { return _unpackage_json_string(object.get(), "KEY", text, 0); },
      [&] { return _unpackage_json_string(nullptr, nullptr, nullptr, 0); },
  };
  for (const auto& decode : cases) {
    for (const int level : {-1, 0}) {
      set_log_level(level);
      INT32 ret = 99;
      EXPECT_EQ(printed_by([&] { ret = decode(); }), level >= 0 ? "<_unpackage_json_string> param is NULL!\n" : "");
      EXPECT_EQ(ret, -1);
    }
  }
  EXPECT_EQ(std::string(text, 4), "####");
}

TEST_F(Scalar, MissingTextIsToldFromLevelFive) {
  const Json object = parse_json("{}");
  for (const int level : {-1, 0, 2, 4, 5}) {
    set_log_level(level);
    char text[4] = "abc";
    INT32 ret = 99;
    EXPECT_EQ(printed_by([&] { ret = _unpackage_json_string(object.get(), "KEY", text, 3); }),
              level >= 5 ? "<_unpackage_json_string> Can not find [KEY]!\n" : "");
    EXPECT_EQ(ret, -1);
    EXPECT_STREQ(text, "abc");
  }
}

// --- The integer of a value of any kind ---

TEST(LibraryInteger, TakesTextsAsZero) {
  const std::pair<const char*, INT32> rows[] = {
      {"7", 7},          {"-7", -7},       {"7.9", 7},  {"2147483648", kMax32}, {"-2147483649", kMin32},
      {"1e300", kMax32}, {"\"7\"", 0},     {"true", 1}, {"false", 0},           {"null", 0},
      {"[7]", 0},        {"{\"a\":7}", 0},
  };
  for (const auto& [text, value] : rows) EXPECT_EQ(tvc_json_integer(parse_json(text).get()), value) << text;
}

}  // namespace
