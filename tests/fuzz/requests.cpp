#include "requests.h"

#include <map>

#include "json_values.h"
#include "tv_ctrl_api/request.h"

static void add_object(Bytes& bytes, const std::vector<FieldInfo>& fields, std::string_view word, std::string& text,
                       std::string_view uri = {});

static void add_value(Bytes& bytes, const FieldInfo& field, std::string& text) {
  if (take_chance(bytes, 4)) return add_any_value(bytes, text);
  if (!field.values.empty() && !take_chance(bytes, 4)) {
    text += field.values[take_below(bytes, field.values.size())];
    return;
  }
  if (field.count > 0) return add_numbers_value(bytes, field.count, text);
  if (field.kind == "text") return add_text_value(bytes, field.limit, text);
  if (field.kind == "object") return add_object(bytes, field.fields, "", text);
  add_number_value(bytes, text);
}

static void add_key(Bytes& bytes, std::string key, std::string& text) {
  if (text.back() != '{') text += ',';
  if (take_chance(bytes, 32))
    for (char& letter : key) letter = static_cast<char>(letter | 0x20);  // wrong case
  if (take_chance(bytes, 64)) key = take_text(bytes);
  add_string(text, key);
  text += ':';
}

// An object with the fields of a table, some missing, some twice; `word` becomes its "REQUEST" unless empty. Unless
// `uri` is empty, the fields of other URIs are left out. Fields that do not count with what was selected mostly are.
static void add_object(Bytes& bytes, const std::vector<FieldInfo>& fields, std::string_view word, std::string& text,
                       std::string_view uri) {
  text += '{';
  if (!word.empty()) {
    add_key(bytes, "REQUEST", text);
    add_string(text, word);
  }
  std::map<std::string_view, std::string> written;  // the values of the fields that there were
  for (const FieldInfo& field : fields) {
    if (!uri.empty() && !field.uri.empty() && field.uri != uri) continue;
    if (!field.selector.empty() && written[field.selector] != field.selected && !take_chance(bytes, 128)) continue;
    const std::size_t times = take_below(bytes, 8);
    for (std::size_t i = 0; i < (times == 0 ? 0u : times == 1 ? 2u : 1u); ++i) {
      add_key(bytes, field.key, text);
      const std::size_t begin = text.size();
      add_value(bytes, field, text);
      written[field.key] = text.substr(begin);
    }
  }
  text += '}';
}

// Words that no type has, and those of the types.
static constexpr std::string_view kOddWords[] = {"GET", "", "query", "MODIFY ", "MODIFYMODIFYMODIFYMODIFYMODIFYM"};

static std::string take_word(Bytes& bytes, const Tables& tables) {
  const std::size_t choice = take_below(bytes, tables.words.size() + std::size(kOddWords) + 1);
  if (choice < tables.words.size()) return tables.words[choice];
  if (choice < tables.words.size() + std::size(kOddWords)) return std::string(kOddWords[choice - tables.words.size()]);
  return std::string(28 + take_below(bytes, 8), 'M');  // 31 characters are kept
}

// The parameter object of a request. Gives the request word when the object is as its type takes it.
static void add_parameter(Bytes& bytes, const Tables& tables, const UriInfo* row, bool sets, std::string& text,
                          std::string& ret_word) {
  static const TypeInfo unknown;
  const TypeInfo& type = row ? *row->info : unknown;
  const std::string_view uri = row ? std::string_view(row->uri) : std::string_view();
  const std::size_t form = take_below(bytes, 10);
  if (form < 2) {  // any word, with the fields of any type or of this one
    const auto other = std::next(tables.types.begin(), static_cast<int>(take_below(bytes, tables.types.size())));
    const TypeInfo& from = form == 0 ? other->second : type;
    const std::string word = take_word(bytes, tables);
    const std::size_t choice = take_below(bytes, from.sets.size() + 1);
    return add_object(bytes, choice == 0 ? from.query : from.sets[choice - 1].fields, word, text);
  }
  if (form == 2) {  // a request word of any kind
    text += "{\"REQUEST\":";
    add_any_value(bytes, text);
    text += '}';
    return;
  }
  if (form == 3) return add_any_value(bytes, text);
  if ((form == 4) == sets || type.sets.empty()) {
    add_object(bytes, type.query, kWordQuery, text, uri);
    if (!sets) ret_word = kWordQuery;
  } else {
    const SetInfo& set = type.sets[take_below(bytes, type.sets.size())];
    add_object(bytes, set.fields, set.word, text, uri);
    if (sets) ret_word = set.word;
  }
}

std::string take_parameter(Bytes& bytes, const Tables& tables, const UriInfo* row, bool sets, std::string& ret_word) {
  std::string text;
  std::string word;
  switch (take_below(bytes, 16)) {
    case 0:
      return take_text(bytes);
    case 1:
      add_any_value(bytes, text);
      return text;
    case 2:
      return {};
    case 3:  // wrong case
      text = "{\"parameter\":{\"REQUEST\":\"QUERY\"},\"PARAMETER\":";
      break;
    case 4:
      text = "\xEF\xBB\xBF {\"x\":[],\"PARAMETER\" : ";
      break;
    default:
      text = "{\"PARAMETER\":";
      break;
  }
  add_parameter(bytes, tables, row, sets, text, word);
  text += '}';
  const std::string whole = text;
  damage(bytes, text);
  if (text == whole) ret_word = word;
  return text;
}
