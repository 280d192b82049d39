// The log level and its file, and the form of the messages.
#include "tv_ctrl_util/log.h"

#include <regex>

#include "support.h"

namespace {

struct LevelFile : testing::Test {
  void TearDown() override { set_log_level(0); }

  // Reads a level file; what it printed on standard error.
  static std::string read(std::optional<std::string> text) {
    set_level_file(std::move(text));
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    vex_tvc_read_log_lvl();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    set_level_file(std::nullopt);
    static const std::regex kPrefix(R"(\[TVC_MAIN\]\[vex_tvc_read_log_lvl\]\[\d+\] -- )");
    return std::regex_replace(testing::internal::GetCapturedStderr(), kPrefix, "<> ");
  }
};

TEST_F(LevelFile, MissingFileMeansErrorsOnly) {
  set_log_level(7);
  EXPECT_EQ(read(std::nullopt), "");
  EXPECT_EQ(vex_tvc_debug_level(), 0);
}

TEST_F(LevelFile, LastLineWinsAndEachIsTold) {
  EXPECT_EQ(read("x=1\nlog=3\nlog=1\n"), "<> tvc log level: 3.\n<> tvc log level: 1.\n");
  EXPECT_EQ(vex_tvc_debug_level(), 1);
}

TEST_F(LevelFile, ConvertsAsDecimal) {
  const std::pair<const char*, int> rows[] = {
      {"log=abc\n", 0},  {"log=-1\n", -1},
      {"log= \t5\n", 5}, {"log=+5\n", 5},
      {"log=2x3\n", 2},  {"log=0x10\n", 0},
      {"log=010\n", 10}, {"log=\n", 0},
      {"log=", 0},       {"log=4", 4},
      {"log=4\r\n", 4},  {"log=10log=7\n", 10},
      {"log=-\n", 0},    {"log=99999999999\n", 2147483647},
  };
  for (const auto& [text, level] : rows) {
    set_log_level(3);
    EXPECT_EQ(read(text), "<> tvc log level: " + std::to_string(level) + ".\n") << text;
    EXPECT_EQ(vex_tvc_debug_level(), level) << text;
  }
}

TEST_F(LevelFile, OtherLinesSetNothing) {
  for (const char* const text : {" log=5\n", "LOG=5\n", "log =5\n", "Log=5\n", "xlog=5\n", "\n\n", "log\n"}) {
    set_log_level(0);
    EXPECT_EQ(read(text), "") << text;
    EXPECT_EQ(vex_tvc_debug_level(), 0) << text;
  }
}

TEST_F(LevelFile, LongLinesAreReadInPiecesOfThirty) {
  EXPECT_EQ(read(std::string(30, 'x') + "log=6....."), "<> tvc log level: 6.\n");
  EXPECT_EQ(vex_tvc_debug_level(), 6);
  set_log_level(0);
  EXPECT_EQ(read(std::string(29, 'x') + "log=6\n"), "");
  EXPECT_EQ(read(std::string(31, 'x') + "log=6\n"), "");
  EXPECT_EQ(read(std::string(60, 'x') + "log=8\n"), "<> tvc log level: 8.\n");
  // A digit past the 30th character belongs to the next piece.
  EXPECT_EQ(read("log=" + std::string(25, '0') + "12\n"), "<> tvc log level: 1.\n");
}

TEST_F(LevelFile, LineFeedOfAFullPieceIsAPieceOfItsOwn) {
  EXPECT_EQ(read(std::string(30, 'x') + "\nlog=2\n"), "<> tvc log level: 2.\n");
  EXPECT_EQ(vex_tvc_debug_level(), 2);
}

TEST(Log, MessageNamesFunctionAndLine) {
  testing::internal::CaptureStdout();
  TVC_LOG(kLogError, "value %d of %s!\n", 7, "x");
  const int line = __LINE__ - 1;
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[TVC_API][TestBody][" + std::to_string(line) + "] --> value 7 of x!\n");
}

TEST(Log, LevelsGate) {
  const auto print_all = [] {
    for (const int level : {0, 1, 2, 5, 10}) TVC_LOG_AS(level, "f", "%d.", level);
  };
  const std::pair<int, const char*> rows[] = {
      {-1, ""},
      {0, "<f> 0."},
      {1, "<f> 0.<f> 1."},
      {2, "<f> 0.<f> 1.<f> 2."},
      {4, "<f> 0.<f> 1.<f> 2."},
      {5, "<f> 0.<f> 1.<f> 2.<f> 5."},
      {9, "<f> 0.<f> 1.<f> 2.<f> 5."},
      {10, "<f> 0.<f> 1.<f> 2.<f> 5.<f> 10."},
  };
  for (const auto& [level, expected] : rows) {
    set_log_level(level);
    EXPECT_EQ(printed_by(print_all), expected) << level;
  }
  set_log_level(0);
}

TEST(Log, FailureIsPrintedWhateverTheLevel) {
  set_log_level(-1);
  testing::internal::CaptureStdout();
  tvc_log_fail("some_function", 42, -3);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[TVC_MAIN]:Return fail:some_function:42:-3\r\n");
  set_log_level(0);
}

}  // namespace
