// Shared by the files of dtvctl.
#pragma once

#include <sys/types.h>

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
  bool strict = false;                // get, set: a request that the set would bend is refused
  bool trace = false;                 // get, set: show the platform calls and the plugin's log
  bool reconnect = true;              // watch, trace: when the host is gone
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
  // Connects again to a host that is gone, in one attempt. Null: there is no host.
  std::function<bool(Clock::time_point until, Failure& ret_failure)> reopen;
  // From now on, a host that gives no sign of life for 9 seconds counts as gone. Null: there is no host.
  std::function<void()> keep_alive;
  // When the host gave its latest sign of life. Null: there is no host.
  std::function<Clock::time_point()> heard;
  std::function<void()> close;
};

bool session_open_remote(const Options& options, Session& ret_session, Failure& ret_failure);
// Why a request with --strict was refused.
Failure strict_failure(std::span<const std::string> warnings);
bool session_open_local(const Options& options, Session& ret_session, Failure& ret_failure);

// ---- libraries.cpp ----

// Calls only, for help and completion: the host answers, and where there is none, or it refuses, the installed
// libraries do. These know "list", and of "tv" the help. Starts no set and makes no file.
Session session_of_help(const Options& options);

// "ADDR:PORT", "ADDR" or "[ADDR]:PORT" (IPv6). Returns false with a failure for any other text.
bool split_host(const std::string& host, std::string& ret_address, int& ret_port, Failure& ret_failure);

// ---- download.cpp ----

// The file is overwritten.
bool write_file(const std::string& file, std::string_view bytes, Failure& ret_failure);

// Writes what the host serves at a path to the file, which is overwritten. The token is sent with the request.
bool download(const Options& options, const std::string& path, const std::string& file, Failure& ret_failure);

// ---- program.cpp: the command behind "--" ----

// The words before "--" and the command after it.
struct Split {
  ShellWords before;
  ShellWords command;
};
Split split_command(ShellWords words);

// Whether the command is one of dtvctl's own: get, set or tv. Any other one is a program.
bool is_inner_command(ShellWords command);

// Returns what is wrong with the words, or an empty text.
std::string check_split_command(ShellWords words);

// Starts the command, one of dtvctl's own too, as a process. It finds the host and the token by DTV_HOST and DTV_TOKEN.
// to_stderr: what it prints leaves standard output alone. No process has the number 0.
pid_t program_start(const Options& options, ShellWords command, bool to_stderr, Failure& ret_failure);

// Its exit code, as shells say it; nullopt: it has not ended, and wait is false.
std::optional<int> program_end(pid_t program, bool wait);

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

// Fetches the host's list of URIs.
bool describe(Session& session, boost::json::value& ret_description, Failure& ret_failure);

// Whether a URI's row says that a use has an effect.
bool is_on(const boost::json::object& row, std::string_view use);

// A member for people: a text as it is, anything else as JSON; empty: there is none.
std::string cell(const boost::json::object& row, std::string_view key);

// The identifier in the form that the documentation uses.
std::string hex_cell(const boost::json::object& row, std::string_view key);

// ---- main.cpp ----

struct OptionRow {
  std::string_view name;
  std::string_view argument;  // empty: it takes none
  std::string_view commands;  // those that it serves; empty: all that need a set
  std::string_view help;
  bool (*take)(const std::string& argument, Options& options);  // null: --help, --version
};

std::span<const OptionRow> option_rows();

// Prints the message on standard error. Returns the exit code.
int complain(const Failure& failure);

// ---- exchange.cpp: get and set ----

int run_get(const Options& options, Session& session, ShellWords words, Failure& ret_failure);
int run_set(const Options& options, Session& session, ShellWords words, Failure& ret_failure);

// ---- television.cpp: tv ----

int run_tv(const Options& options, Session& session, ShellWords words, Failure& ret_failure);

// Whether the words ask for help, which needs no set.
bool asks_tv_help(ShellWords words);

// ---- describe.cpp ----

int run_describe(const Options& options, Session& session, ShellWords words, Failure& ret_failure);

// A word of a command line, quoted where the shell needs it.
std::string shell_word(const std::string& word);

// ---- configuration.cpp ----

bool is_configuration_key(std::string_view word);

// Says on standard error which keys of the configuration have every word in their names or help.
void say_configuration_keys(Session& session, ShellWords words);

// follows: a blank line comes first, since other descriptions have been printed.
bool describe_configuration_key(const Options& options, Session& session, const std::string& key, bool follows,
                                Failure& ret_failure);

// ---- complete.cpp ----

// Prints what the last word may become, given the words before it, one per line: for the shell's Tab key. A line
// "\tfiles" or "\tfolders" makes the shell complete names of files or folders.
int run_complete(const Options& options, ShellWords words);

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

// Makes the host send what is followed. Called at the start, and each time that the connection is there again.
using Begin = std::function<bool(Failure& ret_failure)>;

// What watch and trace follow.
struct Followed {
  std::string_view method;  // of the notifications
  Begin begin;
  Print print;
  bool json = false;  // the printed lines are JSON
};

// Begins, runs the command after "--", and prints every notification of the method until the count or the time is
// reached, or print returns false. What the command prints goes to standard error. Lines of a trace are printed in the
// order of their "seq"; Ctrl-C loses none. Without a command it connects again to a host that is gone, and prints a
// line for the gap.
int follow(const Options& options, Session& session, ShellWords command, const Followed& followed,
           Failure& ret_failure);

// ---- request.cpp: the "PARAMETER" object from the words of the command line ----

// Fetches the host's list of URIs. It is called only when a word needs the list.
using Describe = std::function<bool(boost::json::value& ret_description, Failure& ret_failure)>;

bool build_get_parameter(const std::string& uri, ShellWords words, const Describe& describe, std::string& ret_parameter,
                         Failure& ret_failure);
bool build_set_parameter(const std::string& uri, ShellWords words, const Describe& describe, std::string& ret_parameter,
                         Failure& ret_failure);

// The members of a URI's request, in objects as the description has them: each key once, without those of other URIs.
boost::json::value fields_of(const boost::json::array& fields, const std::string& uri);

// The JSON type of a field's values from the description of its kind; empty when it is not described.
std::string json_kind(const boost::json::value* kinds, const boost::json::value* field);

// The field that a value without a key sets; null: there is none.
const boost::json::value* only_field(const boost::json::value* fields);

// The element of an array with this text under the key; null when there is none.
const boost::json::value* find_row(const boost::json::value* rows, std::string_view key, std::string_view text);

// The row of a URI in a description; null when there is none.
const boost::json::object* find_uri(const boost::json::value& description, std::string_view uri);

// "there is no URI ...", with the nearest ones.
std::string unknown_uri(const boost::json::value& description, const std::string& uri);

// ---- json.cpp ----

// The text of a member, cut out of the text of a valid JSON object; nullopt when there is none.
std::optional<std::string_view> json_member(std::string_view object, std::string_view key);

bool json_parse(std::string_view text, boost::json::value& ret_value);

// A member of an object; null if there is none, if it is JSON's null, or if the value is no object.
const boost::json::value* member(const boost::json::value* value, std::string_view key);
const boost::json::value* member(const boost::json::object& object, std::string_view key);

// A text as a JSON string.
std::string json_text(std::string_view text);

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
