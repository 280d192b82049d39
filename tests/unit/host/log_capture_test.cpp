// The lines of a call while other threads print. Each test replaces stdout and stderr in a process of its own.
#include "log_capture.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// The descriptors 1 and 2 of the process, and what it leaves in its results.
struct Printed {
  std::string output;
  std::string errors;
  std::string results;
};

std::string read_file(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// Runs the function with captures in a child process. What it returns are the results.
Printed in_process(std::string (*run)()) {
  std::string folder = "/tmp/log-capture-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) ADD_FAILURE() << "no folder";
  const std::string names[] = {folder + "/out", folder + "/err", folder + "/results"};
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    if (std::freopen(names[0].c_str(), "w", stdout) == nullptr ||
        std::freopen(names[1].c_str(), "w", stderr) == nullptr || !log_capture_start())
      _exit(1);
    const std::string results = run();
    std::ofstream(names[2]) << results;
    std::fflush(nullptr);
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  Printed printed{.output = read_file(names[0]), .errors = read_file(names[1]), .results = read_file(names[2])};
  for (const std::string& name : names) unlink(name.c_str());
  rmdir(folder.c_str());
  return printed;
}

constexpr int kLines = 100;

// The numbers behind each name, "NAME NUMBER" by line.
std::map<std::string, std::vector<int>> numbers_of(const std::string& text) {
  std::map<std::string, std::vector<int>> numbers;
  std::istringstream lines(text);
  std::string name;
  for (int number = 0; lines >> name >> number;) numbers[name].push_back(number);
  EXPECT_TRUE(lines.eof()) << text;
  return numbers;
}

std::vector<int> up_to(int count) {
  std::vector<int> numbers;
  for (int i = 0; i < count; ++i) numbers.push_back(i);
  return numbers;
}

TEST(LogCapture, EachThreadHasItsOwnLinesAndAllArePrinted) {
  const Printed printed = in_process([] {
    std::string captured[2];
    const auto print = [](const char* name) {
      for (int i = 0; i < kLines; ++i) std::fprintf(i % 2 == 0 ? stdout : stderr, "%s %d\n", name, i);
    };
    std::thread first([&] {
      log_capture(&captured[0]);
      print("first");
      log_capture(nullptr);
    });
    std::thread second([&] {
      log_capture(&captured[1]);
      print("second");
      log_capture(nullptr);
    });
    std::thread other([&] { print("other"); });
    first.join();
    second.join();
    other.join();
    return captured[0] + "--- 0\n" + captured[1];
  });
  const std::size_t end = printed.results.find("--- 0\n");
  ASSERT_NE(end, std::string::npos);
  EXPECT_EQ(numbers_of(printed.results.substr(0, end)),
            (std::map<std::string, std::vector<int>>{{"first", up_to(kLines)}}));
  EXPECT_EQ(numbers_of(printed.results.substr(end + 6)),
            (std::map<std::string, std::vector<int>>{{"second", up_to(kLines)}}));
  const auto output = numbers_of(printed.output);
  const auto errors = numbers_of(printed.errors);
  for (const char* name : {"first", "second", "other"}) {
    ASSERT_TRUE(output.contains(name) && errors.contains(name)) << name;
    EXPECT_EQ(output.at(name).size(), kLines / 2) << name;
    EXPECT_EQ(errors.at(name).size(), kLines / 2) << name;
  }
  EXPECT_EQ(output.size(), 3U);
  EXPECT_EQ(errors.size(), 3U);
}

TEST(LogCapture, EndsWhileAnotherThreadPrints) {
  const Printed printed = in_process([] {
    std::string captured;
    std::atomic<bool> ends{false};
    std::atomic<int> others{0};
    std::thread other([&] {
      for (; !ends; ++others) std::printf("other %d\n", others.load());
    });
    const auto await = [&](int count) {
      while (others < count) std::this_thread::yield();
    };
    for (int i = 0; i < kLines; ++i) {
      await(i + 1);
      log_capture(&captured);
      std::printf("inside %d\n", i);
      log_capture(nullptr);
      std::printf("outside %d\n", i);
    }
    ends = true;
    other.join();
    return captured + "count " + std::to_string(others.load()) + "\n";
  });
  const auto results = numbers_of(printed.results);
  ASSERT_EQ(results.size(), 2U) << printed.results;
  EXPECT_EQ(results.at("inside"), up_to(kLines));
  const auto output = numbers_of(printed.output);
  EXPECT_EQ(output.at("inside"), up_to(kLines));
  EXPECT_EQ(output.at("outside"), up_to(kLines));
  EXPECT_EQ(output.at("other"), up_to(results.at("count").at(0)));
}

TEST(LogCapture, KeepsNoMoreThanItsLimitAndPrintsTheRest) {
  const Printed printed = in_process([] {
    std::string captured;
    log_capture(&captured);
    for (std::size_t i = 0; i < 2 * kLogCaptureBytes / 64; ++i) std::printf("%063d\n", 7);
    log_capture(nullptr);
    return captured;
  });
  EXPECT_EQ(printed.results.size(), kLogCaptureBytes);
  EXPECT_EQ(printed.output.size(), 2 * kLogCaptureBytes);
}

}  // namespace
