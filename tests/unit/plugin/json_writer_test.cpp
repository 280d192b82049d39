// The writer of JSON texts beside the JSON library: the same values, the same bytes.
#include "tv_ctrl_util/json_writer.h"

#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support.h"

namespace {

// The finished text, which is freed; empty without memory.
std::string take_text(JsonText& json) {
  const bool finished = tvc_finish_text(json);
  std::string text;
  if (finished) {
    EXPECT_EQ(std::strlen(json.text), json.length);
    EXPECT_LT(json.length, json.capacity);
    text.assign(json.text, json.length);
  }
  std::free(json.text);
  json = {};
  return text;
}

template <typename... Arguments>
std::string written(void (*write)(JsonText&, Arguments...), std::type_identity_t<Arguments>... arguments) {
  JsonText json;
  write(json, arguments...);
  return take_text(json);
}

std::string written_text(const std::string& text) { return written(tvc_write_text, text.c_str(), SIZE_MAX); }
std::string library_text(const std::string& text) {
  return print_json(Json(cJSON_CreateString(text.c_str()), cJSON_Delete).get());
}
std::string library_number(double value) { return print_json(Json(cJSON_CreateNumber(value), cJSON_Delete).get()); }

// Any bytes but the terminator.
std::string random_text(std::mt19937& random, std::size_t length) {
  std::string text(length, '\0');
  for (char& character : text) character = static_cast<char>(random() % 255 + 1);
  return text;
}

// --- Texts ---

TEST(JsonWriter, EveryByteOfAText) {
  for (int first = 1; first < 256; ++first) {
    EXPECT_EQ(written_text({static_cast<char>(first)}), library_text({static_cast<char>(first)})) << first;
    for (int second = 1; second < 256; ++second) {
      const std::string pair = {static_cast<char>(first), static_cast<char>(second)};
      ASSERT_EQ(written_text(pair), library_text(pair)) << first << " " << second;
    }
  }
}

TEST(JsonWriter, KnownTexts) {
  EXPECT_EQ(written_text(""), R"("")");
  EXPECT_EQ(written_text("a\"b\\c/d"), R"("a\"b\\c/d")");
  EXPECT_EQ(written_text("\b\f\n\r\t\x01\x1F\x7F"), "\"\\b\\f\\n\\r\\t\\u0001\\u001f\x7F\"");
  EXPECT_EQ(written_text("\xC3\xA4\xE2\x82\xAC"), "\"\xC3\xA4\xE2\x82\xAC\"");
  EXPECT_EQ(written_text("\xC3(\x80\xFF\xF0\x9F"), "\"\xC3(\x80\xFF\xF0\x9F\"") << "broken UTF-8";
}

// Of any length, so that each kind of character comes where the buffer is full.
TEST(JsonWriter, RandomTexts) {
  std::mt19937 random(1);
  for (std::size_t length = 0; length < 1500; ++length) {
    const std::string text = random_text(random, length);
    ASSERT_EQ(written_text(text), library_text(text)) << length;
    const std::string plain(length, 'p');
    for (const char* const end : {"", "\"", "\x1F", "\n\n\n\n\n\n"})
      ASSERT_EQ(written_text(plain + end), library_text(plain + end)) << length;
  }
}

TEST(JsonWriter, TextEndsAtItsTerminatorOrItsSize) {
  std::mt19937 random(2);
  for (std::size_t size = 1; size < 300; ++size) {
    std::vector<char> array(size);  // exactly that size: the address sanitizer reports a read beyond it
    const std::string text = random_text(random, size);
    std::memcpy(array.data(), text.data(), size);
    EXPECT_EQ(written(tvc_write_text, array.data(), size), library_text(text)) << size;
    const std::size_t end = random() % size;
    array[end] = '\0';
    EXPECT_EQ(written(tvc_write_text, array.data(), size), library_text(text.substr(0, end))) << size;
  }
}

// --- Integers ---

void expect_same_number(INT64 value) {
  ASSERT_EQ(written(tvc_write_integer, value), library_number(static_cast<double>(value))) << value;
  const auto bits = static_cast<UINT64>(value);
  ASSERT_EQ(written(tvc_write_unsigned, bits), library_number(static_cast<double>(bits))) << bits;
}

TEST(JsonWriter, IntegersAroundPowers) {
  std::vector<UINT64> powers = {0};
  for (int exponent = 0; exponent < 64; ++exponent) powers.push_back(UINT64{1} << exponent);
  for (UINT64 power = 10; power <= UINT64{10'000'000'000'000'000'000u} / 10; power *= 10) powers.push_back(power);
  powers.push_back(UINT64{10'000'000'000'000'000'000u});
  for (const UINT64 power : powers) {
    for (int beside = -300; beside <= 300; ++beside) {
      const UINT64 value = power + static_cast<UINT64>(static_cast<INT64>(beside));
      expect_same_number(static_cast<INT64>(value));
      expect_same_number(static_cast<INT64>(0 - value));
    }
  }
}

TEST(JsonWriter, RandomIntegers) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 100'000; ++i) expect_same_number(static_cast<INT64>(random() >> random() % 64));
}

// The largest double is left out: the library cuts it to 15 digits, which no longer read as a number.
TEST(JsonWriter, Doubles) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double value : {0.0,
                             -0.0,
                             1.0,
                             -1.0,
                             1.5,
                             0.1,
                             1.0 / 3,
                             1e14,
                             1e15,
                             1e16,
                             123456789012345678.0,
                             2147483647.0,
                             2147483648.0,
                             -2147483648.0,
                             -2147483649.0,
                             1e-7,
                             5e-324,
                             1.7e308,
                             -1.2345678901234567e-300,
                             infinity,
                             -infinity,
                             std::numeric_limits<double>::quiet_NaN()})
    EXPECT_EQ(written(tvc_write_double, value), library_number(value)) << value;
  std::mt19937_64 random(5);
  for (int i = 0; i < 100'000; ++i) {
    const double value = std::bit_cast<double>(random());
    ASSERT_EQ(written(tvc_write_double, value), library_number(value)) << value;
  }
  EXPECT_EQ(written(tvc_write_double, 1536.25), "1536.25");
}

TEST(JsonWriter, KnownIntegers) {
  EXPECT_EQ(written(tvc_write_integer, -7), "-7");
  EXPECT_EQ(written(tvc_write_integer, 999'999'999'999'999), "999999999999999");
  EXPECT_EQ(written(tvc_write_integer, -999'999'999'999'999), "-999999999999999");
  EXPECT_EQ(written(tvc_write_integer, 1'000'000'000'000'000), "1e+15");
  EXPECT_EQ(written(tvc_write_integer, std::numeric_limits<INT64>::min()), "-9.2233720368547758e+18");
  EXPECT_EQ(written(tvc_write_unsigned, std::numeric_limits<UINT64>::max()), "1.8446744073709552e+19");
}

// --- Shapes ---

// Writes a random value and returns the library's.
cJSON* write_random(JsonText& json, std::mt19937& random, int depth) {
  switch (random() % (depth > 0 ? 8 : 6)) {
    case 0:
      tvc_write_null(json);
      return cJSON_CreateNull();
    case 1: {
      const bool value = random() % 2 != 0;
      tvc_write_boolean(json, value);
      return cJSON_CreateBool(value);
    }
    case 2: {
      const auto value = static_cast<INT32>(random());
      tvc_write_integer(json, value);
      return cJSON_CreateNumber(value);
    }
    case 3: {
      const UINT64 value = UINT64{random()} << 32 | random();
      tvc_write_unsigned(json, value);
      return cJSON_CreateNumber(static_cast<double>(value));
    }
    case 4:
    case 5: {
      const std::string text = random_text(random, random() % 40);
      tvc_write_text(json, text.c_str());
      return cJSON_CreateString(text.c_str());
    }
    case 6: {
      cJSON* const array = cJSON_CreateArray();
      tvc_open_array(json);
      for (std::size_t count = random() % 5; count > 0; --count)
        cJSON_AddItemToArray(array, write_random(json, random, depth - 1));
      tvc_close_array(json);
      return array;
    }
    default: {
      cJSON* const object = cJSON_CreateObject();
      tvc_open_object(json);
      for (std::size_t count = random() % 5; count > 0; --count) {
        const std::string key(random() % 300 == 0 ? 600 : random() % 20, static_cast<char>('a' + random() % 26));
        tvc_write_key(json, key);
        cJSON_AddItemToObject(object, key.c_str(), write_random(json, random, depth - 1));
      }
      tvc_close_object(json);
      return object;
    }
  }
}

TEST(JsonWriter, RandomShapes) {
  std::mt19937 random(4);
  for (int i = 0; i < 20'000; ++i) {
    JsonText json;
    const Json tree(write_random(json, random, 6), cJSON_Delete);
    ASSERT_EQ(take_text(json), print_json(tree.get())) << i;
  }
}

TEST(JsonWriter, KnownShapes) {
  JsonText json;
  tvc_open_object(json);
  tvc_write_key(json, "a");
  tvc_open_array(json);
  tvc_close_array(json);
  tvc_write_key(json, "b");
  tvc_open_array(json);
  tvc_write_integer(json, 1);
  tvc_open_object(json);
  tvc_close_object(json);
  tvc_open_object(json);
  tvc_write_key(json, "c");
  tvc_write_null(json);
  tvc_close_object(json);
  tvc_write_text(json, "{");
  tvc_write_boolean(json, true);
  tvc_write_boolean(json, false);
  tvc_close_array(json);
  tvc_close_object(json);
  EXPECT_EQ(take_text(json), R"({"a":[],"b":[1,{},{"c":null},"{",true,false]})");
}

// --- The buffer ---

// Every kind of write where the buffer is full; the address sanitizer reports a write beyond it.
TEST(JsonWriter, GrowsAtAnyPlace) {
  for (std::size_t length = 0; length < 600; ++length) {
    JsonText json;
    const std::string text(length, 'x');
    tvc_open_array(json);
    tvc_write_text(json, text.c_str());
    tvc_write_integer(json, std::numeric_limits<INT64>::min());
    tvc_open_object(json);
    tvc_write_key(json, text);
    tvc_write_boolean(json, false);
    tvc_close_object(json);
    tvc_close_array(json);
    ASSERT_EQ(take_text(json), "[\"" + text + "\",-9.2233720368547758e+18,{\"" + text + "\":false}]");
  }
}

TEST(JsonWriter, NothingWrittenIsAnEmptyText) {
  JsonText json;
  EXPECT_TRUE(tvc_finish_text(json));
  EXPECT_EQ(std::string(json.text), "");
  std::free(json.text);
}

// After memory has run out, the text counts as incomplete, whatever is written afterwards.
TEST(JsonWriter, MemoryThatRunsOutIsReportedAtTheEnd) {
  const std::string text(100'000, '"');
  int allocations = 0;
  for (int n = 1; n == 1 || allocations >= n - 1; ++n) {
    for (const bool persistent : {false, true}) {
      MemoryWatch memory(n, persistent);
      JsonText json;
      tvc_open_array(json);
      for (int i = 0; i < 120; ++i) tvc_write_integer(json, 1'000'000'000 + i);
      tvc_write_text(json, text.c_str());
      tvc_write_null(json);
      tvc_close_array(json);
      const bool whole = tvc_finish_text(json);
      allocations = memory.allocations();
      EXPECT_EQ(whole, allocations < n) << n;
      std::free(json.text);
      EXPECT_EQ(memory.live_blocks(), 0u) << n;
    }
  }
  EXPECT_GT(allocations, 3) << "the text needs no growth";
}

}  // namespace
