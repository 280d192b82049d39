// The command line of dtv-host.
#include "options.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;

// The exit code; -1 when the program goes on.
int read(std::vector<std::string> words, Options& options) {
  words.insert(words.begin(), "dtv-host");
  std::vector<char*> values;
  for (std::string& word : words) values.push_back(word.data());
  values.push_back(nullptr);
  optind = 0;  // getopt_long begins again
  return options_read(static_cast<int>(words.size()), values.data(), options).value_or(-1);
}

TEST(Options, EachChangesItsOwnValue) {
  Options options = options_defaults();
  EXPECT_EQ(read({"--listen", "127.0.0.1:9000", "--allow-origin=http://localhost:5173", "--web", "w", "--state", "s",
                  "--stick-root", "r", "--antenna", "a", "--plugin", "p", "--platform", "f", "--tap", "t"},
                 options),
            -1);
  EXPECT_EQ(options.server.policy.port, 9000);
  EXPECT_EQ(options.server.policy.allowed_origins, std::vector<std::string>{"http://localhost:5173"});
  EXPECT_EQ(options.server.web_folder, "w");
  EXPECT_EQ(options.stack.state_folder, "s");
  EXPECT_EQ(options.stack.stick_root, "r");
  EXPECT_EQ(options.stack.antenna, "a");
  EXPECT_EQ(options.stack.plugin, "p");
  EXPECT_EQ(options.stack.platform, "f");
  EXPECT_EQ(options.stack.tap, "t");

  EXPECT_EQ(read({"--max-message", "1", "--max-connections", "2", "--max-subscriptions", "3", "--max-requests", "4",
                  "--header-time", "5", "--body-time", "6", "--reply-time", "99999999"},
                 options),
            -1);
  const Limits& limits = options.server.limits;
  EXPECT_EQ(limits.message_bytes, 1u);
  EXPECT_EQ(limits.connections, 2u);
  EXPECT_EQ(limits.subscriptions, 3u);
  EXPECT_EQ(limits.requests, 4u);
  EXPECT_EQ(limits.header_time, 5s);
  EXPECT_EQ(limits.body_time, 6s);
  EXPECT_EQ(limits.reply_time, 24h) << "no longer than a day";
}

TEST(Options, FlagsSwitchFromTheDefaults) {
  Options options = options_defaults();
  EXPECT_TRUE(options.private_paths && options.cec && options.broadcast && options.server.watchdog);
  EXPECT_FALSE(options.server.require_token || options.quiet || options.stack.tap.empty());
  EXPECT_EQ(read({"--no-tap", "--no-private-paths", "--no-cec", "--no-broadcast-init", "--no-watchdog",
                  "--require-token", "--quiet"},
                 options),
            -1);
  EXPECT_FALSE(options.private_paths || options.cec || options.broadcast || options.server.watchdog);
  EXPECT_TRUE(options.server.require_token && options.quiet && options.stack.tap.empty());
}

TEST(Options, WrongWordsAreExitCode2) {
  const std::vector<std::vector<std::string>> wrong = {{"word"},
                                                       {"--nothing"},
                                                       {"--listen"},
                                                       {"--listen", "here"},
                                                       {"--no-tap=1"},
                                                       {"--tap"},
                                                       {"--max-message", "0"},
                                                       {"--max-message", "1x"},
                                                       {"--max-message", "-1"},
                                                       {"--max-message", ""},
                                                       {"--header-time"},
                                                       {"--header-time", "0"},
                                                       {"--header-time", "x"},
                                                       {"--allow-origin", "x"}};
  for (const std::vector<std::string>& words : wrong) {
    Options options = options_defaults();
    testing::internal::CaptureStderr();
    EXPECT_EQ(read(words, options), 2) << testing::PrintToString(words);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "") << testing::PrintToString(words);
  }
}

TEST(Options, HelpAndVersionEndTheProgram) {
  Options options = options_defaults();
  testing::internal::CaptureStdout();
  EXPECT_EQ(read({"--help", "--nothing"}, options), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), options_help());
  testing::internal::CaptureStdout();
  EXPECT_EQ(read({"--version"}, options), 0);
  EXPECT_TRUE(testing::internal::GetCapturedStdout().starts_with("dtv-host "));
}

TEST(Options, TheHelpNamesArgumentsAndDefaults) {
  const std::string help = options_help();
  for (const char* line : {"\n  --max-message BYTES     longest request message (default 1048576)\n",
                           "\n  --header-time SECONDS   time for a request's line and headers (default 10)\n",
                           "\n  --no-cec                do not start HDMI-CEC\n"})
    EXPECT_NE(help.find(line), std::string::npos) << line;
  std::size_t begin = 0;
  for (std::size_t end = help.find('\n'); end != std::string::npos; begin = end + 1, end = help.find('\n', begin))
    EXPECT_LE(end - begin, 120u) << help.substr(begin, end - begin);
}

}  // namespace
