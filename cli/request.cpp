// Makes the "PARAMETER" object from the words of the command line and the plugin's description.
#include <algorithm>
#include <boost/json.hpp>
#include <cctype>

#include "dtvctl.h"
#include "nearest.h"

namespace json = boost::json;

namespace {

std::string text_of(const json::value* value) {
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

const json::value* find_field(const json::value* fields, std::string_view key) { return find_row(fields, "key", key); }

// The description of an item type for a get or a set: the request word and its fields.
struct Form {
  std::string type;
  std::string request;
  const json::value* fields = nullptr;  // an array; null: the type has no such request
  const json::value* kinds = nullptr;   // of fields
};

struct Target {
  std::string uri;
  Form form;
  json::value description;  // form points into it and into `fields`
  json::value fields;
};

// Whether no get and no set of the URI is accepted.
bool only_notifies(const json::object& row) {
  const json::value* const accepted = row.if_contains("without_effect");
  return is_on(row, "notify") && !is_on(row, "get") && !is_on(row, "set") &&
         (accepted == nullptr || !accepted->is_array() || accepted->get_array().empty());
}

// Looks up the URI and its item type in the description.
bool look_up(const std::string& uri, bool sets, const Describe& describe, Target& ret_target, Failure& ret_failure) {
  ret_target.uri = uri;
  if (!describe(ret_target.description, ret_failure)) return false;
  const json::object* row = find_uri(ret_target.description, uri);
  if (row == nullptr) {
    ret_failure = {kExitRefused, unknown_uri(ret_target.description, uri)};
    return false;
  }
  if (only_notifies(*row)) {
    ret_failure = {kExitRefused, uri + " only notifies; \"dtvctl watch " + uri + "\" prints its notifications"};
    return false;
  }
  Form form;
  form.type = text_of(row->if_contains("type"));
  const json::value* type = member(member(&ret_target.description, "types"), form.type);
  if (sets) {
    const json::value* set = member(type, "set");
    form.request = text_of(member(set, "request"));
    form.fields = member(set, "fields");
  } else {
    form.request = "QUERY";
    form.fields = member(type, "query");
  }
  if (form.fields != nullptr && form.fields->is_array()) {
    ret_target.fields = fields_of(form.fields->get_array(), uri);
    form.fields = &ret_target.fields;
  } else {
    form.fields = nullptr;
  }
  form.kinds = member(&ret_target.description, "kinds");
  if (sets && form.type == "TYPE_ACTION") form.request = "ACTION";
  ret_target.form = form;
  return true;
}

std::string field_list(const json::value* fields) {
  std::string list;
  if (fields != nullptr && fields->is_array()) {
    for (const json::value& field : fields->get_array())
      list += (list.empty() ? "" : ", ") + text_of(member(&field, "key"));
  }
  return list.empty() ? "none" : list;
}

bool is_number(std::string_view word) {
  json::value value;
  return json_parse(word, value) && value.is_number();
}

// Converts a word to the value of a field (null: of unknown kind).
bool field_value(const std::string& word, const json::value* kinds, const json::value* field, json::value& ret_value,
                 Failure& ret_failure) {
  const std::string kind = json_kind(kinds, field);
  if (kind == "string") {
    ret_value = json::string(word);
    return true;
  }
  json::value value;
  const bool is_array = word.starts_with('[');
  if (kind == "array" ? is_array : is_number(word) || word.starts_with('{') || is_array) {
    if (json_parse(word, value)) {
      ret_value = std::move(value);
      return true;
    }
  } else if (kind.empty()) {
    ret_value = json::string(word);
    return true;
  }
  const std::string wanted = kind == "array" ? " is an array such as [1,2], not \"" : " is a number, not \"";
  ret_failure = {kExitUsage, text_of(member(field, "key")) + wanted + word + "\""};
  return false;
}

// KEY=VALUE, with KEY a member's name, or OUTER.INNER.
bool split_member(const std::string& word, std::string& ret_key, std::string& ret_value) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos || equals == 0 || std::isalpha(static_cast<unsigned char>(word[0])) == 0)
    return false;
  const std::string key = word.substr(0, equals);
  if (!std::ranges::all_of(key, [](unsigned char c) { return std::isalnum(c) != 0 || c == '_' || c == '.'; })) {
    return false;
  }
  ret_key = key;
  ret_value = word.substr(equals + 1);
  return true;
}

// Adds one KEY=VALUE to the parameter. With strict, the type must have the member.
bool add_member(const std::string& key, const std::string& word, const Form& form, bool strict, json::object& parameter,
                Failure& ret_failure) {
  json::object* object = &parameter;
  const json::value* fields = form.fields;
  std::string_view rest = key;
  for (std::size_t dot = rest.find('.'); dot != std::string_view::npos; dot = rest.find('.')) {
    fields = member(find_field(fields, rest.substr(0, dot)), "fields");
    json::value& inner = (*object)[rest.substr(0, dot)];
    if (!inner.is_object()) inner.emplace_object();
    object = &inner.get_object();
    rest.remove_prefix(dot + 1);
  }
  const json::value* field = find_field(fields, rest);
  if (field == nullptr && strict) {
    ret_failure = {kExitUsage, form.type + " has no member " + key + " in a " + form.request + "; it has: " +
                                   field_list(form.fields) + ". To send it anyway, give the parameters as JSON."};
    return false;
  }
  return field_value(word, form.kinds, field, (*object)[rest], ret_failure);
}

bool build_members(ShellWords words, const Form& form, std::string& ret_parameter, Failure& ret_failure) {
  std::string request = form.request;
  bool strict = true;
  std::string key;
  std::string value;
  for (const std::string& word : words) {
    if (split_member(word, key, value) && key == "REQUEST") {
      request = value;
      strict = false;
    }
  }
  if (strict && form.fields == nullptr) {
    ret_failure = {kExitUsage, form.type + " has no members; to send some anyway, give the parameters as JSON"};
    return false;
  }
  json::object parameter{{"REQUEST", request}};
  for (const std::string& word : words) {
    if (!split_member(word, key, value)) {
      ret_failure = {kExitUsage, "\"" + word + "\" is not KEY=VALUE; a value without a key must be the only word"};
      return false;
    }
    if (key != "REQUEST" && !add_member(key, value, form, strict, parameter, ret_failure)) return false;
  }
  ret_parameter = json::serialize(parameter);
  return true;
}

bool build_value(const std::string& word, const Form& form, std::string& ret_parameter, Failure& ret_failure) {
  const json::value* field = only_field(form.fields);
  if (field == nullptr) {
    ret_failure = {kExitUsage, form.type + " takes no single value; its members: " + field_list(form.fields) +
                                   ". Give KEY=VALUE words or the parameters as JSON."};
    return false;
  }
  json::object parameter{{"REQUEST", form.request}};
  if (!field_value(word, form.kinds, field, parameter[text_of(member(field, "key"))], ret_failure)) return false;
  ret_parameter = json::serialize(parameter);
  return true;
}

// Parameters that are given as JSON are sent unchanged.
bool take_json(const std::string& word, std::string& ret_parameter, Failure& ret_failure) {
  json::value value;
  if (!json_parse(word, value) || !value.is_object()) {
    ret_failure = {kExitUsage, "the parameters are not a JSON object: " + word};
    return false;
  }
  ret_parameter = word;
  return true;
}

bool is_member_of(const std::string& word, const Form& form) {
  std::string key;
  std::string value;
  if (!split_member(word, key, value)) return false;
  const json::value* only = only_field(form.fields);
  return only == nullptr || json_kind(form.kinds, only) != "string" || key == "REQUEST" ||
         find_field(form.fields, key.substr(0, key.find('.'))) != nullptr;
}

}  // namespace

const json::value* find_row(const json::value* rows, std::string_view key, std::string_view text) {
  if (rows == nullptr || !rows->is_array()) return nullptr;
  for (const json::value& row : rows->get_array()) {
    if (text_of(member(&row, key)) == text) return &row;
  }
  return nullptr;
}

json::value fields_of(const json::array& fields, const std::string& uri) {
  json::value ret = json::array();
  for (const json::value& field : fields) {
    const bool reads = member(&field, "uri") == nullptr || text_of(member(&field, "uri")) == uri;
    if (reads && find_field(&ret, text_of(member(&field, "key"))) == nullptr) ret.get_array().push_back(field);
  }
  return ret;
}

std::string json_kind(const json::value* kinds, const json::value* field) {
  return text_of(member(find_row(kinds, "kind", text_of(member(field, "kind"))), "json"));
}

const json::value* only_field(const json::value* fields) {
  if (fields == nullptr) return nullptr;
  if (const json::value* value = find_field(fields, "VALUE"); value != nullptr) return value;
  const json::array& all = fields->get_array();
  return all.size() == 1 ? all.data() : nullptr;
}

bool build_get_parameter(const std::string& uri, ShellWords words, const Describe& describe, std::string& ret_parameter,
                         Failure& ret_failure) {
  if (words.empty()) {
    ret_parameter.clear();
    return true;
  }
  if (words.size() == 1 && words[0].starts_with('{')) return take_json(words[0], ret_parameter, ret_failure);
  Target target;
  return look_up(uri, false, describe, target, ret_failure) &&
         build_members(words, target.form, ret_parameter, ret_failure);
}

bool build_set_parameter(const std::string& uri, ShellWords words, const Describe& describe, std::string& ret_parameter,
                         Failure& ret_failure) {
  if (words.size() == 1 && words[0].starts_with('{')) return take_json(words[0], ret_parameter, ret_failure);
  Target target;
  if (!look_up(uri, true, describe, target, ret_failure)) return false;
  if (words.empty()) {
    if (target.form.request != "ACTION") {
      ret_failure = {kExitUsage, uri + " wants a value: " + target.form.type + " has the members " +
                                     field_list(target.form.fields)};
      return false;
    }
    ret_parameter = R"({"REQUEST":"ACTION"})";
    return true;
  }
  if (words.size() == 1 && !is_member_of(words[0], target.form)) {
    return build_value(words[0], target.form, ret_parameter, ret_failure);
  }
  return build_members(words, target.form, ret_parameter, ret_failure);
}

const json::object* find_uri(const json::value& description, std::string_view uri) {
  const json::value* row = find_row(member(&description, "uris"), "uri", uri);
  return row == nullptr ? nullptr : &row->get_object();
}

std::string unknown_uri(const json::value& description, const std::string& uri) {
  std::vector<std::string> uris;
  if (const json::value* rows = member(&description, "uris"); rows != nullptr && rows->is_array()) {
    for (const json::value& row : rows->get_array()) uris.push_back(text_of(member(&row, "uri")));
    std::ranges::sort(uris);
    uris.erase(std::unique(uris.begin(), uris.end()), uris.end());  // some are registered twice
  }
  std::string text = "there is no URI " + uri;
  const std::vector<std::string> near = nearest(uri, uris, 3);
  for (const std::string& name : near) text += (&name == &near.front() ? "; nearest: " : ", ") + name;
  return text;
}
