// The configuration store: callbacks, stored values, and the command.
#include "config_test.h"
#include "tests/unit/tv/store_support.h"

namespace {

// ---- Callbacks ----

TEST_F(TvConfig, EachChangeOfAWatchedKeyIsReportedOnceAndInOrder) {
  watch({kLanguage, kName});
  watch({kLanguage});
  write(kLanguage, kGerman);
  write(kLanguage, kGerman);
  write(kBrightness, 11);  // not watched
  a_vextvapi_config_set_str_value(kName, "Attic");
  a_vextvapi_config_set_str_value(kName, "Attic");
  refusal([] { return write(kLanguage, 1); });
  write(kLanguage, kEnglish);
  EXPECT_EQ(notified_keys(), (Keys{kLanguage, kName, kLanguage}));
  for (const Heard& each : heard) {
    EXPECT_EQ(each.id, -1);
    EXPECT_EQ(each.tag, kTag);
    EXPECT_TRUE(each.others_null);
    EXPECT_NE(each.thread, std::this_thread::get_id());
    EXPECT_EQ(each.thread, heard[0].thread);
  }
}

TEST_F(TvConfig, KeysThatAreNotWatchedAreNotReported) {
  write(kLanguage, kGerman);
  write(kBrightness, 11);
  EXPECT_EQ(notified_keys(), Keys{});
}

TEST_F(TvConfig, WatchingWithoutACallbackIsAllowed) {
  EXPECT_EQ(a_vextvapi_config_reg_callback(nullptr, nullptr), 0);
  watch({kLanguage});
  EXPECT_EQ(write(kLanguage, kGerman), 0);
  EXPECT_EQ(notified_keys(), Keys{});
}

TEST_F(TvConfig, KeyIsCutToFiftyCharacters) {
  const char* const key = "g_nw__wake_up_by_remote_application_of_another_device";
  ASSERT_GT(std::strlen(key), 50u);
  watch({key});
  EXPECT_EQ(write(key, 1), 0);
  EXPECT_EQ(notified_keys(), Keys{std::string(key).substr(0, 50)});
}

TEST_F(TvConfig, CallbackSeesTheNewValueAndMayWrite) {
  a_vextvapi_config_reg_callback(
      [](INT32 id, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
        const INT32 value = number(kBrightness);
        if (value < 65) {
          EXPECT_EQ(write(kBrightness, value + 1), 0);
        }
        return listen(id, tag, arg1, arg2, arg3, arg4);
      },
      kTag);
  watch({kBrightness});
  write(kBrightness, 61);
  std::unique_lock guard(lock);
  EXPECT_TRUE(arrived.wait_for(guard, std::chrono::seconds(5), [] { return heard.size() == 5; })) << heard.size();
  guard.unlock();
  EXPECT_EQ(number(kBrightness), 65);
  EXPECT_EQ(notified_keys().size(), 5u);
}

TEST_F(TvConfig, SlowCallbackDelaysNoCall) {
  static std::mutex gate;
  std::unique_lock closed(gate);
  a_vextvapi_config_reg_callback(
      [](INT32 id, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
        const std::lock_guard wait(gate);
        return listen(id, tag, arg1, arg2, arg3, arg4);
      },
      kTag);
  watch({kBrightness});
  for (INT32 value = 1; value <= 20; ++value) EXPECT_EQ(write(kBrightness, value), 0);
  EXPECT_EQ(number(kBrightness), 20);
  EXPECT_TRUE(heard.empty());
  closed.unlock();
  EXPECT_EQ(notified_keys().size(), 20u);
}

TEST_F(TvConfig, ManyThreads) {
  static std::vector<INT32> seen;  // used by the event thread, read after it has ended
  seen.clear();
  a_vextvapi_config_reg_callback(
      [](INT32, void*, void*, void*, void*, void*) {
        seen.push_back(number(kBalance));
        return 0;
      },
      kTag);
  watch({kBalance});
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 25; ++i) {
        write(kBalance, t * 10 + i % 10);
        a_vextvapi_config_set_str_value(kName, std::string(static_cast<std::size_t>(10 + t), 'x').c_str());
        const std::string name = text(kName);
        EXPECT_EQ(name, std::string(name.size(), 'x'));
        EXPECT_GE(name.size(), 10u);
        number(kBalance);
        if (i % 8 == 0) setConfigValue(item_of(kStore));
        if (i % 8 == 1) tv_control(R"(["config","balance"])");
        if (i % 8 == 2) a_vextvapi_config_add_value_changed_callback(kBalance);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  dtv_tv_stop();
  EXPECT_EQ(number(kStore), 16);  // no change was lost
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.back(), number(kBalance));
}

// ---- Stored values ----

TEST_F(TvConfig, SurvivesSwitchingOff) {
  write(kLanguage, kGerman);
  write(kBalance, -50);
  a_vextvapi_config_set_str_value(kName, "Küche");
  a_vextvapi_config_set_str_value("g_password__password", "");
  setConfigValue(item_of(kStore));
  dtv_tv_stop();
  start();
  EXPECT_EQ(number(kLanguage), kGerman);
  EXPECT_EQ(number(kBalance), -50);
  EXPECT_EQ(text(kName), "Küche");
  EXPECT_EQ(text("g_password__password"), "");
  EXPECT_EQ(number(kStore), 1);
  EXPECT_EQ(number(kBrightness), 50);
  EXPECT_EQ(notified_keys(), Keys{});
}

TEST_F(TvConfig, SwitchingOnRemovesAllListeners) {
  watch({kLanguage});
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_config_reg_callback(listen, kTag), 0);
  write(kLanguage, kGerman);  // the key is no longer watched
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  watch({kLanguage});
  write(kLanguage, kEnglish);  // no callback is registered
  EXPECT_EQ(a_vextvapi_config_reg_callback(listen, kTag), 0);
  write(kLanguage, kGerman);
  EXPECT_EQ(notified_keys(), Keys{kLanguage});
}

TEST_F(TvConfig, SurvivesAKilledProcess) {
  dtv_tv_stop();
  const pid_t child = fork();
  if (child == 0) {
    const bool done = dtv_tv_start(folder.path.c_str(), nullptr) == 0 && write(kLanguage, kGerman) == 0 &&
                      a_vextvapi_config_set_str_value(kName, "Attic") == 0;
    if (done) kill(getpid(), SIGKILL);
    _exit(1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  start();
  EXPECT_EQ(number(kLanguage), kGerman);
  EXPECT_EQ(text(kName), "Attic");
}

TEST_F(TvConfig, InvalidStoredValuesAreReportedAndReset) {
  struct Damage {
    const char* key;
    const char* value;
  };
  const Damage damages[] = {
      {kBalance, "51"},
      {kBrightness, "'bright'"},
      {kLogos, "2"},
      {kLanguage, "1696622336"},  // 0x65206700: the second character is not a letter
      {"g_country__country", "0"},
      {kChannel, "4294967296"},
      {kName, "17"},
      {"g_nw__ssid", "zeroblob(4)"},
      {"g_nw__proxy", "CAST(x'FF41' AS TEXT)"},
      {"g_ci__pin", "'1234567890123456'"},
      {"g_nw__dns_server", "CAST(x'410042' AS TEXT)"},
      {"g_password__password", "NULL"},
  };
  dtv_tv_stop();
  sql(layout_1_sql());  // layout 1, whose rows have no checksums
  for (const Damage& each : damages)
    sql("INSERT OR REPLACE INTO settings VALUES ('" + std::string(each.key) + "'," + each.value + ")");
  sql("INSERT OR REPLACE INTO settings VALUES ('g_video__contrast', 33), ('g_rec__device', 'disk')");
  testing::internal::CaptureStderr();
  start();
  const std::string log = testing::internal::GetCapturedStderr();
  for (const Damage& each : damages) {
    expect_words(log, {std::string("the stored ") + each.key + " "});
    for (const Row& row : rows()) {
      if (std::strcmp(row.key, each.key) != 0) continue;
      if (row.kind == Row::kText) {
        EXPECT_EQ(text(row.key), row.text) << row.key;
      } else {
        EXPECT_EQ(number(row.key), row.number) << row.key;
      }
    }
  }
  expect_words(log, {"g_gui_lang__gui_language is not three letters; using eng"});
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), static_cast<std::ptrdiff_t>(std::size(damages))) << log;
  EXPECT_EQ(number("g_video__contrast"), 33);
  EXPECT_EQ(text("g_rec__device"), "disk");
  EXPECT_EQ(write(kBalance, 12), 0);
  dtv_tv_stop();
  start();
  EXPECT_EQ(number(kBalance), 12);
}

TEST_F(TvConfig, ChangesAreRefusedWhileTheSetIsOff) {
  watch({kBrightness});
  dtv_tv_stop();
  expect_words(refusal([] { return write(kBrightness, 51); }), {"off"});
  expect_words(refusal([] { return a_vextvapi_config_set_str_value(kName, "x"); }), {"off"});
  expect_words(refusal([] { return setConfigValue(item_of(kStore)); }), {"off"});
  EXPECT_EQ(number(kBrightness), 50);
  EXPECT_NE(text(kName), "x");
  EXPECT_EQ(tv_control(R"(["config"])"), R"({"error":"the set is off"})");
  EXPECT_EQ(notified_keys(), Keys{});
}

// ---- The command ----

TEST_F(TvConfig, ResetReportsTheChangedKeys) {
  watch({kLanguage, kName, kBalance, kBrightness});
  write(kLanguage, kGerman);
  write(kBalance, 7);
  a_vextvapi_config_set_str_value(kName, "Attic");
  setConfigValue(item_of(kStore));
  EXPECT_EQ(tv_control(R"(["state"])"),
            R"({"config":{"g_audio__balance":7,"g_gui_lang__gui_language":"deu",)"
            R"("g_misc__channel_store":1,"g_misc__tv_network_name":"Attic"},)" TV_FACTORY_STATE "}");
  EXPECT_EQ(tv_control(R"(["reset"])"), "{" TV_FACTORY_STATE "}");
  EXPECT_EQ(number(kLanguage), kEnglish);
  EXPECT_EQ(number(kStore), 0);
  EXPECT_EQ(text(kName), "Living room");
  EXPECT_EQ(notified_keys(), (Keys{kLanguage, kBalance, kName, kBalance, kLanguage, kName}));
  start();
  EXPECT_EQ(number(kLanguage), kEnglish);
}

TEST_F(TvConfig, CommandLists) {
  EXPECT_EQ(tv_control(R"(["config","GUI_LANG"])"), R"({"g_gui_lang__gui_language":"eng"})");
  EXPECT_EQ(tv_control(R"(["config","logos of"])"), R"({"g_misc__ch_logos_status":true})");
  EXPECT_EQ(tv_control(R"(["config","side by side"])"), R"({"g_video__three_d_mode":0})");
  const std::string all = tv_control(R"(["config"])");
  for (const Row& row : rows()) EXPECT_NE(all.find('"' + std::string(row.key) + "\":"), std::string::npos) << row.key;
  expect_words(all, {R"("g_audio__balance":0)", R"("g_misc__tv_network_name":"Living room")"});
}

TEST_F(TvConfig, CommandShows) {
  const auto detail = [](const char* key) { return tv_control(R"(["config",")" + std::string(key) + "\"]"); };
  char item[sizeof "0x00000000"];
  std::snprintf(item, sizeof item, "0x%08X", item_of(kBalance));
  write(kBalance, 4);
  EXPECT_EQ(detail(kBalance), R"({"key":"g_audio__balance","item":")" + std::string(item) +
                                  R"(","kind":"number","value":4,"default":0,"minimum":-50,"maximum":50,)"
                                  R"("help":"Balance; negative is left"})");
  EXPECT_EQ(detail(item), detail(kBalance));
  expect_words(detail(kDst), {R"("value":2,"default":2,"minimum":0,"maximum":2,"help":"Summer time",)"
                              R"("values":{"0":"off","1":"on","2":"automatic"}})"});
  expect_words(detail(kLanguage), {R"("kind":"code","value":"eng","default":"eng","help")"});
  expect_words(detail(kName), {R"("kind":"text","value":"Living room","default":"Living room","longest":64,"help")"});
  expect_words(detail(kLogos), {R"("kind":"bool","value":true,"default":true,"help")"});
  expect_words(detail(kStore), {R"("kind":"action","value":0,"default":0,"help")"});
}

TEST_F(TvConfig, CommandChangesAsTheMenuDoes) {
  watch({kLanguage, kBalance, kLogos, kName, kStore});
  const auto set = [](const std::string& key, const std::string& value) {
    return tv_control(R"(["config",")" + key + R"(",")" + value + "\"]");
  };
  expect_words(set(kLanguage, "DEU"), {R"("value":"deu")"});
  EXPECT_EQ(number(kLanguage), kGerman);
  expect_words(set(kBalance, "-12"), {R"("value":-12)"});
  EXPECT_EQ(number(kBalance), -12);
  expect_words(set(kDst, "on"), {R"("value":1,)"});
  EXPECT_EQ(number(kDst), 1);
  expect_words(set(kDst, "0"), {R"("value":0,)"});
  expect_words(set(kDst, "never"), {"g_time__dst takes a number from 0 to 2 or one of: off, on, automatic", "never"});
  EXPECT_EQ(number(kDst), 0);
  for (const char* const off : {"off", "false", "0"}) {
    set(kLogos, "on");
    EXPECT_EQ(number(kLogos), 1);
    expect_words(set(kLogos, off), {R"("value":false)"});
    EXPECT_EQ(number(kLogos), 0);
  }
  expect_words(set(kName, "Küche 2"), {R"("value":"Küche 2")"});
  expect_words(set(kName, ""), {R"("value":"")"});
  EXPECT_EQ(text(kName), "");
  expect_words(set(kStore, "trigger"), {R"("value":1)"});
  EXPECT_EQ(notified_keys(), (Keys{kLanguage, kBalance, kLogos, kLogos, kLogos, kLogos, kLogos, kName, kName, kStore}));
}

TEST_F(TvConfig, ErrorsOfBadCommandsNameWhatIsAllowed) {
  struct Case {
    std::string command;
    std::vector<std::string> says;
  };
  const Case cases[] = {
      {R"(["config","nothing has this"])", {"nothing has this"}},
      {R"(["config","balance","1"])", {"no key", "balance"}},
      {R"(["config","0x07FF0001"])", {"0x07FF0001"}},
      {R"(["config","g_audio__balance","51"])", {"g_audio__balance", "-50", "50", "51"}},
      {R"(["config","g_audio__balance","left"])", {"left"}},
      {R"(["config","g_audio__balance","5x"])", {"5x"}},
      {R"(["config","g_audio__balance",""])", {"-50"}},
      {R"(["config","g_audio__balance","99999999999"])", {"99999999999"}},
      {R"(["config","g_misc__ch_logos_status","maybe"])", {"maybe", "on or off"}},
      {R"(["config","g_gui_lang__gui_language","de"])", {"three letters", "de"}},
      {R"(["config","g_gui_lang__gui_language","deut"])", {"deut"}},
      {R"(["config","g_gui_lang__gui_language","d3u"])", {"d3u"}},
      {R"(["config","g_misc__tv_network_name",")" + std::string(65, 'x') + "\"]", {"64"}},
      {R"(["config","g_misc__tv_network_name","a\u0000b"])", {"64"}},
      {R"(["config","g_misc__channel_store","5"])", {"trigger"}},
      {R"(["config","a","b","c"])", {"one word too many", "[WORD|KEY [VALUE]]"}},
  };
  for (const Case& each : cases) {
    const std::string answer = tv_control(each.command);
    EXPECT_EQ(answer.rfind(R"({"error":")", 0), 0u) << each.command << " gave " << answer;
    expect_words(answer, each.says);
  }
  EXPECT_EQ(tv_control(R"(["state"])"), "{" TV_FACTORY_STATE "}");
}

}  // namespace
