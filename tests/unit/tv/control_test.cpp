// The control interface: its help, generated from the commands of all rooms, and its errors.
#include "support.h"

namespace {

class TvControl : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(tv_start(folder_.path), ""); }

  // The words that "help" offers after the given ones, which are written as inside a JSON array.
  static std::string next(const std::string& words) {
    std::string answer = tv_control(R"(["help",)" + words + "]");
    const std::string mark = R"("next":[)";
    const std::size_t begin = answer.find(mark);
    if (begin == std::string::npos || !answer.ends_with("]}")) return answer;
    answer = answer.substr(begin + mark.size(), answer.size() - begin - mark.size() - 2);
    std::string offered;
    for (const char c : answer)
      if (c != '"') offered += c == ',' ? ' ' : c;
    return offered;
  }

  TvFolder folder_;
};

TEST_F(TvControl, HelpListsEveryCommand) {
  const std::string help = tv_control(R"(["help"])");
  EXPECT_EQ(help.rfind(R"({"commands":[{"name":")", 0), 0u) << help;
  for (const char* name : {"volume", "mute", "config", "key", "power", "clock", "app", "cec", "stick", "network",
                           "state", "reset", "help"}) {
    const std::string row = std::string(R"({"name":")") + name + R"(","arguments":")";
    const std::size_t first = help.find(row);
    EXPECT_NE(first, std::string::npos) << name;
    EXPECT_EQ(help.find(row, first + 1), std::string::npos) << name << " is listed twice";
  }
  EXPECT_NE(help.find(R"({"name":"mute","arguments":"[on|off|toggle]","help":"Presses the mute key"})"),
            std::string::npos);
}

TEST_F(TvControl, HelpForACommandListsTheNextWords) {
  EXPECT_EQ(next(R"("mute")"), "on off toggle");
  EXPECT_EQ(next(R"("mute","on")"), "");
  EXPECT_EQ(next(R"("volume")"), "N up down");
  EXPECT_EQ(next(R"("state")"), "");
  EXPECT_EQ(next(R"("stick")"), "insert remove list");
  EXPECT_EQ(next(R"("stick","insert")"), "DIR");
  EXPECT_EQ(next(R"("stick","insert","/media")"), "LABEL");
  EXPECT_EQ(next(R"("stick","insert","/media","Holiday")"), "");
  EXPECT_EQ(next(R"("stick","remove")"), "DEV LABEL DIR all");
  EXPECT_EQ(next(R"("stick","list")"), "");
  EXPECT_EQ(next(R"("stick","dance")"), "");
  EXPECT_EQ(next(R"("clock")"), "set zone sleep");
  EXPECT_EQ(next(R"("clock","zone")"), "NAME");
  EXPECT_EQ(next(R"("cec")"), "play standby unplug plug send frames");
  EXPECT_EQ(next(R"("cec","send","dvd")"), "BYTE...");
}

TEST_F(TvControl, HelpForAnUnknownCommandListsTheCommands) {
  const std::string answer = tv_control(R"(["help","dance"])");
  expect_words(answer, {R"({"error":)", R"(\"dance\")", "volume", "stick", "help"});
}

TEST_F(TvControl, AnErrorReplacesControlCharacters) {
  EXPECT_NE(tv_control(R"(["dance\u0007\n"])").find(R"(there is no command \"dance??\")"), std::string::npos);
}

}  // namespace
