// Playing recordings: commands, keys, what ends it, and the service that tells the application. Nobody looks at the
// screen, so that the manual clock moves the position.
#include "rooms/playback/playback.h"

#include <sqlite3.h>

#include <mutex>

#include "rooms/recorder/recorder_test.h"

namespace {

constexpr const char* kNothing = R"({"error":"nothing is played; \"recording ID play\" plays a recording"})";

struct Told {
  UINT32 instance = 0;
  INT32 command = 0;
  std::string value;
  bool operator==(const Told&) const = default;
};

std::mutex told_lock;
std::vector<Told> told;  // guarded by told_lock

INT32 take(UINT32 instance, INT32 command, void* value, INT32) {
  const std::string text = command == TVAPI_PUS_PLAY_CMD_START ? static_cast<const char*>(value)
                                                               : std::to_string(reinterpret_cast<std::intptr_t>(value));
  const std::lock_guard guard(told_lock);
  told.push_back({instance, command, text});
  return 0;
}

std::vector<Told> take_told() {
  dtv_tv_advance(0);  // all callbacks have run then
  const std::lock_guard guard(told_lock);
  return std::exchange(told, {});
}

// A set with the recordings 1, 2 and 3 of 20 s each, all of them made on 2026-03-01.
struct PlaybackSet : RecorderSet {
  PlaybackSet() {
    dtv_tv_stop();
    TestStream made;
    add_section(made, 0x00, pat(10, {{101, 0x41}}));
    add_section(made, 0x41, pmt(101, {0x02, 0x03, 0x04}));
    add_time(made, 10);
    sqlite3* database = nullptr;
    EXPECT_EQ(sqlite3_open((folder.path + "/recorder.sqlite").c_str(), &database), SQLITE_OK);
    for (const int id : {1, 2, 3}) {
      write_bytes(path_of(id), made.bytes);
      const std::string row = std::to_string(id) + ",4295622757,262145,'One',77,1772323200,20,'Title " +
                              std::to_string(id) + "',2,0,0,3000000,0,0,0,0";
      EXPECT_EQ(
          sqlite3_exec(database, ("INSERT INTO recording VALUES (" + row + ")").c_str(), nullptr, nullptr, nullptr),
          SQLITE_OK)
          << sqlite3_errmsg(database);
    }
    sqlite3_close(database);
    EXPECT_EQ(tv_start(folder.path), "");
    take_told();
  }

  static std::string url_of(int id) { return "recordings/" + std::to_string(id) + "-20260301-000000.ts"; }
  std::string path_of(int id) const { return folder.path + "/" + url_of(id); }

  static boost::json::value shown() { return reply_to({"playback"}); }
  static void play(int id) { expect_done(run({"recording", std::to_string(id), "play"})); }
  static std::int64_t resume_of(int id) {
    const boost::json::value listed = reply_to({"recording", std::to_string(id)});
    return listed.as_object().contains("resume_seconds") ? number_in(listed, "resume_seconds") : 0;
  }
  static _PvrFileInfo file_info(int id) {
    _PvrFileInfo info{};
    info.ui2_list_id = static_cast<UINT16>(id);
    EXPECT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, info), 0);
    return info;
  }
  static bool plays() { return !shown().at("recording").is_null(); }

  void SetUp() override {
    EXPECT_EQ(a_vextvapi_pus_init(), 0);
    EXPECT_EQ(a_vextvapi_pus_reg_callback(take), 0);
  }
};

TEST_F(PlaybackSet, PlaysFromTheBeginningToTheEnd) {
  EXPECT_EQ(run({"playback"}), R"({"recording":null})");
  play(2);
  const boost::json::value begun = shown();
  EXPECT_EQ(number_in(begun, "recording"), 2);
  EXPECT_EQ(text_in(begun, "title"), "Title 2");
  EXPECT_EQ(text_in(begun, "channel"), "One");
  EXPECT_EQ(number_in(begun, "position_seconds"), 0);
  EXPECT_EQ(number_in(begun, "seconds"), 20);
  EXPECT_FALSE(begun.at("running").as_bool());
  dtv_tv_advance(7000);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 7);
  dtv_tv_advance(12900);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 19);
  EXPECT_TRUE(plays());
  dtv_tv_advance(2500);
  EXPECT_FALSE(plays());
  EXPECT_EQ(resume_of(2), 0) << "it was seen to its end";
}

TEST_F(PlaybackSet, IsResumedWhereItWasLeft) {
  play(1);
  dtv_tv_advance(8000);
  expect_done(run({"playback", "stop"}));
  EXPECT_FALSE(plays());
  EXPECT_EQ(resume_of(1), 8);
  EXPECT_EQ(resume_of(2), 0);
  play(1);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 8);
  expect_done(run({"recording", "1", "play", "3"}));
  EXPECT_EQ(number_in(shown(), "position_seconds"), 3) << "from a time, although it is played already";
  EXPECT_EQ(run({"recording", "1", "play", "21"}), R"({"error":"the recording has only 20 s"})");
}

TEST_F(PlaybackSet, ThePositionIsSavedWhilePlaying) {
  play(1);
  dtv_tv_advance(12000);
  EXPECT_TRUE(plays());
  EXPECT_NEAR(static_cast<double>(resume_of(1)), 10, 1);
  expect_done(run({"playback", "seek", "4"}));
  EXPECT_EQ(resume_of(1), 4);
}

TEST_F(PlaybackSet, SwitchingTheSetOffSavesThePosition) {
  play(1);
  dtv_tv_advance(6000);
  restart();
  EXPECT_FALSE(plays());
  EXPECT_EQ(resume_of(1), 6);
}

TEST_F(PlaybackSet, PausesAndResumes) {
  play(1);
  dtv_tv_advance(4000);
  expect_done(run({"playback", "pause"}));
  EXPECT_EQ(resume_of(1), 4);
  dtv_tv_advance(60'000);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 4);
  EXPECT_TRUE(shown().at("paused").as_bool());
  expect_done(run({"playback", "resume"}));
  dtv_tv_advance(2000);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 6);
}

TEST_F(PlaybackSet, SeeksWithinTheRecording) {
  play(1);
  expect_done(run({"playback", "seek", "15"}));
  EXPECT_EQ(number_in(shown(), "position_seconds"), 15);
  expect_done(run({"playback", "seek", "-4"}));
  EXPECT_EQ(number_in(shown(), "position_seconds"), 11);
  expect_done(run({"playback", "seek", "+2"}));
  EXPECT_EQ(number_in(shown(), "position_seconds"), 13);
  expect_done(run({"playback", "seek", "-500"}));
  EXPECT_EQ(number_in(shown(), "position_seconds"), 0);
  expect_done(run({"playback", "seek", "500"}));
  EXPECT_EQ(number_in(shown(), "position_seconds"), 20);
  dtv_tv_advance(2500);
  EXPECT_FALSE(plays());
}

// The screen's player may end before it gets a jump that was accepted.
TEST_F(PlaybackSet, TheEndBeforeAJumpEndsNothing) {
  play(1);
  const PlaybackShown before = playback_shown().value();
  expect_done(run({"playback", "seek", "5"}));
  playback_player_ended(before.instance, before.jumps, "");
  EXPECT_EQ(number_in(shown(), "position_seconds"), 5);
  playback_player_ended(before.instance, playback_shown()->jumps, "");
  dtv_tv_advance(0);
  EXPECT_FALSE(plays());
  play(2);
  const PlaybackShown broken = playback_shown().value();
  expect_done(run({"playback", "seek", "5"}));
  playback_player_ended(broken.instance, broken.jumps, "the file cannot be played");
  dtv_tv_advance(0);
  EXPECT_FALSE(plays()) << "a file that cannot be played cannot be sought in";
}

TEST_F(PlaybackSet, PlaysAtAnotherSpeed) {
  play(1);
  expect_done(run({"playback", "speed", "2"}));
  dtv_tv_advance(4000);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 8);
  expect_done(run({"playback", "speed", "0.5"}));
  dtv_tv_advance(4000);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 10);
}

TEST_F(PlaybackSet, ListsAndChoosesSoundTracks) {
  play(1);
  EXPECT_EQ(shown().at("audio").as_array().size(), 2U);
  EXPECT_TRUE(shown().at("audio").at(0).at("chosen").as_bool());
  expect_done(run({"playback", "audio", "2"}));
  EXPECT_FALSE(shown().at("audio").at(0).at("chosen").as_bool());
  EXPECT_TRUE(shown().at("audio").at(1).at("chosen").as_bool());
  EXPECT_EQ(run({"playback", "audio", "3"}), R"({"error":"a sound track is 1 to 2"})");
}

TEST_F(PlaybackSet, RefusesWhatItCannotDo) {
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"playback", "stop"}, {"playback", "pause"}, {"playback", "seek", "3"}, {"playback", "audio", "1"}})
    EXPECT_EQ(run(words), kNothing);
  EXPECT_NE(error_of(reply_to({"recording", "9", "play"})), "");
  EXPECT_NE(error_of(reply_to({"recording", "1", "play", "soon"})), "");
  std::filesystem::remove(path_of(3));
  EXPECT_EQ(error_of(reply_to({"recording", "3", "play"})),
            "there is nothing to play of recording 3: the file was deleted or moved");
  play(1);
  for (const char* const word : {"", "+-3", "--3", "x", "99999999", "1e3"})
    EXPECT_NE(error_of(reply_to({"playback", "seek", word})), "") << word;
  for (const char* const word : {"0", "-1", "9", "nan", "inf", "fast"})
    EXPECT_NE(error_of(reply_to({"playback", "speed", word})), "") << word;
  EXPECT_NE(error_of(reply_to({"playback", "jump"})), "");
  EXPECT_NE(error_of(reply_to({"playback", "pause", "now"})), "");
  EXPECT_EQ(number_in(shown(), "position_seconds"), 0);
  EXPECT_EQ(shown().at("speed").to_number<double>(), 1);
  standby();
  EXPECT_EQ(run({"recording", "1", "play"}), R"({"error":"the set is in standby"})");
}

TEST_F(PlaybackSet, WhatTheViewerChoosesInsteadEndsIt) {
  const std::vector<std::vector<std::string>> choices = {
      {"tune", "2"}, {"key", "CH+"}, {"key", "SOURCE"}, {"power", "standby"}, {"source", "3"}};
  for (const std::vector<std::string>& words : choices) {
    expect_done(run({"power", "on"}));
    expect_done(run({"recording", "1", "play", "5"}));
    dtv_tv_advance(1000);
    expect_done(run(words));
    EXPECT_FALSE(plays()) << words[1];
    dtv_tv_advance(0);
    EXPECT_EQ(resume_of(1), 6) << words[1];
    EXPECT_EQ(file_info(1).e_file_status, PVR_FILE_READY) << words[1];
  }
}

TEST_F(PlaybackSet, AnotherRecordingTakesItsPlace) {
  play(1);
  dtv_tv_advance(3000);
  play(2);
  EXPECT_EQ(number_in(shown(), "recording"), 2);
  EXPECT_EQ(resume_of(1), 3);
  EXPECT_EQ(file_info(1).e_file_status, PVR_FILE_READY);
}

TEST_F(PlaybackSet, ADeletedRecordingEndsIt) {
  play(1);
  testing::internal::CaptureStderr();
  expect_done(run({"recording", "1", "delete"}));
  EXPECT_FALSE(plays());
  dtv_tv_advance(0);
  EXPECT_EQ(run({"playback"}), R"({"recording":null,"ended":"the recording was deleted"})");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("\"Title 1\" has ended: the recording was deleted"),
            std::string::npos);
}

TEST_F(PlaybackSet, AFileThatVanishesOrShrinksEndsIt) {
  testing::internal::CaptureStderr();
  play(1);
  std::filesystem::remove(path_of(1));
  dtv_tv_advance(1000);
  EXPECT_NE(text_in(shown(), "ended").find("the file was deleted or moved"), std::string::npos);
  play(2);
  dtv_tv_advance(1000);
  std::filesystem::resize_file(path_of(2), 188);
  dtv_tv_advance(1000);
  EXPECT_EQ(text_in(shown(), "ended"), "the file became shorter");
  testing::internal::GetCapturedStderr();
}

TEST_F(PlaybackSet, KeysControlIt) {
  play(1);
  dtv_tv_advance(15000);
  press("FR");
  EXPECT_EQ(number_in(shown(), "position_seconds"), 5);
  press("ENTER");
  EXPECT_TRUE(shown().at("paused").as_bool());
  press("ENTER");
  EXPECT_FALSE(shown().at("paused").as_bool());
  press("FF");
  EXPECT_EQ(number_in(shown(), "position_seconds"), 20);
  press("PREV");
  EXPECT_EQ(number_in(shown(), "position_seconds"), 0);
  press("EXIT");
  EXPECT_FALSE(plays());
}

TEST_F(PlaybackSet, KeysWithoutAPlaybackDoWhatTheyDidBefore) {
  press_all({"FF", "FR", "PREV", "EXIT"});
  press_all({"2", "ENTER"});
  EXPECT_EQ(place(), "2 TV");
  play(1);
  press_all({"1", "ENTER"});
  EXPECT_EQ(place(), "1 TV") << "digits choose a channel";
  EXPECT_FALSE(plays());
}

TEST_F(PlaybackSet, TheRecorderShowsWhatIsPlayed) {
  EXPECT_EQ(file_info(1).e_file_status, PVR_FILE_READY);
  play(1);
  EXPECT_EQ(file_info(1).e_file_status, PVR_FILE_PLAYING);
  EXPECT_EQ(file_info(0).ui2_list_id, 1) << "the latest";
  EXPECT_EQ(text_in(reply_to({"recording", "1"}), "playing"), "playing");
  dtv_tv_advance(2000);
  run({"playback", "pause"});
  EXPECT_EQ(file_info(1).e_file_status, PVR_FILE_PAUSED);
  EXPECT_EQ(file_info(1).ui4_resume_time, 2U);
  EXPECT_EQ(number_in(reply_to({"state"}).at("playback"), "position_seconds"), 2);
  run({"playback", "stop"});
  EXPECT_EQ(file_info(1).e_file_status, PVR_FILE_READY);
  EXPECT_FALSE(reply_to({"state"}).as_object().contains("playback"));
}

// ---- The service ----

TEST_F(PlaybackSet, TheApplicationIsToldWhatIsPlayed) {
  play(1);
  EXPECT_EQ(take_told(),
            (std::vector<Told>{{1, TVAPI_PUS_PLAY_CMD_PREPARE, "0"}, {1, TVAPI_PUS_PLAY_CMD_START, url_of(1)}}));
  run({"playback", "pause"});
  run({"playback", "pause"});
  run({"playback", "resume"});
  run({"playback", "seek", "12"});
  EXPECT_EQ(take_told(), (std::vector<Told>{{1, TVAPI_PUS_PLAY_CMD_PAUSE, "0"},
                                            {1, TVAPI_PUS_PLAY_CMD_RESUME, "0"},
                                            {1, TVAPI_PUS_PLAY_CMD_SEEK, "12"}}));
  play(2);
  EXPECT_EQ(take_told(), (std::vector<Told>{{1, TVAPI_PUS_PLAY_CMD_STOP, "0"},
                                            {2, TVAPI_PUS_PLAY_CMD_PREPARE, "0"},
                                            {2, TVAPI_PUS_PLAY_CMD_START, url_of(2)}}));
  dtv_tv_advance(30'000);
  EXPECT_EQ(take_told(), (std::vector<Told>{{2, TVAPI_PUS_PLAY_CMD_STOP, "0"}}));
}

TEST_F(PlaybackSet, AStoppedServiceTellsNothing) {
  EXPECT_EQ(a_vextvapi_pus_deinit(), 0);
  play(1);
  EXPECT_EQ(take_told(), std::vector<Told>{});
  expect_words(refusal([] { return a_vextvapi_pus_reg_callback(take); }), {"not been started"});
  expect_words(refusal([] { return a_vextvapi_pus_reg_callback(nullptr); }), {"null"});
  EXPECT_EQ(a_vextvapi_pus_init(), 0);
  EXPECT_EQ(a_vextvapi_pus_reg_callback(take), 0);
  run({"playback", "stop"});
  EXPECT_EQ(take_told(), (std::vector<Told>{{1, TVAPI_PUS_PLAY_CMD_STOP, "0"}}));
}

TEST_F(PlaybackSet, DescribesTheRecordingThatIsPlayed) {
  T_PUS_FILE_INFO_T info{};
  info.duration = 4711;
  expect_words(refusal([&] { return a_vextvapi_pus_get_file_info(1, &info); }), {"playback 1"});
  EXPECT_EQ(info.duration, 4711) << "it is left alone";
  play(3);
  EXPECT_EQ(a_vextvapi_pus_get_file_info(1, &info), 0);
  EXPECT_EQ(info.url, url_of(3));
  EXPECT_STREQ(info.channelName, "One");
  EXPECT_STREQ(info.eventName, "Title 3");
  EXPECT_EQ(info.eventId, 77);
  EXPECT_EQ(info.startDateTime, 1772323200);
  EXPECT_EQ(info.endDateTime, 1772323220);
  EXPECT_EQ(info.duration, 20);
  EXPECT_EQ(info.sizeInMB, 2);
  EXPECT_EQ(info.fileType, 1U);
  expect_words(refusal([&] { return a_vextvapi_pus_get_file_info(2, &info); }), {"playback 2"});
  expect_words(refusal([] { return a_vextvapi_pus_get_file_info(1, nullptr); }), {"room"});
}

TEST_F(PlaybackSet, KeepsWhatTheApplicationReports) {
  expect_words(refusal([] { return a_vextvapi_pus_submit_status(1, 3, 4, 0); }), {"no playback 1"});
  play(1);
  EXPECT_EQ(a_vextvapi_pus_submit_status(1, 3, 4, 0), 0);
  run({"playback", "stop"});
  EXPECT_EQ(boost::json::serialize(reply_to({"state"}).at("application_playback")),
            R"({"instance":1,"state":3,"value":4})");
  EXPECT_EQ(a_vextvapi_pus_submit_status(1, 5, 0, 0), 0) << "its end is reported after the set's";
  expect_words(refusal([] { return a_vextvapi_pus_submit_status(7, 3, 4, 0); }), {"the latest is 1"});
}

// ---- A recording that runs ----

struct TimeShift : ReceivingSet {};

TEST_F(TimeShift, ARunningRecordingIsPlayedBehindTheBroadcast) {
  const auto shown = [] { return reply_to({"playback"}); };
  expect_done(run({"tune", "1"}));
  expect_done(run({"record", "now", "10"}));
  grows_to(20'000);
  dtv_tv_advance(30'000);
  const std::string id = std::to_string(number_in(newest_recording(), "id"));
  expect_done(run({"recording", id, "play", "10"}));
  EXPECT_TRUE(shown().at("running").as_bool());
  dtv_tv_advance(5000);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 15);
  EXPECT_EQ(number_in(shown(), "seconds"), 35);
  run({"playback", "pause"});
  dtv_tv_advance(20'000);
  EXPECT_EQ(number_in(shown(), "position_seconds"), 15);
  run({"playback", "resume"});
  expect_done(run({"playback", "seek", "999"}));
  EXPECT_EQ(number_in(shown(), "position_seconds"), 54) << "a second behind the broadcast";
  expect_done(run({"playback", "speed", "4"}));
  dtv_tv_advance(10'000);
  EXPECT_NEAR(static_cast<double>(number_in(shown(), "position_seconds")), 65, 1) << "not beyond the broadcast";
  EXPECT_EQ(shown().at("speed").to_number<double>(), 1);
  expect_done(run({"record", "stop"}));
  dtv_tv_advance(3000);
  EXPECT_TRUE(shown().at("recording").is_null()) << "a recording that has ended is played to its end";
}

}  // namespace
