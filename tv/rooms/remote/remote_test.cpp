// Keys, from the command device and from the command "key"; power, channel, source.
#include <malloc.h>

#include <atomic>
#include <set>
#include <thread>

#include "tests/unit/tv/support.h"

namespace {

struct TvRemote : testing::Test {
  ManualClock manual;
  TvFolder folder;
  TvRemote() { EXPECT_EQ(tv_start(folder.path), ""); }
};

void type(const std::string& text) {
  for (const char character : text) dtv_tv_command(character);
}

void send(const std::string& code) { type("ir.rx.send " + code + "\r\n"); }

void press(const std::string& name) {
  const std::string answer = tv_control(R"(["key",")" + name + R"("])");
  EXPECT_EQ(answer.find("error"), std::string::npos) << answer;
}

bool shown(const std::string& part) { return tv_control(R"(["state"])").find(part) != std::string::npos; }

// "12 TV": channel and source
std::string place() {
  const std::string state = tv_control(R"(["state"])");
  const auto after = [&](const std::string& name) {
    const std::size_t start = state.find('"' + name + "\":") + name.size() + 3;
    std::string value = state.substr(start, state.find_first_of(",}", start) - start);
    std::erase(value, '"');
    return value;
  };
  return after("channel") + " " + after("source");
}

TEST_F(TvRemote, CommandDeviceAcceptsKeyCodes) {
  send("0x6f000");  // VOL+
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 21);
  EXPECT_TRUE(shown(R"("key":"VOL+")"));
  send("0x6f001");
  send("0x6f001");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 19);
  type("ir.rx.send 0x6f002\n");  // MUTE; the line feed alone ends a line
  EXPECT_EQ(a_vextvapi_volctrl_getMute(), 1);
  send("0x6f000");  // raising the volume unmutes
  EXPECT_EQ(a_vextvapi_volctrl_getMute(), 0);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
}

TEST_F(TvRemote, AKeyIsPressedAtTheLineFeed) {
  type("ir.rx.send 0x6f000");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  type("\r");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  type("\n");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 21);
}

TEST_F(TvRemote, UnknownLinesAreReportedAndDoNothing) {
  const std::string before = tv_control(R"(["state"])");
  const struct {
    std::string line;
    std::string log;
  } cases[] = {
      {"", "\"\""},
      {"ir.rx.send", "\"ir.rx.send\""},
      {"ir.rx.send ", "\"ir.rx.send \""},
      {"ir.rx.send 0x6f00", "0x6f00\""},
      {"ir.rx.send 0x6f0000", "0x6f0000"},
      {"ir.rx.send 0x6f000 ", "0x6f000 \""},
      {"ir.rx.send CUSTOM", "CUSTOM"},
      {"IR.RX.SEND 0x6f000", "IR.RX.SEND"},
      {"reboot\x1b[2J", "reboot?[2J"},
      {std::string("ir.rx.send 0x6f000\0", 19), "0x6f000?"},
      {std::string(64, 'a'), "\"" + std::string(64, 'a') + "\""},
      {std::string(1000, 'a'), "\"" + std::string(64, 'a') + "\""},
      {"ir.rx.send 0x6f000" + std::string(100, ' '), "0x6f000   "},
  };
  for (const auto& each : cases) {
    testing::internal::CaptureStderr();
    type(each.line + "\n");
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find(each.log), std::string::npos) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    EXPECT_EQ(tv_control(R"(["state"])"), before) << each.line;
  }
  send("0x6f000");  // the next line works
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 21);
}

// Under sanitizers the memory is not measured, since their allocators do not count.
TEST_F(TvRemote, AnEndlessLineUsesNoMemory) {
  const auto in_use = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const std::size_t before = in_use();
  for (int i = 0; i < 300000; ++i) dtv_tv_command('a');
  EXPECT_LT(in_use(), before + 100000);
}

TEST_F(TvRemote, TheDeviceDoesNothingWhileTheSetIsOff) {
  type("ir.rx.send 0x6f0");
  dtv_tv_stop();
  type("ir.rx.send 0x6f000\n");
  type("ir.rx.");
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  send("0x6f000");  // what was typed meanwhile is discarded
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 21);
}

TEST_F(TvRemote, ChannelsStepAndWrapAround) {
  EXPECT_EQ(place(), "1 TV");
  send("0x5f000");
  EXPECT_EQ(place(), "2 TV");
  send("0x5f001");
  send("0x5f001");
  EXPECT_EQ(place(), "99 TV");
  send("0x5f000");
  EXPECT_EQ(place(), "1 TV");
  send("0x5f002");  // PRE-CH
  EXPECT_EQ(place(), "99 TV");
  send("0x5f002");
  EXPECT_EQ(place(), "1 TV");
}

TEST_F(TvRemote, TwoDigitsChooseAChannel) {
  send("0x10034");
  EXPECT_EQ(place(), "1 TV");
  send("0x10032");
  EXPECT_EQ(place(), "42 TV");
  press("0");
  press("7");
  EXPECT_EQ(place(), "7 TV");
  press("9");
  press("9");
  EXPECT_EQ(place(), "99 TV");
  press("0");
  press("0");  // there is no channel 0
  EXPECT_EQ(place(), "99 TV");
  press("PRE-CH");
  EXPECT_EQ(place(), "7 TV");
}

TEST_F(TvRemote, OneDigitChoosesAChannelWithEnterOrAfterAMoment) {
  press("ENTER");
  EXPECT_EQ(place(), "1 TV");
  press("5");
  press("ENTER");
  EXPECT_EQ(place(), "5 TV");
  press("8");
  dtv_tv_advance(1'499);
  EXPECT_EQ(place(), "5 TV");
  dtv_tv_advance(1);
  EXPECT_EQ(place(), "8 TV");
  press("3");
  press("CH+");  // another key that changes the channel discards the digit
  EXPECT_EQ(place(), "9 TV");
  press("ENTER");
  EXPECT_EQ(place(), "9 TV");
}

TEST_F(TvRemote, SourcesWrapAroundAndAChannelReturnsToTv) {
  for (const char* source : {"1 HDMI 1", "1 HDMI 2", "1 HDMI 3", "1 USB", "1 TV", "1 HDMI 1"}) {
    send("0x5f01f");
    EXPECT_EQ(place(), source);
  }
  press("CH+");
  EXPECT_EQ(place(), "2 TV");
  press("SOURCE");
  press("2");
  press("ENTER");
  EXPECT_EQ(place(), "2 TV");
  press("PRE-CH");
  EXPECT_EQ(place(), "1 TV");
}

TEST_F(TvRemote, ChannelAndSourceSurviveARestart) {
  press("1");
  press("2");
  press("SOURCE");
  dtv_tv_stop();
  EXPECT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(place(), "12 HDMI 1");
  EXPECT_TRUE(shown(R"("power":"on")"));
  EXPECT_TRUE(shown(R"("key":"")"));
  press("PRE-CH");
  EXPECT_EQ(place(), "1 TV");
  press("5");
  tv_control(R"(["reset"])");
  press("ENTER");
  EXPECT_EQ(place(), "1 TV");
  press("POWER");
  tv_control(R"(["reset"])");
  EXPECT_TRUE(shown(R"("power":"on")"));
}

TEST_F(TvRemote, PowerTogglesAndKeysWakeTheSet) {
  send("0x8f000");
  EXPECT_TRUE(shown(R"("power":"standby")"));
  for (const char* code : {"0x6f000", "0x6f001", "0x6f002"}) send(code);  // VOL+, VOL-, MUTE
  EXPECT_TRUE(shown(R"("volume":20,"mute":false)"));
  EXPECT_TRUE(shown(R"("power":"standby")"));
  EXPECT_TRUE(shown(R"("key":"POWER")"));
  send("0x8f000");
  EXPECT_TRUE(shown(R"("power":"on")"));
  for (const char* key : {"CH+", "5", "MENU", "SOURCE"}) {
    tv_control(R"(["power","standby"])");
    press(key);
    EXPECT_TRUE(shown(R"("power":"on")")) << key;
    EXPECT_TRUE(shown(R"("key":")" + std::string(key) + '"'));
    press("ENTER");
    EXPECT_EQ(place(), "1 TV") << key;  // it has only woken the set
  }
}

TEST_F(TvRemote, PowerCommand) {
  EXPECT_EQ(tv_control(R"(["power"])"), R"({"power":"on","channel":1,"source":"TV","key":""})");
  EXPECT_TRUE(tv_control(R"(["power","standby"])").starts_with(R"({"power":"standby")"));
  EXPECT_TRUE(tv_control(R"(["power","standby"])").starts_with(R"({"power":"standby")"));
  EXPECT_TRUE(tv_control(R"(["power","toggle"])").starts_with(R"({"power":"on")"));
  EXPECT_TRUE(tv_control(R"(["power","toggle"])").starts_with(R"({"power":"standby")"));
  EXPECT_TRUE(tv_control(R"(["power","on"])").starts_with(R"({"power":"on")"));
  expect_words(tv_control(R"(["power","off"])"), {"error", "off", "standby", "toggle"});
}

TEST_F(TvRemote, SleepKeyStepsTheSleepTimer) {
  for (const INT32 minutes : {15, 30, 60, 90, 120, 0, 15}) {
    send("0x5f01c");
    INT32 left = -1;
    EXPECT_EQ(a_vextvapi_time_get_sleep_timer_remaining_time(&left), 0);
    EXPECT_LE(left, minutes * 60);
    EXPECT_GE(left, minutes * 60 - (minutes > 0 ? 20 : 0));
  }
  EXPECT_EQ(a_vextvapi_time_set_sleep_timer(2000), 0);  // a duration between two steps
  press("SLEEP");
  INT32 left = -1;
  EXPECT_EQ(a_vextvapi_time_get_sleep_timer_remaining_time(&left), 0);
  EXPECT_LE(left, 3600);
  EXPECT_GE(left, 3580);
}

TEST_F(TvRemote, SubtitleKeysChangeTheConfigurationAndCallItsCallback) {
  static std::atomic<int> notifications;
  notifications = 0;
  EXPECT_EQ(a_vextvapi_config_add_value_changed_callback("g_misc__dvb_subtitle_enabled"), 0);
  EXPECT_EQ(a_vextvapi_config_reg_callback(
                [](INT32, void*, void*, void*, void*, void*) {
                  ++notifications;
                  return INT32{0};
                },
                nullptr),
            0);
  const auto enabled = [] {
    INT32 value = -1;
    EXPECT_EQ(a_vextvapi_config_get_value(-1, "g_misc__dvb_subtitle_enabled", &value), 0);
    return value;
  };
  EXPECT_EQ(enabled(), 1);
  send("0xaf00d");  // SUBTITLE
  EXPECT_EQ(enabled(), 0);
  send("0x5f01a");  // CC
  EXPECT_EQ(enabled(), 1);
  dtv_tv_stop();
  EXPECT_EQ(notifications, 2);
}

TEST_F(TvRemote, EveryKeyOfTheTableWorks) {
  const struct {
    const char* name;
    const char* code;
  } keys[] = {
#define TVC_KEY(name, code) {name, code},
#include "vex_tv_ctrl/keys.def"
  };
  EXPECT_EQ(std::size(keys), 58u);
  const std::string list = tv_control(R"(["key"])");
  std::set<std::string> codes;
  for (const auto& key : keys) {
    EXPECT_TRUE(codes.insert(key.code).second) << key.code;
    tv_control(R"(["power","on"])");
    send(key.code);
    EXPECT_TRUE(shown(R"("key":")" + std::string(key.name) + '"')) << key.name;
    expect_words(list, {R"("name":")" + std::string(key.name) + R"(","code":")" + key.code + '"'});
  }
  expect_words(list,
               {R"({"name":"VOL+","code":"0x6f000","does":"louder"})", R"("name":"RED","code":"0xbf000","does":""})"});
}

TEST_F(TvRemote, UnknownKeysAreRefused) {
  for (const char* name : {"power", "VOL", "", "CUSTOMKEY", "0x8f000"}) {
    expect_words(tv_control(R"(["key",")" + std::string(name) + R"("])"), {"error", "there is no key", name});
  }
  EXPECT_TRUE(shown(R"("power":"on")"));
}

TEST_F(TvRemote, ManyThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const char* const keys[] = {"CH+", "VOL+", "POWER", "5", "SOURCE", "SLEEP", "CC", "PRE-CH"};
      for (int i = 0; i < 40; ++i) {
        if (t == 0) send("0x5f000");
        if (t > 0) tv_control(R"(["key",")" + std::string(keys[(i + t) % 8]) + R"("])");
        tv_control(R"(["state"])");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  tv_control(R"(["power","on"])");
  tv_control(R"(["reset"])");
  EXPECT_EQ(place(), "1 TV");
}

}  // namespace
