// What the parts of dtvctl share.
#pragma once

#include <boost/json/fwd.hpp>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/exit_codes.h"

// ---- failures ----

struct Failure {
  int exit_code = kExitOk;
  std::string text;
};

// ---- options ----

// What a URI may be good for, as members of its description.
inline constexpr std::string_view kUses[] = {"get", "set", "notify"};

struct Options {
  std::string host = "127.0.0.1:8080";
  bool local = false;
  std::string state;  // empty: the usual folder
  std::string token;  // of the environment; empty: none there
  bool json = false;
  double timeout = 30;                // seconds that an answer may take
  std::optional<std::int64_t> count;  // lines of watch and trace
  std::optional<double> seconds;      // duration of watch and trace
  std::string can;                    // of list: what a URI is to be good for; empty: anything
};

using ShellWords = std::span<const std::string>;
using Clock = std::chrono::steady_clock;

// ---- session: the way to a set, through a host (remote.cpp) or in this process (local.cpp) ----

struct Message {
  std::string method;
  std::string params;  // JSON text
};

enum class Waited { kMessage, kTimeout, kFailed };

// The methods are the host's: get, set, subscribe, unsubscribe, list, trace, tv. Texts are JSON exactly as the set or
// the host wrote them. All functions are called from one thread.
struct Session {
  std::function<bool(std::string_view method, const std::string& params, std::string& ret_result, Failure& ret_failure)>
      call;
  // Takes the next notification; without a time limit it waits as long as it takes.
  std::function<Waited(std::optional<Clock::time_point> until, Message& ret_message, Failure& ret_failure)> wait;
  std::function<void()> close;
};

bool session_open_remote(const Options& options, Session& ret_session, Failure& ret_failure);
bool session_open_local(const Options& options, Session& ret_session, Failure& ret_failure);

// ---- token.cpp: by which a host knows that its own user asks ----

struct Token {
  std::string hex;      // empty: there is none
  std::string trouble;  // why there is none, where one was to be expected
};

// The token is in the folder of --state, else in DTV_TOKEN, else in the usual state folder. The last one is nothing
// that the caller named: it goes to a host at a loopback address only.
Token token_find(const Options& options, bool loopback);

// The tap's list of the TV API's functions (see dtv_tap_list), from the tap's library alone.
bool contract_list(std::string& ret_list, Failure& ret_failure);

// ---- commands.cpp ----

struct Command {
  std::string_view name;
  std::string_view arguments;
  std::string_view summary;
  std::string_view help;
  bool passes_words;      // what follows the name is not searched for options
  bool needs_set = true;  // false: run gets a session that is not open
  int (*run)(const Options& options, Session& session, ShellWords words, Failure& ret_failure);
  // Says what is wrong with the words before anything is opened; an empty text: nothing.
  std::string (*check)(ShellWords words);
};

std::span<const Command> commands();

// ---- follow.cpp ----

// Shows one message's parameters. False when nobody reads any more.
using Print = std::function<bool(const std::string& params)>;

// Runs the command behind "--", then hands every notification of the method to print until the count or the time is
// reached, or print says that it is enough. Lines of a trace come in the order of their "seq"; Ctrl-C loses none.
int follow(const Options& options, Session& session, ShellWords command, std::string_view method, const Print& print,
           Failure& ret_failure);

// ---- request.cpp: the "PARAMETER" object from the words of the command line ----

// description: the host's list, asked for only when a word needs it.
using Describe = std::function<bool(boost::json::value& ret_description, Failure& ret_failure)>;

bool build_get_parameter(const std::string& uri, ShellWords words, const Describe& describe, std::string& ret_parameter,
                         Failure& ret_failure);
bool build_set_parameter(const std::string& uri, ShellWords words, const Describe& describe, std::string& ret_parameter,
                         Failure& ret_failure);

// The row of a URI in a description; null where there is none.
const boost::json::object* find_uri(const boost::json::value& description, std::string_view uri);

// A result with its meaning, where the description has one: "-1 (the platform refused ...)".
std::string result_meaning(const boost::json::value& description, std::int64_t result);

// "there is no URI ...", with the nearest ones.
std::string unknown_uri(const boost::json::value& description, const std::string& uri);

// ---- json.cpp ----

// A member's text, as it stands in the text of a valid JSON object; nothing where there is none.
std::optional<std::string_view> json_member(std::string_view object, std::string_view key);

bool json_parse(std::string_view text, boost::json::value& ret_value);

// ---- render.cpp: for people ----

// Where results go. With --local the plugin's own log keeps standard output, which is then standard error.
extern std::FILE* output;

enum class Paint { kPlain, kTitle, kFaint, kError };
std::string paint(Paint paint, std::string_view text, std::FILE* to);

// A text that others wrote, for a terminal: control characters would move the cursor, or worse.
std::string printable(std::string_view text);

// Writes a line and hands it over at once. False when it, or an earlier one, could not be written.
bool print_line(std::string_view line);

// The first failed write's error number; 0: none.
int output_error();

using Row = std::vector<std::string>;
void print_table(const Row& titles, std::span<const Row> rows);
void print_response(const boost::json::object& response);
void print_object(const boost::json::object& object);
std::string trace_line(const boost::json::object& line);
