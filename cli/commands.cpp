// The commands: what each sends, and what it prints from the answer.
#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>

#include "base/text.h"
#include "dtvctl.h"

namespace json = boost::json;

namespace {

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
  if (!words.empty() && options.can.empty()) say_configuration_keys(session, words);
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
  const auto begin = [&session, watched = uris](Failure& failure) {
    std::string answer;
    return std::ranges::all_of(watched, [&](const std::string& uri) {
      return session.call("subscribe", R"({"uri":)" + json_text(uri) + "}", answer, failure);
    });
  };
  const auto print = [](const std::string& params) {
    if (const auto text = json_member(params, "notification"); text) return print_line(*text);
    std::fprintf(stderr, "dtvctl: a notification that cannot be shown: %s\n", params.c_str());
    return true;
  };
  return follow(options, session, command, {.method = "notify", .begin = begin, .print = print, .json = true},
                ret_failure);
}

int run_trace(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  const ShellWords command = split_command(words).command;
  const auto begin = [&session](Failure& failure) {
    std::string answer;
    return session.call("trace", R"({"on":true})", answer, failure);
  };
  const auto print = [&options](const std::string& params) {
    json::value line;
    if (options.json || !json_parse(params, line) || !line.is_object()) return print_line(params);
    return print_line(trace_line(line.get_object()));
  };
  return follow(options, session, command, {.method = "trace", .begin = begin, .print = print, .json = options.json},
                ret_failure);
}

std::string check_uri(ShellWords words) {
  if (words.empty()) return "which URI? \"dtvctl list TEXT\" searches";
  if (!words[0].starts_with('/'))
    return "a URI begins with a slash, unlike \"" + words[0] + "\"; \"dtvctl list TEXT\" searches";
  return "";
}

std::string check_get(ShellWords words) {
  const auto uris = words.first(static_cast<std::size_t>(
      std::ranges::find_if(words, [](const std::string& word) { return !word.starts_with('/'); }) - words.begin()));
  if (uris.empty()) return check_uri(words);
  const ShellWords others = words.subspan(uris.size());
  const auto late = std::ranges::find_if(others, [](const std::string& word) { return word.starts_with('/'); });
  return late == others.end() ? "" : "the URIs come first, and " + *late + " stands behind \"" + others[0] + "\"";
}

// Every word is a URI.
std::string check_uris(ShellWords words) {
  if (words.empty()) return check_uri(words);
  for (const std::string& uri : words)
    if (std::string wrong = check_uri({&uri, 1}); !wrong.empty()) return wrong;
  return "";
}

std::string check_describe(ShellWords words) {
  for (const std::string& word : words)
    if (std::string wrong = is_configuration_key(word) ? "" : check_uri({&word, 1}); !wrong.empty()) return wrong;
  return words.empty() ? check_uri(words) : "";
}

std::string check_watch(ShellWords words) {
  const ShellWords uris = split_command(words).before;
  if (uris.empty()) return "which URI? \"dtvctl list --can notify\" shows those that notify";
  if (std::string wrong = check_uris(uris); !wrong.empty()) return wrong;
  return check_split_command(words);
}

std::string check_trace(ShellWords words) {
  const ShellWords others = split_command(words).before;
  if (!others.empty()) return "trace takes only a command after --, not \"" + others[0] + "\"";
  return check_split_command(words);
}

std::string check_tv(ShellWords words) {
  if (words.empty()) return "which command? \"dtvctl tv help\" lists them";
  if (words.size() == 2 && words[0] == "screen" && words[1].starts_with('-'))
    return "the file \"" + words[1] + "\" would look like an option; to write it, give ./" + words[1];
  return "";
}

std::string check_nothing(ShellWords) { return ""; }

std::string check_record(ShellWords words) {
  const ShellWords files = split_command(words).before;
  if (files.size() != 1) return files.empty() ? "which file is to get the record?" : "one file; a command follows --";
  return check_split_command(words);
}

std::string check_replay(ShellWords words) {
  return words.size() == 1 ? "" : "which file? \"dtvctl record FILE\" makes one";
}

std::string check_case(ShellWords words) {
  return words.size() == 1 || words.size() == 2 ? "" : "which record? \"dtvctl record FILE\" makes one";
}

constexpr Command kCommands[] = {
    {.name = "get",
     .arguments = "URI... [PARAMETER-JSON | KEY=VALUE...]",
     .summary = "Reads items",
     .help =
         "Without further words the items are read without parameters. KEY=VALUE words become the members of a QUERY.\n"
         "A JSON object is sent unchanged and must contain its REQUEST. Several URIs are read in order, each with "
         "these\n"
         "parameters; a refused one does not keep the others from being printed, and the exit code is 1.\n"
         "\n"
         "  dtvctl get /tv/cast/volume/volume\n"
         "  dtvctl get /tv/cast/volume/volume /tv/cast/volume/mute\n"
         "  dtvctl --json get /tv/cast/volume/volume | jq .response.ITEMS[0].VALUE\n"
         "  dtvctl get /tv/menu/tuner/... '{\"REQUEST\":\"QUERY\",\"INDEX\":2}'\n",
     .run = run_get,
     .check = check_get},
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
         "  dtvctl set --strict /tv/cast/volume/mute VALUE=1\n"
         "  dtvctl set /tv/cast/volume/volume '{\"REQUEST\":\"MODIFY\",\"VALUE\":23}'\n",
     .run = run_set,
     .check = check_uri},
    {.name = "watch",
     .arguments = "URI... [-- COMMAND...]",
     .summary = "Prints notifications as they arrive",
     .help =
         "Each notification is one line, exactly as the set wrote it. Runs until Ctrl-C, --count or --for. A command\n"
         "after -- runs once the subscription is made, and watch prints the notifications until it has ended, and\n"
         "0.2 s more. It is get, set or tv, or any program, which finds the host by DTV_HOST and DTV_TOKEN. What it\n"
         "prints goes to standard error, and its exit code is passed on.\n"
         "\n"
         "When the host is gone, or has given no sign of life for 9 seconds, watch connects again and subscribes "
         "again.\n"
         "It then prints a line for the gap, in which notifications may be missing:\n"
         "{\"gap\":{\"from\":TIME,\"to\":TIME}}. With --no-reconnect, or with a command, it ends with exit code 3.\n"
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
         "code is 0. So do the keys of the configuration with every TEXT in their name or help, without --can.\n"
         "\n"
         "  dtvctl list volume\n"
         "  dtvctl list --can get subtitle\n"
         "  dtvctl list --can notify\n",
     .run = run_list,
     .check = check_nothing},
    {.name = "describe",
     .arguments = "URI|KEY...",
     .summary = "Explains URIs: their requests, values and units, with an example of each",
     .help =
         "Shows what the URI is, and for each request the members with their kinds, ranges and named values, and a\n"
         "command line that can be copied. With --json prints one object per URI: its row of the list, with its item\n"
         "type under \"of_type\" and the command lines under \"examples\".\n"
         "A KEY of the configuration, such as g_video__brightness, is explained as \"tv config KEY\" has it; that "
         "takes\n"
         "the host's token.\n"
         "\n"
         "  dtvctl describe /tv/cast/volume/mute\n"
         "  dtvctl describe /tv/config/value_string /tv/key/irrc\n"
         "  dtvctl describe g_video__brightness\n",
     .run = run_describe,
     .check = check_describe},
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
         "--for. With a command after --, as watch takes it, it shows the calls until the command has ended. Lines are "
         "in\n"
         "the order in which calls and callbacks began (their \"seq\"); a line waits up to 0.1 s for an earlier one.\n"
         "When the host is gone, trace connects again as watch does. The line for the gap begins with --; with --json\n"
         "it is the one of watch.\n"
         "\n"
         "  dtvctl trace\n"
         "  dtvctl trace -- set /tv/cast/volume/volume 23\n"
         "  dtvctl trace -- npm test\n",
     .run = run_trace,
     .check = check_trace},
    {.name = "record",
     .arguments = "FILE [-- COMMAND ARGS...]",
     .summary = "Records requests, platform calls and notifications of the host",
     .help =
         "Records everything that all clients of the host do, until Ctrl-C, --for, or while COMMAND runs, and saves\n"
         "it in FILE as JSON lines. COMMAND is get, set or tv, or any program, which finds the host by DTV_HOST and\n"
         "DTV_TOKEN; its exit code is passed on. The record begins with what the plugin did at its start. \"dtv-host "
         "--record\" records\n"
         "from the start on.\n"
         "\n"
         "  dtvctl record volume.jsonl\n"
         "  dtvctl record volume.jsonl -- set /tv/cast/volume/volume 17\n"
         "  dtvctl record tests.jsonl -- npm test\n"
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
         "notifications and platform calls are compared. Exit code 1 if something differs. With --json prints an "
         "object\n"
         "for each step that differs, and one with the counts.\n"
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
    {.name = "help",
     .arguments = "[COMMAND]",
     .summary = "Explains a command, as --help behind the command does",
     .help = "Without a command it explains dtvctl; \"help tv COMMAND\" explains a command of the virtual television.\n"
             "\n"
             "  dtvctl help watch\n"
             "  dtvctl help tv scan\n",
     .needs_set = false,
     .run = nullptr,  // the words lead to --help
     .check = check_nothing},
};

}  // namespace

bool describe(Session& session, json::value& ret_description, Failure& ret_failure) {
  std::string text;
  if (!session.call("list", "{}", text, ret_failure)) return false;
  if (json_parse(text, ret_description)) return true;
  ret_failure = {kExitProtocol, "the list of URIs is not JSON"};
  return false;
}

std::string cell(const json::object& row, std::string_view key) {
  const json::value* value = row.if_contains(key);
  if (value == nullptr || value->is_null()) return "";
  return value->is_string() ? std::string(value->get_string()) : json::serialize(*value);
}

std::string hex_cell(const json::object& row, std::string_view key) {
  const json::value* value = row.if_contains(key);
  if (value == nullptr || !value->is_int64()) return cell(row, key);
  char text[24];
  std::snprintf(text, sizeof text, "0x%04llX", static_cast<unsigned long long>(value->get_int64()));
  return text;
}

bool is_on(const json::object& row, std::string_view use) {
  const json::value* value = row.if_contains(use);
  return value != nullptr && !value->is_null() && !(value->is_bool() && !value->get_bool());
}

std::span<const Command> commands() { return kCommands; }
