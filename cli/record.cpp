// "record": has the host record, and saves the record.

#include <boost/json.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <system_error>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

// The time between two questions to the host whether it still records.
constexpr std::chrono::milliseconds kAskAgain{500};

bool capture(Session& session, const char* action, json::object& ret_status, Failure& ret_failure) {
  const std::string params = json::serialize(json::object{{"words", {"capture", action}}});
  std::string answer;
  if (!session.call("tv", params, answer, ret_failure)) return false;
  json::value value;
  if (!json_parse(answer, value) || !value.is_object()) {
    ret_failure = {kExitProtocol, "the host's answer is not a JSON object"};
    return false;
  }
  ret_status = std::move(value.get_object());
  return true;
}

bool is_recording(const json::object& status) {
  const json::value* const recording = status.if_contains("recording");
  return recording != nullptr && recording->is_bool() && recording->get_bool();
}

// Waits until Ctrl-C, the end of --for, or the end of the record by itself. The signals are blocked.
bool wait_for_end(const Options& options, Session& session, const sigset_t& signals, Failure& ret_failure) {
  const auto end = options.seconds ? std::optional(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                                      std::chrono::duration<double>(*options.seconds)))
                                   : std::nullopt;
  while (!end || Clock::now() < *end) {
    auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(kAskAgain);
    if (end) left = std::min(left, std::chrono::duration_cast<std::chrono::nanoseconds>(*end - Clock::now()));
    const timespec wait = {.tv_sec = 0, .tv_nsec = std::max<std::int64_t>(left.count(), 1)};
    if (sigtimedwait(&signals, nullptr, &wait) > 0) return true;
    json::object status;
    if (!capture(session, "status", status, ret_failure)) return false;
    if (!is_recording(status)) return true;
  }
  return true;
}

std::string count_of(const json::object& status, std::string_view key) {
  const json::value* const value = status.if_contains(key);
  return value == nullptr ? "0" : json::serialize(*value);
}

// Whether the file can be written. It is written at the end; what an earlier one has stays until then.
bool is_writable(const std::string& file, Failure& ret_failure) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(std::fopen(file.c_str(), "ab"), std::fclose);
  if (opened == nullptr)
    ret_failure = {kExitOutput, "cannot write " + file + ": " + std::generic_category().message(errno)};
  return opened != nullptr;
}

}  // namespace

int run_record(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  if (options.local) {
    ret_failure = {kExitUsage, "a record is made by a host; --local has none"};
    return ret_failure.exit_code;
  }
  const std::string& file = words[0];
  const ShellWords command = split_command(words).command;
  // Before the host records: a file that cannot be written is known now.
  if (!is_writable(file, ret_failure)) return ret_failure.exit_code;
  const auto lost = [&](const Failure& failure) {
    ret_failure = failure;
    ret_failure.text += "; nothing was saved in " + file;
    return failure.exit_code;
  };
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  json::object status;
  Failure failure;
  if (!capture(session, "start", status, failure)) return lost(failure);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // not during the calls of the host, which Ctrl-C ends
  int result = kExitOk;
  if (command.empty()) {
    if (!wait_for_end(options, session, signals, failure)) return lost(failure);
  } else {
    const pid_t program = program_start(options, command, false, ret_failure);
    result = program == 0 ? ret_failure.exit_code : program_end(program, true).value_or(kExitOk);
  }
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  if (!capture(session, "stop", status, failure) || !download(options, "/record.jsonl", file, failure))
    return lost(failure);
  if (const json::value* const reason = status.if_contains("reason"); reason != nullptr && reason->is_string())
    std::fprintf(stderr, "dtvctl: %s\n", printable(reason->get_string()).c_str());
  // The program's own output stays alone on standard output.
  std::FILE* const results = output;
  if (!command.empty()) output = stderr;
  if (options.json)
    print_line(json::serialize(status));
  else
    print_line(file + ": " + count_of(status, "requests") + " requests, " + count_of(status, "calls") + " calls, " +
               count_of(status, "notifications") + " notifications");
  output = results;
  return result;
}
