// "complete": what the shell's Tab key offers. It asks the running host, and else the installed libraries; it starts no
// set.
#include <algorithm>
#include <boost/json.hpp>
#include <memory>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

constexpr std::string_view kFiles = "\tfiles";
constexpr std::string_view kFolders = "\tfolders";

using Names = std::vector<std::string>;

// What stands before the word that is completed.
struct Line {
  Options options;
  std::string command;                // empty: none yet
  Names words;                        // of the command
  bool help = false;                  // "help" stands before it
  bool inner = false;                 // it stands behind "--"
  bool dashes = false;                // "--" has come
  const OptionRow* option = nullptr;  // the word is this option's argument
};

const OptionRow* find_option(std::string_view name) {
  const auto rows = option_rows();
  const auto row = std::ranges::find(rows, name, &OptionRow::name);
  return row == rows.end() ? nullptr : &*row;
}

// Whether the next word may be an option of dtvctl. "tv fault" has options of its own, and no option follows "--".
bool has_options(const Line& line) {
  return !line.dashes && !(line.command == "tv" && !line.words.empty() && line.words[0] == "fault");
}

Line read_line(ShellWords words) {
  Line line;
  for (const std::string& word : words) {
    if (line.option != nullptr) {
      if (line.option->take != nullptr) line.option->take(word, line.options);
      line.option = nullptr;
    } else if (word == "--") {
      const bool begins = line.command == "watch" || line.command == "trace" || line.command == "record";
      if (begins && !line.dashes) {
        line.command.clear();
        line.words.clear();
        line.inner = true;
      }
      line.dashes = true;
    } else if (word.starts_with("-") && has_options(line)) {
      const std::size_t equals = word.find('=');
      const OptionRow* const row = find_option(word.substr(0, equals));
      if (row == nullptr || row->take == nullptr) continue;
      if (equals != std::string::npos)
        row->take(word.substr(equals + 1), line.options);
      else if (!row->argument.empty())
        line.option = row;
      else
        row->take("", line.options);
    } else if (line.command.empty()) {
      line.help = line.help || word == "help";
      if (word != "help") line.command = word;
    } else {
      line.words.push_back(word);
    }
  }
  return line;
}

Names names_of(const json::value* rows, std::string_view key) {
  Names names;
  if (rows == nullptr || !rows->is_array()) return names;
  for (const json::value& row : rows->get_array())
    if (row.is_object()) names.push_back(cell(row.get_object(), key));
  return names;
}

Names texts_of(const json::object& object, std::string_view key) {
  Names texts;
  const json::value* const array = object.if_contains(key);
  if (array == nullptr || !array->is_array()) return texts;
  for (const json::value& each : array->get_array())
    if (each.is_string()) texts.emplace_back(each.get_string());
  return texts;
}

// The set's reply to "help" with these words; empty: there is none.
json::object help_of(Session& session, const Names& words) {
  json::array sent{"help"};
  for (const std::string& word : words) sent.emplace_back(word);
  std::string answer;
  Failure ignored;
  json::value reply;
  if (!session.call("tv", json::serialize(json::object{{"words", sent}}), answer, ignored) ||
      !json_parse(answer, reply) || !reply.is_object())
    return {};
  return std::move(reply.get_object());
}

json::value description_of(Session& session) {
  json::value description;
  Failure ignored;
  describe(session, description, ignored);
  return description;
}

// ---- URIs, members and values ----

Names uris_of(const json::value& description, std::string_view use) {
  Names uris;
  const json::value* const rows = member(&description, "uris");
  if (rows == nullptr || !rows->is_array()) return uris;
  for (const json::value& row : rows->get_array())
    if (row.is_object() && (use.empty() || is_on(row.get_object(), use))) uris.push_back(cell(row.get_object(), "uri"));
  return uris;
}

// The named values of a member; a configuration key's are those of the set.
Names values_of(Session& session, const json::value* row, const json::value& field) {
  const std::string key = cell(field.as_object(), "key");
  if (key == "cfgId") return texts_of(help_of(session, {"config"}), "names");
  const json::value* values = member(&field, "values");
  if (values == nullptr && key == "VALUE") values = member(row, "values");
  return names_of(values, "value");
}

// What may stand behind the URI of a get or a set: its members as KEY=, the values of the member that the word has
// begun, and of a set the values that need no key.
Names members_of(Session& session, const json::value& description, const std::string& uri, bool sets, bool first,
                 const std::string& current) {
  const json::value* const row = find_row(member(&description, "uris"), "uri", uri);
  const json::value* const type =
      row == nullptr ? nullptr : member(member(&description, "types"), cell(row->get_object(), "type"));
  const json::value* const listed = sets ? member(member(type, "set"), "fields") : member(type, "query");
  if (listed == nullptr || !listed->is_array()) return {};
  const json::value fields = fields_of(listed->get_array(), uri);
  Names found;
  if (const std::size_t equals = current.find('='); equals != std::string::npos) {
    const std::string key = current.substr(0, equals);
    if (const json::value* const field = find_row(&fields, "key", key); field != nullptr)
      for (const std::string& value : values_of(session, row, *field)) found.push_back(key + "=" + value);
    return found;
  }
  const json::value* const only = only_field(&fields);
  if (sets && first && only != nullptr) found = values_of(session, row, *only);
  if (found.empty())
    for (const std::string& key : names_of(&fields, "key")) found.push_back(key + "=");
  return found;
}

// ---- The television's commands ----

// The user types a word in lower case literally, and a value in place of a word in capitals.
bool is_literal(const std::string& word) {
  return std::ranges::none_of(word, [](unsigned char c) { return c >= 'A' && c <= 'Z'; });
}

Names functions() {
  std::string list;
  Failure ignored;
  json::value rows;
  if (!contract_list(list, ignored) || !json_parse(list, rows)) return {};
  return names_of(&rows, "name");
}

Names television_words(Session& session, const Names& words) {
  if (words.empty()) {
    const json::object help = help_of(session, {});
    return names_of(help.if_contains("commands"), "name");
  }
  if (words[0] == "fault") {
    Names found = words.size() == 1 ? functions() : Names{"--delay", "--fail", "--drop-callback", "--repeat-callback"};
    found.emplace_back("--clear");
    return found;
  }
  const json::object help = help_of(session, words);
  Names found = texts_of(help, "names");
  for (const std::string& word : texts_of(help, "next")) {
    if (is_literal(word)) found.push_back(word);
    if (word == "DIR") found.emplace_back(kFolders);
    if (word.starts_with("FILE") || word.starts_with("PATH")) found.emplace_back(kFiles);
  }
  return found;
}

// ---- What may come next ----

Names option_names(const Line& line) {
  Names names;
  for (const OptionRow& row : option_rows()) {
    const bool serves = line.command.empty() || row.commands.empty() ||
                        (" " + std::string(row.commands) + " ").find(" " + line.command + " ") != std::string::npos;
    if (serves) names.emplace_back(row.name);
  }
  return names;
}

// "get|set|notify" are the values themselves.
Names argument_values(const OptionRow& row) {
  if (row.argument == "FOLDER") return {std::string(kFolders)};
  if (row.argument == "ADDR:PORT") return {Options().host};
  Names values;
  for (std::string_view rest = row.argument; rest.find('|') != std::string_view::npos || !values.empty();) {
    const std::size_t bar = rest.find('|');
    values.emplace_back(rest.substr(0, bar));
    if (bar == std::string_view::npos) break;
    rest.remove_prefix(bar + 1);
  }
  return values;
}

Names command_names(const Line& line) {
  if (line.inner) return {"get", "set", "tv"};
  Names names;
  for (const Command& command : commands()) names.emplace_back(command.name);
  return names;
}

// The Session is opened only where it is needed.
Names next_of(const Line& line, const std::string& current) {
  if (line.option != nullptr) return argument_values(*line.option);
  if (current.starts_with('-') && has_options(line)) return option_names(line);
  if (line.command.empty()) return command_names(line);
  const auto is_uri = [](const std::string& word) { return word.starts_with('/'); };
  const bool only_uris = std::ranges::all_of(line.words, is_uri);
  if (line.command == "tv") {
    if (line.help && !line.words.empty()) return {};
    Session session = session_of_help(line.options);
    return television_words(session, line.words);
  }
  if (line.help) return {};
  if (line.command == "describe" || line.command == "watch") {
    Session session = session_of_help(line.options);
    if (line.command == "describe" && is_configuration_key(current))
      return texts_of(help_of(session, {"config"}), "names");
    return uris_of(description_of(session), line.command == "watch" ? "notify" : "");
  }
  if (line.command == "record" || line.command == "replay" || line.command == "case") return {std::string(kFiles)};
  if (line.inner && line.command != "get" && line.command != "set") return {std::string(kFiles)};  // of a program
  const bool sets = line.command == "set";
  if (!sets && line.command != "get") return {};
  Session session = session_of_help(line.options);
  const json::value description = description_of(session);
  const bool uri_comes = line.words.empty() || (!sets && only_uris && is_uri(current));
  if (uri_comes) return uris_of(description, "");
  return members_of(session, description, line.words[0], sets, line.words.size() == 1, current);
}

}  // namespace

int run_complete(const Options& options, ShellWords words) {
  if (words.empty()) return kExitUsage;
  const std::string& current = words.back();
  Line line = read_line(words.first(words.size() - 1));
  if (line.options.host == Options().host) line.options.host = options.host;
  if (line.options.token.empty()) line.options.token = options.token;
  Names found = next_of(line, current);
  std::ranges::sort(found);
  found.erase(std::unique(found.begin(), found.end()), found.end());
  for (const std::string& name : found)
    if (name.starts_with(current) || name.starts_with('\t')) print_line(name);
  return kExitOk;
}
