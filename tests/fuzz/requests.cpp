#include "requests.h"

#include <iterator>

static constexpr const char* kWords[] = {"QUERY", "ACTION", "MODIFY", "SET", "ASSOCIATE", "GET", "", "query"};

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

// A JSON string of any bytes; what would end it early is written as an escape.
static void add_string(std::string& text, std::string_view content) {
  text += '"';
  for (const char byte : content) {
    if (byte == '"' || byte == '\\') text += '\\';
    text += byte;
  }
  text += '"';
}

static void add_text_value(Bytes& bytes, std::size_t limit, std::string& text) {
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
  static constexpr std::size_t depths[] = {2, 20, 990, 1000, 1001, 3000};
  const std::size_t depth = depths[take_below(bytes, std::size(depths))];
  const bool objects = take_chance(bytes, 2);
  for (std::size_t i = 0; i < depth; ++i) text += objects ? "{\"a\":" : "[";
  text += '1';
  text.append(take_chance(bytes, 8) ? depth / 2 : depth, objects ? '}' : ']');
}

static void add_object(Bytes& bytes, const std::vector<FieldInfo>& fields, std::string_view word, std::string& text);

static void add_any_value(Bytes& bytes, std::string& text) {
  static constexpr const char* values[] = {"null", "true",           "false",         "[]",
                                           "{}",   "[1,\"2\",null]", "{\"VALUE\":1}", "nul"};
  const std::size_t choice = take_below(bytes, std::size(values) + 3);
  if (choice < std::size(values))
    text += values[choice];
  else if (choice == std::size(values))
    add_nested(bytes, text);
  else if (choice == std::size(values) + 1)
    text += kNumbers[take_below(bytes, std::size(kNumbers))];
  else
    add_text_value(bytes, 16, text);
}

static void add_value(Bytes& bytes, const FieldInfo& field, std::string& text) {
  if (take_chance(bytes, 4)) return add_any_value(bytes, text);
  if (field.kind == "text") return add_text_value(bytes, field.limit, text);
  if (field.kind == "object") return add_object(bytes, field.fields, "", text);
  if (take_chance(bytes, 3))
    add_string(text, kNumberTexts[take_below(bytes, std::size(kNumberTexts))]);
  else if (take_chance(bytes, 2))
    text += std::to_string(take_integer<std::int64_t>(bytes));
  else
    text += kNumbers[take_below(bytes, std::size(kNumbers))];
}

static void add_key(Bytes& bytes, std::string key, std::string& text) {
  if (text.back() != '{') text += ',';
  if (take_chance(bytes, 32))
    for (char& letter : key) letter = static_cast<char>(letter | 0x20);  // wrong case
  if (take_chance(bytes, 64)) key = take_text(bytes);
  add_string(text, key);
  text += ':';
}

// An object with the fields of a table, some missing, some twice; `word` becomes its "REQUEST" unless empty.
static void add_object(Bytes& bytes, const std::vector<FieldInfo>& fields, std::string_view word, std::string& text) {
  text += '{';
  if (!word.empty()) {
    add_key(bytes, "REQUEST", text);
    add_string(text, word);
  }
  for (const FieldInfo& field : fields) {
    const std::size_t times = take_below(bytes, 8);
    for (std::size_t i = 0; i < (times == 0 ? 0u : times == 1 ? 2u : 1u); ++i) {
      add_key(bytes, field.key, text);
      add_value(bytes, field, text);
    }
  }
  text += '}';
}

// The parameter object of a request.
static void add_parameter(Bytes& bytes, const UriInfo* row, std::string& text) {
  static const TypeInfo unknown;
  const TypeInfo& type = row ? *row->info : unknown;
  switch (take_below(bytes, 10)) {
    case 0: {  // any word with any type's fields
      const std::string word = take_chance(bytes, 4) ? std::string(28 + take_below(bytes, 8), 'M')
                                                     : kWords[take_below(bytes, std::size(kWords))];
      return add_object(bytes, take_chance(bytes, 2) ? type.query : type.set, word, text);
    }
    case 1:  // a request word of any kind
      text += "{\"REQUEST\":";
      add_any_value(bytes, text);
      text += ",\"VALUE\":";
      add_any_value(bytes, text);
      text += '}';
      return;
    case 2:
      return add_any_value(bytes, text);
    case 3:  // the two words that integers come with, whatever the type takes
      text += take_chance(bytes, 2) ? R"({"REQUEST":"MODIFY","VALUE":)" : R"({"REQUEST":"SET","INDEX":)";
      add_value(bytes, {.key = "", .kind = "int32", .limit = 0, .fields = {}}, text);
      text += '}';
      return;
    case 4:
      return add_object(bytes, {}, "GET", text);
    case 5:
    case 6:
      return add_object(bytes, type.query, "QUERY", text);
    default:
      return add_object(bytes, type.set, type.set_word.empty() ? "SET" : type.set_word, text);
  }
}

std::string take_parameter(Bytes& bytes, const UriInfo* row) {
  std::string text;
  switch (take_below(bytes, 16)) {
    case 0:
      return take_text(bytes);
    case 1:
      add_any_value(bytes, text);
      return text;
    case 2:
      return {};
    case 3:  // wrong case, damaged afterwards
      text = "{\"parameter\":{\"REQUEST\":\"QUERY\"},\"PARAMETER\":";
      break;
    case 4:
      text = "\xEF\xBB\xBF {\"x\":[],\"PARAMETER\" : ";
      break;
    default:
      text = "{\"PARAMETER\":";
      break;
  }
  add_parameter(bytes, row, text);
  text += '}';
  switch (take_below(bytes, 16)) {
    case 0:
      text += take_text(bytes);
      break;
    case 1:
      text.resize(take_below(bytes, text.size()));
      break;
    case 2:
      text[take_below(bytes, text.size())] = static_cast<char>(take_byte(bytes));
      break;
    default:
      break;
  }
  return text;
}
