// "tv": the commands of the virtual television.
#include <absl/strings/str_join.h>

#include <boost/json.hpp>
#include <filesystem>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

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

// Prints the usage of one command.
int show_usage(const Options& options, Session& session, const std::string& name, Failure& ret_failure) {
  std::string answer;
  json::value row;
  if (!session.call("tv", json::serialize(json::object{{"words", {"help", name}}}), answer, ret_failure))
    return ret_failure.exit_code;
  if (options.json) {
    print_line(answer);
    return kExitOk;
  }
  if (!json_parse(answer, row) || !row.is_object()) {
    ret_failure = {kExitProtocol, "the set's help is not a JSON object"};
    return ret_failure.exit_code;
  }
  const std::string arguments = printable(cell(row.get_object(), "arguments"));
  print_line("Usage: dtvctl tv " + printable(name) + (arguments.empty() ? "" : " ") + arguments);
  print_line("");
  print_line(printable(cell(row.get_object(), "help")));
  return kExitOk;
}

// A fault as the words that set it.
std::string fault_text(const json::object& fault) {
  const auto number = [&fault](std::string_view key) {
    const std::string text = cell(fault, key);
    return text == "0" ? "" : text;
  };
  std::vector<std::string> words;
  if (const std::string delay = number("delay_ms"); !delay.empty()) words.push_back("--delay " + delay);
  if (!number("fails").empty()) words.push_back("--fail " + cell(fault, "result"));
  if (!number("drop_callback").empty()) words.emplace_back("--drop-callback");
  if (const std::string times = number("repeat_callback"); !times.empty())
    words.push_back("--repeat-callback " + times);
  return printable(absl::StrJoin(words, " "));
}

// Prints a reply about faults for people. False: it is none.
bool print_faults(ShellWords words, const json::object& reply) {
  if (words[0] == "fault") {
    const json::value* const replaced = reply.if_contains("replaced");
    if (replaced == nullptr || !replaced->is_object()) return false;
    print_line("replaces the earlier fault of " + printable(words[1]) + ": " + fault_text(replaced->get_object()));
    return true;
  }
  const json::value* const faults = reply.if_contains("faults");
  if (words.size() != 1 || words[0] != "faults" || faults == nullptr || !faults->is_object()) return false;
  std::vector<Row> rows;
  for (const auto& [function, fault] : faults->get_object())
    if (fault.is_object()) rows.push_back({printable(function), fault_text(fault.get_object())});
  if (rows.empty())
    print_line("no faults");
  else
    print_table({"FUNCTION", "FAULT"}, rows);
  return true;
}

}  // namespace

bool asks_tv_help(ShellWords words) { return words[0] == "help" || (words.size() == 2 && words[1] == "--help"); }

int run_tv(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  if (words.size() == 2 && (words[1] == "--help" || words[0] == "help"))
    return show_usage(options, session, words[words[1] == "--help" ? 0 : 1], ret_failure);
  if (words.size() == 2 && words[0] == "screen") return save_screen(options, session, words[1], ret_failure);
  const json::object params{{"words", television_words(session, words)}};
  std::string answer;
  if (!session.call("tv", json::serialize(params), answer, ret_failure)) return ret_failure.exit_code;
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
    if (!print_faults(words, reply) && !print_media(words, reply)) print_object(reply);
  }
  return kExitOk;
}
