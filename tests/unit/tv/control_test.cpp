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
  EXPECT_EQ(next(R"("state")"), "all");
  EXPECT_EQ(next(R"("stick")"), "insert remove list folders");
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

TEST_F(TvControl, StateAllShowsWhatTheOtherCommandsShow) {
  const auto part = [](const char* name, const std::string& reply) { return "\"" + std::string(name) + "\":" + reply; };
  const auto member = [](const std::string& reply, const char* name) {
    const std::string key = "\"" + std::string(name) + "\":";
    const std::size_t begin = reply.find(key) + key.size();
    return reply.substr(begin, reply.rfind(']') + 1 - begin);
  };
  ASSERT_EQ(tv_control(R"(["state","some"])"), R"({"error":"state takes all, or nothing, not \"some\""})");
  ASSERT_EQ(tv_control(R"(["state"])").find("applications"), std::string::npos);
  ASSERT_NE(tv_control(R"(["cec","unplug","player"])").find("player"), std::string::npos);
  const std::string all = tv_control(R"(["state","all"])");
  EXPECT_NE(all.find(TV_FACTORY_STATE), std::string::npos) << all;
  for (const std::string& expected :
       {part("applications", tv_control(R"(["app"])")), part("network", tv_control(R"(["network"])")),
        part("sticks", member(tv_control(R"(["stick"])"), "sticks")),
        part("sources", member(tv_control(R"(["source"])"), "sources")),
        part("cec", member(tv_control(R"(["cec"])"), "devices"))})
    EXPECT_NE(all.find(expected), std::string::npos) << expected << " is not in " << all;
  EXPECT_NE(all.find(R"("zone":"Europe/Berlin")"), std::string::npos);
}

// Words that begin a form of a command, and the forms that are named in the refusal.
struct Unfinished {
  const char* words;
  const char* usage;
};

TEST_F(TvControl, AMissingWordIsNamedByTheFormThatItBelongsTo) {
  constexpr Unfinished kUnfinished[] = {
      {R"("channel")", "channel CHANNEL | CHANNEL name TEXT... | CHANNEL number N | "},
      {R"("channel","1","name")", "channel CHANNEL name TEXT...\""},
      {R"("channel","1","number")", "channel CHANNEL number N\""},
      {R"("channel","move")", "channel move CHANNEL to CHANNEL\""},
      {R"("channel","move","1")", "channel move CHANNEL to CHANNEL\""},
      {R"("channel","move","1","to")", "channel move CHANNEL to CHANNEL\""},
      {R"("channels","from")", "channels from N\""},
      {R"("channels","news","from")", "channels TEXT from N\""},
      {R"("channels","import")", "channels import FILE...\""},
      {R"("favourite")", "favourite CHANNEL [add|remove]\""},
      {R"("favourites","from")", "favourites [from N]\""},
      {R"("favourites","1","from")", "favourites INDEX from N\""},
      {R"("tune")", "tune CHANNEL|next|previous|back\""},
      {R"("tuner","pin")", "tuner pin PIN\""},
      {R"("tuner","audio")", "tuner audio NUMBER\""},
      {R"("tuner","subtitle")", "tuner subtitle NUMBER|off\""},
      {R"("guide","range")", "guide range FROM TO BEGIN END\""},
      {R"("guide","range","1","2","0")", "guide range FROM TO BEGIN END\""},
      {R"("guide","event")", "guide event CHANNEL ID\""},
      {R"("guide","event","1")", "guide event CHANNEL ID\""},
      {R"("guide","search")", "guide search TEXT...\""},
      {R"("guide","import")", "guide import FILE... | import cancel\""},
      {R"("guide","map","x")", "guide map [XMLTVID CHANNEL|none]\""},
      {R"("record")", "record now [MINUTES] | stop [ID] | event CHANNEL EVENTID [series] | CHANNEL FROM MINUTES\""},
      {R"("record","event")", "record event CHANNEL EVENTID [series]\""},
      {R"("record","event","1")", "record event CHANNEL EVENTID [series]\""},
      {R"("record","1")", "record CHANNEL FROM MINUTES\""},
      {R"("record","1","+5")", "record CHANNEL FROM MINUTES\""},
      {R"("timer")", "timer ID [delete]\""},
      {R"("recording","1","name")", "recording ID name TEXT\""},
      {R"("reminder")", "reminder CHANNEL EVENTID [watch]\""},
      {R"("reminder","1")", "reminder CHANNEL EVENTID [watch]\""},
      {R"("multiview","focus")", "multiview focus main|sub\""},
      {R"("multiview","channel")", "multiview channel CHANNEL\""},
      {R"("source","1","label")", "source NAME|NUMBER label LABEL\""},
      {R"("clock","set")", "clock set TIME|machine\""},
      {R"("cec","send","dvd")", "cec send DEVICE BYTE...\""},
      {R"("stick","insert")", "stick insert DIR"},
  };
  for (const Unfinished& each : kUnfinished) {
    const std::string answer = tv_control(std::string("[") + each.words + "]");
    EXPECT_EQ(answer.rfind(R"({"error":"a word is missing; usage: )" + std::string(each.usage), 0), 0u)
        << each.words << ": " << answer;
  }
}

TEST_F(TvControl, WordsThatAFormMayEndWithAreNotMissing) {
  for (const char* const words : {R"("channels")",
                                  R"("channels","categories")",
                                  R"("channels","categories","1")",
                                  R"("antenna")",
                                  R"("scan")",
                                  R"("guide")",
                                  R"("guide","now")",
                                  R"("guide","map")",
                                  R"("record","now")",
                                  R"("record","stop")",
                                  R"("tuner")",
                                  R"("multiview")",
                                  R"("source")",
                                  R"("source","1","name")",
                                  R"("timers")",
                                  R"("recordings")",
                                  R"("help","tune")",
                                  R"("channels","import","none")",
                                  R"("channel","1","categories")",
                                  R"("volume")",
                                  R"("key")",
                                  R"("state")"})
    EXPECT_EQ(tv_control(std::string("[") + words + "]").find("a word is missing"), std::string::npos) << words;
}

TEST_F(TvControl, HelpNamesTheValuesThatAreKnownWithoutASet) {
  const auto names = [](const std::string& words) {
    const std::string answer = tv_control(R"(["help",)" + words + "]");
    const std::size_t found = answer.find(R"("names":)");
    return found == std::string::npos ? "" : answer.substr(found + 8, answer.size() - found - 9);
  };
  EXPECT_NE(names(R"("key")").find(R"("VOL+","VOL-")"), std::string::npos);
  EXPECT_NE(names(R"("config")").find(R"("g_gui_lang__gui_language")"), std::string::npos);
  EXPECT_EQ(names(R"("config","g_audio__speakers")"), R"(["on","off"])");
  EXPECT_EQ(names(R"("config","g_action__reset_all")"), R"(["trigger"])");
  EXPECT_EQ(names(R"("config","g_gui_lang__gui_language")"), R"(["eng","deu","fra","spa","tur"])");
  EXPECT_EQ(names(R"("config","g_audio__digital_output")"), R"(["off","automatic","PCM"])");
  EXPECT_EQ(names(R"("config","g_audio__key_tone")"), R"(["0","1","2","3"])");
  EXPECT_EQ(names(R"("config","g_audio__bass")"), R"(["50"])");
  EXPECT_EQ(names(R"("config","g_audio__speakers","on")"), "");
  EXPECT_EQ(names(R"("config","nothing")"), "");
  EXPECT_EQ(names(R"("volume")"), "");
}

TEST_F(TvControl, HelpForAnUnknownCommandListsTheCommands) {
  const std::string answer = tv_control(R"(["help","dance"])");
  expect_words(answer, {R"({"error":)", R"(\"dance\")", "volume", "stick", "help"});
}

TEST_F(TvControl, AnErrorReplacesControlCharacters) {
  EXPECT_NE(tv_control(R"(["dance\u0007\n"])").find(R"(there is no command \"dance??\")"), std::string::npos);
}

}  // namespace
