// dtvctl: reads and drives a television from a shell.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <string>
#include <system_error>

#include "base/text.h"
#include "dtvctl.h"
#include "nearest.h"

namespace {

enum class Parsed { kRun, kHelp, kVersion, kWrong };

struct Invocation {
  Options options;
  const Command* command = nullptr;
  std::vector<std::string> words;
};

bool read_count(const std::string& text, Options& options) {
  options.count = parse_number_within<std::int64_t>(text, 1, std::numeric_limits<std::int64_t>::max());
  return options.count.has_value();
}

bool read_seconds(const std::string& text, double& ret_seconds) {
  double seconds = 0;
  const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed);
  if (failed != std::errc() || end != text.data() + text.size() || !(seconds >= 0 && seconds <= 1e7)) return false;
  ret_seconds = seconds;
  return true;
}

constexpr OptionRow kOptions[] = {
    {"--host", "ADDR:PORT", "", "The host to connect to; also DTV_HOST in the environment (default 127.0.0.1:8080)",
     [](const std::string& argument, Options& options) {
       options.host = argument;
       return !argument.empty();
     }},
    {"--local", "", "", "Without a host: run the plugin and a virtual television in this process, for this command",
     [](const std::string&, Options& options) { return options.local = true; }},
    {"--state", "FOLDER", "",
     "The state folder: the host's, for its token; with --local the set's (default: the XDG state folder)",
     [](const std::string& argument, Options& options) {
       options.state = argument;
       return !argument.empty();
     }},
    {"--json", "", "get set watch list describe functions trace record replay tv", "JSON lines instead of tables",
     [](const std::string&, Options& options) { return options.json = true; }},
    {"--strict", "", "get set", "Refuse a request that the set would bend or ignore in part, instead of a warning",
     [](const std::string&, Options& options) { return options.strict = true; }},
    {"--trace", "", "get set", "Show the request's platform calls and the plugin's log lines on standard error",
     [](const std::string&, Options& options) { return options.trace = true; }},
    {"--no-wait", "", "tv", "Return when a scan, an import or an update has begun",
     [](const std::string&, Options& options) {
       options.wait = false;
       return true;
     }},
    {"--count", "N", "watch trace", "End after N lines", read_count},
    {"--for", "SECONDS", "watch trace record", "End after this time",
     [](const std::string& argument, Options& options) { return read_seconds(argument, options.seconds.emplace()); }},
    {"--no-reconnect", "", "watch trace", "End with exit code 3 when the host is gone",
     [](const std::string&, Options& options) {
       options.reconnect = false;
       return true;
     }},
    {"--can", "get|set|notify", "list", "Only URIs with this use",
     [](const std::string& argument, Options& options) {
       options.can = argument;
       return std::ranges::find(kUses, argument) != std::end(kUses);
     }},
    {"--timeout", "SECONDS", "", "How long an answer may take (default 30)",
     [](const std::string& argument, Options& options) { return read_seconds(argument, options.timeout); }},
    {"--help", "", "", "This help, or with a command the help of the command; also -h", nullptr},
    {"--version", "", "", "The version", nullptr},
};

constexpr std::string_view kAfterExitCodes =
    "\n"
    "Ctrl-C ends watch and trace, and cancels a scan, an import or an update of tv; a second one ends dtvctl. Watch "
    "and\n"
    "trace connect again to a host that is gone.\n"
    "\n"
    "A host requires its token for control commands (tv), and with --require-token for everything. dtvctl takes the\n"
    "token from the file \"token\" in the folder of --state, else from the variable DTV_TOKEN, else from the default\n"
    "state folder. To a host on another machine it sends the token, in clear text, only with --state or DTV_TOKEN.\n"
    "\n"
    "Colours are used only on a terminal, and not with NO_COLOR. Options may precede or follow a command's words;\n"
    "words after -- are never options, nor are those after tv fault. The Tab key completes words after \"source "
    "cli/dtvctl.bash\"; \"make "
    "install\"\n"
    "puts that file where bash finds it.\n"
    "\n"
    "First steps:\n"
    "  make run                                   start a host with a virtual television\n"
    "  dtvctl list volume                         find the URI\n"
    "  dtvctl get /tv/cast/volume/volume          read it\n"
    "  dtvctl set /tv/cast/volume/volume 23       change it\n"
    "  dtvctl watch /tv/ws/notify/volume_ctrl     print changes; in another shell:\n"
    "  dtvctl tv volume up                        press a key of the remote control\n";

// Prints a text that ends with a line feed.
void print_text(std::string_view text) { print_line(text.substr(0, text.size() - 1)); }

// The commands that an option serves, as a prefix of its help.
std::string for_commands(const OptionRow& option) {
  constexpr std::size_t kMany = 3;  // those that serve more have no prefix
  std::string list(option.commands);
  if (std::ranges::count(list, ' ') >= static_cast<std::ptrdiff_t>(kMany)) return "";
  for (std::size_t blank = list.find(' '); blank != std::string::npos; blank = list.find(' ', blank + 2))
    list.replace(blank, 1, ", ");
  return list.empty() ? "" : list + ": ";
}

bool serves(const OptionRow& option, const Command& command) {
  if (option.commands.empty()) return option.take != nullptr && command.needs_set;
  return (" " + std::string(option.commands) + " ").find(" " + std::string(command.name) + " ") != std::string::npos;
}

void print_options(const Command* command) {
  std::vector<Row> rows;
  for (const OptionRow& option : kOptions) {
    if (command != nullptr && !serves(option, *command)) continue;
    rows.push_back(
        {"  " + std::string(option.name) + (option.argument.empty() ? "" : " ") + std::string(option.argument),
         (command == nullptr ? for_commands(option) : "") + std::string(option.help)});
  }
  if (rows.empty()) return;
  print_text("\nOptions:\n");
  print_table({}, rows);
}

void print_help(const Command* command) {
  if (command != nullptr) {
    print_text("Usage: dtvctl [OPTIONS] " + std::string(command->name) + " " + std::string(command->arguments) +
               "\n\n" + std::string(command->summary) + ".\n\n" + std::string(command->help));
    print_options(command);
    return;
  }
  std::vector<Row> rows;
  print_text("Usage: dtvctl [OPTIONS] COMMAND ...\n\nReads and drives a television from a shell.\n\nCommands:\n");
  for (const Command& each : commands()) {
    rows.push_back({"  " + std::string(each.name) + " " + std::string(each.arguments), std::string(each.summary)});
  }
  print_table({}, rows);
  print_options(nullptr);
  print_text("\n\"dtvctl help COMMAND\" explains a command, with examples.\n\nExit codes:\n");
  rows.clear();
  for (const ExitMeaning& row : kExitMeanings)
    rows.push_back({"  " + std::to_string(row.code), std::string(row.meaning)});
  print_table({}, rows);
  print_text(kAfterExitCodes);
}

template <typename Table>
std::string suggestion(const std::string& name, const Table& table) {
  std::vector<std::string> names;
  for (const auto& row : table) names.emplace_back(row.name);
  const std::vector<std::string> near = nearest(name, names, 1);
  return near.empty() ? "" : "; did you mean " + near[0] + "?";
}

// Takes the option at words[index] with its argument. Returns kRun when the caller goes on with the next word.
Parsed take_option(const std::vector<std::string>& words, std::size_t& index, Options& options,
                   std::string& ret_wrong) {
  std::string name = words[index] == "-h" ? "--help" : words[index];
  std::optional<std::string> argument;
  if (const std::size_t equals = name.find('='); equals != std::string::npos) {
    argument = name.substr(equals + 1);
    name.resize(equals);
  }
  const auto* const option = std::ranges::find(kOptions, name, &OptionRow::name);
  if (option == std::end(kOptions)) {
    ret_wrong = "there is no option " + name + suggestion(name, kOptions);
    return Parsed::kWrong;
  }
  if (name == "--help") return Parsed::kHelp;
  if (name == "--version") return Parsed::kVersion;
  if (option->argument.empty() && argument) {
    ret_wrong = name + " takes no value";
    return Parsed::kWrong;
  }
  if (!option->argument.empty() && !argument) {
    if (index + 1 >= words.size()) {
      ret_wrong = name + " wants " + std::string(option->argument);
      return Parsed::kWrong;
    }
    argument = words[++index];
  }
  if (!option->take(argument.value_or(""), options)) {
    ret_wrong = name + " wants " + std::string(option->argument) + ", not \"" + argument.value_or("") + "\"";
    return Parsed::kWrong;
  }
  return Parsed::kRun;
}

// "-5" is a number; "--" and everything after it are words.
bool is_option(const std::string& word) {
  return word.size() > 1 && word[0] == '-' && word != "--" && std::isdigit(static_cast<unsigned char>(word[1])) == 0;
}

// The words that ask for help, in whatever order, lead to the help of the command that they name.
Parsed explain(Invocation& invocation) {
  const bool is_tv = invocation.command != nullptr && invocation.command->name == "tv";
  if (!is_tv || invocation.words.empty()) return Parsed::kHelp;
  invocation.words = {invocation.words[0], "--help"};
  return Parsed::kRun;
}

Parsed parse(const std::vector<std::string>& arguments, Invocation& ret_invocation, std::string& ret_wrong) {
  bool behind_dashes = false;
  bool asks_help = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (!is_utf8(word)) {
      ret_wrong = "argument " + std::to_string(i + 1) + " is not UTF-8";
      return Parsed::kWrong;
    }
    const Command* const command = ret_invocation.command;
    const bool is_tv = command != nullptr && command->name == "tv";
    // The only command of the television with options of its own. A shell's user asks for its help all the same.
    const bool passes = is_tv && !ret_invocation.words.empty() && ret_invocation.words[0] == "fault" &&
                        word != "--help" && word != "-h";
    if (!behind_dashes && !passes && is_option(word)) {
      const Parsed parsed = take_option(arguments, i, ret_invocation.options, ret_wrong);
      asks_help = asks_help || parsed == Parsed::kHelp;
      if (parsed == Parsed::kWrong || parsed == Parsed::kVersion) return parsed;
      continue;
    }
    if (command == nullptr) {
      const auto found = std::ranges::find(commands(), word, &Command::name);
      if (found == commands().end()) {
        ret_wrong = "there is no command \"" + word + "\"" + suggestion(word, commands());
        return Parsed::kWrong;
      }
      if (found->run != nullptr || asks_help) ret_invocation.command = &*found;
      asks_help = asks_help || found->run == nullptr;
      continue;
    }
    if (word == "--") behind_dashes = true;
    const bool keeps_dashes = command->name == "watch" || command->name == "trace" || command->name == "record";
    if (word != "--" || keeps_dashes) ret_invocation.words.push_back(word);
  }
  if (asks_help) return explain(ret_invocation);
  if (ret_invocation.command == nullptr) {
    ret_wrong = "which command? \"dtvctl --help\" lists them";
    return Parsed::kWrong;
  }
  ret_wrong = ret_invocation.command->check(ret_invocation.words);
  return ret_wrong.empty() ? Parsed::kRun : Parsed::kWrong;
}

// The exit code after the results are printed. A pipe without a reader ends the program by SIGPIPE, as usual.
int finish(int result) {
  const int error = output_error();
  if (error == EPIPE) {
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
  }
  return error == 0 ? result
                    : complain({kExitOutput, "cannot write the results: " + std::generic_category().message(error)});
}

// Runs the command with the session that it needs. Returns the exit code.
int run(const Options& options, const Command& command, ShellWords words) {
  Session session;
  Failure failure;
  const auto open = options.local ? session_open_local : session_open_remote;
  const bool help = command.name == "tv" && asks_tv_help(words);
  if (help)
    session = session_of_help(options);
  else if (command.needs_set && !open(options, session, failure))
    return complain(failure);
  const int result = command.run(options, session, words, failure);
  if (!failure.text.empty()) complain(failure);
  if (session.close) session.close();
  return finish(result);
}

}  // namespace

std::span<const OptionRow> option_rows() { return kOptions; }

int complain(const Failure& failure) {
  const std::string text = paint(Paint::kError, "dtvctl:", stderr) + " " + failure.text;
  std::fprintf(stderr, "%s\n", text.c_str());
  return failure.exit_code;
}

int main(int count, char** values) {
  Invocation invocation;
  if (const char* host = std::getenv("DTV_HOST"); host != nullptr && *host != '\0') invocation.options.host = host;
  if (const char* token = std::getenv("DTV_TOKEN"); token != nullptr) invocation.options.token = token;
  std::vector<std::string> arguments(values + 1, values + count);
  if (!arguments.empty() && arguments[0] == "complete")  // only dtvctl.bash calls it, so the help does not list it
    try {
      return run_complete(invocation.options, std::span(arguments).subspan(1));
    } catch (const std::exception&) {  // an odd reply of a host: then there is nothing to offer
      return kExitProtocol;
    }
  std::string wrong;
  switch (parse(arguments, invocation, wrong)) {
    case Parsed::kHelp:
      print_help(invocation.command);
      return finish(kExitOk);
    case Parsed::kVersion:
      print_line("dtvctl " DTV_VERSION);
      return finish(kExitOk);
    case Parsed::kWrong: {
      const std::string command = invocation.command == nullptr ? "" : std::string(invocation.command->name) + ": ";
      return complain({kExitUsage, command + wrong});
    }
    case Parsed::kRun:
      break;
  }
  try {
    return run(invocation.options, *invocation.command, invocation.words);
  } catch (const std::exception& unexpected) {  // no memory, or a description that has not the agreed form
    return complain({kExitProtocol, std::string("an answer that cannot be used: ") + unexpected.what()});
  }
}
