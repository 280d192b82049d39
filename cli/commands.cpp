// The commands: what each sends, and what it prints from the answer.
#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>

#include "base/text.h"
#include "dtvctl.h"

namespace json = boost::json;

namespace {

std::string json_text(std::string_view text) { return json::serialize(json::string(text)); }

bool describe(Session& session, json::value& ret_description, Failure& ret_failure) {
  std::string text;
  if (!session.call("list", "{}", text, ret_failure)) return false;
  if (json_parse(text, ret_description)) return true;
  ret_failure = {kExitProtocol, "the list of URIs is not JSON"};
  return false;
}

Describe describer(Session& session) {
  return [&session](json::value& ret_description, Failure& ret_failure) {
    return describe(session, ret_description, ret_failure);
  };
}

bool take_result(const std::string& answer, std::int64_t& ret_result, Failure& ret_failure) {
  json::value value;
  const std::optional<std::string_view> text = json_member(answer, "ret");
  if (text && json_parse(*text, value) && value.is_int64()) {
    ret_result = value.get_int64();
    return true;
  }
  ret_failure = {kExitProtocol, "the answer has no \"ret\": " + answer.substr(0, 200)};
  return false;
}

// Reports a result other than 0.
int refused(Session& session, const std::string& uri, std::int64_t result, Failure& ret_failure) {
  json::value description;
  Failure ignored;
  const bool unknown = describe(session, description, ignored) && find_uri(description, uri) == nullptr;
  ret_failure = {kExitRefused,
                 unknown ? unknown_uri(description, uri) : "the set answered " + result_meaning(description, result)};
  return kExitRefused;
}

int run_get(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  const std::string& uri = words[0];
  std::string parameter;
  if (!build_get_parameter(uri, words.subspan(1), describer(session), parameter, ret_failure)) {
    return ret_failure.exit_code;
  }
  std::string params = R"({"uri":)" + json_text(uri);
  if (!parameter.empty()) params += R"(,"parameter":)" + parameter;
  std::string answer;
  std::int64_t result = 0;
  if (!session.call("get", params + "}", answer, ret_failure) || !take_result(answer, result, ret_failure)) {
    return ret_failure.exit_code;
  }
  if (options.json) {
    print_line(answer);
  } else if (const auto text = json_member(answer, "response"); text) {
    json::value response;
    if (json_parse(*text, response) && response.is_object()) print_response(response.get_object());
  }
  return result == 0 ? kExitOk : refused(session, uri, result, ret_failure);
}

int run_set(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  const std::string& uri = words[0];
  std::string parameter;
  if (!build_set_parameter(uri, words.subspan(1), describer(session), parameter, ret_failure)) {
    return ret_failure.exit_code;
  }
  std::string answer;
  std::int64_t result = 0;
  if (!session.call("set", R"({"uri":)" + json_text(uri) + R"(,"parameter":)" + parameter + "}", answer, ret_failure) ||
      !take_result(answer, result, ret_failure)) {
    return ret_failure.exit_code;
  }
  if (options.json) {
    print_line(answer);
  } else if (result == 0) {
    print_line("ok");
  }
  return result == 0 ? kExitOk : refused(session, uri, result, ret_failure);
}

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
constexpr PathWord kPathWords[] = {{"stick", "insert", 2, PathIf::kAlways},
                                   {"stick", "remove", 2, PathIf::kHasSlash},
                                   {"antenna", "", 1, PathIf::kExists},
                                   {"channels", "import", 2, PathIf::kExists},
                                   {"guide", "import", 2, PathIf::kExists},
                                   {"media", "list", 3, PathIf::kAlways, kOnStick},
                                   {"media", "favourite", 2, PathIf::kAlways, kOnStick},
                                   {"player", "play", 2, PathIf::kExists, kOnStick},
                                   {"photo", "show", 2, PathIf::kAlways, kOnStick}};

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

std::string cell(const json::object& row, std::string_view key) {
  const json::value* value = row.if_contains(key);
  if (value == nullptr || value->is_null()) return "";
  return value->is_string() ? std::string(value->get_string()) : json::serialize(*value);
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

// The identifier in the form that the documentation uses.
std::string hex_cell(const json::object& row, std::string_view key) {
  const json::value* value = row.if_contains(key);
  if (value == nullptr || !value->is_int64()) return cell(row, key);
  char text[24];
  std::snprintf(text, sizeof text, "0x%04llX", static_cast<unsigned long long>(value->get_int64()));
  return text;
}

bool is_on(const json::object& row, std::string_view key) {
  const json::value* value = row.if_contains(key);
  return value != nullptr && !value->is_null() && !(value->is_bool() && !value->get_bool());
}

// Reports an empty list on stderr, so that stdout has only results.
void say_none(std::string_view what, ShellWords words) {
  std::string text = "dtvctl: there is no " + std::string(what);
  for (const std::string& word : words) text += (&word == words.data() ? " with \"" : " and \"") + word + "\"";
  std::fprintf(stderr, "%s\n", text.c_str());
}

int run_list(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  json::value description;
  if (!describe(session, description, ret_failure)) return ret_failure.exit_code;
  const json::value* uris = description.is_object() ? description.get_object().if_contains("uris") : nullptr;
  if (uris == nullptr || !uris->is_array()) {
    ret_failure = {kExitProtocol, "the list of URIs has no member \"uris\""};
    return ret_failure.exit_code;
  }
  std::vector<Row> rows;
  bool any = false;
  for (const json::value& value : uris->get_array()) {
    const json::object& row = value.as_object();
    std::string can;
    for (const std::string_view use : kUses) {
      if (is_on(row, use)) can += (can.empty() ? "" : " ") + std::string(use);
    }
    const Row shown{cell(row, "uri"), cell(row, "type"), can, hex_cell(row, "id"), cell(row, "help")};
    const bool wanted =
        (options.can.empty() || is_on(row, options.can)) && std::ranges::all_of(words, [&](const std::string& word) {
          return std::ranges::any_of(shown,
                                     [&](const std::string& text) { return contains_ignoring_case(text, word); });
        });
    if (!wanted) continue;
    any = true;
    if (options.json) {
      print_line(json::serialize(row));
    } else {
      rows.push_back(shown);
    }
  }
  if (!rows.empty()) print_table({"URI", "TYPE", "CAN", "ID", "HELP"}, rows);
  if (!any) say_none("URI", words);
  return kExitOk;
}

// Lists the functions of the TV API from the installed tap; needs no set.
int run_functions(const Options& options, Session&, ShellWords words, Failure& ret_failure) {
  std::string text;
  if (!contract_list(text, ret_failure)) return ret_failure.exit_code;
  json::value list;
  if (!json_parse(text, list) || !list.is_array()) {
    ret_failure = {kExitProtocol, "the tap's list of functions is not a JSON array"};
    return ret_failure.exit_code;
  }
  std::vector<Row> rows;
  bool any = false;
  for (const json::value& value : list.get_array()) {
    const json::object& row = value.as_object();
    std::string parameters;
    for (const json::value& name : row.at("params").as_array()) {
      parameters += (parameters.empty() ? "" : ", ") + std::string(name.as_string());
    }
    std::string callback;
    if (const json::array* const names = row.at("callback").if_array(); names != nullptr)
      for (const json::value& name : *names) callback += (callback.empty() ? "" : ", ") + std::string(name.as_string());
    const Row shown{cell(row, "name"), parameters, callback};
    if (!std::ranges::all_of(words, [&](const std::string& word) { return contains_ignoring_case(shown[0], word); }))
      continue;
    any = true;
    if (options.json) {
      print_line(json::serialize(row));
    } else {
      rows.push_back(shown);
    }
  }
  if (!rows.empty()) print_table({"FUNCTION", "PARAMETERS", "CALLBACK"}, rows);
  if (!any) say_none("function", words);
  return kExitOk;
}

// The words before "--" and the command after it.
struct Split {
  ShellWords before;
  ShellWords command;
};

Split split_command(ShellWords words) {
  const auto dashes = static_cast<std::size_t>(std::ranges::find(words, "--") - words.begin());
  return {words.first(dashes), dashes < words.size() ? words.subspan(dashes + 1) : ShellWords()};
}

std::string check_inner_command(ShellWords words) {
  if (words.empty()) return "";
  if (words[0] != "get" && words[0] != "set" && words[0] != "tv") {
    return "the command after -- must be get, set or tv, not \"" + words[0] + "\"";
  }
  const auto command = std::ranges::find(commands(), words[0], &Command::name);
  return command->check(words.subspan(1));
}

int run_watch(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  const auto [uris, command] = split_command(words);
  json::value description;
  if (!describe(session, description, ret_failure)) return ret_failure.exit_code;
  for (const std::string& uri : uris) {
    const json::object* row = find_uri(description, uri);
    if (row == nullptr || !is_on(*row, "notify")) {
      if (row == nullptr) {
        ret_failure = {kExitRefused, unknown_uri(description, uri)};
      } else {
        ret_failure = {kExitUsage, uri + " never notifies; \"dtvctl list --can notify\" shows those that do"};
      }
      return ret_failure.exit_code;
    }
  }
  for (const std::string& uri : uris) {
    std::string answer;
    if (!session.call("subscribe", R"({"uri":)" + json_text(uri) + "}", answer, ret_failure))
      return ret_failure.exit_code;
  }
  const auto print = [](const std::string& params) {
    if (const auto text = json_member(params, "notification"); text) return print_line(*text);
    std::fprintf(stderr, "dtvctl: a notification that cannot be shown: %s\n", params.c_str());
    return true;
  };
  return follow(options, session, command, "notify", print, ret_failure);
}

int run_trace(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  const ShellWords command = split_command(words).command;
  std::string answer;
  if (!session.call("trace", R"({"on":true})", answer, ret_failure)) return ret_failure.exit_code;
  const auto print = [&](const std::string& params) {
    json::value line;
    if (options.json || !json_parse(params, line) || !line.is_object()) return print_line(params);
    return print_line(trace_line(line.get_object()));
  };
  return follow(options, session, command, "trace", print, ret_failure);
}

std::string check_uri(ShellWords words) {
  if (words.empty()) return "which URI? \"dtvctl list TEXT\" searches";
  if (!words[0].starts_with('/'))
    return "a URI begins with a slash, unlike \"" + words[0] + "\"; \"dtvctl list TEXT\" searches";
  return "";
}

std::string check_watch(ShellWords words) {
  const auto [uris, command] = split_command(words);
  if (uris.empty()) return "which URI? \"dtvctl list --can notify\" shows those that notify";
  for (const std::string& uri : uris) {
    if (std::string wrong = check_uri({&uri, 1}); !wrong.empty()) return wrong;
  }
  return check_inner_command(command);
}

std::string check_trace(ShellWords words) {
  const auto [others, command] = split_command(words);
  if (!others.empty()) return "trace takes only a command after --, not \"" + others[0] + "\"";
  return check_inner_command(command);
}

std::string check_tv(ShellWords words) {
  if (words.empty()) return "which command? \"dtvctl tv help\" lists them";
  if (words.size() == 2 && words[0] == "screen" && words[1].starts_with('-'))
    return "the file \"" + words[1] + "\" would look like an option; to write it, give ./" + words[1];
  return "";
}

std::string check_nothing(ShellWords) { return ""; }

std::string check_record(ShellWords words) {
  const auto [files, command] = split_command(words);
  if (files.size() != 1) return files.empty() ? "which file is to get the record?" : "one file; a command follows --";
  return std::ranges::find(words, "--") != words.end() && command.empty() ? "which command, after --?" : "";
}

std::string check_replay(ShellWords words) {
  return words.size() == 1 ? "" : "which file? \"dtvctl record FILE\" makes one";
}

std::string check_case(ShellWords words) {
  return words.size() == 1 || words.size() == 2 ? "" : "which record? \"dtvctl record FILE\" makes one";
}

constexpr Command kCommands[] = {
    {.name = "get",
     .arguments = "URI [PARAMETER-JSON | KEY=VALUE...]",
     .summary = "Reads an item",
     .help =
         "Without further words the item is read without parameters. KEY=VALUE words become the members of a QUERY.\n"
         "A JSON object is sent unchanged and must contain its REQUEST.\n"
         "\n"
         "  dtvctl get /tv/cast/volume/volume\n"
         "  dtvctl --json get /tv/cast/volume/volume | jq .response.ITEMS[0].VALUE\n"
         "  dtvctl get /tv/menu/tuner/... '{\"REQUEST\":\"QUERY\",\"INDEX\":2}'\n",
     .run = run_get,
     .check = check_uri},
    {.name = "set",
     .arguments = "URI [PARAMETER-JSON | VALUE | KEY=VALUE...]",
     .summary = "Changes an item, or triggers an action",
     .help =
         "A single value sets the item's VALUE; KEY=VALUE words set several members. The request word follows from "
         "the\n"
         "item's type unless REQUEST=... gives another. An action takes no value. A JSON object is sent unchanged.\n"
         "\n"
         "  dtvctl set /tv/cast/volume/volume 23\n"
         "  dtvctl set /tv/cast/volume/mute VALUE=1\n"
         "  dtvctl set /tv/cast/volume/volume '{\"REQUEST\":\"MODIFY\",\"VALUE\":23}'\n",
     .run = run_set,
     .check = check_uri},
    {.name = "watch",
     .arguments = "URI... [-- COMMAND...]",
     .summary = "Prints notifications as they arrive",
     .help =
         "Each notification is one line, exactly as the set wrote it. Runs until Ctrl-C, --count or --for. A command\n"
         "after -- (get, set or tv) runs once the subscription is made, and watch waits for its notifications.\n"
         "\n"
         "  dtvctl watch /tv/ws/notify/volume_ctrl\n"
         "  dtvctl watch --count 1 /tv/ws/notify/volume_ctrl -- tv volume up\n",
     .run = run_watch,
     .check = check_watch},
    {.name = "list",
     .arguments = "[TEXT...]",
     .summary = "Lists URIs",
     .help =
         "Shows the URIs whose name, type, uses, identifier or help contain every TEXT, ignoring case. The column CAN\n"
         "lists the uses that have an effect: get, set, notify; --can shows only the URIs with one of them. With\n"
         "--json prints one object per line, as the set describes it; its \"without_effect\" lists the requests that\n"
         "the set accepts without doing anything. If none matches, a message goes to standard error, and the exit\n"
         "code is 0.\n"
         "\n"
         "  dtvctl list volume\n"
         "  dtvctl list --can get subtitle\n"
         "  dtvctl list --can notify\n",
     .run = run_list,
     .check = check_nothing},
    {.name = "functions",
     .arguments = "[TEXT...]",
     .summary = "Lists the functions of the TV API",
     .help =
         "Shows the functions whose name contains every TEXT. trace shows their calls, and tv fault makes them fail.\n"
         "CALLBACK has the arguments of the callback that a function registers. They are read from the installed tap, "
         "without a host. With --json prints one object per line, as the tap\n"
         "describes it.\n"
         "\n"
         "  dtvctl functions volctrl\n",
     .needs_set = false,
     .run = run_functions,
     .check = check_nothing},
    {.name = "trace",
     .arguments = "[-- COMMAND...]",
     .summary = "Shows the platform calls live",
     .help =
         "-> is a call of the TV API with its result, <- a callback of the platform. Runs until Ctrl-C, --count or\n"
         "--for. With a command after -- (get, set or tv) it shows the calls that this command causes. Lines are in\n"
         "the order in which calls and callbacks began (their \"seq\"); a line waits up to 0.1 s for an earlier one.\n"
         "\n"
         "  dtvctl trace\n"
         "  dtvctl trace -- set /tv/cast/volume/volume 23\n",
     .run = run_trace,
     .check = check_trace},
    {.name = "record",
     .arguments = "FILE [-- COMMAND ARGS...]",
     .summary = "Records requests, platform calls and notifications of the host",
     .help =
         "Records everything that all clients of the host do, until Ctrl-C, --for, or while COMMAND runs, and saves\n"
         "it in FILE as JSON lines. COMMAND is any program; it finds the host by DTV_HOST and DTV_TOKEN, and its exit\n"
         "code is passed on. The record begins with what the plugin did at its start. \"dtv-host --record\" records\n"
         "from the start on.\n"
         "\n"
         "  dtvctl record volume.jsonl\n"
         "  dtvctl record volume.jsonl -- npm test\n"
         "  dtvctl replay volume.jsonl\n"
         "  dtvctl case volume.jsonl volume.json\n",
     .run = run_record,
     .check = check_record},
    {.name = "replay",
     .arguments = "FILE",
     .summary = "Repeats a record, and reports what differs",
     .help =
         "Runs the plugin in this process, without a platform: its platform calls are answered from the record. The\n"
         "recorded requests are made again in their order, the recorded callbacks are called, and results, responses,\n"
         "notifications and platform calls are compared. Exit code 1 if something differs.\n"
         "\n"
         "  dtvctl replay volume.jsonl\n"
         "  dtv-host --replay volume.jsonl         serves the record to an application\n",
     .needs_set = false,
     .run = run_replay,
     .check = check_replay},
    {.name = "case",
     .arguments = "RECORD [OUT.json]",
     .summary = "Makes a conformance case of a record",
     .help =
         "Writes the requests, platform calls and notifications of a record as a case for build/bin/conformance. The\n"
         "case passes as it is, and fails when the plugin behaves differently. Without OUT.json it is printed.\n"
         "\n"
         "  dtvctl case volume.jsonl volume.json\n"
         "  build/bin/conformance volume.json\n",
     .needs_set = false,
     .run = run_case,
     .check = check_case},
    {.name = "tv",
     .arguments = "COMMAND...",
     .summary = "Acts on the virtual television as a viewer or its environment does",
     .help =
         "The words are sent to the virtual television unchanged, except that a path becomes an absolute one.\n"
         "\"dtvctl tv help\" lists its commands, \"dtvctl tv COMMAND --help\" explains one. Words that begin with "
         "\"-\"\n"
         "are options of dtvctl; behind \"--\" they are the television's, and a file -x is given as ./-x.\n"
         "\n"
         "A scan, an import of a guide, an update of the guide and the reading of a stick's files go on after the\n"
         "command. dtvctl shows how far they are, waits for the end and prints the result; Ctrl-C cancels them. With\n"
         "--json it prints only the result, with --no-wait it returns when they have begun.\n"
         "\n"
         "A file of an inserted stick is named by its path on this machine or on the set.\n"
         "\n"
         "Faults can be set on any function of the TV API; \"dtvctl functions\" lists them.\n"
         "\n"
         "  dtvctl tv volume up\n"
         "  dtvctl tv state\n"
         "  dtvctl tv scan all\n"
         "  dtvctl tv screen picture.jpg\n"
         "  dtvctl tv stick insert ~/Pictures\n"
         "  dtvctl tv photo show ~/Pictures/harbour.jpg\n"
         "  dtvctl tv fault a_vextvapi_volctrl_setVolume --delay 500\n"
         "  dtvctl tv fault a_vextvapi_volctrl_setVolume --fail -1\n"
         "  dtvctl tv fault a_vextvapi_volctrl_reg_callback --drop-callback\n"
         "  dtvctl tv fault a_vextvapi_volctrl_reg_callback --repeat-callback 3\n"
         "  dtvctl tv faults\n"
         "  dtvctl tv fault --clear\n",
     .run = run_tv,
     .check = check_tv},
};

}  // namespace

std::span<const Command> commands() { return kCommands; }
