// "tv": the commands of the virtual television.
#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

// When the television refuses a command that its help does not list, the message lists the commands of the help.
void explain_unknown(Session& session, const std::string& name, Failure& failure) {
  std::string answer;
  Failure ignored;
  json::value help;
  if (!session.call("tv", R"({"words":["help"]})", answer, ignored) || !json_parse(answer, help)) return;
  const json::value* const commands = help.is_object() ? help.get_object().if_contains("commands") : nullptr;
  if (commands == nullptr || !commands->is_array()) return;
  std::vector<std::string> names;
  for (const json::value& row : commands->get_array()) {
    const json::value* const listed = row.is_object() ? row.get_object().if_contains("name") : nullptr;
    if (listed == nullptr || !listed->is_string()) return;
    if (*listed == json::value(name)) return;
    const std::string text(listed->get_string());
    if (std::ranges::find(names, text) == names.end()) names.push_back(text);
  }
  if (std::ranges::find(names, "fault") == names.end())
    return;  // without a tap the television's message has listed them
  failure.text = "there is no command \"" + name + "\"; there are:";
  for (const std::string& each : names) failure.text += (&each == &names.front() ? " " : ", ") + each;
}

// A word of a viewer's command that is a path. The set does not know the shell's folder, so it gets the whole path.
enum class PathIf { kAlways, kHasSlash, kExists };
struct PathWord {
  std::string_view command;
  std::string_view action;  // the word after the command; empty: any
  std::size_t place;        // the path's index among the words
  PathIf path_if;           // when the word is a path, and not one of the command's own words or names
  bool on_stick = false;    // the path is replaced by that at the stick's mount point
};

constexpr bool kOnStick = true;
constexpr PathWord kPathWords[] = {
    {"stick", "insert", 2, PathIf::kAlways},          {"stick", "folders", 2, PathIf::kAlways},
    {"stick", "remove", 2, PathIf::kHasSlash},        {"antenna", "", 1, PathIf::kExists},
    {"channels", "import", 2, PathIf::kExists},       {"guide", "import", 2, PathIf::kExists},
    {"media", "list", 3, PathIf::kAlways, kOnStick},  {"media", "favourite", 2, PathIf::kAlways, kOnStick},
    {"player", "play", 2, PathIf::kExists, kOnStick}, {"photo", "show", 2, PathIf::kAlways, kOnStick},
};

bool is_path(const std::string& word, PathIf path_if) {
  if (word.find("://") != std::string::npos) return false;
  std::error_code none;
  return path_if == PathIf::kAlways || word.find('/') != std::string::npos ||
         (path_if == PathIf::kExists && std::filesystem::exists(word, none));
}

json::array television_words(Session& session, ShellWords words) {
  json::array sent(words.begin(), words.end());
  for (const PathWord& row : kPathWords) {
    if (words.size() <= row.place || words[0] != row.command) continue;
    if ((!row.action.empty() && words[1] != row.action) || !is_path(words[row.place], row.path_if)) continue;
    std::error_code none;
    const std::string& word = words[row.place];
    const std::string whole =
        row.on_stick ? path_on_stick(session, word) : std::filesystem::absolute(word, none).lexically_normal().string();
    if (!whole.empty()) sent[row.place] = json::string(whole);
  }
  return sent;
}

// Prints the usage of one command from the list of all: the set's own help does not know the tap's.
int show_usage(const Options& options, Session& session, const std::string& name, Failure& ret_failure) {
  std::string answer;
  json::value help;
  if (!session.call("tv", R"({"words":["help"]})", answer, ret_failure)) return ret_failure.exit_code;
  const json::value* rows =
      json_parse(answer, help) && help.is_object() ? help.get_object().if_contains("commands") : nullptr;
  if (rows == nullptr || !rows->is_array()) {
    ret_failure = {kExitProtocol, "the set's help is not a list of commands"};
    return ret_failure.exit_code;
  }
  bool any = false;
  for (const json::value& row : rows->get_array()) {
    if (!row.is_object() || cell(row.get_object(), "name") != name) continue;
    if (options.json) {
      print_line(json::serialize(row));
    } else {
      if (any) print_line("");
      const std::string arguments = printable(cell(row.get_object(), "arguments"));
      print_line("Usage: dtvctl tv " + printable(name) + (arguments.empty() ? "" : " ") + arguments);
      print_line("");
      print_line(printable(cell(row.get_object(), "help")));
    }
    any = true;
  }
  if (any) return kExitOk;
  ret_failure = {kExitRefused, "there is no command " + json_text(name)};
  explain_unknown(session, name, ret_failure);
  return ret_failure.exit_code;
}

}  // namespace

bool asks_tv_help(ShellWords words) { return words[0] == "help" || (words.size() == 2 && words[1] == "--help"); }

int run_tv(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  if (words.size() == 2 && words[1] == "--help") return show_usage(options, session, words[0], ret_failure);
  if (words.size() == 2 && words[0] == "screen") return save_screen(options, session, words[1], ret_failure);
  const json::object params{{"words", television_words(session, words)}};
  std::string answer;
  if (!session.call("tv", json::serialize(params), answer, ret_failure)) {
    if (ret_failure.exit_code == kExitRefused) explain_unknown(session, words[0], ret_failure);
    return ret_failure.exit_code;
  }
  json::value value;
  if (!json_parse(answer, value) || !value.is_object()) value = json::object();
  json::object& reply = value.get_object();
  const json::value* const watch = reply.if_contains("watch");
  if (options.wait && watch != nullptr && watch->is_object())
    return follow_action(options, session, words, reply, ret_failure);
  if (options.json) {
    print_line(answer);
  } else {
    reply.erase("watch");  // for programs
    if (!print_media(words, reply)) print_object(reply);
  }
  return kExitOk;
}
