// The keys of the configuration store, which "list" and "describe" find beside the URIs. The virtual television tells
// them ("tv config"); another platform does not, and a host tells them only for its token.
#include <algorithm>
#include <boost/json.hpp>

#include "base/text.h"
#include "dtvctl.h"

namespace json = boost::json;

namespace {

constexpr std::size_t kMostListed = 10;

// How a value of a kind is read and changed at the plugin.
struct KindRow {
  std::string_view kind;
  std::string_view uri;
  bool by_item;  // the plugin finds it by its item id, not by its key
  bool can_get;
  std::string_view member;  // of a set, for the value; empty: it has none that people write
};
constexpr KindRow kKinds[] = {{"number", "/tv/config/value_number", false, true, "valueInt"},
                              {"code", "/tv/config/value_number", false, true, ""},
                              {"bool", "/tv/config/value_bool", true, true, "valueInt"},
                              {"text", "/tv/config/value_string", false, true, "valueString"},
                              {"action", "/tv/config/value_action", true, false, "valueInt"}};

bool ask(Session& session, const std::string& word, json::object& ret_reply, Failure& ret_failure) {
  std::string answer;
  json::value reply;
  if (!session.call("tv", json::serialize(json::object{{"words", {"config", word}}}), answer, ret_failure))
    return false;
  if (!json_parse(answer, reply) || !reply.is_object()) {
    ret_failure = {kExitProtocol, "the set's answer about " + word + " is not a JSON object"};
    return false;
  }
  ret_reply = std::move(reply.get_object());
  return true;
}

std::string values_text(const json::object& reply) {
  const json::value* const named = member(reply, "values");
  if (named != nullptr && named->is_object() && !named->get_object().empty()) {
    std::string text;
    for (const auto& [value, name] : named->get_object())
      text += (text.empty() ? "" : ", ") + std::string(value) + ": " + cell(named->get_object(), value);
    return text;
  }
  if (member(reply, "minimum") != nullptr) return cell(reply, "minimum") + " to " + cell(reply, "maximum");
  if (member(reply, "longest") != nullptr) return "a text of at most " + cell(reply, "longest") + " bytes";
  if (cell(reply, "kind") == "bool") return "0, 1";
  return "";
}

// The value as a request has it.
std::string sent_value(const json::object& reply) {
  const json::value* const value = member(reply, "value");
  if (value != nullptr && value->is_bool()) return value->get_bool() ? "1" : "0";
  return cell(reply, "value");
}

std::vector<std::string> example_lines(const json::object& reply, const std::string& key) {
  std::vector<std::string> lines;
  const auto* const row = std::ranges::find(kKinds, cell(reply, "kind"), &KindRow::kind);
  if (row != std::end(kKinds)) {
    const std::string item = std::to_string(std::strtoul(cell(reply, "item").c_str(), nullptr, 16));
    const std::string target = std::string(row->uri) + (row->by_item ? " cfgItem=" + item : " cfgId=" + key);
    if (row->can_get) lines.push_back("dtvctl get " + target);
    if (!row->member.empty())
      lines.push_back("dtvctl set " + target + " " + std::string(row->member) + "=" + shell_word(sent_value(reply)));
  }
  lines.push_back("dtvctl tv config " + key + " " + shell_word(sent_value(reply)));
  return lines;
}

}  // namespace

bool is_configuration_key(std::string_view word) { return word.starts_with("g_"); }

void say_configuration_keys(Session& session, ShellWords words) {
  std::vector<std::string> keys;
  for (const std::string& word : words) {
    json::object reply;
    Failure none;  // then nothing is known of keys
    if (!ask(session, word, reply, none)) return;
    std::vector<std::string> found;
    if (const std::string key = cell(reply, "key"); !key.empty())
      found.push_back(key);
    else
      for (const auto& [each, value] : reply) found.emplace_back(each);
    const bool first = &word == words.data();
    if (first) keys = found;
    std::erase_if(keys, [&](const std::string& key) { return std::ranges::find(found, key) == found.end(); });
  }
  if (keys.empty()) return;
  std::string text = "dtvctl: configuration keys:";
  for (std::size_t i = 0; i < std::min(keys.size(), kMostListed); ++i)
    text += (i == 0 ? " " : ", ") + printable(keys[i]);
  if (keys.size() > kMostListed) text += " and " + std::to_string(keys.size() - kMostListed) + " more";
  std::fprintf(stderr, "%s; see \"dtvctl describe %s\"\n", text.c_str(), printable(keys[0]).c_str());
}

bool describe_configuration_key(const Options& options, Session& session, const std::string& key, bool follows,
                                Failure& ret_failure) {
  json::object reply;
  if (!ask(session, key, reply, ret_failure)) return false;
  if (cell(reply, "key") != key) {
    ret_failure = {kExitRefused, "there is no configuration key " + key + "; \"dtvctl list TEXT\" finds them"};
    return false;
  }
  const std::vector<std::string> examples = example_lines(reply, key);
  if (options.json) {
    reply["examples"] = json::array(examples.begin(), examples.end());
    print_line(json::serialize(reply));
    return true;
  }
  if (follows) print_line("");
  print_line(paint(Paint::kTitle, printable(key), output) + "  configuration key, " + printable(cell(reply, "kind")) +
             "  " + printable(cell(reply, "item")));
  print_line("  " + printable(cell(reply, "help")));
  if (const std::string values = values_text(reply); !values.empty()) print_line("  Values: " + printable(values));
  print_line("  Now " + printable(json::serialize(reply["value"])) + ", of a new set " +
             printable(json::serialize(reply["default"])));
  print_line("");
  print_line("examples");
  for (const std::string& line : examples) print_line("  " + printable(line));
  return true;
}
