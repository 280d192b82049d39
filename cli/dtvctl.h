// Shared by the files of dtvctl.
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

// The uses of a URI, as its description names them.
inline constexpr std::string_view kUses[] = {"get", "set", "notify"};

struct Options {
  std::string host = "127.0.0.1:8080";
  bool local = false;
  std::string state;  // empty: the default folder
  std::string token;  // from the environment; empty: none
  bool json = false;
  bool wait = true;                   // tv: for the end of what the command has begun
  double timeout = 30;                // seconds that an answer may take
  std::optional<std::int64_t> count;  // lines of watch and trace
  std::optional<double> seconds;      // duration of watch and trace
  std::string can;                    // list: a use that a URI must have; empty: any
};

using ShellWords = std::span<const std::string>;
using Clock = std::chrono::steady_clock;

// ---- session: access to a set, through a host (remote.cpp) or in this process (local.cpp) ----

struct Message {
  std::string method;
  std::string params;  // JSON text
};

enum class Waited { kMessage, kTimeout, kFailed };

// The methods are the host's that dtvctl needs: get, set, subscribe, list, trace, tv. Texts are JSON exactly as the
// set or the host wrote them. All functions are called on one thread.
struct Session {
  std::function<bool(std::string_view method, const std::string& params, std::string& ret_result, Failure& ret_failure)>
      call;
  // Takes the next notification. Without a time limit it waits until one arrives.
  std::function<Waited(std::optional<Clock::time_point> until, Message& ret_message, Failure& ret_failure)> wait;
  std::function<void()> close;
};

bool session_open_remote(const Options& options, Session& ret_session, Failure& ret_failure);
bool session_open_local(const Options& options, Session& ret_session, Failure& ret_failure);

// "ADDR:PORT", "ADDR" or "[ADDR]:PORT" (IPv6). Returns false with a failure for any other text.
bool split_host(const std::string& host, std::string& ret_address, int& ret_port, Failure& ret_failure);

// ---- download.cpp ----

// The file is overwritten.
bool write_file(const std::string& file, std::string_view bytes, Failure& ret_failure);

// Writes what the host serves at a path to the file, which is overwritten. The token is sent with the request.
bool download(const Options& options, const std::string& path, const std::string& file, Failure& ret_failure);

// ---- record.cpp, replay.cpp ----

int run_record(const Options& options, Session& session, ShellWords words, Failure& ret_failure);
int run_replay(const Options& options, Session& session, ShellWords words, Failure& ret_failure);
int run_case(const Options& options, Session& session, ShellWords words, Failure& ret_failure);

// ---- token.cpp: the token shows a host that the request comes from the user who runs it ----

struct Token {
  std::string hex;      // empty: none
  std::string trouble;  // why there is none, if one was expected
};

// Takes the token from the folder of --state, else from DTV_TOKEN, else from the default state folder. The user did not
// name that folder, so its token is sent only to a host at a loopback address.
Token token_find(const Options& options, bool loopback);

// ---- local.cpp ----

// The tap's list of the TV API's functions (see dtv_tap_list), from the tap's library alone.
bool contract_list(std::string& ret_list, Failure& ret_failure);

// ---- commands.cpp ----

struct Command {
  std::string_view name;
  std::string_view arguments;
  std::string_view summary;
  std::string_view help;
  bool needs_set = true;  // false: run gets a closed session
  int (*run)(const Options& options, Session& session, ShellWords words, Failure& ret_failure);
  // Checks the words before the session is opened. Returns what is wrong, or an empty text.
  std::string (*check)(ShellWords words);
};

std::span<const Command> commands();

// ---- screen.cpp ----

// Saves the screen's picture in the file, which is overwritten, and prints the set's reply with the picture's size in
// bytes in place of the picture.
int save_screen(const Options& options, Session& session, const std::string& file, Failure& ret_failure);

// ---- watched.cpp ----

// Follows an action that a command of the television has started, as the member "watch" of its reply says, until it is
// over. Shows its progress, and prints how it ended; after the scan of a stick it prints the reply with the final
// state. Ctrl-C and SIGTERM cancel the action; the program then ends by that signal.
int follow_action(const Options& options, Session& session, ShellWords words, boost::json::object& reply,
                  Failure& ret_failure);

// ---- media.cpp ----

// Prints a reply to a command about sticks, media or the player for people. False: nothing was printed, since the words
// are another command, or the reply has no special form.
bool print_media(ShellWords words, const boost::json::object& reply);

// The progress of an action in percent: its member "percent", or else "progress", which is from 0 to 1.
std::int64_t percent_of(const boost::json::object& state);

// The path by which the set knows a file or a folder: at the mount point of the stick that contains it. A path that is
// on no stick is made absolute.
std::string path_on_stick(Session& session, const std::string& word);

// ---- follow.cpp ----

// Prints the parameters of one message. Returns false when the output cannot be written any more.
using Print = std::function<bool(const std::string& params)>;

// Runs the command after "--", then calls print with every notification of the method until the count or the time is
// reached, or print returns false. Lines of a trace are printed in the order of their "seq"; Ctrl-C loses none.
int follow(const Options& options, Session& session, ShellWords command, std::string_view method, const Print& print,
           Failure& ret_failure);

// ---- request.cpp: the "PARAMETER" object from the words of the command line ----

// Fetches the host's list of URIs. It is called only when a word needs the list.
using Describe = std::function<bool(boost::json::value& ret_description, Failure& ret_failure)>;

bool build_get_parameter(const std::string& uri, ShellWords words, const Describe& describe, std::string& ret_parameter,
                         Failure& ret_failure);
bool build_set_parameter(const std::string& uri, ShellWords words, const Describe& describe, std::string& ret_parameter,
                         Failure& ret_failure);

// The row of a URI in a description; null when there is none.
const boost::json::object* find_uri(const boost::json::value& description, std::string_view uri);

// A result with its meaning if the description has one: "-1 (the platform refused ...)".
std::string result_meaning(const boost::json::value& description, std::int64_t result);

// "there is no URI ...", with the nearest ones.
std::string unknown_uri(const boost::json::value& description, const std::string& uri);

// ---- json.cpp ----

// The text of a member, cut out of the text of a valid JSON object; nullopt when there is none.
std::optional<std::string_view> json_member(std::string_view object, std::string_view key);

bool json_parse(std::string_view text, boost::json::value& ret_value);

// ---- render.cpp: readable output ----

// Where results are written. With --local, fd 1 leads to standard error for the plugin's log, and this is the original
// standard output.
extern std::FILE* output;

enum class Paint { kPlain, kTitle, kFaint, kError };
std::string paint(Paint paint, std::string_view text, std::FILE* to);

// Makes a text from elsewhere safe for a terminal by escaping control characters.
std::string printable(std::string_view text);

// Writes and flushes a line. Returns false when it, or an earlier one, could not be written.
bool print_line(std::string_view line);

// The error number of the first failed write; 0: none.
int output_error();

using Row = std::vector<std::string>;
void print_table(const Row& titles, std::span<const Row> rows);
void print_response(const boost::json::object& response);
void print_object(const boost::json::object& object);
std::string trace_line(const boost::json::object& line);
