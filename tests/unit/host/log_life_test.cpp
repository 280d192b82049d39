// The relay between a program and the readers of its output: its end, descriptors of every kind, its threads.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "log_support.h"

namespace {

TEST(LogRelay, AClosedReaderIsNoError) {
  const Pipe out = make_pipe();
  const Pipe err = make_pipe();
  close(out.read_end);
  close(err.read_end);
  // The relay handles the SIGPIPE of such a write; this process does not ignore it itself.
  const pid_t child = start_child(out.write_end, err.write_end, [] {
    signal(SIGPIPE, SIG_DFL);
    if (!log_relay_start(without_limits())) return 1;
    for (int i = 0; i < 10'000; ++i) {
      puts("line");
      fputs("line\n", stderr);
    }
    log_relay_end(30s);
    puts("line");
    fputs("line\n", stderr);
    return 0;
  });
  close(out.write_end);
  close(err.write_end);
  EXPECT_EQ(end_of(child), 0);
}

TEST(LogRelay, AStalledReaderDoesNotDelayTheEnd) {
  const Pipe out = make_pipe();
  const Pipe err = make_pipe();
  const pid_t child = start_child(out.write_end, err.write_end, [] {
    if (!log_relay_start(without_limits())) return 1;
    const auto print = [] {
      for (int i = 0; i < 30'000; ++i) {
        printf("line %d of the log\n", i);
        fprintf(stderr, "line %d of the log\n", i);
      }
    };
    print();
    const auto begin = Clock::now();
    log_relay_end(500ms);
    const auto taken = Clock::now() - begin;
    print();  // does not block either
    return taken >= 500ms && taken < 1500ms ? 0 : 2;
  });
  EXPECT_EQ(end_of(child), 0);
  for (const int fd : {out.read_end, out.write_end, err.read_end, err.write_end}) close(fd);
}

// Returns from main, so that the exit functions of the C library and the sanitizers run while the writer waits.
TEST(LogRelay, TheProcessExitsWithAStalledReader) {
  const Pipe out = make_pipe();
  const pid_t child = start_child(out.write_end, STDERR_FILENO, []() -> int {
    if (!log_relay_start(without_limits())) return 1;
    for (int i = 0; i < 30'000; ++i) printf("line %d of the log\n", i);
    log_relay_end(100ms);
    printf("unfinished");
    exit(0);
  });
  EXPECT_EQ(end_of(child), 0);
  close(out.read_end);
  close(out.write_end);
}

TEST(LogRelay, AfterTheEndTheDescriptorsAreTheOldOnes) {
  const Output output = run_child([] {
    struct stat before[3];
    struct stat during[3];
    struct stat after[3];
    for (int fd = 1; fd <= 2; ++fd) fstat(fd, &before[fd]);
    if (!log_relay_start({})) return 1;
    for (int fd = 1; fd <= 2; ++fd) fstat(fd, &during[fd]);
    puts("first");
    fputs("first\n", stderr);
    log_relay_end(30s);
    log_relay_end(30s);
    for (int fd = 1; fd <= 2; ++fd) fstat(fd, &after[fd]);
    puts("second");
    fputs("second\n", stderr);
    for (int fd = 1; fd <= 2; ++fd)
      if (before[fd].st_ino == during[fd].st_ino || before[fd].st_ino != after[fd].st_ino) return 2;
    return 0;
  });
  EXPECT_EQ(output.code, 0);
  EXPECT_EQ(output.out, "first\nsecond\n");
  EXPECT_EQ(output.err, "first\nsecond\n");
}

TEST(LogRelay, WithoutARelayThereIsNoEnd) {
  const Output output = run_child([] {
    log_relay_end(30s);
    puts("here");
    fflush(stdout);
    return 0;
  });
  EXPECT_EQ(output.code, 0);
  EXPECT_EQ(output.out, "here\n");
}

TEST(LogRelay, WhatWasPrintedBeforeACrashArrives) {
  const Output output = run_child([] {
    const rlimit no_core{};
    setrlimit(RLIMIT_CORE, &no_core);
    if (!log_relay_start({})) return 1;
    puts("nearly there");
    fputs("it cannot go on\n", stderr);
    abort();
  });
  EXPECT_EQ(output.code, -SIGABRT);
  EXPECT_EQ(output.out, "nearly there\n");
  EXPECT_NE(output.err.find("it cannot go on\n"), std::string::npos);
}

TEST(LogRelay, TheOldDescriptorKeepsItsFlags) {
  for (const int flags : {0, O_NONBLOCK}) {
    const Pipe out = make_pipe();
    const Pipe done = make_pipe();
    fcntl(out.write_end, F_SETFL, flags);
    const pid_t child = start_child(out.write_end, STDERR_FILENO, [&] {
      if (!log_relay_start(without_limits())) return 1;
      for (int i = 0; i < 50'000; ++i) printf("line %d of the log\n", i);
      tell(done);
      log_relay_end(30s);
      return 0;
    });
    ASSERT_TRUE(is_told(done));
    EXPECT_EQ(fcntl(out.write_end, F_GETFL) & O_NONBLOCK, flags);
    close(out.write_end);
    expect_every_line_told(read_to_end(out.read_end)[0], 50'000);
    EXPECT_EQ(end_of(child), 0);
  }
}

TEST(LogRelay, ClosedDescriptorsAreNoObstacle) {
  const pid_t child = start_child(STDOUT_FILENO, STDERR_FILENO, [] {
    for (int fd = 0; fd <= 2; ++fd) close(fd);
    if (!log_relay_start({})) return 1;
    puts("nobody");
    fputs("nobody\n", stderr);
    const int file = open("/dev/null", O_RDONLY);
    log_relay_end(30s);
    return file > 2 ? 0 : 2;
  });
  EXPECT_EQ(end_of(child), 0);
}

TEST(LogRelay, AnyFileWillDo) {
  const int null = open("/dev/null", O_WRONLY);
  const int full = open("/dev/full", O_WRONLY);
  const std::filesystem::path path = std::filesystem::temp_directory_path() / ("log_relay_" + std::to_string(getpid()));
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const auto print = [] {
    if (!log_relay_start(without_limits())) return 1;
    for (int i = 0; i < 10'000; ++i) {
      printf("out %d\n", i);
      fprintf(stderr, "err %d\n", i);
    }
    log_relay_end(30s);
    return 0;
  };
  EXPECT_EQ(end_of(start_child(null, full, print)), 0);
  EXPECT_EQ(end_of(start_child(full, null, print)), 0);
  EXPECT_EQ(end_of(start_child(file, null, print)), 0);
  std::string expected;
  for (int i = 0; i < 10'000; ++i) expected += "out " + std::to_string(i) + "\n";
  std::ostringstream written;
  written << std::ifstream(path).rdbuf();
  EXPECT_TRUE(written.str() == expected) << written.str().size() << " bytes";
  std::filesystem::remove(path);
  for (const int fd : {null, full, file}) close(fd);
}

TEST(LogRelay, BothStreamsMayHaveOneReader) {
  constexpr std::size_t printed = 20'000;
  const Pipe both = make_pipe();
  const pid_t child = start_child(both.write_end, both.write_end, [&] {
    LogRelayOptions options = without_limits();
    options.queue_bytes = 16 * 1024 * 1024;
    if (!log_relay_start(options)) return 1;
    for (std::size_t i = 0; i < printed; ++i) {
      printf("out %zu\n", i);
      fprintf(stderr, "err %zu\n", i);
    }
    log_relay_end(30s);
    return 0;
  });
  close(both.write_end);
  const std::vector<std::string> lines = lines_of(read_to_end(both.read_end)[0]);
  EXPECT_EQ(end_of(child), 0);
  std::map<std::string, std::size_t> next;
  for (const std::string& line : lines) {
    const std::string stream = line.substr(0, 3);
    ASSERT_EQ(line, stream + " " + std::to_string(next[stream])) << "whole, and in order";
    ++next[stream];
  }
  EXPECT_EQ(next, (std::map<std::string, std::size_t>{{"out", printed}, {"err", printed}}));
}

TEST(LogRelay, ATerminalShowsTheSame) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  char name[64];
  ASSERT_EQ(ptsname_r(terminal, name, sizeof name), 0);
  const int screen = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(screen, 0);
  const Pipe go = make_pipe();
  const pid_t child = start_child(screen, screen, [&] {
    if (!log_relay_start({})) return 1;
    puts("a line comes without a flush");
    wait_until_told(go);
    printf("and a prompt> ");
    fflush(stdout);
    wait_until_told(go);
    fputs("stderr", stderr);
    log_relay_end(30s);
    return 0;
  });
  EXPECT_EQ(read_until(terminal, "\n"), "a line comes without a flush\r\n");
  tell(go);
  EXPECT_EQ(read_until(terminal, "> "), "and a prompt> ");
  tell(go);
  EXPECT_EQ(read_until(terminal, "stderr"), "stderr");
  EXPECT_EQ(end_of(child), 0);
  close(screen);
  close(terminal);
}

// A field of the status of each relay thread, by the thread's name.
std::map<std::string, std::string> thread_field(const std::string& field) {
  std::map<std::string, std::string> values;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    std::string name;
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("Name:\t")) name = line.substr(6);
      if (line.starts_with(field + ":\t") && name.starts_with("dtv_log-")) values[name] = line.substr(field.size() + 2);
    }
  }
  return values;
}

TEST(LogRelay, AnIdleRelaySleeps) {
  const Output output = run_child([] {
    if (!log_relay_start({})) return 1;
    puts("a line, and the beginning");
    printf("of another");
    fflush(stdout);
    const auto sleeps = [](std::chrono::milliseconds time) {
      const auto before = thread_field("voluntary_ctxt_switches");
      std::this_thread::sleep_for(time);
      return before.size() == 3 && before == thread_field("voluntary_ctxt_switches");
    };
    // On a busy machine the lines or the threads may be late.
    for (int i = 0; i < 20; ++i)
      if (sleeps(150ms) && sleeps(1s)) return 0;
    return 3;
  });
  EXPECT_EQ(output.code, 0);
}

TEST(LogRelay, ItsThreadsTakeNoSignal) {
  const Output output = run_child([] {
    sigset_t before;
    sigset_t after;
    sigemptyset(&before);
    sigaddset(&before, SIGUSR2);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!log_relay_start({})) return 1;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    puts("here");
    fputs("here\n", stderr);
    log_relay_end(30s);  // all three threads run
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGUSR1, SIGUSR2, SIGCHLD, SIGALRM}) {
      if (sigismember(&after, number) != (number == SIGUSR2)) return 2;
      const auto masks = thread_field("SigBlk");
      if (masks.size() != 3) return 3;
      for (const auto& [name, mask] : masks)
        if ((std::stoull(mask, nullptr, 16) >> (number - 1) & 1) == 0) return 4;
    }
    return 0;
  });
  EXPECT_EQ(output.code, 0);
}

}  // namespace
