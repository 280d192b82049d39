// The commands, and what survives: restarts, kill -9, damage, reset.
#include <thread>

#include "channels_test.h"

using namespace channels_test;

namespace {

bool failed(const std::string& answer) { return answer.rfind(R"({"error":")", 0) == 0; }

TEST_F(TvChannels, ANewSetHasNoChannels) {
  EXPECT_EQ(command({"channels"}), R"({"channels":[],"count":0})");
  EXPECT_EQ(command({"favourites"}), R"({"favourites":[],"count":0})");
  EXPECT_EQ(command({"channels", "categories"}), R"({"categories":[]})");
  EXPECT_EQ(command({"state"}).find("channels"), std::string::npos);
  EXPECT_EQ(vextvapi_GetNumofChListByMask(kOneList, 0, 0), 0);
  EXPECT_EQ(vextvapi_GetFirstVirtualChannelByMask(kOneList, 0, 0), 0u);
}

TEST_F(TvChannelList, ChannelsAreListedAndFoundByName) {
  EXPECT_EQ(command({"channels", "one"}), R"({"channels":[{"number":1,"name":"One","list":"air","flags":[]},)"
                                          R"({"number":10,"name":"Tenth one","list":"air","flags":[]}],"count":2})");
  EXPECT_EQ(command({"channels", "fm"}),
            R"({"channels":[{"number":3,"name":"Three FM","list":"air","flags":["radio"]}],"count":1})");
  EXPECT_EQ(command({"channels", "from", "6"}),
            R"({"channels":[{"number":10,"name":"Tenth one","list":"air","flags":[]}],"count":6})");
  EXPECT_EQ(command({"channels", "one", "from", "3"}), R"({"channels":[],"count":2})");
  for (const char* const position : {"0", "-1", "x", "99999999999"})
    EXPECT_TRUE(failed(command({"channels", "from", position}))) << position;
  expect_words(command({"state"}), {R"("channels":6)"});
}

TEST_F(TvChannels, LongListsComeInPages) {
  std::string list;
  for (int i = 1; i <= 250; ++i) list += service("Channel " + std::to_string(i), i, "DVBT", i);
  expect_words(import("list", list), {R"("added":250)"});
  expect_words(command({"channels"}), {R"("count":250,"next":101)", R"("name":"Channel 100")"});
  const std::string last = command({"channels", "from", "201"});
  expect_words(last, {R"({"channels":[{"number":201,)", R"("name":"Channel 250")", R"("count":250})"});
}

TEST_F(TvChannelList, AChannelIsShownAndChanged) {
  expect_words(command({"channel", "satellite:5"}),
               {R"({"number":5,"name":"Five","list":"satellite","flags":[],"id":1310723,)", R"("network":1)",
                R"("stream":1101)", R"("service":305)", R"("mhz":11836,"orbit":"19.2E")", R"("favourite":false)"});
  expect_words(command({"channel", "cable:2"}), {R"("name":"Second")"});
  expect_words(command({"channel", "2"}), {R"("name":"Two")"});
  for (const auto& [word, flags] : {std::pair("block", R"("flags":["blocked"])"),
                                    {"skip", R"(["blocked","skipped"])"},
                                    {"hide", R"(["blocked","skipped","hidden"])"},
                                    {"unblock", R"(["skipped","hidden"])"},
                                    {"show", R"(["skipped"])"},
                                    {"unskip", R"("flags":[])"}})
    expect_words(command({"channel", "1", word}), {flags});
  expect_words(command({"channel", "1", "name", "The", "first"}), {R"("name":"The first")"});
  expect_words(command({"channel", "1", "number", "77"}), {R"("number":77)"});
  expect_words(command({"channel", "77", "categories", "3", "1"}), {R"("categories":[1,3])"});
  EXPECT_EQ(command({"channel", "77", "delete"}), R"({"deleted":"The first"})");
  EXPECT_TRUE(failed(command({"channel", "77"})));
}

TEST_F(TvChannelList, WrongCommandsAreRefusedWithAReason) {
  expect_words(command({"channel", "1", "number", "2"}), {"error", "Two", "channel move 1 to 2"});
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"channel"},
                                             {"channel", "4"},
                                             {"channel", "x"},
                                             {"channel", "air:"},
                                             {"channel", "mars:1"},
                                             {"channel", ":1"},
                                             {"channel", "1.9"},
                                             {"channel", "1", "dance"},
                                             {"channel", "1", "name"},
                                             {"channel", "1", "name", ""},
                                             {"channel", "1", "name", std::string(65, 'x')},
                                             {"channel", "1", "number"},
                                             {"channel", "1", "number", "0"},
                                             {"channel", "1", "number", "16384"},
                                             {"channel", "1", "categories", "32"},
                                             {"channel", "1", "block", "now"},
                                             {"channel", "9", "delete"},
                                             {"channel", "move", "1", "2"},
                                             {"channel", "move", "1", "to", "x"},
                                             {"channel", "move", "9", "to", "1"},
                                             {"channel", "move", "1", "to", "cable:2"},
                                             {"channels", "categories", "32", "x"},
                                             {"channels", "categories", "1", std::string(32, 'x')},
                                             {"favourite"},
                                             {"favourite", "9"},
                                             {"favourite", "1", "maybe"},
                                             {"favourites", "4"},
                                             {"favourites", "x"}})
    EXPECT_TRUE(failed(command(words))) << words[0] << " " << words.back();
  EXPECT_EQ(name(id(1)), "One");
}

TEST_F(TvChannelList, MovingShiftsTheChannelsBetween) {
  EXPECT_FALSE(failed(command({"channel", "move", "1", "to", "3"})));
  EXPECT_EQ(name(id(1)), "Two");
  EXPECT_EQ(name(id(2)), "Three FM");
  EXPECT_EQ(name(id(3)), "One");
  EXPECT_EQ(name(id(10)), "Tenth one");
  expect_heard({{air, 2, VEXTVAPI_CHANNEL_REASON_ORDER, 0}});
  EXPECT_FALSE(failed(command({"channel", "move", "10", "to", "1"})));
  EXPECT_EQ(name(id(1)), "Tenth one");
  EXPECT_EQ(name(id(10)), "One");
  EXPECT_FALSE(failed(command({"channel", "move", "1", "to", "20"}))) << "a free number";
  EXPECT_EQ(name(viewers_id(20)), "Tenth one");
  EXPECT_EQ(record(viewers_id(20)).t_rec_hdr.ui4_option_mask, UINT32{SVL_OPT_MASK_NUMBER_EDITED});
  EXPECT_EQ(name(id(2, kCable)), "Second") << "another list";
}

TEST_F(TvChannelList, FavouritesAreToggledAndListed) {
  expect_words(command({"favourite", "2"}), {R"("favourite":true)"});
  expect_words(command({"favourite", "cable:2", "add"}), {R"("name":"Second")", R"("favourite":true)"});
  expect_words(command({"favourite", "cable:2", "add"}), {R"("favourite":true)"});
  EXPECT_EQ(command({"favourites"}), R"({"favourites":[{"number":2,"name":"Two","list":"air","flags":[]},)"
                                     R"({"number":2,"name":"Second","list":"cable","flags":[]}],"count":2})");
  expect_words(command({"favourite", "2"}), {R"("favourite":false)"});
  expect_words(command({"favourite", "cable:2", "remove"}), {R"("favourite":false)"});
  EXPECT_EQ(command({"favourites"}), R"({"favourites":[],"count":0})");
  ASSERT_EQ(a_vextvapi_favorite_list_add_tail(kAir, 2, id(10)), 0);
  expect_words(command({"favourites", "2"}), {R"("number":10)", R"("count":1)"});
  EXPECT_EQ(command({"favourites", "1"}), R"({"favourites":[],"count":0})");
}

TEST_F(TvChannels, ATableOfFrequenciesIsImportedOnce) {
  const std::string table = "[CHANNEL]\n\tDELIVERY_SYSTEM = DVBS\n\tFREQUENCY = 11836000\n";
  EXPECT_EQ(import("Bird-19.2E", table), R"({"added":0,"changed":0,"multiplexes":1,"satellite":"Bird 19.2E"})");
  EXPECT_EQ(import("Bird-19.2E", table), R"({"added":0,"changed":0,"multiplexes":0,"satellite":"Bird 19.2E"})");
  restart();
  EXPECT_EQ(import("Bird-19.2E", table), R"({"added":0,"changed":0,"multiplexes":0,"satellite":"Bird 19.2E"})");
}

TEST_F(TvChannels, GoodSectionsOfABadFileAreImported) {
  expect_words(import("list", service("Good", 1, "DVBT", 1) + "nonsense\n"),
               {R"("added":1)", R"("bad_lines":1,"bad":[{"line":9,"why":)", "nonsense"});
  expect_words(import("list", "nonsense\n"), {"error", "no services and no multiplexes; line 1", "nonsense"});
  expect_words(import("list", ""), {"error", "no services"});
}

TEST_F(TvChannels, OnlyFilesInTheStickRootOrTablesAreImported) {
  const TvFolder elsewhere;
  write_file(elsewhere.path + "/list", seed_text());
  std::filesystem::create_symlink(elsewhere.path + "/list", world.path + "/link");
  for (const std::string& path :
       {elsewhere.path + "/list", world.path + "/link", world.path + "/../" + elsewhere.path.substr(5) + "/list",
        std::string("/etc/passwd"), elsewhere.path + "/none"})
    expect_words(command({"channels", "import", path}), {"error", "only a file in " + world.path});
  for (const char* const name : {"../../../etc/passwd", "dvb-t/../x", ".", "", "none/x", "dvb-t/", "no such table"})
    EXPECT_TRUE(failed(command({"channels", "import", name}))) << name;
  EXPECT_TRUE(failed(command({"channels", "import", world.path}))) << "a folder";
  EXPECT_EQ(command({"channels"}), R"({"channels":[],"count":0})");
}

TEST_F(TvChannelList, ImportingAgainKeepsTheViewersChanges) {
  command({"channel", "1", "name", "Mine"});
  command({"channel", "2", "number", "20"});
  EXPECT_EQ(import("list-19.2E", seed_text() + service("New", 2, "DVBT", 500)),
            R"({"added":1,"changed":0,"multiplexes":0,"satellite":"list 19.2E"})");
  EXPECT_EQ(name(id(1)), "Mine");
  EXPECT_EQ(name(viewers_id(20)), "Two");
  EXPECT_EQ(name(id(2)), "New");
}

// ---- Callbacks ----

TEST_F(TvChannels, AnImportIsReportedOncePerList) {
  ASSERT_EQ(a_vextvapi_channellist_register_callback(listen, kTag), 0);
  const auto handle = a_vextvapi_channellist_get_svl_handle_by_svl_id;
  seed();
  constexpr UINT32 kAdded = VEXTVAPI_CHANNEL_REASON_ADDED;
  expect_heard({{handle(kAir), 2, kAdded, 0},
                {handle(kCable), 2, kAdded, id(2, kCable)},
                {handle(kSatellite), 2, kAdded, id(5, kSatellite)}});
  command({"channel", "10", "delete"});
  expect_heard({{handle(kAir), 2, VEXTVAPI_CHANNEL_REASON_REMOVED, id(10)}});
  command({"channel", "3", "block"});
  expect_heard({{handle(kAir), 2, VEXTVAPI_CHANNEL_REASON_CHANGED, id(3)}});
  EXPECT_EQ(command({"channels", "clear"}), R"({"deleted":5})");
  constexpr UINT32 kRemoved = VEXTVAPI_CHANNEL_REASON_REMOVED;
  expect_heard({{handle(kAir), 3, kRemoved, 0},
                {handle(kCable), 3, kRemoved, id(2, kCable)},
                {handle(kSatellite), 3, kRemoved, id(5, kSatellite)}});
  EXPECT_EQ(command({"channels", "clear"}), R"({"deleted":0})");
  dtv_tv_stop();
  expect_heard({});
}

// ---- What survives ----

TEST_F(TvChannelList, AResetEmptiesEverything) {
  command({"channels", "categories", "1", "News"});
  command({"favourite", "1"});
  command({"reset"});
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(command({"channels"}), R"({"channels":[],"count":0})");
    EXPECT_EQ(command({"channels", "categories"}), R"({"categories":[]})");
    INT32 number = -1;
    UINT32 version = 0;
    EXPECT_EQ(c_satl_get_num_recs(a_vextvapi_channellist_get_satl_handle_by_satl_id(1), &number, &version), 0);
    EXPECT_EQ(number, 0);
    restart();
  }
}

TEST_F(TvChannelList, EveryAcknowledgedChangeSurvivesKill) {
  dtv_tv_stop();
  EXPECT_TRUE(run_and_kill([&] {
    char* error = nullptr;
    if (dtv_tv_start(folder.path.c_str(), &error) != 0) return false;
    return command({"channel", "1", "name", "Kept"}).find("Kept") != std::string::npos &&
           vextvapi_1CL_addFavToTailByChannel(id(10)) == 0;
  }));
  start();
  EXPECT_EQ(name(id(1)), "Kept");
  EXPECT_EQ(vextvapi_1CL_getFavIdxByChannelAndMask(0, 0, id(10)), 0);
  EXPECT_EQ(vextvapi_GetNumofChListByMask(kOneList, 0, 0), 6);
}

TEST_F(TvChannelList, ADamagedFileIsSetAside) {
  dtv_tv_stop();
  write_sql(folder.path + "/channels.sqlite",
            "PRAGMA ignore_check_constraints=1; UPDATE channel SET list = 1, id = 5 "
            "WHERE record = 1 AND list = 1");
  testing::internal::CaptureStderr();
  start();
  expect_words(testing::internal::GetCapturedStderr(), {"channels.sqlite", "damaged"});
  EXPECT_EQ(command({"channels"}), R"({"channels":[],"count":0})");
  const std::vector<std::string> files = files_of(folder.path);
  EXPECT_TRUE(std::any_of(files.begin(), files.end(),
                          [](const std::string& file) { return file.rfind("channels.sqlite.damaged-", 0) == 0; }));
  seed();
}

TEST_F(TvChannelList, WithoutItsFileTheSetHasNoChannelsAndSavesNone) {
  dtv_tv_stop();
  std::filesystem::remove(folder.path + "/channels.sqlite");
  std::filesystem::create_directory(folder.path + "/channels.sqlite");
  testing::internal::CaptureStderr();
  start();
  expect_words(import("list", seed_text()), {"error", "could not be saved"});
  expect_words(testing::internal::GetCapturedStderr(), {"channels.sqlite", "none can be saved"});
  EXPECT_EQ(command({"channels"}), R"({"channels":[],"count":0})");
}

// Once the set is off, reads still answer and changes fail.
TEST_F(TvChannelList, AfterTheEndChangesFail) {
  dtv_tv_stop();
  EXPECT_EQ(vextvapi_GetNumofChListByMask(kOneList, 0, 0), 6);
  refusal([&] { return vextvapi_1CL_addFavToTailByChannel(id(1)); });
  EXPECT_EQ(vextvapi_1CL_getFavNumByMask(0, 0), 0);
}

TEST_F(TvChannelList, ReadersAndWritersDoNotDisturbEachOther) {
  std::atomic<bool> done = false;
  std::atomic<int> wrong = 0;
  std::thread reader([&] {
    while (!done) {
      const INT32 count = vextvapi_GetNumofChListByMask(kOneList, 0, 0);
      if (count != 6) ++wrong;
      SVL_REC_T svl = {};
      if (vextvapi_getChannelSvlRecByIdxAndMask(kOneList, 0, 0, 5, &svl) != 0) ++wrong;
    }
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_FALSE(failed(command({"channel", "1", i % 2 == 0 ? "block" : "unblock"})));
    EXPECT_FALSE(failed(command({"favourite", "10"})));
  }
  done = true;
  reader.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
