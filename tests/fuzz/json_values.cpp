#include "json_values.h"

#include <iterator>

// Numbers at the edges of every integer width, of doubles, and of the grammar.
static constexpr const char* kNumbers[] = {"0",
                                           "1",
                                           "-1",
                                           "127",
                                           "255",
                                           "256",
                                           "65535",
                                           "65536",
                                           "-32769",
                                           "2147483647",
                                           "2147483648",
                                           "-2147483649",
                                           "4294967296",
                                           "1e15",
                                           "1e16",
                                           "-1e16",
                                           "1e999",
                                           "-1e999",
                                           "0.5",
                                           "-0.5",
                                           "1e-400",
                                           "9007199254740993",
                                           "9223372036854775807",
                                           "-9223372036854775808",
                                           "18446744073709551615",
                                           "18446744073709551616",
                                           "1e308",
                                           "01",
                                           "1.",
                                           "-",
                                           "0x10",
                                           "1e",
                                           "NaN"};

// Texts that a number may be written as.
static constexpr const char* kNumberTexts[] = {
    "",   "7", "-7", "0x10", "010", "-0x80000000", "4294967295", "18446744073709551616", "99999999999999999999",
    " 5", "5x"};

static constexpr const char* kEscapes[] = {"\\u0000", "\\ud800", "\\ud83d\\ude00", "\\uzzzz", "\\\"",
                                           "\\q",     "\\n",     "\xC3",           "\xF0\x9F"};

void add_string(std::string& text, std::string_view content) {
  text += '"';
  for (const char byte : content) {
    if (byte == '"' || byte == '\\') text += '\\';
    text += byte;
  }
  text += '"';
}

void add_text_value(Bytes& bytes, std::size_t limit, std::string& text) {
  switch (take_below(bytes, 6)) {
    case 0:
      return add_string(text, take_text(bytes));
    case 1:
      return add_string(text, kNumberTexts[take_below(bytes, std::size(kNumberTexts))]);
    case 2:
      text += '"';
      text += kEscapes[take_below(bytes, std::size(kEscapes))];
      text += '"';
      return;
    case 3:
      return add_string(text, std::string(limit * take_below(bytes, 8), 'x'));
    default:  // one less than the field takes, as much, one more
      return add_string(text,
                        std::string(limit + take_below(bytes, 3), static_cast<char>('a' + take_below(bytes, 26))));
  }
}

static void add_nested(Bytes& bytes, std::string& text) {
  // The library's limit is 1000.
  static constexpr std::size_t kDepths[] = {2, 20, 990, 1000, 1001, 3000};
  const std::size_t depth = kDepths[take_below(bytes, std::size(kDepths))];
  const bool objects = take_chance(bytes, 2);
  for (std::size_t i = 0; i < depth; ++i) text += objects ? "{\"a\":" : "[";
  text += '1';
  text.append(take_chance(bytes, 8) ? depth / 2 : depth, objects ? '}' : ']');
}

void add_any_value(Bytes& bytes, std::string& text) {
  static constexpr const char* kValues[] = {"null", "true",           "false",         "[]",
                                            "{}",   "[1,\"2\",null]", "{\"VALUE\":1}", "nul"};
  const std::size_t choice = take_below(bytes, std::size(kValues) + 3);
  if (choice < std::size(kValues))
    text += kValues[choice];
  else if (choice == std::size(kValues))
    add_nested(bytes, text);
  else if (choice == std::size(kValues) + 1)
    text += kNumbers[take_below(bytes, std::size(kNumbers))];
  else
    add_text_value(bytes, 16, text);
}

void add_number_value(Bytes& bytes, std::string& text) {
  if (take_chance(bytes, 3))
    add_string(text, kNumberTexts[take_below(bytes, std::size(kNumberTexts))]);
  else if (take_chance(bytes, 2))
    text += std::to_string(take_integer<std::int64_t>(bytes));
  else
    text += kNumbers[take_below(bytes, std::size(kNumbers))];
}

void add_numbers_value(Bytes& bytes, std::size_t limit, std::string& text) {
  const std::size_t count = take_chance(bytes, 4) ? limit + take_below(bytes, 3) : take_below(bytes, 4);
  text += '[';
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) text += ',';
    if (take_chance(bytes, 16))
      add_any_value(bytes, text);
    else
      add_number_value(bytes, text);
  }
  text += ']';
}

void damage(Bytes& bytes, std::string& text) {
  switch (take_below(bytes, 16)) {
    case 0:
      text += take_text(bytes);
      return;
    case 1:
      if (!text.empty()) text.resize(take_below(bytes, text.size()));
      return;
    case 2:
      if (!text.empty()) text[take_below(bytes, text.size())] = static_cast<char>(take_byte(bytes));
      return;
    default:
      return;
  }
}
