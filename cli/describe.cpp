// "describe": what is known of a URI, from the host's list, with command lines to copy.
#include <absl/strings/str_join.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cctype>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

// Of a long list of members, an example has only the first ones: what a URI does not use is ignored.
constexpr std::size_t kExampleMembers = 4;

// Behind this, the help of a member names a value.
constexpr std::string_view kSuchAs = "such as ";

std::string text_of(const json::value* value, std::string_view key) {
  return value != nullptr && value->is_object() ? cell(value->get_object(), key) : "";
}

bool has(const json::object& row, std::string_view list, std::string_view word) {
  const json::value* const found = row.if_contains(list);
  return found != nullptr && found->is_array() &&
         std::ranges::find(found->get_array(), json::value(word)) != found->get_array().end();
}

// The parts of the description that "describe" prints for one URI.
struct Subject {
  const json::object* row = nullptr;
  std::string uri;
  const json::value* type = nullptr;   // its item type; null: not described
  const json::value* kinds = nullptr;  // of the members
};

// The values of a member or of a URI: "0: not muted, 1: muted".
std::string values_text(const json::value* values) {
  if (values == nullptr || !values->is_array()) return "";
  std::vector<std::string> texts;
  for (const json::value& value : values->get_array()) {
    const std::string help = text_of(&value, "help");
    texts.push_back(text_of(&value, "value") + (help.empty() ? "" : ": " + help));
  }
  return absl::StrJoin(texts, ", ");
}

// The range of a number: the member's own, the URI's for its VALUE, or the kind's. kind: its row.
std::string range_text(const Subject& subject, const json::value& field, const json::value* kind) {
  const json::value uri = text_of(&field, "key") == "VALUE" ? json::value(*subject.row) : json::value();
  for (const json::value* const row : {&field, &uri, kind})
    if (const std::string least = text_of(row, "minimum"); !least.empty())
      return ", " + least + " to " + text_of(row, "maximum");
  return "";
}

// The kind of a member with its range: "int32, -2147483648 to 2147483647", "text of at most 31 bytes".
std::string kind_text(const Subject& subject, const json::value& field) {
  std::string kind = text_of(&field, "kind");
  const json::value* const row = find_row(subject.kinds, "kind", kind);
  const bool is_array = json_kind(subject.kinds, &field) == "array";
  if (const std::string limit = text_of(&field, "limit"); !limit.empty())
    kind += " of at most " + limit + " bytes";
  else if (const std::string count = text_of(&field, "count"); is_array && !count.empty())
    kind += " of at most " + count;
  else if (kind != "double")
    kind += range_text(subject, field, row);
  return kind;
}

// Of each group of members, a request needs one.
const json::array& needs_of(const Subject& subject, std::string_view use) {
  static const json::array none;
  const json::value* const needs = subject.row->if_contains(std::string(use) + "_needs");
  return needs == nullptr || !needs->is_array() ? none : needs->get_array();
}

// What a request needs of a member: "needed", "needed without cfgItem"; empty: nothing.
std::string need_text(const Subject& subject, std::string_view use, const std::string& key) {
  for (const json::value& group : needs_of(subject, use)) {
    if (!group.is_array()) continue;
    bool named = false;
    std::vector<std::string> others;
    for (const json::value& other : group.get_array()) {
      if (!other.is_string()) continue;
      if (other.get_string() == key)
        named = true;
      else
        others.emplace_back(other.get_string());
    }
    if (named) return others.empty() ? "needed" : "needed without " + absl::StrJoin(others, " and ");
  }
  return "";
}

// What a member is for, with its unit, its values and its condition. The URI's own unit and values are those of VALUE.
std::string help_text(const Subject& subject, const json::value& field) {
  const bool is_value = text_of(&field, "key") == "VALUE";
  const auto of = [&](std::string_view key) {
    const json::value* const own = member(&field, key);
    return own == nullptr && is_value ? subject.row->if_contains(key) : own;
  };
  std::string text = text_of(&field, "help");
  if (const json::value* const unit = of("unit"); unit != nullptr && unit->is_string())
    text += ", in " + std::string(unit->get_string());
  if (const std::string constant = text_of(&field, "value"); !constant.empty()) text += ": always " + constant;
  if (const std::string values = values_text(of("values")); !values.empty()) text += "; " + values;
  if (const json::value* const when = member(&field, "when"); when != nullptr) {
    const json::value* const value = member(when, "value");
    text += " (only with" + std::string(value == nullptr ? "out " : " ") + text_of(when, "key") +
            (value == nullptr ? "" : "=" + text_of(when, "value")) + ")";
  }
  return printable(text);
}

// use: of the members of a request; empty for those of an answer.
void add_members(const Subject& subject, std::string_view use, const json::array& fields, const std::string& prefix,
                 std::vector<Row>& rows) {
  for (const json::value& field : fields) {
    const std::string key = prefix + text_of(&field, "key");
    const std::string need = need_text(subject, use, key);
    rows.push_back({"  " + printable(key), printable(kind_text(subject, field)),
                    (need.empty() ? "" : printable(need) + ": ") + help_text(subject, field)});
    if (const json::value* const inner = member(&field, "fields"); inner != nullptr && inner->is_array())
      add_members(subject, use, inner->get_array(), key + ".", rows);
  }
}

// The members of a request or of an answer as rows of a table.
std::vector<Row> member_rows(const Subject& subject, const json::value* fields, std::string_view use = {}) {
  std::vector<Row> rows;
  if (fields != nullptr && fields->is_array())
    add_members(subject, use, fields_of(fields->get_array(), subject.uri).get_array(), "", rows);
  return rows;
}

// ---- Examples ----

// What a help names behind "such as"; empty: nothing.
std::string named_in(const std::string& help) {
  const std::size_t found = help.find(kSuchAs);
  if (found == std::string::npos) return "";
  const std::string named = help.substr(found + kSuchAs.size());
  return named.substr(0, named.find_first_of(" ;,"));
}

// A value that the member takes: its first named one, one that its help names ("such as ..."), or one of its kind.
std::string sample(const Subject& subject, const json::value& field) {
  const json::value* values = member(&field, "values");
  if (values == nullptr && text_of(&field, "key") == "VALUE") values = subject.row->if_contains("values");
  if (values != nullptr && values->is_array() && !values->get_array().empty())
    return text_of(&values->get_array()[0], "value");
  if (std::string named = named_in(text_of(&field, "help")); !named.empty()) return named;
  const std::string kind = json_kind(subject.kinds, &field);
  return kind == "array" ? "[1]" : kind == "object" ? "{}" : kind == "string" ? "text" : "1";
}

// Whether the help names the member as a word of its own.
bool names(std::string_view help, const std::string& key) {
  const auto in_word = [&](std::size_t place) {
    return place < help.size() && (std::isalnum(static_cast<unsigned char>(help[place])) != 0 || help[place] == '_');
  };
  for (std::size_t at = help.find(key); at != std::string_view::npos; at = help.find(key, at + 1))
    if ((at == 0 || !in_word(at - 1)) && !in_word(at + key.size())) return true;
  return false;
}

// Whether the plugin reads the member beside the others of the example.
bool fits(const json::value& field, const std::vector<std::string>& words) {
  const json::value* const when = member(&field, "when");
  if (when == nullptr) return true;
  const std::string key = text_of(when, "key") + "=";
  const auto given = std::ranges::find_if(words, [&](const std::string& word) { return word.starts_with(key); });
  const json::value* const value = member(when, "value");
  return value == nullptr ? given == words.end() : given != words.end() && *given == key + text_of(when, "value");
}

// KEY=VALUE words of the members that the request needs; of the first one, the value that the URI's help names.
std::vector<std::string> needed_words(const Subject& subject, const json::array& fields, std::string_view use) {
  std::vector<std::string> words;
  for (const json::value& group : needs_of(subject, use)) {
    if (!group.is_array() || group.get_array().empty() || !group.get_array()[0].is_string()) continue;
    const std::string key(group.get_array()[0].get_string());
    const auto field = std::ranges::find(fields, key, [](const json::value& each) { return text_of(&each, "key"); });
    if (field == fields.end()) continue;
    const std::string named = words.empty() ? named_in(cell(*subject.row, "help")) : "";
    words.push_back(key + "=" + (named.empty() ? sample(subject, *field) : named));
  }
  return words;
}

// KEY=VALUE words: the members that the request needs; without such, those that the URI's help names; else the first
// ones.
std::vector<std::string> example_words(const Subject& subject, const json::array& fields, std::string_view use) {
  if (std::vector<std::string> needed = needed_words(subject, fields, use); !needed.empty()) return needed;
  const std::string help = cell(*subject.row, "help");
  const bool named =
      std::ranges::any_of(fields, [&](const json::value& field) { return names(help, text_of(&field, "key")); });
  std::vector<std::string> words;
  for (const json::value& field : fields) {
    const std::string key = text_of(&field, "key");
    if (member(&field, "fields") != nullptr || !fits(field, words)) continue;
    if (named ? !names(help, key) : words.size() == kExampleMembers) continue;
    words.push_back(key + "=" +
                    (member(&field, "value") != nullptr ? text_of(&field, "value") : sample(subject, field)));
  }
  return words;
}

std::string line_of(std::string_view command, const std::string& uri, const std::vector<std::string>& words) {
  std::string line = "dtvctl " + std::string(command) + " " + uri;
  for (const std::string& word : words) line += " " + shell_word(word);
  return line;
}

// A get needs no members where the item answers with what a query could give, as a value does.
std::string get_example(const Subject& subject) {
  const json::value* const query = member(subject.type, "query");
  if (query == nullptr || !query->is_array()) return line_of("get", subject.uri, {});
  const json::value fields = fields_of(query->get_array(), subject.uri);
  const std::string help = cell(*subject.row, "help");
  const bool named = std::ranges::any_of(fields.get_array(),
                                         [&](const json::value& field) { return names(help, text_of(&field, "key")); });
  if (!named && needs_of(subject, "get").empty() && only_field(&fields) != nullptr)
    return line_of("get", subject.uri, {});
  return line_of("get", subject.uri, example_words(subject, fields.get_array(), "get"));
}

std::string set_example(const Subject& subject) {
  const json::value* const set = member(member(subject.type, "set"), "fields");
  if (set == nullptr || !set->is_array() || set->get_array().empty()) return line_of("set", subject.uri, {});
  const json::value fields = fields_of(set->get_array(), subject.uri);
  if (const json::value* const only = only_field(&fields); only != nullptr)
    return line_of("set", subject.uri, {sample(subject, *only)});
  return line_of("set", subject.uri, example_words(subject, fields.get_array(), "set"));
}

std::string example(const Subject& subject, std::string_view use) {
  return use == "get" ? get_example(subject) : use == "set" ? set_example(subject) : line_of("watch", subject.uri, {});
}

// ---- The description ----

// Whether the URI takes the request, with an effect or without one.
bool takes(const Subject& subject, std::string_view use) {
  return is_on(*subject.row, use) || has(*subject.row, "without_effect", use);
}

void print_members(const std::string& heading, const std::vector<Row>& rows) {
  if (rows.empty()) return;
  print_line(heading);
  print_table({}, rows);
}

void print_use(const Subject& subject, std::string_view use) {
  print_line("");
  const bool effect = is_on(*subject.row, use);
  print_line(paint(Paint::kTitle, use, output) + (effect ? "" : " (accepted, without effect)"));
  if (use == "get") {
    print_members("takes", member_rows(subject, member(subject.type, "query"), use));
    print_members("answers", member_rows(subject, member(subject.type, "response")));
  } else if (use == "set") {
    const json::value* const set = member(subject.type, "set");
    print_members("takes", member_rows(subject, member(set, "fields"), use));
  } else {
    const json::value* const notify = member(subject.type, "notify");
    print_members("sends", member_rows(subject, member(notify, "fields")));
  }
  print_line("example");
  print_line("  " + example(subject, use));
}

void print_description(const Subject& subject) {
  print_line(paint(Paint::kTitle, printable(subject.uri), output) + "  " + printable(cell(*subject.row, "type")) +
             "  " + hex_cell(*subject.row, "id"));
  const std::string help = printable(cell(*subject.row, "help"));
  print_line("  " + (help.empty() ? "Nothing serves this URI: requests are refused." : help));
  if (const std::string unit = cell(*subject.row, "unit"); !unit.empty()) print_line("  Unit: " + printable(unit));
  if (const std::string values = values_text(subject.row->if_contains("values")); !values.empty())
    print_line("  Values: " + printable(values));
  bool any = false;
  for (const std::string_view use : kUses) {
    if (!takes(subject, use)) continue;
    print_use(subject, use);
    any = true;
  }
  if (!any && !help.empty()) print_line("  No request to it has an effect, and it never notifies.");
}

void print_json(const Subject& subject) {
  json::object shown = *subject.row;
  shown["of_type"] = subject.type == nullptr ? json::value() : *subject.type;
  json::object examples;
  for (const std::string_view use : kUses)
    if (takes(subject, use)) examples[use] = example(subject, use);
  shown["examples"] = std::move(examples);
  print_line(json::serialize(shown));
}

}  // namespace

std::string shell_word(const std::string& word) {
  const auto plain = [](unsigned char c) {
    return std::isalnum(c) != 0 ||
           (c != 0 && std::string_view("_-+./=:,@%").find(static_cast<char>(c)) != std::string_view::npos);
  };
  if (!word.empty() && std::ranges::all_of(word, plain)) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

int run_describe(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  json::value description;
  if (!describe(session, description, ret_failure)) return ret_failure.exit_code;
  bool any_unknown = false;
  bool first = true;
  for (const std::string& uri : words) {
    if (is_configuration_key(uri)) {
      Failure failure;
      if (describe_configuration_key(options, session, uri, !first, failure)) {
        first = false;
        continue;
      }
      if (failure.exit_code != kExitRefused) {
        ret_failure = failure;
        return failure.exit_code;
      }
      any_unknown = true;
      complain(failure);
      continue;
    }
    Subject subject{.row = find_uri(description, uri), .uri = uri, .kinds = member(&description, "kinds")};
    if (subject.row == nullptr) {
      any_unknown = true;
      complain({kExitRefused, unknown_uri(description, uri)});
      continue;
    }
    subject.type = member(member(&description, "types"), cell(*subject.row, "type"));
    if (options.json) {
      print_json(subject);
      continue;
    }
    if (!first) print_line("");
    first = false;
    print_description(subject);
  }
  return any_unknown ? kExitRefused : kExitOk;
}
