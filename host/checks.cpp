#include "checks.h"

#include <algorithm>
#include <boost/json.hpp>
#include <charconv>
#include <cmath>
#include <span>

#include "base/text.h"
#include "nearest.h"

namespace json = boost::json;

namespace {

// ---- reading the description ----

struct Kind {
  JsonKind json = JsonKind::kNumber;
  bool whole = false;
  std::string minimum = {};
  std::string maximum = {};
};
using Kinds = std::map<std::string, Kind, std::less<>>;

std::string text_of(const json::object& object, std::string_view key) {
  const json::value* value = object.if_contains(key);
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

std::size_t number_of(const json::object& object, std::string_view key) {
  const json::value* value = object.if_contains(key);
  return value != nullptr && value->is_int64() && value->get_int64() > 0 ? static_cast<std::size_t>(value->get_int64())
                                                                         : 0;
}

bool flag_of(const json::object& object, std::string_view key) {
  const json::value* value = object.if_contains(key);
  return value != nullptr && value->is_bool() && value->get_bool();
}

JsonKind json_kind_of(std::string_view name) {
  if (name == "string") return JsonKind::kString;
  if (name == "array") return JsonKind::kArray;
  if (name == "object") return JsonKind::kObject;
  return JsonKind::kNumber;
}

std::vector<CheckValue> read_values(const json::object& row) {
  std::vector<CheckValue> values;
  const json::value* list = row.if_contains("values");
  if (list == nullptr) return values;
  for (const json::value& value : list->as_array())
    values.push_back({json::serialize(value.at("value")), text_of(value.as_object(), "help")});
  return values;
}

// A row's own range, which is narrower than that of its kind.
void read_range(const json::object& row, CheckField& field) {
  if (std::string minimum = text_of(row, "minimum"); !minimum.empty()) field.minimum = std::move(minimum);
  if (std::string maximum = text_of(row, "maximum"); !maximum.empty()) field.maximum = std::move(maximum);
}

std::vector<CheckField> read_fields(const json::value& list, const Kinds& kinds) {
  std::vector<CheckField> fields;
  for (const json::value& entry : list.as_array()) {
    const json::object& row = entry.as_object();
    const auto kind = kinds.find(text_of(row, "kind"));
    if (kind == kinds.end()) continue;
    CheckField field{.key = text_of(row, "key"),
                     .json = kind->second.json,
                     .whole = kind->second.whole,
                     .minimum = kind->second.minimum,
                     .maximum = kind->second.maximum,
                     .limit = number_of(row, "limit"),
                     .count = number_of(row, "count"),
                     .values = read_values(row),
                     .uri = text_of(row, "uri"),
                     .help = text_of(row, "help"),
                     .unit = text_of(row, "unit")};
    read_range(row, field);
    if (const json::value* members = row.if_contains("fields")) field.fields = read_fields(*members, kinds);
    fields.push_back(std::move(field));
  }
  return fields;
}

Kinds read_kinds(const json::object& description) {
  Kinds kinds;
  const json::value* list = description.if_contains("kinds");
  if (list == nullptr) return kinds;
  for (const json::value& entry : list->as_array()) {
    const json::object& row = entry.as_object();
    const std::string name = text_of(row, "kind");
    kinds[name] = {.json = json_kind_of(text_of(row, "json")),
                   .whole = name != "double",
                   .minimum = text_of(row, "minimum"),
                   .maximum = text_of(row, "maximum")};
  }
  return kinds;
}

// The fields of a set, with what the URI itself says of its value.
std::vector<CheckField> fields_of_set(const json::object& row, const CheckType& type) {
  std::vector<CheckField> fields = type.fields;
  for (CheckField& field : fields) {
    if (field.key != "VALUE") continue;
    if (const std::size_t limit = number_of(row, "limit"); limit > 0) field.limit = limit;
    if (std::vector<CheckValue> values = read_values(row); !values.empty()) field.values = std::move(values);
    if (std::string unit = text_of(row, "unit"); !unit.empty()) field.unit = std::move(unit);
    read_range(row, field);
  }
  return fields;
}

CheckNeeds read_needs(const json::object& row, std::string_view key) {
  const json::value* needs = row.if_contains(key);
  return needs == nullptr ? CheckNeeds() : json::value_to<CheckNeeds>(*needs);
}

// ---- comparing ----

// How much of a client's text a message quotes.
constexpr std::size_t kQuoted = 60;

std::string shown(std::string_view value) {
  return std::string(utf8_cut(value, kQuoted)) + (value.size() > kQuoted ? "..." : "");
}

std::string_view kind_name(JsonKind kind) {
  switch (kind) {
    case JsonKind::kObject:
      return "an object";
    case JsonKind::kArray:
      return "an array";
    case JsonKind::kString:
      return "a text";
    case JsonKind::kNumber:
      return "a number";
    case JsonKind::kBoolean:
      return "true or false";
    case JsonKind::kNull:
      return "null";
  }
  return {};
}

std::string listed(std::span<const CheckValue> values) {
  constexpr std::size_t kMost = 12;
  std::string text;
  for (const CheckValue& value : values.first(std::min(values.size(), kMost))) {
    text.append(text.empty() ? "" : ", ").append(value.value);
    if (!value.help.empty()) text.append(" (").append(value.help).append(")");
  }
  if (values.size() > kMost) text += " and " + std::to_string(values.size() - kMost) + " more";
  return text;
}

std::string named(std::span<const CheckField> fields, std::string_view uri) {
  std::string text;
  for (const CheckField& field : fields)
    if (field.uri.empty() || field.uri == uri) text.append(text.empty() ? "" : ", ").append(field.key);
  return text;
}

struct Check {
  std::string_view uri;
  bool modifies = false;  // a "MODIFY" converts no text to a number, and refuses a value that is no text
  std::vector<Finding> findings = {};
};

void add(Check& check, std::string text, bool refused = false) {
  if (check.findings.size() < kMostFindings) check.findings.push_back({std::move(text), refused});
}

// 80 bits on a PC: each whole number of 64 bits is exact.
long double number(std::string_view text) {
  long double value = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure == std::errc::result_out_of_range && text.find("e-") != text.npos) return 0;
  if (failure == std::errc::result_out_of_range && text.find("E-") != text.npos) return 0;
  // Beyond every double: the sign says which end.
  if (failure == std::errc::result_out_of_range) return text.front() == '-' ? -HUGE_VALL : HUGE_VALL;
  return value;
}

// What a member is, for a message: "a text, "abc"", or "null".
std::string given(std::string_view value) {
  const JsonKind kind = json_kind(value);
  if (kind == JsonKind::kNull || kind == JsonKind::kBoolean) return shown(value);
  return std::string(kind_name(kind)) + ", " + shown(value);
}

void check_number(Check& check, const CheckField& field, std::string_view value) {
  const JsonKind kind = json_kind(value);
  if (kind != JsonKind::kNumber) {
    std::string text = field.key + " is " + given(value) + ", and must be a number";
    const std::string digits = kind == JsonKind::kString ? json_string(value) : std::string();
    if (!check.modifies && !digits.empty() && std::string_view("+-0123456789").find(digits.front()) != digits.npos)
      text += "; the set reads the digits that the text begins with";
    else if (kind != JsonKind::kBoolean)
      text += "; the set takes 0";
    return add(check, std::move(text));
  }
  const long double value_given = number(value);
  if (!field.minimum.empty() && (value_given < number(field.minimum) || value_given > number(field.maximum)))
    return add(check, field.key + " is " + shown(value) + ", which is not within " + field.minimum + " to " +
                          field.maximum + "; the set takes another number");
  if (field.whole && value_given != std::trunc(value_given))
    add(check, field.key + " is " + shown(value) + ", which is not whole; the set takes " +
                   std::to_string(static_cast<std::int64_t>(std::trunc(value_given))));
}

void check_text(Check& check, const CheckField& field, std::string_view value) {
  if (json_kind(value) != JsonKind::kString)
    return add(
        check,
        field.key + " is " + given(value) + ", and must be a text" + (check.modifies ? "" : "; the set ignores it"),
        check.modifies);
  if (field.limit == 0) return;
  const std::string text = json_string(value);
  if (text.size() > field.limit)
    add(check, field.key + " has " + std::to_string(text.size()) + " bytes; the set takes the first " +
                   std::to_string(field.limit) + ", " + json_quote(shown(utf8_cut(text, field.limit))));
}

void check_values(Check& check, const CheckField& field, std::string_view value) {
  if (field.values.empty() || json_kind(value) != field.json) return;
  const auto same = [&](const CheckValue& known) {
    if (field.json == JsonKind::kNumber) return number(known.value) == std::trunc(number(value));
    return equal_ignoring_case(json_string(value), json_string(known.value));
  };
  if (std::ranges::any_of(field.values, same)) return;
  std::vector<std::string> names;
  if (field.json == JsonKind::kString)
    for (const CheckValue& known : field.values) names.push_back(known.value);
  const std::vector<std::string> near = nearest(value, names, 1);
  add(check, field.key + " is " + shown(value) + ", which is not among its values: " + listed(field.values) +
                 (near.empty() ? "" : "; did you mean " + near.front() + "?"));
}

void check_members(Check& check, std::span<const CheckField> fields, std::string_view object, bool root);

void check_field(Check& check, const CheckField& field, std::string_view value) {
  const std::string& name = field.key;
  const JsonKind kind = json_kind(value);
  switch (field.json) {
    case JsonKind::kNumber:
      check_number(check, field, value);
      break;
    case JsonKind::kString:
      check_text(check, field, value);
      break;
    case JsonKind::kArray: {
      if (kind != JsonKind::kArray)
        return add(check, name + " is " + std::string(kind_name(kind)) + ", and must be an array", true);
      std::size_t elements = 0;
      while (json_next_element(value)) ++elements;
      if (elements == 0) return add(check, name + " is an empty array, and must have an element", true);
      if (field.count > 0 && elements > field.count)
        add(check, name + " has " + std::to_string(elements) + " elements; the set takes the first " +
                       std::to_string(field.count));
      return;
    }
    default:
      if (kind != JsonKind::kObject)
        return add(check, name + " is " + std::string(kind_name(kind)) + ", and must be an object; the set ignores it");
      return check_members(check, field.fields, value, false);
  }
  check_values(check, field, value);
}

// The row of a member; of several rows, which differ in their conditions, one that takes this kind of value.
const CheckField* find_field(const Check& check, std::span<const CheckField> fields, std::string_view key,
                             JsonKind kind) {
  const CheckField* found = nullptr;
  for (const CheckField& field : fields) {
    if (field.key != key || (!field.uri.empty() && field.uri != check.uri)) continue;
    if (found == nullptr || (found->json != kind && field.json == kind)) found = &field;
  }
  return found;
}

// Compares the members. Of several with one name, the set reads the first.
void check_members(Check& check, std::span<const CheckField> fields, std::string_view object, bool root) {
  std::vector<std::string> seen;
  while (const auto member = json_next_member(object)) {
    if (check.findings.size() == kMostFindings) return;  // a search for the nearest name takes long
    const std::string key = json_string(member->key);
    if (root && key == "REQUEST") continue;
    if (std::ranges::find(seen, key) != seen.end()) {
      add(check, shown(key) + " is there twice; the set reads the first");
      continue;
    }
    if (seen.size() <= kMostFindings + fields.size()) seen.push_back(key);
    if (const CheckField* const field = find_field(check, fields, key, json_kind(member->value))) {
      check_field(check, *field, member->value);
      continue;
    }
    std::vector<std::string> keys;
    for (const CheckField& known : fields)
      if (known.uri.empty() || known.uri == check.uri) keys.push_back(known.key);
    const auto same =
        std::ranges::find_if(keys, [&](const std::string& known) { return equal_ignoring_case(known, key); });
    const std::vector<std::string> near = nearest(key, keys, 1);
    std::string text = shown(key) + " is no member of this request, and is ignored";
    if (same != keys.end())
      text += "; did you mean " + *same + "?";
    else if (!near.empty())
      text += "; did you mean " + near.front() + "?";
    else if (keys.empty())
      text += "; it has no members besides REQUEST";
    else
      text += "; its members are " + named(fields, check.uri);
    add(check, std::move(text));
  }
}

// The value of a member as JSON text; empty: there is none.
std::string_view member_of(std::string_view object, std::string_view key) {
  while (const auto member = json_next_member(object))
    if (json_string_is(member->key, key)) return member->value;
  return {};
}

// Adds the members that the request needs and does not have.
void check_needs(Check& check, const CheckNeeds& needs, std::span<const CheckField> fields, std::string_view object,
                 const std::string& example) {
  for (const std::vector<std::string>& group : needs) {
    if (std::ranges::any_of(group, [&](const std::string& key) { return !member_of(object, key).empty(); })) continue;
    std::string names;
    for (const std::string& key : group) names.append(names.empty() ? "" : " or ").append(key);
    const CheckField* const field = find_field(check, fields, group.front(), JsonKind::kNumber);
    const std::string_view instead = field == nullptr || group.size() > 1 ? ""
                                     : field->json == JsonKind::kNumber   ? "; the set takes 0"
                                     : field->json == JsonKind::kString   ? "; the set takes an empty text"
                                                                          : "";
    add(check, names + " is missing" + std::string(instead) + "; this URI takes " + example);
  }
}

// Why a request has no effect. verb: "read" or "set", other: what the URI can do instead.
std::string unserved(const CheckUri& row, std::string_view verb, bool other) {
  if (row.notifies) return "this URI only notifies; subscribe to it";
  const std::string cannot = "this URI cannot be " + std::string(verb);
  if (other) return cannot + ", only " + (verb == "set" ? "read" : "set");
  if (!row.help.empty()) return cannot + ": " + row.help;
  return "nothing serves this URI; the list says which URIs can be " + std::string(verb);
}

}  // namespace

CheckUris checks_read(const json::value& description) {
  const Kinds kinds = read_kinds(description.as_object());
  std::map<std::string, std::shared_ptr<const CheckType>, std::less<>> types;
  const json::value* described = description.as_object().if_contains("types");
  const json::object none;
  for (const auto& [name, value] : described != nullptr ? described->as_object() : none) {
    CheckType type{.name = name, .query = std::nullopt, .word = {}, .fields = {}};
    if (const json::value& query = value.at("query"); !query.is_null()) type.query = read_fields(query, kinds);
    if (const json::value& set = value.at("set"); !set.is_null()) {
      type.word = set.at("request").as_string();
      type.fields = read_fields(set.at("fields"), kinds);
    }
    types.emplace(name, std::make_shared<const CheckType>(std::move(type)));
  }
  CheckUris uris;
  for (const json::value& entry : description.at("uris").as_array()) {
    const json::object& row = entry.as_object();
    CheckUri uri{.get = flag_of(row, "get"),
                 .set = flag_of(row, "set"),
                 .notifies = flag_of(row, "notify") || text_of(row, "group") == "WS_NFY",
                 .help = text_of(row, "help"),
                 .get_needs = read_needs(row, "get_needs"),
                 .set_needs = read_needs(row, "set_needs")};
    if (const json::value* accepted = row.if_contains("without_effect"))
      for (const json::value& request : accepted->as_array())
        (request.as_string() == "get" ? uri.get_accepted : uri.set_accepted) = true;
    if (const auto type = types.find(text_of(row, "type")); type != types.end()) {
      uri.type = type->second;
      uri.fields = fields_of_set(row, *uri.type);
    }
    uris.emplace(row.at("uri").as_string(), std::move(uri));
  }
  return uris;
}

std::vector<Finding> check_get(const CheckUri& row, std::string_view uri, std::string_view parameter) {
  Check check{.uri = uri};
  const std::string_view word = parameter.empty() ? std::string_view() : member_of(parameter, "REQUEST");
  const bool queries = !word.empty() && json_string_is(word, "QUERY");
  if (row.get_accepted) add(check, "a get of this URI succeeds without effect");
  if (!row.get && !row.get_accepted) add(check, unserved(row, "read", row.set), true);
  if (row.type == nullptr) return std::move(check.findings);
  if (queries && !row.type->query) {
    add(check, "a get of this URI takes no parameter, and so no \"QUERY\"", true);
    return std::move(check.findings);
  }
  if (queries)
    check_members(check, *row.type->query, parameter, true);
  else if (!parameter.empty() && (!word.empty() || parameter.find('"') != std::string_view::npos))
    add(check, "REQUEST " + (word.empty() ? std::string("is missing") : "is " + shown(word)) +
                   "; a get reads its parameter only with \"QUERY\", and ignores it otherwise");
  if (row.type->query && row.get)
    check_needs(check, row.get_needs, *row.type->query, queries ? parameter : "{}", check_example(row, uri, true));
  return std::move(check.findings);
}

std::vector<Finding> check_set(const CheckUri& row, std::string_view uri, std::string_view parameter) {
  Check check{.uri = uri};
  const std::string_view word = member_of(parameter, "REQUEST");
  const auto is = [&](std::string_view known) { return !word.empty() && json_string_is(word, known); };
  if (!row.set && !row.set_accepted) {
    add(check, unserved(row, "set", row.get), true);
    return std::move(check.findings);
  }
  if (row.set_accepted) add(check, "a set of this URI succeeds without effect");
  if (row.type == nullptr) return std::move(check.findings);
  // An option list takes its index in a "SET", too.
  if (is("SET") && row.type->name == "TYPE_OPTION_LIST") {
    const CheckField index{.key = "INDEX", .whole = true, .minimum = "-2147483648", .maximum = "2147483647"};
    check_members(check, std::span(&index, 1), parameter, true);
    if (const std::string_view value = member_of(parameter, "INDEX"); !value.empty() && value.front() == '-')
      add(check, "INDEX is negative: nothing is done");
    return std::move(check.findings);
  }
  if (!is(row.type->word)) {
    const std::string right = "; this URI takes " + check_example(row, uri, false);
    if (word.empty())
      add(check, "REQUEST is missing" + right, true);
    else if (is("ACTION"))
      add(check, "REQUEST is \"ACTION\", and the item is no action: nothing is done" + right);
    else
      add(check, "REQUEST is " + shown(word) + right, true);
    return std::move(check.findings);
  }
  check.modifies = row.type->word == "MODIFY";
  if (check.modifies && member_of(parameter, "VALUE").empty())
    add(check, "VALUE is missing; this URI takes " + check_example(row, uri, false), true);
  check_members(check, row.fields, parameter, true);
  check_needs(check, row.set_needs, row.fields, parameter, check_example(row, uri, false));
  return std::move(check.findings);
}

std::string check_example(const CheckUri& row, std::string_view uri, bool get) {
  if (row.type == nullptr || (get ? !row.type->query : row.type->word.empty())) return {};
  std::string text = "{\"REQUEST\":\"" + (get ? std::string("QUERY") : row.type->word) + "\"";
  // Of the members, those that the request needs; where the description names none, the first ones.
  const CheckNeeds& needs = get ? row.get_needs : row.set_needs;
  const auto is_shown = [&](const CheckField& field) {
    return needs.empty() || std::ranges::any_of(needs, [&](const auto& group) { return group.front() == field.key; });
  };
  for (const CheckField& field : get ? *row.type->query : row.fields) {
    if ((!field.uri.empty() && field.uri != uri) || !is_shown(field)) continue;
    constexpr std::size_t kLongest = 200;
    if (text.size() > kLongest) return text + ",...}";
    text += ",\"" + field.key + "\":";
    if (!field.values.empty())
      text += field.values.front().value;
    else if (field.json == JsonKind::kString)
      text += "\"text\"";
    else if (field.json == JsonKind::kArray)
      text += "[0]";
    else if (field.json == JsonKind::kObject)
      text += "{}";
    else
      text += "0";
  }
  return text + "}";
}
