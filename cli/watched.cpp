// Follows an action that goes on after the reply to its command, such as a scan: shows how far it is, and Ctrl-C
// cancels it. The reply's member "watch" says how: "words" is the command that shows the action, "member" the part of
// its reply, "cancel" the command that ends the action, "shows" the members for people.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/json.hpp>
#include <csignal>
#include <cstdlib>
#include <ctime>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

constexpr std::chrono::milliseconds kLook{200};
// Where no terminal is: a line for so much progress, or when so much time has passed.
constexpr std::int64_t kLinePercent = 10;
constexpr std::chrono::seconds kLineTime{10};
constexpr std::int64_t kBarWidth = 24;

std::atomic<int> g_signal{0};     // SIGINT or SIGTERM, once it has arrived
std::atomic<bool> g_late{false};  // a question has been unanswered for kLate
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "a signal handler uses them");
constexpr unsigned kLate = 1;  // seconds

void end_by(int number) {
  std::signal(number, SIG_DFL);
  std::raise(number);
}

// The second signal ends the program at once; so does the first one if the set does not answer.
void on_signal(int number) {
  if (g_late) return end_by(number);
  g_signal = number;
  std::signal(number, SIG_DFL);
  alarm(kLate);
}

void on_alarm(int) {
  if (g_signal != 0) return end_by(g_signal);
  g_late = true;
}

// A shell makes its background programs ignore Ctrl-C, which stays so.
void catch_signals() {
  std::signal(SIGALRM, on_alarm);
  for (const int number : {SIGINT, SIGTERM})
    if (std::signal(number, on_signal) == SIG_IGN) std::signal(number, SIG_IGN);
}

// A call of the television during which Ctrl-C ends the program if the answer is late.
bool call(Session& session, const std::string& words, std::string& ret_answer, Failure& ret_failure) {
  alarm(kLate);
  const bool answered = session.call("tv", R"({"words":)" + words + "}", ret_answer, ret_failure);
  alarm(0);
  g_late = false;
  return answered;
}

// Ends early when a signal arrives.
void pause_for(std::chrono::milliseconds pause) {
  const timespec time{.tv_sec = 0, .tv_nsec = std::chrono::nanoseconds(pause).count()};
  nanosleep(&time, nullptr);
}

struct Action {
  std::string words;  // of the television, as a JSON array
  std::string cancel;
  std::string member;
  std::vector<std::string> shows;
};

std::string text_of(const json::object& object, std::string_view key) {
  const json::value* const value = object.if_contains(key);
  if (value == nullptr || value->is_null()) return "";
  return printable(value->is_string() ? std::string(value->get_string()) : json::serialize(*value));
}

std::int64_t number_of(const json::object& object, std::string_view key) {
  const json::value* const value = object.if_contains(key);
  return value != nullptr && value->is_int64() ? value->get_int64() : 0;
}

bool read_action(const json::object& watch, Action& ret_action) {
  const json::value* const words = watch.if_contains("words");
  const json::value* const cancel = watch.if_contains("cancel");
  if (words == nullptr || !words->is_array() || cancel == nullptr || !cancel->is_array()) return false;
  ret_action = {.words = json::serialize(*words),
                .cancel = json::serialize(*cancel),
                .member = text_of(watch, "member"),
                .shows = {}};
  if (const json::value* const shows = watch.if_contains("shows"); shows != nullptr && shows->is_array())
    for (const json::value& each : shows->get_array())
      if (each.is_string()) ret_action.shows.emplace_back(each.get_string());
  return true;
}

// Asks how far the action is. ret_answer is the reply as the set wrote it, ret_state the action's part.
bool ask(Session& session, const Action& action, std::string& ret_answer, json::object& ret_state,
         Failure& ret_failure) {
  if (!call(session, action.words, ret_answer, ret_failure)) return false;
  json::value value;
  const json::value* state = json_parse(ret_answer, value) ? &value : nullptr;
  if (state != nullptr && !action.member.empty())
    state = value.is_object() ? value.get_object().if_contains(action.member) : nullptr;
  if (state == nullptr || !state->is_object()) {
    ret_failure = {kExitProtocol, "the set's answer does not show the action that it has begun"};
    return false;
  }
  ret_state = state->get_object();
  return true;
}

// "42 %  multiplex 3  services 13  0:05"
std::string progress_of(const Action& action, const json::object& state) {
  std::string text = std::to_string(percent_of(state)) + " %";
  for (const std::string& each : action.shows)
    if (state.contains(each)) text += "  " + printable(each) + " " + text_of(state, each);
  if (!state.contains("seconds")) return text;
  const std::int64_t seconds = number_of(state, "seconds");
  char time[32];
  std::snprintf(time, sizeof time, "  %lld:%02lld", static_cast<long long>(seconds / 60),
                static_cast<long long>(seconds % 60));
  return text + time;
}

// Progress goes to standard error: a bar on a terminal, elsewhere a line now and then.
struct Display {
  bool on = true;
  bool terminal = false;
  std::int64_t percent = 0;  // of the latest line
  Clock::time_point line;    // when it was printed
};

void show(Display& display, const Action& action, const json::object& state) {
  if (!display.on) return;
  const std::int64_t percent = std::clamp<std::int64_t>(percent_of(state), 0, 100);
  const std::string text = progress_of(action, state);
  if (display.terminal) {
    const auto full = static_cast<std::size_t>(percent * kBarWidth / 100);
    const std::string bar = std::string(full, '#') + std::string(static_cast<std::size_t>(kBarWidth) - full, '-');
    std::fprintf(stderr, "\r[%s] %s\033[K", bar.c_str(), text.c_str());
    std::fflush(stderr);
  } else if (percent >= display.percent + kLinePercent || Clock::now() >= display.line + kLineTime) {
    std::fprintf(stderr, "%s\n", text.c_str());
    display.percent = percent;
    display.line = Clock::now();
  }
}

// How an action ended.
struct End {
  std::string answer;  // as the set wrote it
  json::object state;
  bool cancelled = false;  // by a signal
};

bool runs(const json::object& state) {
  const std::string word = text_of(state, "state");
  return word == "running" || word == "waiting";
}

// Shows the progress of the action until it is over, and cancels it when a signal arrives. Returns the exit code.
int follow_to_end(const Options& options, Session& session, const Action& action, End& ret_end, Failure& ret_failure) {
  const char* const kind = std::getenv("TERM");
  const bool can_return = kind == nullptr || std::string_view(kind) != "dumb";
  Display display{.on = !options.json, .terminal = can_return && isatty(STDERR_FILENO) != 0, .line = Clock::now()};
  catch_signals();
  if (session.keep_alive) session.keep_alive();
  while (true) {
    if (!ask(session, action, ret_end.answer, ret_end.state, ret_failure)) return ret_failure.exit_code;
    if (!runs(ret_end.state)) break;
    show(display, action, ret_end.state);
    if (g_signal != 0 && !ret_end.cancelled) {
      ret_end.cancelled = true;
      std::string ignored;
      Failure over;  // if it is refused, the action has just ended
      call(session, action.cancel, ignored, over);
      continue;
    }
    pause_for(kLook);
  }
  if (display.terminal) std::fputs("\r\033[K", stderr);
  return kExitOk;
}

// The exit code for an action that has ended. If a signal has cancelled it, the program ends by that signal instead.
int exit_code_of(Session& session, const End& ended, Failure& ret_failure) {
  const std::string end = text_of(ended.state, "state");
  if (end == "cancelled" && ended.cancelled) {
    std::fprintf(stderr, "dtvctl: cancelled\n");
    if (session.close) session.close();
    end_by(g_signal);
  }
  if (end == "done") return kExitOk;
  const std::string error = text_of(ended.state, "error_text");
  const std::string why = error.empty() ? text_of(ended.state, "reason") : error;
  ret_failure = {kExitRefused, end == "cancelled" ? "it was cancelled" : "it " + end + (why.empty() ? "" : ": " + why)};
  return ret_failure.exit_code;
}

}  // namespace

int follow_action(const Options& options, Session& session, ShellWords words, json::object& reply,
                  Failure& ret_failure) {
  Action action;
  const json::object* const watch = reply.at("watch").if_object();
  if (watch == nullptr || !read_action(*watch, action)) {
    ret_failure = {kExitProtocol, R"(the set's answer has a "watch" without "words" and "cancel")"};
    return ret_failure.exit_code;
  }
  End end;
  if (const int failed = follow_to_end(options, session, action, end, ret_failure); failed != kExitOk) return failed;
  if (reply.erase("watch"); !action.member.empty() && reply.contains("device")) {
    reply[action.member] = end.state;  // of a stick
    if (options.json)
      print_line(json::serialize(reply));
    else
      print_media(words, reply);
  } else if (options.json) {
    print_line(end.answer);
  } else {
    print_object(end.state);
  }
  return exit_code_of(session, end, ret_failure);
}
