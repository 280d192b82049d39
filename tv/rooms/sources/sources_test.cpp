// Input sources: names, labels, blocking, choosing, the devices behind them.
#include <cstring>

#include "rooms/tuner/tuner_test.h"

namespace {

struct TvSources : TunerSet {};

constexpr int kTotal = 8;
constexpr INT32 kNoSuch[] = {-1, kTotal, 100, INT32_MIN, INT32_MAX};

std::string name_of(INT32 source) {
  char name[32] = {};
  EXPECT_EQ(a_vextvapi_inputsource_get_sourcename_bysourceid(source, name, sizeof name), 0);
  return name;
}

std::string viewers_name(INT32 source) {
  char name[32] = {};
  EXPECT_EQ(a_vextvapi_inputsource_get_userdefname_bysourceid(source, name, sizeof name), 0);
  return name;
}

std::string current(const char* path = "main") {
  char name[32] = {};
  EXPECT_EQ(a_vextvapi_inputsource_get_currentsourcename_bypath(name, sizeof name, path), 0);
  return name;
}

INT32 blocked(INT32 source) {
  UINT8 answer = 99;
  EXPECT_EQ(a_vextvapi_inputsource_is_block_bysourceid(source, &answer), 0);
  return answer;
}

INT32 label(INT32 source) {
  INT32 answer = -1;
  EXPECT_EQ(a_vextvapi_inputsource_get_source_inputlabelidx_bysourceid(source, &answer), 0);
  return answer;
}

TEST_F(TvSources, SourcesHaveFixedNumbersAndNames) {
  const char* const names[] = {"TV", "Satellite", "HDMI 1", "HDMI 2", "HDMI 3", "HDMI 4", "Composite", "Media"};
  ASSERT_EQ(a_vextvapi_inputsource_get_sourcetotalnum(), kTotal);
  for (INT32 source = 0; source < kTotal; ++source) {
    EXPECT_EQ(name_of(source), names[source]);
    EXPECT_EQ(viewers_name(source), "");
    EXPECT_EQ(label(source), 0);
    EXPECT_EQ(blocked(source), 0);
  }
  EXPECT_EQ(current(), "TV");
  EXPECT_EQ(current("MAIN"), "TV");
}

TEST_F(TvSources, ThePluginListsThem) {
  // The plugin's list is "1:TV,2:Satellite": a name with a comma or a colon would break it.
  for (INT32 source = 0; source < kTotal; ++source) EXPECT_EQ(name_of(source).find_first_of(",:"), std::string::npos);
}

TEST_F(TvSources, ANameIsCutToItsRoom) {
  char room[10];
  std::memset(room, '#', sizeof room);
  EXPECT_EQ(a_vextvapi_inputsource_get_sourcename_bysourceid(1, room, 4), 0);
  EXPECT_EQ(std::string(room, sizeof room), "Sate######");  // it fills its room, so it has no terminator
  EXPECT_EQ(a_vextvapi_inputsource_set_userdefname_bysourceid(2, "B\xC3\xBC\xC3\xBC"), 0);
  std::memset(room, '#', sizeof room);
  EXPECT_EQ(a_vextvapi_inputsource_get_userdefname_bysourceid(2, room, 4), 0);
  EXPECT_EQ(std::string(room, 5), std::string("B\xC3\xBC\0#", 5));  // not in the middle of a character
  for (const INT32 size : {0, -1, INT32_MIN}) {
    refusal([&] { return a_vextvapi_inputsource_get_sourcename_bysourceid(0, room, size); });
    refusal([&] { return a_vextvapi_inputsource_get_userdefname_bysourceid(0, room, size); });
    refusal([&] { return a_vextvapi_inputsource_get_currentsourcename_bypath(room, size, "main"); });
  }
  EXPECT_EQ(std::string(room, 5), std::string("B\xC3\xBC\0#", 5));
}

TEST_F(TvSources, ViewersNamesAndLabelsAreKept) {
  const std::string longest = "16 bytes: ,;\xE6\xBC\xA2.";
  ASSERT_EQ(longest.size(), 16u);
  EXPECT_EQ(a_vextvapi_inputsource_set_userdefname_bysourceid(2, longest.c_str()), 0);
  EXPECT_EQ(a_vextvapi_inputsource_set_userdefname_bysourceid(7, "Films"), 0);
  EXPECT_EQ(a_vextvapi_inputsource_set_source_inputlabelidx_bysourceid(2, 3), 0);
  EXPECT_EQ(a_vextvapi_inputsource_set_source_inputlabelidx_bysourceid(3, 8), 0);
  restart();
  EXPECT_EQ(viewers_name(2), longest);
  EXPECT_EQ(viewers_name(7), "Films");
  EXPECT_EQ(name_of(7), "Media");
  EXPECT_EQ(label(2), 3);
  EXPECT_EQ(label(3), 8);
  EXPECT_EQ(a_vextvapi_inputsource_set_userdefname_bysourceid(7, ""), 0);
  EXPECT_EQ(viewers_name(7), "");
  run({"reset"});
  EXPECT_EQ(viewers_name(2), "");
  EXPECT_EQ(label(2), 0);
}

TEST_F(TvSources, RefusesBadNamesLabelsAndNumbers) {
  EXPECT_EQ(a_vextvapi_inputsource_set_userdefname_bysourceid(0, "Tuner"), 0);
  for (const char* name : {"seventeen bytes!!", "line\nfeed", "bell\a", "\x7F", "\xFF\xFE", "\xC3"}) {
    expect_words(refusal([&] { return a_vextvapi_inputsource_set_userdefname_bysourceid(0, name); }), {"16 bytes"});
    EXPECT_EQ(viewers_name(0), "Tuner");
  }
  for (const UINT8 wrong : {UINT8{9}, UINT8{255}}) {
    expect_words(refusal([&] { return a_vextvapi_inputsource_set_source_inputlabelidx_bysourceid(0, wrong); }),
                 {"0 to 8", std::to_string(wrong)});
  }
  expect_words(refusal([] { return a_vextvapi_inputsource_set_source_blockstatus_bysourceid(0, 2); }), {"2"});
  expect_words(refusal([] { return a_vextvapi_inputsource_set_userdefname_bysourceid(0, nullptr); }), {"null"});
  refusal([] { return a_vextvapi_inputsource_is_block_bysourceid(0, nullptr); });
  refusal([] { return a_vextvapi_inputsource_get_source_inputlabelidx_bysourceid(0, nullptr); });
  refusal([] { return a_vextvapi_inputsource_get_sourcename_bysourceid(0, nullptr, 9); });
  refusal([] { return a_vextvapi_inputsource_get_userdefname_bysourceid(0, nullptr, 9); });
  refusal([] { return a_vextvapi_inputsource_get_currentsourcename_bypath(nullptr, 9, "main"); });
  for (const INT32 source : kNoSuch) {
    char room[8];
    UINT8 byte = 0;
    INT32 number = 0;
    const std::vector<std::string> words{"no source " + std::to_string(source), "0 to 7"};
    expect_words(refusal([&] { return a_vextvapi_inputsource_get_sourcename_bysourceid(source, room, 8); }), words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_get_userdefname_bysourceid(source, room, 8); }), words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_set_userdefname_bysourceid(source, "x"); }), words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_is_block_bysourceid(source, &byte); }), words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_set_source_blockstatus_bysourceid(source, 1); }), words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_get_source_inputlabelidx_bysourceid(source, &number); }),
                 words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_set_source_inputlabelidx_bysourceid(source, 1); }), words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_changesource_bysourceid(source); }), words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_changesource_bysourceidandpath(source, "main"); }), words);
    expect_words(refusal([&] { return a_vextvapi_inputsource_changesource_bysourceidandpath(source, "sub"); }), words);
  }
  EXPECT_EQ(current(), "TV");
}

TEST_F(TvSources, RefusesPicturesThatDoNotExist) {
  char room[8];
  for (const char* path : {"", "mainx", "2"}) {
    expect_words(refusal([&] { return a_vextvapi_inputsource_changesource_bysourceidandpath(2, path); }),
                 {"main", "sub"});
    expect_words(refusal([&] { return a_vextvapi_inputsource_sync_stop(path, 1); }), {"main", "sub"});
    refusal([&] { return a_vextvapi_inputsource_get_currentsourcename_bypath(room, 8, path); });
  }
  expect_words(refusal([] { return a_vextvapi_inputsource_changesource_bysourceidandpath(2, nullptr); }), {"null"});
  expect_words(refusal([] { return a_vextvapi_inputsource_sync_stop(nullptr, 0); }), {"null"});
  expect_words(refusal([] { return a_vextvapi_inputsource_sync_stop("main", 2); }), {"2"});
  expect_words(refusal([&] { return a_vextvapi_inputsource_get_currentsourcename_bypath(room, 8, "sub"); }),
               {"no sub picture"});
  EXPECT_EQ(current(), "TV");
}

TEST_F(TvSources, ChangesByNumberAndByPicture) {
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(3), 0);
  EXPECT_EQ(current(), "HDMI 2");
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceidandpath(6, "MAIN"), 0);
  EXPECT_EQ(current(), "Composite");
  restart();
  EXPECT_EQ(current(), "Composite");
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceidandpath(5, "sub"), 0);
  EXPECT_EQ(current("sub"), "HDMI 4");
  EXPECT_EQ(current(), "Composite");
  EXPECT_EQ(a_vextvapi_inputsource_sync_stop("sub", 1), 0);
  char room[8];
  refusal([&] { return a_vextvapi_inputsource_get_currentsourcename_bypath(room, 8, "sub"); });
  run({"reset"});
  EXPECT_EQ(current(), "TV");
}

TEST_F(TvSources, ABlockedSourceCannotBeChosen) {
  EXPECT_EQ(a_vextvapi_inputsource_set_source_blockstatus_bysourceid(3, 1), 0);
  EXPECT_EQ(blocked(3), 1);
  EXPECT_EQ(blocked(2), 0);
  restart();
  EXPECT_EQ(blocked(3), 1);
  expect_words(refusal([] { return a_vextvapi_inputsource_changesource_bysourceid(3); }), {"HDMI 2 is blocked"});
  expect_words(refusal([] { return a_vextvapi_inputsource_changesource_bysourceidandpath(3, "sub"); }), {"blocked"});
  EXPECT_EQ(run({"source", "HDMI 2"}), R"({"error":"HDMI 2 is blocked"})");
  EXPECT_EQ(current(), "TV");
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(2), 0);
  EXPECT_EQ(a_vextvapi_inputsource_set_source_blockstatus_bysourceid(2, 1), 0);
  EXPECT_EQ(current(), "HDMI 1");  // it goes on to be shown
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(2), 0);
  EXPECT_EQ(a_vextvapi_inputsource_set_source_blockstatus_bysourceid(3, 0), 0);
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(3), 0);
  run({"reset"});
  EXPECT_EQ(blocked(2), 0);
}

TEST_F(TvSources, ABlockedSourceCanBeChosenWhileTheLockOfInputsIsOff) {
  ASSERT_EQ(a_vextvapi_inputsource_set_source_blockstatus_bysourceid(3, 1), 0);
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_rating__input_lock", 0, 0), 0);
  EXPECT_EQ(blocked(3), 1);
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(3), 0);
  EXPECT_EQ(current(), "HDMI 2");
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(0), 0);
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_rating__input_lock", 1, 0), 0);
  expect_words(refusal([] { return a_vextvapi_inputsource_changesource_bysourceid(3); }), {"HDMI 2 is blocked"});
}

TEST_F(TvSources, TheSourceKeyStopsWhereThereIsSomethingToSee) {
  const auto steps = [] {
    std::string all;
    do {
      press("SOURCE");
      all += current() + " ";
    } while (current() != "TV" && all.size() < 200);
    return all;
  };
  EXPECT_EQ(steps(), "HDMI 1 HDMI 2 Media TV ");  // an amplifier and a disc player are plugged in
  expect_done(run({"cec", "unplug", "amplifier"}));
  EXPECT_EQ(steps(), "HDMI 2 Media TV ");
  expect_done(run({"source", "Media", "block"}));
  EXPECT_EQ(steps(), "HDMI 2 TV ");
  expect_done(run({"source", "3", "block"}));
  press("SOURCE");
  EXPECT_EQ(current(), "TV");
}

TEST_F(TvSources, AChangeThatIsNotSavedChangesNothing) {
  EXPECT_EQ(a_vextvapi_inputsource_set_userdefname_bysourceid(2, "Old"), 0);
  move_folder_away(true);
  EXPECT_LT(a_vextvapi_inputsource_changesource_bysourceid(2), 0);
  EXPECT_LT(a_vextvapi_inputsource_set_source_blockstatus_bysourceid(2, 1), 0);
  EXPECT_LT(a_vextvapi_inputsource_set_userdefname_bysourceid(2, "New"), 0);
  EXPECT_LT(a_vextvapi_inputsource_set_source_inputlabelidx_bysourceid(2, 1), 0);
  expect_words(run({"source", "2"}), {"could not be saved"});
  expect_words(run({"source", "2", "label", "1"}), {"could not be saved"});
  expect_words(run({"source", "2", "block"}), {"could not be saved"});
  EXPECT_EQ(current(), "TV");
  EXPECT_EQ(blocked(2), 0);
  EXPECT_EQ(viewers_name(2), "Old");
  EXPECT_EQ(label(2), 0);
  move_folder_away(false);
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(2), 0);
}

TEST_F(TvSources, SourceCommand) {
  const std::string all = run({"source"});
  EXPECT_TRUE(all.starts_with(R"({"current":0,"sources":[{"number":0,"name":"TV","label":"none","blocked":false,)"
                              R"("connected":true,"signal":false},)"))
      << all;
  expect_words(all,
               {R"({"number":2,"name":"HDMI 1","label":"none","blocked":false,"connected":true,"signal":true})",
                R"({"number":4,"name":"HDMI 3","label":"none","blocked":false,"connected":false,"signal":false})"});
  expect_done(run({"source", "hdmi 2"}));
  EXPECT_EQ(current(), "HDMI 2");
  expect_done(run({"source", "3", "name", "Films"}));
  expect_done(run({"source", "Films", "label", "disc player"}));
  EXPECT_EQ(run({"source", "Films"}),
            R"({"number":3,"name":"HDMI 2","viewers_name":"Films","label":"disc player","blocked":false,)"
            R"("connected":true,"signal":true})");
  EXPECT_EQ(place(), "null Films");
  expect_done(run({"source", "3", "label", "8"}));
  EXPECT_EQ(label(3), 8);
  expect_words(run({"source", "3", "label", "9"}), {"error", "0 to 8", "games console"});
  expect_words(run({"source", "3", "label"}), {"error", "label LABEL"});
  expect_words(run({"source", "3", "dance"}), {"error", "block or unblock", "dance"});
  expect_words(run({"source", "3", "block", "now"}), {"error", "no further word"});
  expect_words(run({"source", "8"}), {"error", "no source", "Composite"});
  expect_words(run({"source", "HDMI"}), {"error", "no source", "HDMI 4"});
  expect_words(run({"source", "3", "name", "a name that is too long"}), {"error", "16 bytes"});
  expect_done(run({"source", "3", "name"}));
  EXPECT_EQ(viewers_name(3), "");
}

TEST_F(TvSources, ASatelliteIsReachedOnceThereAreChannels) {
  import_satellite();
  press("SOURCE");
  EXPECT_EQ(place(), "7 Satellite");
  press("SOURCE");
  EXPECT_EQ(place(), "7 HDMI 1");
}

TEST_F(TvSources, ATunersSourceChoosesAChannelOfItsOwn) {
  import_channels();
  import_satellite();
  EXPECT_EQ(place(), "1 TV");
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceidandpath(VEXTVAPI_INPUT_SOURCE_SATELLITE, "MAIN"), 0);
  EXPECT_EQ(place(), "7 Satellite");
  EXPECT_EQ(a_vextvapi_inputsource_changesource_bysourceid(VEXTVAPI_INPUT_SOURCE_TV), 0);
  EXPECT_EQ(place(), "1 TV");
  expect_done(run({"tune", "3"}));
  expect_done(run({"tune", "7"}));
  EXPECT_EQ(place(), "7 Satellite");
  expect_done(run({"source", "TV"}));
  EXPECT_EQ(place(), "3 TV");  // the one seen before
}

TEST_F(TvSources, DeviceOfALogicalAddress) {
  CECM_DEV_INFO_T info{};
  expect_words(refusal([&] { return a_vextvapi_cec_get_dev_info_by_la_async(4, &info); }), {"CEC is off"});
  ASSERT_EQ(a_vextvapi_cec_set_cec_fct({.b_enable = 1, .ui1_hdmi_port_num = 4}), 0);
  ASSERT_EQ(a_vextvapi_cec_get_dev_info_by_la_async(4, &info), 0);
  EXPECT_STREQ(info.s_osd_name, "Disc Player");
  EXPECT_STREQ(info.s_hdmi_port, "HDMI 2");
  EXPECT_EQ(info.e_la, 4);
  EXPECT_EQ(info.ui2_pa, 0x2000);
  EXPECT_EQ(info.dev_type, 4);
  EXPECT_EQ(info.b_amp_connected, 0);
  EXPECT_EQ(info.ui1_dev_vndr_id[0] << 16 | info.ui1_dev_vndr_id[1] << 8 | info.ui1_dev_vndr_id[2], 0x02DE02);
  ASSERT_EQ(a_vextvapi_cec_get_dev_info_by_la_async(5, &info), 0);
  EXPECT_STREQ(info.s_osd_name, "AV Amplifier");
  EXPECT_EQ(info.b_amp_connected, 1);
  for (const INT32 nobody : {0, 1, 3, 15, 16, -1, 260, INT32_MAX, INT32_MIN}) {
    expect_words(refusal([&] { return a_vextvapi_cec_get_dev_info_by_la_async(nobody, &info); }),
                 {std::to_string(nobody)});
  }
  refusal([] { return a_vextvapi_cec_get_dev_info_by_la_async(4, nullptr); });
  expect_done(run({"cec", "unplug", "player"}));
  refusal([&] { return a_vextvapi_cec_get_dev_info_by_la_async(4, &info); });
  EXPECT_STREQ(info.s_osd_name, "AV Amplifier");  // a failure leaves the record as it was
}

}  // namespace
