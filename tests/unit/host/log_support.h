// Shared by the relay's tests: a child process that prints, and the readers of its output.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "log_relay.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

inline constexpr int limit_seconds = 60;  // limit for everything that must not hang

// A unique name without digits: lines with such names are of different kinds.
inline std::string name_of(std::size_t number) {
  std::string name;
  for (int i = 0; i < 5; ++i, number /= 26) name.insert(name.begin(), static_cast<char>('a' + number % 26));
  return name;
}

// Limits with which no line counts as repeated.
inline LogRelayOptions without_limits() {
  LogRelayOptions options;
  options.kinds = 0;
  options.lines_of_other_kinds = 1'000'000'000;
  return options;
}

// Windows that do not end during a test.
inline LogRelayOptions long_windows() {
  LogRelayOptions options;
  options.window = 1h;
  return options;
}

struct Pipe {
  int read_end;
  int write_end;
};

inline Pipe make_pipe() {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) abort();
  return {ends[0], ends[1]};
}

// A pipe between a child and its test, for one byte each.
inline void tell(const Pipe& pipe) {
  if (write(pipe.write_end, "x", 1) != 1) _exit(90);
}

inline bool is_told(const Pipe& pipe) {
  pollfd readable = {.fd = pipe.read_end, .events = POLLIN, .revents = 0};
  char byte = 0;
  return poll(&readable, 1, limit_seconds * 1000) == 1 && read(pipe.read_end, &byte, 1) == 1;
}

inline void wait_until_told(const Pipe& pipe) {
  if (!is_told(pipe)) _exit(91);
}

// Runs body in a child with these as stdout and stderr; what body returns is the exit code.
inline pid_t start_child(int out, int err, const std::function<int()>& body) {
  fflush(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  alarm(limit_seconds);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  _exit(body());
}

// The exit code, or the signal's number as a negative one.
inline int end_of(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child) return 1000;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Reads two streams as they come, or one, and closes their ends.
inline std::array<std::string, 2> read_to_end(int first, int second = -1) {
  std::array<std::string, 2> texts;
  pollfd readable[] = {{.fd = first, .events = POLLIN, .revents = 0}, {.fd = second, .events = POLLIN, .revents = 0}};
  char bytes[64 * 1024];
  while ((readable[0].fd >= 0 || readable[1].fd >= 0) && poll(readable, 2, limit_seconds * 1000) > 0) {
    for (std::size_t i = 0; i < 2; ++i) {
      if (readable[i].fd < 0 || readable[i].revents == 0) continue;
      const ssize_t got = read(readable[i].fd, bytes, sizeof bytes);
      if (got > 0) {
        texts[i].append(bytes, static_cast<std::size_t>(got));
      } else {
        close(readable[i].fd);
        readable[i].fd = -1;
      }
    }
  }
  return texts;
}

// Reads until the text ends with `ending`, or the time limit is over.
inline std::string read_until(int fd, const std::string& ending) {
  std::string text;
  char byte = 0;
  pollfd readable = {.fd = fd, .events = POLLIN, .revents = 0};
  while (!text.ends_with(ending) && poll(&readable, 1, limit_seconds * 1000) == 1 && read(fd, &byte, 1) == 1)
    text += byte;
  return text;
}

inline std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// N of a line "BEFORE N BEHIND", or -1.
inline long number_between(const std::string& line, const std::string& before, const std::string& behind) {
  if (!line.starts_with(before) || !line.ends_with(behind) || line.size() < before.size() + behind.size()) return -1;
  const std::string number = line.substr(before.size(), line.size() - before.size() - behind.size());
  return number.empty() || number.find_first_not_of("0123456789") != std::string::npos ? -1 : std::stol(number);
}

inline long lost_by(const std::string& line) {
  return number_between(line, "dtv-host: ", " lines were lost, since nobody read them");
}

struct Output {
  int code = 1000;
  std::string out = {};
  std::string err = {};
};

// A child whose output is read continuously.
inline Output run_child(const std::function<int()>& body) {
  const Pipe out = make_pipe();
  const Pipe err = make_pipe();
  const pid_t child = start_child(out.write_end, err.write_end, body);
  close(out.write_end);
  close(err.write_end);
  auto [out_text, err_text] = read_to_end(out.read_end, err.read_end);
  return {.code = end_of(child), .out = std::move(out_text), .err = std::move(err_text)};
}

// How many of the printed lines, which are rising numbers, passed and how many were lost.
inline void expect_every_line_told(const std::string& text, long printed) {
  long passed = 0;
  long lost = 0;
  long last = -1;
  for (const std::string& line : lines_of(text)) {
    if (const long more = lost_by(line); more >= 0) {
      lost += more;
      EXPECT_EQ(last + 1 + more, passed + lost) << "told where they are missing";
      continue;
    }
    const long number = number_between(line, "line ", " of the log");
    ASSERT_EQ(number, passed + lost) << line;
    last = number;
    ++passed;
  }
  EXPECT_EQ(passed + lost, printed);
  EXPECT_GT(lost, 0);
  EXPECT_GT(passed, 256 * 1024 / 40) << "as much as the queue holds";
}
