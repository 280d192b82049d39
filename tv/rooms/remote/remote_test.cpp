// Keys, from the command device and from the command "key"; power, channel, source.
#include <malloc.h>

#include <atomic>
#include <set>
#include <thread>

#include "rooms/tuner/tuner_test.h"

namespace {

struct TvRemote : TunerSet {};

void type(const std::string& text) {
  for (const char character : text) dtv_tv_command(character);
}

void send(const std::string& code) { type("ir.rx.send " + code + "\r\n"); }

bool shown(const std::string& part) { return tv_control(R"(["state"])").find(part) != std::string::npos; }

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
  for (int i = 0; i < 5'000'000; ++i) dtv_tv_command('a');
  EXPECT_LT(in_use(), before + 1'000'000) << "other threads of the set may use some meanwhile";
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

TEST_F(TvRemote, WithoutChannelsTheirKeysDoNothing) {
  EXPECT_EQ(place(), "null TV");
  press_all({"CH+", "CH-", "PRE-CH", "FAVCH+/-", "FAVORITE", "MTS/AUDIO", "4", "2", "ENTER", "1", "2", "3", "4"});
  dtv_tv_advance(2'000);
  EXPECT_EQ(place(), "null TV");
  press("SOURCE");
  press_all({"CH+", "1", "ENTER"});  // there is nothing to show on the tuner either
  EXPECT_EQ(place(), "null HDMI 1");
}

TEST_F(TvRemote, ChannelsStepAndWrapAround) {
  import_channels();
  EXPECT_EQ(place(), "1 TV");
  EXPECT_TRUE(shown(R"("channel":1,"channel_name":"One","source":"TV")"));
  send("0x5f000");
  EXPECT_EQ(place(), "2 TV");
  send("0x5f001");
  send("0x5f001");
  EXPECT_EQ(place(), "1234 TV");
  send("0x5f000");
  EXPECT_EQ(place(), "1 TV");
  send("0x5f002");  // PRE-CH
  EXPECT_EQ(place(), "1234 TV");
  send("0x5f002");
  EXPECT_EQ(place(), "1 TV");
}

TEST_F(TvRemote, DigitsChooseAChannelWithEnterOrAfterAMoment) {
  import_channels();
  press("ENTER");
  EXPECT_EQ(place(), "1 TV");
  press_all({"4", "ENTER"});
  EXPECT_EQ(place(), "4 TV");
  send("0x10034");
  send("0x10032");
  EXPECT_EQ(place(), "4 TV");
  dtv_tv_advance(1'499);
  EXPECT_EQ(place(), "4 TV");
  dtv_tv_advance(1);
  EXPECT_EQ(place(), "42 TV");
  press_all({"0", "0", "3", "ENTER"});
  EXPECT_EQ(place(), "3 TV");
  press("4");
  dtv_tv_advance(1'400);
  press("2");  // each digit waits for the next one
  dtv_tv_advance(1'400);
  EXPECT_EQ(place(), "3 TV");
  dtv_tv_advance(100);
  EXPECT_EQ(place(), "42 TV");
}

TEST_F(TvRemote, TheFourthDigitCompletesTheNumber) {
  import_channels();
  press_all({"1", "2", "3"});
  EXPECT_EQ(place(), "1 TV");
  press("4");
  EXPECT_EQ(place(), "1234 TV");
  press_all({"0", "0", "4", "2"});
  EXPECT_EQ(place(), "42 TV");
  press("2");  // begins another number
  press("ENTER");
  EXPECT_EQ(place(), "2 TV");
}

TEST_F(TvRemote, ANumberWithoutAChannelDoesNothing) {
  import_channels();
  press_all({"3", "ENTER", "9", "9", "ENTER", "0", "ENTER", "9", "9", "9", "9"});
  dtv_tv_advance(2'000);
  EXPECT_EQ(place(), "3 TV");
  press("PRE-CH");
  EXPECT_EQ(place(), "1 TV");
}

TEST_F(TvRemote, AnotherKeyForChannelsDiscardsTheDigits) {
  import_channels();
  press_all({"4", "CH+"});
  EXPECT_EQ(place(), "2 TV");
  press("ENTER");
  EXPECT_EQ(place(), "2 TV");
  press_all({"4", "PRE-CH"});
  EXPECT_EQ(place(), "1 TV");
  dtv_tv_advance(2'000);
  EXPECT_EQ(place(), "1 TV");
}

TEST_F(TvRemote, AChannelReturnsToTheTuner) {
  import_channels();
  press("SOURCE");
  EXPECT_EQ(place(), "1 HDMI 1");
  press("CH+");
  EXPECT_EQ(place(), "2 TV");
  press_all({"SOURCE", "2", "ENTER"});
  EXPECT_EQ(place(), "2 TV");
  press_all({"SOURCE", "PRE-CH"});
  EXPECT_EQ(place(), "1 TV");
  expect_done(run({"source", "TV", "block"}));
  press("SOURCE");
  press("CH+");  // the tuner is blocked
  EXPECT_EQ(place(), "1 HDMI 1");
}

TEST_F(TvRemote, FavouriteKeys) {
  import_channels();
  press_all({"3", "ENTER", "ADD/ERASE", "4", "2", "ENTER", "ADD/ERASE"});
  press("FAVCH+/-");
  EXPECT_EQ(place(), "3 TV");
  press("FAVCH+/-");
  EXPECT_EQ(place(), "42 TV");
  press("ADD/ERASE");
  press("FAVCH+/-");
  EXPECT_EQ(place(), "3 TV");
  press("FAVCH+/-");
  EXPECT_EQ(place(), "3 TV");
}

TEST_F(TvRemote, KeysForTwoPictures) {
  import_channels();
  press_all({"2", "ENTER", "PIP/POP"});
  expect_words(run({"multiview"}), {R"("mode":"pip")", R"("sub":{"shown":true,"source":"TV","channel":1,)"});
  press("SWAP");
  EXPECT_EQ(place(), "1 TV");
  expect_words(run({"multiview"}), {R"("sub":{"shown":true,"source":"TV","channel":2,)"});
  const std::string before = run({"multiview"});
  press("PIPPOS");
  EXPECT_NE(run({"multiview"}), before);
  press_all({"PIPPOS", "PIPPOS", "PIPPOS"});
  EXPECT_EQ(run({"multiview"}), before);  // four corners
  press("PIPSIZE");
  EXPECT_NE(run({"multiview"}), before);
  press("PIP/POP");
  expect_words(run({"multiview"}), {R"("mode":"pop")"});
  expect_words(run({"key", "PIPPOS"}), {"Not available: PIPPOS"});
  press("PIP/POP");
  expect_words(run({"multiview"}), {R"("mode":"normal")"});
  for (const std::string key : {"PIPPOS", "PIPSIZE", "SWAP"})
    expect_words(run({"key", key}), {"Not available: " + key});
}

TEST_F(TvRemote, AChoiceThatIsNotSavedChangesNothing) {
  import_channels();
  press("CH+");
  const auto refused = [](const std::string& key) { expect_words(run({"key", key}), {"error", "could not be saved"}); };
  move_folder_away(true);
  for (const char* key : {"CH+", "CH-", "PRE-CH", "SOURCE"}) refused(key);
  press("4");  // the first digit stores nothing
  refused("ENTER");
  press_all({"1", "2", "3"});
  refused("4");
  EXPECT_EQ(place(), "2 TV");
  move_folder_away(false);
  press("PRE-CH");
  EXPECT_EQ(place(), "1 TV");
}

TEST_F(TvRemote, ChannelAndSourceSurviveARestart) {
  import_channels();
  press_all({"4", "2", "ENTER", "SOURCE"});
  restart();
  EXPECT_EQ(place(), "42 HDMI 1");
  EXPECT_TRUE(shown(R"("power":"on")"));
  EXPECT_TRUE(shown(R"("key":"")"));
  press("PRE-CH");
  EXPECT_EQ(place(), "1 TV");
  press("3");
  run({"reset"});
  press("ENTER");
  EXPECT_EQ(place(), "null TV");
  press("POWER");
  run({"reset"});
  EXPECT_TRUE(shown(R"("power":"on")"));
}

TEST_F(TvRemote, PowerTogglesAndKeysWakeTheSet) {
  import_channels();
  send("0x8f000");
  EXPECT_TRUE(shown(R"("power":"standby")"));
  for (const char* code : {"0x6f000", "0x6f001", "0x6f002"}) send(code);  // VOL+, VOL-, MUTE
  EXPECT_TRUE(shown(R"("volume":20,"mute":false)"));
  EXPECT_TRUE(shown(R"("power":"standby")"));
  EXPECT_TRUE(shown(R"("key":"POWER")"));
  EXPECT_TRUE(shown(R"("message":{"word":"standby","about":"MUTE","text":"No effect in standby: MUTE"})"));
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
  EXPECT_EQ(tv_control(R"(["power"])"), R"({"power":"on","channel":null,"source":"TV","key":""})");
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
  expect_words(list, {R"({"name":"VOL+","code":"0x6f000","does":"louder"})",
                      R"({"name":"GUIDE","code":"0x8f002","does":"opens the programme guide"})",
                      R"({"name":"ANGLE","code":"0x8f003","does":""})"});
}

// The keys in the order of their table, on a set that keeps the effects of the keys before. After each key, menus are
// closed, a number that was begun is ended, and the set is on.
TEST_F(TvRemote, EachKeyHasItsEffect) {
  import_channels();
  const struct {
    const char* key;
    std::vector<std::string> then;  // a command whose reply shows the effect; empty: the key's own reply does
    std::string effect;
  } cases[] = {
      {"POWER", {}, R"("power":"standby")"},
      {"ROOTMENU", {}, "Not available: ROOTMENU"},
      {"SOURCE", {}, R"("source":"HDMI 1","key":"SOURCE","menu":"sources")"},
      {"TIMER", {}, R"("menu":"timers")"},
      {"SLEEP", {}, "Sleep timer: 15 min"},
      {"ZOOM", {}, "Picture format: zoom"},
      {"P.EFFECT", {}, "Picture mode: vivid"},
      {"S.EFFECT", {}, "Sound mode: film"},
      {"ASPECT", {}, "Picture format: unscaled"},
      {"PIP/POP", {"multiview"}, R"("mode":"pip")"},
      {"PIPPOS", {"multiview"}, R"("mode":"pip")"},   // see KeysForTwoPictures
      {"PIPSIZE", {"multiview"}, R"("mode":"pip")"},  // the same
      {"MTS/AUDIO", {}, "Not available: MTS/AUDIO"},  // without a sound track
      {"CC", {}, "Subtitles: off"},
      {"SWAP", {}, R"("channel":2)"},  // that of the second picture
      {"0", {"screen"}, R"("typed":"0")"},
      {"1", {"screen"}, R"("typed":"1")"},
      {"2", {"screen"}, R"("typed":"2")"},
      {"3", {"screen"}, R"("typed":"3")"},
      {"4", {"screen"}, R"("typed":"4")"},
      {"5", {"screen"}, R"("typed":"5")"},
      {"6", {"screen"}, R"("typed":"6")"},
      {"7", {"screen"}, R"("typed":"7")"},
      {"8", {"screen"}, R"("typed":"8")"},
      {"9", {"screen"}, R"("typed":"9")"},
      {".", {}, "Not available: ."},
      {"FREEZE", {}, "Not available: FREEZE"},
      {"CH+", {}, R"("channel":3)"},
      {"CH-", {}, R"("channel":2)"},
      {"PRE-CH", {}, R"("channel":3)"},
      {"MUTE", {"state"}, R"("mute":true)"},
      {"VOL+", {"state"}, R"("volume":21,"mute":false)"},
      {"VOL-", {"state"}, R"("volume":20)"},
      {"VOL_UI", {"screen"}, R"("volume":20)"},
      {"MENU", {}, R"("menu":"main")"},
      {"INFO", {"screen"}, R"("banner":{"number":3)"},
      {"LEFT", {}, "Not available: LEFT"},
      {"RIGHT", {}, "Not available: RIGHT"},
      {"UP", {}, "Not available: UP"},
      {"DOWN", {}, "Not available: DOWN"},
      {"GUIDE", {}, R"("menu":"guide")"},
      {"ENTER", {}, R"("menu":"channels")"},
      {"EXIT", {}, "Not available: EXIT"},
      {"ADD/ERASE", {}, "Added to the favourites: Three"},
      {"FAVORITE", {}, R"("menu":"favourites")"},
      {"FAVCH+/-", {}, R"("channel":3)"},
      {"FF", {}, "Not available: FF"},
      {"FR", {}, "Not available: FR"},
      {"NEXT", {}, "Not available: NEXT"},
      {"PREV", {}, "Not available: PREV"},
      {"TITLE/PBC", {}, "Not available: TITLE/PBC"},
      {"SUBTITLE", {}, "Subtitles: on"},
      {"REPEAT", {}, "Not available: REPEAT"},
      {"ANGLE", {}, "Not available: ANGLE"},
      {"RED", {}, "Not possible: "},  // no antenna is connected
      {"GREEN", {}, "Not available: GREEN"},
      {"YELLOW", {}, "Not available: YELLOW"},
      {"BLUE", {}, "Not available: BLUE"},
  };
  const char* const names[] = {
#define TVC_KEY(name, code) name,
#include "vex_tv_ctrl/keys.def"
  };
  ASSERT_EQ(std::size(cases), std::size(names));
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& each = cases[i];
    EXPECT_STREQ(each.key, names[i]);
    const std::string reply = run({"key", each.key});
    expect_words(each.then.empty() ? reply : run(each.then), {each.effect});
    run({"menu", "close"});
    run({"power", "on"});
    run({"source", "TV"});
    press("EXIT");
  }
}

TEST_F(TvRemote, TheScreenShowsTheNumberThatIsTyped) {
  import_channels();
  const auto typed = [] { return run({"screen"}).find(R"("typed":)") != std::string::npos; };
  EXPECT_FALSE(typed());
  press("0");
  expect_words(run({"screen"}), {R"("typed":"0")"});
  press_all({"0", "4"});
  expect_words(run({"screen"}), {R"("typed":"004")"});
  dtv_tv_advance(1'500);
  EXPECT_FALSE(typed());
  EXPECT_EQ(place(), "4 TV");
  press_all({"4", "EXIT"});  // ends the number
  EXPECT_FALSE(typed());
  dtv_tv_advance(2'000);
  EXPECT_EQ(place(), "4 TV");
  press_all({"4", "2", "GUIDE"});
  EXPECT_FALSE(typed());
}

TEST_F(TvRemote, KeysForSettingsComeAroundAgain) {
  const struct {
    const char* key;
    const char* setting;
    int steps;
  } cases[] = {{"P.EFFECT", "g_video__picture_mode", 6},
               {"S.EFFECT", "g_audio__sound_mode", 6},
               {"ASPECT", "g_video__aspect_ratio", 6},
               {"ZOOM", "g_video__aspect_ratio", 2}};
  for (const auto& each : cases) {
    std::set<INT32> values;
    INT32 value = -1;
    for (int i = 0; i < each.steps; ++i) {
      press(each.key);
      EXPECT_EQ(a_vextvapi_config_get_value(-1, each.setting, &value), 0);
      EXPECT_TRUE(values.insert(value).second) << each.key << " " << value;
    }
    EXPECT_EQ(value, 0) << each.key;
  }
}

TEST_F(TvRemote, UnknownKeysAreRefused) {
  for (const char* name : {"power", "VOL", "", "CUSTOMKEY", "0x8f000"}) {
    expect_words(tv_control(R"(["key",")" + std::string(name) + R"("])"), {"error", "there is no key", name});
  }
  EXPECT_TRUE(shown(R"("power":"on")"));
}

TEST_F(TvRemote, ManyThreads) {
  import_channels();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const char* const keys[] = {"CH+", "VOL+", "POWER", "2", "SOURCE", "PIP/POP", "SWAP", "PRE-CH"};
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
  EXPECT_EQ(place(), "null TV");
}

}  // namespace
