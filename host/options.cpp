#include "options.h"

#include <getopt.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <variant>

#include "base/exit_codes.h"
#include "base/text.h"

namespace {

void print_help() { fputs(options_help().c_str(), stdout); }
void print_version() { puts("dtv-host " DTV_VERSION); }

// What an option does.
using Take = void (*)(Options& options);
// The same with its argument. Returns what is wrong with it, or an empty text.
using TakeArgument = std::string (*)(const char* argument, Options& options);
// Prints, and the program ends.
using Print = void (*)();
using Effect = std::variant<Take, TakeArgument, Print, std::string StackOptions::*, std::size_t Limits::*,
                            std::chrono::milliseconds Limits::*>;

struct OptionRow {
  const char* name;
  const char* argument;   // null: it takes none
  std::string_view help;  // lines; a limit's default is appended
  Effect effect;
};

constexpr OptionRow kOptions[] = {
    {"listen", "ADDR:PORT",
     "where to listen (default 127.0.0.1:8080; port 0 takes a free one;\na port alone is on 127.0.0.1)",
     [](const char* argument, Options& options) {
       std::string wrong;
       policy_read_listen(argument, options.server.policy, wrong);
       return wrong;
     }},
    {"allow-origin", "ORIGIN", "let pages from ORIGIN, such as http://localhost:5173, use this server; repeatable",
     [](const char* argument, Options& options) {
       std::string wrong;
       policy_allow_origin(argument, options.server.policy, wrong);
       return wrong;
     }},
    {"web", "FOLDER", "the built page",
     [](const char* argument, Options& options) {
       options.server.web_folder = argument;
       return std::string();
     }},
    {"state", "FOLDER", "where the virtual television keeps its state", &StackOptions::state_folder},
    {"stick-root", "FOLDER",
     "the folders in it can become USB sticks of the virtual television (default: your home folder)",
     &StackOptions::stick_root},
    {"antenna", "FOLDER", "the virtual television receives the transport streams (.ts) in it", &StackOptions::antenna},
    {"home-network", "IFACES",
     "the virtual television uses the home network through these network interfaces, with commas\nbetween them "
     "(default: lo, this machine only)",
     &StackOptions::home_network},
    {"plugin", "FILE", "the plugin's library", &StackOptions::plugin},
    {"platform", "FILE", "the platform's library, instead of the virtual television", &StackOptions::platform},
    {"tap", "FILE", "the tap's library", &StackOptions::tap},
    {"no-tap", nullptr,
     "load no tap between plugin and platform: no traces and no faults, and the host polls for\nnotifications",
     [](Options& options) { options.stack.tap.clear(); }},
    {"no-private-paths", nullptr,
     "use only the machine's own /3rd/i18n and /dev/cli, as on a set; without this option, this\n"
     "process alone gets those that the machine does not have",
     [](Options& options) { options.private_paths = false; }},
    {"no-cec", nullptr, "do not start HDMI-CEC", [](Options& options) { options.cec = false; }},
    {"no-broadcast-init", nullptr, "do not subscribe to the results of channel changes",
     [](Options& options) { options.broadcast = false; }},
    {"require-token", nullptr, "require the token for every request; control commands always need it",
     [](Options& options) { options.server.require_token = true; }},
    {"strict", nullptr, "refuse requests that the set would accept with warnings",
     [](Options& options) { options.server.strict = true; }},
    {"max-message", "BYTES", "longest request message", &Limits::message_bytes},
    {"max-connections", "N", "connections at a time", &Limits::connections},
    {"max-subscriptions", "N", "notification URIs per client", &Limits::subscriptions},
    {"max-requests", "N", "requests waiting for the platform, of all clients", &Limits::requests},
    {"header-time", "SECONDS", "time for a request's line and headers", &Limits::header_time},
    {"body-time", "SECONDS", "time for a body, or a whole WebSocket message", &Limits::body_time},
    {"reply-time", "SECONDS", "time in which a client must read its replies", &Limits::reply_time},
    {"no-watchdog", nullptr, "do not end the process when its serving thread is stuck",
     [](Options& options) { options.server.watchdog = false; }},
    {"quiet", nullptr, "do not print the address", [](Options& options) { options.quiet = true; }},
    {"help", nullptr, "print this help", print_help},
    {"version", nullptr, "print the version", print_version},
};

// The table as getopt_long wants it. An option's number is its row's plus kFirstNumber, so that it equals no character,
// such as '?', that getopt_long returns.
constexpr int kFirstNumber = 256;
constexpr auto kLongOptions = [] {
  std::array<option, std::size(kOptions) + 1> table{};
  for (std::size_t i = 0; i < std::size(kOptions); ++i)
    table[i] = {kOptions[i].name, kOptions[i].argument != nullptr ? required_argument : no_argument, nullptr,
                kFirstNumber + static_cast<int>(i)};
  return table;
}();

template <typename... Functions>
struct Visitor : Functions... {
  using Functions::operator()...;
};
template <typename... Functions>
Visitor(Functions...) -> Visitor<Functions...>;

std::string read_count(std::string_view text, std::size_t& ret_count) {
  const auto count = parse_number<std::size_t>(text);
  if (!count || *count == 0) return "\"" + std::string(text) + "\" is not a number above 0";
  ret_count = *count;
  return {};
}

std::string read_seconds(std::string_view text, std::chrono::milliseconds& ret_time) {
  constexpr std::size_t kLongest = 86400;
  std::size_t seconds = 0;
  std::string wrong = read_count(text, seconds);
  if (wrong.empty()) ret_time = std::chrono::seconds(std::min(seconds, kLongest));
  return wrong;
}

// Carries out one option. Returns what is wrong with its argument, or an empty text.
std::string take_option(const OptionRow& row, const char* argument, Options& options) {
  Limits& limits = options.server.limits;
  return std::visit(
      Visitor{[&](Take take) { return take(options), std::string(); },
              [&](TakeArgument take) { return take(argument, options); },
              [](Print print) { return print(), std::string(); },
              [&](std::string StackOptions::*text) { return options.stack.*text = argument, std::string(); },
              [&](std::size_t Limits::*count) { return read_count(argument, limits.*count); },
              [&](std::chrono::milliseconds Limits::*time) { return read_seconds(argument, limits.*time); }},
      row.effect);
}

std::string default_text(const OptionRow& row) {
  const Limits limits;
  std::size_t number = 0;
  if (const auto* const count = std::get_if<std::size_t Limits::*>(&row.effect))
    number = limits.*(*count);
  else if (const auto* const time = std::get_if<std::chrono::milliseconds Limits::*>(&row.effect))
    number = static_cast<std::size_t>(std::chrono::duration_cast<std::chrono::seconds>(limits.*(*time)).count());
  else
    return {};
  return " (default " + std::to_string(number) + ")";
}

}  // namespace

Options options_defaults() {
  Options options;
  options.stack = stack_defaults();
  options.server.policy = {.address = "127.0.0.1", .port = 8080, .allowed_origins = {}};
  options.server.web_folder = stack_beside_program("../share/dtv_js_plugin/web", "../../web/dist");
  return options;
}

std::string options_help() {
  constexpr std::size_t kHelpColumn = 26;
  std::string text =
      "usage: dtv-host [OPTION...]\n"
      "\n"
      "Serves the TV-control plugin: JSON-RPC 2.0 by WebSocket and POST at /jsonrpc, GET and PUT on every URI, and "
      "the\n"
      "page at /.\n"
      "\n";
  for (const OptionRow& row : kOptions) {
    std::string words = std::string("  --") + row.name + (row.argument != nullptr ? " " : "") +
                        (row.argument != nullptr ? row.argument : "");
    words.resize(kHelpColumn, ' ');
    text += words;
    for (const char c : row.help) text += c == '\n' ? "\n" + std::string(kHelpColumn, ' ') : std::string(1, c);
    text += default_text(row) + "\n";
  }
  return text +
         "\n"
         "Try:  curl http://127.0.0.1:8080/tv/cast/volume/volume\n"
         "      curl -X PUT -d '{\"REQUEST\":\"MODIFY\",\"VALUE\":20}' http://127.0.0.1:8080/tv/cast/volume/volume\n";
}

std::optional<int> options_read(int argc, char** argv, Options& options) {
  int number = 0;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
  while ((number = getopt_long(argc, argv, "", kLongOptions.data(), nullptr)) != -1) {
    std::string wrong = "see dtv-host --help";  // getopt_long has printed what is wrong
    if (number >= kFirstNumber) {
      const OptionRow& row = kOptions[number - kFirstNumber];
      wrong = take_option(row, optarg, options);
      if (std::holds_alternative<Print>(row.effect)) return kExitOk;
    }
    if (wrong.empty()) continue;
    fprintf(stderr, "dtv-host: %s\n", wrong.c_str());
    return kExitUsage;
  }
  if (optind == argc) return std::nullopt;
  fprintf(stderr, "dtv-host: \"%s\" is not an option; see dtv-host --help\n", argv[optind]);
  return kExitUsage;
}
