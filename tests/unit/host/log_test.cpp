// The relay between a program and the readers of its output: which lines pass, and which are counted.
#include <map>

#include "log_support.h"

namespace {

TEST(LogRelay, AStalledReaderCostsLinesAndSaysHowMany) {
  constexpr int printed = 100'000;
  const Pipe out = make_pipe();
  const Pipe err = make_pipe();
  const Pipe done = make_pipe();
  const pid_t child = start_child(out.write_end, err.write_end, [&] {
    if (!log_relay_start(without_limits())) return 1;
    const auto begin = Clock::now();
    for (int i = 0; i < printed; ++i) {
      printf("line %d of the log\n", i);
      fprintf(stderr, "line %d of the log\n", i);
    }
    if (Clock::now() - begin > 30s) return 2;
    tell(done);
    log_relay_end(30s);
    return 0;
  });
  close(out.write_end);
  close(err.write_end);
  ASSERT_TRUE(is_told(done));
  const auto [out_text, err_text] = read_to_end(out.read_end, err.read_end);
  EXPECT_EQ(end_of(child), 0);
  expect_every_line_told(out_text, printed);
  expect_every_line_told(err_text, printed);
}

TEST(LogRelay, AStalledStreamDoesNotHoldTheOtherUp) {
  const Pipe out = make_pipe();
  const Pipe err = make_pipe();
  const pid_t child = start_child(out.write_end, err.write_end, [] {
    if (!log_relay_start(without_limits())) return 1;
    for (int i = 0; i < 50'000; ++i) printf("line %d of the log\n", i);
    fputs("here\n", stderr);
    log_relay_end(100ms);
    return 0;
  });
  EXPECT_EQ(read_until(err.read_end, "here\n"), "here\n");
  EXPECT_EQ(end_of(child), 0);
  for (const int fd : {out.read_end, out.write_end, err.read_end, err.write_end}) close(fd);
}

TEST(LogRelay, ALineIsLostAsAWhole) {
  constexpr int printed = 20;
  constexpr std::size_t length = 100'000;  // longer than line_bytes
  const Pipe out = make_pipe();
  const Pipe done = make_pipe();
  const pid_t child = start_child(out.write_end, STDERR_FILENO, [&] {
    if (!log_relay_start(without_limits())) return 1;
    for (std::size_t i = 0; i < printed; ++i) puts(std::string(length, static_cast<char>('a' + i)).c_str());
    tell(done);
    log_relay_end(30s);
    puts("and this");
    return 0;
  });
  close(out.write_end);
  ASSERT_TRUE(is_told(done));
  const std::vector<std::string> lines = lines_of(read_to_end(out.read_end)[0]);
  EXPECT_EQ(end_of(child), 0);
  long passed = 0;
  long lost = 0;
  for (const std::string& line : lines) {
    if (lost_by(line) >= 0) {
      lost += lost_by(line);
    } else if (line.size() == length) {
      EXPECT_TRUE(line == std::string(length, static_cast<char>('a' + passed + lost))) << line.substr(0, 9);
      ++passed;
    }
  }
  EXPECT_EQ(passed + lost, printed);
  EXPECT_GT(passed, 0);
  EXPECT_GT(lost, 0);
  EXPECT_EQ(lines.back(), "and this");
}

TEST(LogRelay, OfOneKindAFewLinesPassAndTheRestIsCounted) {
  const Output output = run_child([] {
    if (!log_relay_start(long_windows())) return 1;
    for (int i = 0; i < 1000; ++i) {
      printf("call %d failed with -%d\r\n", i, i % 7);
      if (i < 100) printf("call %d failed\n", i);
      if (i < 20) printf("%d calls\n", i);
    }
    fprintf(stderr, "call 1 failed\n");
    log_relay_end(30s);
    return 0;
  });
  EXPECT_EQ(output.code, 0);
  std::map<std::string, int> kinds;
  int number = 0;
  for (const std::string& line : lines_of(output.out)) {
    if (line.starts_with("call ") && line.ends_with("\r")) {
      EXPECT_EQ(line, "call " + std::to_string(number) + " failed with -" + std::to_string(number % 7) + "\r");
      ++number;
    } else if (line.starts_with("dtv-host: ")) {
      ++kinds[line];
    } else {
      ++kinds[line.ends_with("failed") ? "failed" : "calls"];
    }
  }
  EXPECT_EQ(number, 20);
  EXPECT_EQ(kinds, (std::map<std::string, int>{
                       {"failed", 20},
                       {"calls", 20},
                       {"dtv-host: the line \"call 0 failed with -0\" came 980 times more", 1},
                       {"dtv-host: the line \"call 0 failed\" came 80 times more", 1},
                   }));
  EXPECT_EQ(output.err, "call 1 failed\n") << "each stream counts its own";
}

TEST(LogRelay, TheBeginningOfALongLineNamesItsKind) {
  const std::string sixty(60, 'x');
  // The sixtieth and the sixty-first byte are one character.
  const std::string umlaut = std::string(59, 'y') + "\xc3\xbc";
  const Output output = run_child([&] {
    if (!log_relay_start(long_windows())) return 1;
    for (int i = 0; i < 21; ++i) {
      puts(sixty.c_str());
      puts((sixty + "z").c_str());
      puts(umlaut.c_str());
    }
    log_relay_end(30s);
    return 0;
  });
  EXPECT_EQ(output.code, 0);
  for (const std::string& beginning : {sixty, sixty + "...", std::string(59, 'y') + "..."})
    EXPECT_NE(output.out.find("dtv-host: the line \"" + beginning + "\" came 1 times more\n"), std::string::npos)
        << beginning;
}

TEST(LogRelay, KindsThatFindNoPlaceShareOneBudget) {
  const Output output = run_child([] {
    LogRelayOptions options = long_windows();
    options.kinds = 4;
    options.lines_of_a_kind = 2;
    options.lines_of_other_kinds = 3;
    if (!log_relay_start(options)) return 1;
    for (int round = 0; round < 5; ++round)
      for (std::size_t kind = 0; kind < 10; ++kind) printf("%s %d\n", name_of(kind).c_str(), round);
    log_relay_end(30s);
    return 0;
  });
  EXPECT_EQ(output.code, 0);
  std::string expected;
  for (std::size_t kind = 0; kind < 7; ++kind) expected += name_of(kind) + " 0\n";
  for (std::size_t kind = 0; kind < 4; ++kind) expected += name_of(kind) + " 1\n";
  for (std::size_t kind = 0; kind < 4; ++kind)
    expected += "dtv-host: the line \"" + name_of(kind) + " 0\" came 3 times more\n";
  expected += "dtv-host: 27 lines of many other kinds are left out\n";
  EXPECT_EQ(output.out, expected);
}

TEST(LogRelay, WhatWasCountedIsToldAfterTheWindow) {
  const Pipe out = make_pipe();
  const Pipe go = make_pipe();
  const pid_t child = start_child(out.write_end, STDERR_FILENO, [&] {
    LogRelayOptions options;
    options.window = 300ms;
    if (!log_relay_start(options)) return 1;
    for (int round = 0; round < 2; ++round) {
      for (int i = 0; i < 1000; ++i) printf("line %d\n", i);
      fflush(stdout);
      wait_until_told(go);
    }
    return 0;  // without log_relay_end: the windows have reported the lines
  });
  for (int round = 0; round < 2; ++round) {
    long passed = 0;
    long counted = 0;
    while (passed + counted < 1000) {
      const std::string line = read_until(out.read_end, "\n");
      const std::size_t came = line.find("\" came ");
      if (number_between(line, "line ", "\n") >= 0) {
        ++passed;
      } else {
        ASSERT_TRUE(line.starts_with("dtv-host: the line \"line ") && came != std::string::npos) << line;
        EXPECT_GE(passed, 20);
        counted += number_between(line.substr(came), "\" came ", " times more\n");
      }
    }
    EXPECT_EQ(passed + counted, 1000) << "in round " << round;
    EXPECT_GT(counted, 0);
    tell(go);
  }
  EXPECT_EQ(end_of(child), 0);
  close(out.read_end);
  close(out.write_end);
}

TEST(LogRelay, WhatIsLeftOutAndLostAddsUp) {
  // With a stalled reader and the default limits; the reports of lost lines may be lost themselves.
  constexpr std::size_t printed = 4000;
  const Pipe out = make_pipe();
  const Pipe done = make_pipe();
  const pid_t child = start_child(out.write_end, STDERR_FILENO, [&] {
    LogRelayOptions options = long_windows();
    options.lines_of_a_kind = 1;
    options.lines_of_other_kinds = 2000;
    if (!log_relay_start(options)) return 1;
    const std::string rest(1000, '.');
    for (std::size_t i = 0; i < printed; ++i) printf("%s%s\n", name_of(i % 3000).c_str(), rest.c_str());
    log_relay_end(1s);  // there is no reader yet, so the report of the counted lines is lost
    tell(done);
    log_relay_end(30s);
    return 0;
  });
  close(out.write_end);
  ASSERT_TRUE(is_told(done));
  const std::string text = read_to_end(out.read_end)[0];
  EXPECT_EQ(end_of(child), 0);
  long passed = 0;
  long lost = 0;
  for (const std::string& line : lines_of(text)) {
    ASSERT_TRUE(line.size() == 1005 || lost_by(line) > 0) << line;
    if (line.size() == 1005)
      ++passed;
    else
      lost += lost_by(line);
  }
  EXPECT_EQ(passed + lost, static_cast<long>(printed));
  EXPECT_GT(lost, 3000);
}

TEST(LogRelay, APartialLineArrives) {
  const Pipe out = make_pipe();
  const Pipe go = make_pipe();
  const pid_t child = start_child(out.write_end, STDERR_FILENO, [&] {
    if (!log_relay_start({})) return 1;
    printf("prompt> ");
    fflush(stdout);
    wait_until_told(go);
    printf("answer\nand ");
    log_relay_end(30s);
    printf("the end\n");
    fflush(stdout);
    return 0;
  });
  close(out.write_end);
  EXPECT_EQ(read_until(out.read_end, "> "), "prompt> ");
  tell(go);
  EXPECT_EQ(read_to_end(out.read_end)[0], "answer\nand the end\n");
  EXPECT_EQ(end_of(child), 0);
}

TEST(LogRelay, LongLinesArriveWhole) {
  const Output output = run_child([] {
    LogRelayOptions options;
    options.queue_bytes = 1024 * 1024;
    if (!log_relay_start(options)) return 1;
    puts(std::string(200'000, 'x').c_str());
    puts("short");
    puts(std::string(64 * 1024 - 1, 'y').c_str());
    puts(std::string(64 * 1024, 'z').c_str());
    log_relay_end(30s);
    return 0;
  });
  EXPECT_EQ(output.code, 0);
  EXPECT_TRUE(output.out == std::string(200'000, 'x') + "\nshort\n" + std::string(64 * 1024 - 1, 'y') + "\n" +
                                std::string(64 * 1024, 'z') + "\n")
      << output.out.size() << " bytes";
}

}  // namespace
