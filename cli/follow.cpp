// Follows a set: the notifications of watch and the lines of trace.
#include <algorithm>
#include <atomic>
#include <boost/json.hpp>
#include <csignal>
#include <ctime>
#include <deque>
#include <map>
#include <thread>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

// The pause before an attempt to connect again; it doubles with each attempt.
constexpr std::chrono::milliseconds kFirstPause{250};
constexpr std::chrono::seconds kLongestPause{5};

// How long the effects of a command after "--" are followed, without --for and --count.
constexpr std::chrono::milliseconds kAftermath{200};

// The time between two looks whether the program after "--" has ended.
constexpr std::chrono::milliseconds kLook{50};

// How long a line waits for one that began before it. A platform call that takes longer is shown when it returns, after
// lines that began later, so that it does not hold up live output.
constexpr std::chrono::milliseconds kPatience{100};

// Lines that wait for an earlier one. The tap writes the line of a call when the call returns, often after the lines of
// its effects. "seq" numbers them in the order in which they began, without gaps.
struct Sorter {
  struct Arrival {
    Clock::time_point due;
    std::uint64_t seq;
  };
  std::multimap<std::uint64_t, std::string> held;  // by seq; 0: without an order, due at once
  std::deque<Arrival> arrivals;
  std::uint64_t due = 0;  // lines up to this seq are due
};

std::uint64_t sequence_of(const std::string& line) {
  json::value seq;
  const std::optional<std::string_view> text = json_member(line, "seq");
  if (!text || !json_parse(*text, seq) || !seq.is_int64() || seq.get_int64() < 0) return 0;
  return static_cast<std::uint64_t>(seq.get_int64());
}

void put(Sorter& sorter, std::uint64_t seq, std::string line) {
  sorter.held.emplace(seq, std::move(line));
  if (seq > sorter.due) sorter.arrivals.push_back({Clock::now() + kPatience, seq});
}

// The next line that is due, or with all the next line.
std::optional<std::string> take(Sorter& sorter, bool all) {
  while (!sorter.arrivals.empty() && sorter.arrivals.front().due <= Clock::now()) {
    sorter.due = std::max(sorter.due, sorter.arrivals.front().seq);
    sorter.arrivals.pop_front();
  }
  const auto first = sorter.held.begin();
  if (first == sorter.held.end() || (first->first > sorter.due && !all)) return std::nullopt;
  std::string line = std::move(first->second);
  // No line can begin between this one and its successor.
  sorter.due = std::max(sorter.due, first->first + 1);
  sorter.held.erase(first);
  while (!sorter.arrivals.empty() && sorter.arrivals.front().seq < sorter.due) sorter.arrivals.pop_front();
  return line;
}

// Ctrl-C, or SIGTERM as timeout sends it, ends the program at once, unless lines are held: these are printed first.
constexpr int kNone = 0;
constexpr int kSome = -1;
std::atomic<int> g_held{kNone};  // or the number of the signal that arrived while lines were held
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler uses it");

void end_by(int number) {
  std::signal(number, SIG_DFL);
  std::raise(number);
}

void on_signal(int number) {
  int held = kSome;
  if (!g_held.compare_exchange_strong(held, number)) end_by(number);
}

// Tells the signal handler whether lines are held. Returns the signal that arrived while they were; 0: none.
int set_held(bool some) {
  int before = some ? kNone : kSome;
  g_held.compare_exchange_strong(before, some ? kSome : kNone);
  return before == kSome ? 0 : before;
}

void catch_signals() {
  for (const int number : {SIGINT, SIGTERM}) {
    // A shell makes its background programs ignore Ctrl-C, which stays so.
    if (std::signal(number, on_signal) == SIG_IGN) std::signal(number, SIG_IGN);
  }
}

// "2026-11-23T19:20:00.125Z"
std::string iso_time(std::chrono::system_clock::time_point time) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  const std::time_t seconds = std::chrono::system_clock::to_time_t(whole);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char day[32];
  std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &parts);
  char text[48];
  std::snprintf(text, sizeof text, "%s.%03dZ", day,
                static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(time - whole).count()));
  return text;
}

// The line for the time in which the host sent nothing.
std::string gap_line(bool json, const std::string& from, const std::string& to) {
  return json ? R"({"gap":{"from":")" + from + R"(","to":")" + to + R"("}})"
              : "-- not connected from " + from + " to " + to;
}

enum class Returned { kBack, kTimeout, kRefused };

// Connects again until it succeeds or the time is over, and begins again. Every failure to connect counts as passing;
// a refusal of the host does not.
Returned connect_again(Session& session, const Followed& followed, std::optional<Clock::time_point> until,
                       Failure& ret_failure) {
  const Clock::time_point end = until.value_or(Clock::time_point::max());
  for (auto pause = Clock::duration(kFirstPause);; pause = std::min<Clock::duration>(2 * pause, kLongestPause)) {
    if (Clock::now() >= end) return Returned::kTimeout;
    std::this_thread::sleep_until(std::min(end, Clock::now() + pause));
    Failure failure;
    if (!session.reopen(end, failure)) continue;
    if (followed.begin(failure)) return Returned::kBack;
    if (failure.exit_code != kExitRefused) continue;
    ret_failure = failure;
    return Returned::kRefused;
  }
}

// What follows the loss of the host: says so, connects again, and prints the line for the gap. Returns false when there
// is nothing more to follow; ret_failure is then the reason.
bool survive(Session& session, const Followed& followed, std::optional<Clock::time_point> until, Failure& ret_failure) {
  const auto silence = std::chrono::duration_cast<std::chrono::system_clock::duration>(Clock::now() - session.heard());
  const std::string from = iso_time(std::chrono::system_clock::now() - silence);
  complain({kExitUnreachable, ret_failure.text + "; trying to connect again, Ctrl-C ends it"});
  if (connect_again(session, followed, until, ret_failure) != Returned::kBack) return false;
  const std::string to = iso_time(std::chrono::system_clock::now());
  complain({kExitOk, "connected again; what happened from " + from + " to " + to + " is missing"});
  ret_failure = {};
  return print_line(gap_line(followed.json, from, to));
}

}  // namespace

int follow(const Options& options, Session& session, ShellWords command, const Followed& followed,
           Failure& ret_failure) {
  if (options.local && !command.empty() && !is_inner_command(command)) {
    ret_failure = {kExitUsage, "with --local, the command after -- must be get, set or tv, not \"" + command[0] + "\""};
    return ret_failure.exit_code;
  }
  if (!followed.begin(ret_failure)) return ret_failure.exit_code;
  if (session.keep_alive) session.keep_alive();
  const bool returns = options.reconnect && command.empty() && session.reopen;
  int result = kExitOk;
  std::optional<Clock::time_point> until;
  const auto limit = [&](auto duration) {
    until = Clock::now() + std::chrono::duration_cast<Clock::duration>(duration);
  };
  if (options.seconds) limit(std::chrono::duration<double>(*options.seconds));
  pid_t program = 0;  // while it runs
  const auto limit_aftermath = [&] {
    if (!options.seconds) limit(options.count ? std::chrono::duration<double>(options.timeout) : kAftermath);
  };
  if (is_inner_command(command)) {
    const auto inner = std::ranges::find(commands(), command[0], &Command::name);
    std::FILE* const lines = output;  // only the followed lines; the command's own answer goes to stderr
    output = stderr;
    Options once = options;
    once.wait = false;  // what it begins is followed here, by its notifications or calls
    result = inner->run(once, session, command.subspan(1), ret_failure);
    output = lines;
    if (result > kExitRefused) return result;
    limit_aftermath();
  } else if (!command.empty()) {
    program = program_start(options, command, true, ret_failure);
    if (program == 0) return ret_failure.exit_code;
  }
  Sorter sorter;
  int signal = 0;  // the signal that ends it
  bool ended = false;
  catch_signals();
  for (std::int64_t printed = 0; !options.count || printed < *options.count;) {
    if (const std::optional<std::string> line = take(sorter, ended); line) {
      if (!followed.print(*line)) break;
      ++printed;
      continue;
    }
    if (ended) {
      if (signal == 0) signal = set_held(false);
      const bool lost = ret_failure.exit_code == kExitUnreachable;
      if (!lost || !returns || signal != 0 || !survive(session, followed, until, ret_failure)) break;
      sorter = {};
      ended = false;
      continue;
    }
    if (signal == 0) {
      signal = set_held(!sorter.held.empty());
      if (signal != 0) until = Clock::now();
    }
    if (const std::optional<int> code = program == 0 ? std::nullopt : program_end(program, false); code) {
      result = *code;
      program = 0;
      limit_aftermath();
    }
    std::optional<Clock::time_point> wake = until;
    if (program != 0) wake = std::min(until.value_or(Clock::time_point::max()), Clock::now() + kLook);
    if (!sorter.arrivals.empty()) wake = std::min(wake.value_or(Clock::time_point::max()), sorter.arrivals.front().due);
    Message message;
    const Waited waited = session.wait(wake, message, ret_failure);
    // Lines that have arrived by the end are still shown, but a set that never pauses must not delay the end.
    const auto now = Clock::now();
    ended = waited == Waited::kFailed ||
            (until && now >= *until && (waited == Waited::kTimeout || now >= *until + kPatience));
    if (waited != Waited::kMessage) continue;
    if (message.method == "overflow") {
      const std::string dropped(json_member(message.params, "dropped").value_or("some"));
      std::fprintf(stderr, "dtvctl: %s messages were dropped; this program reads too slowly\n", dropped.c_str());
    } else if (message.method == followed.method) {
      const std::uint64_t seq = followed.method == "trace" ? sequence_of(message.params) : 0;
      put(sorter, seq, std::move(message.params));
    }
  }
  if (signal == 0) signal = set_held(false);
  if (signal != 0) end_by(signal);
  return ret_failure.exit_code == kExitOk ? result : ret_failure.exit_code;
}
