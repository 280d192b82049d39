// How players follow each other: too many of them, a stop and what comes at once after it, and what was chosen
// meanwhile.
#ifdef DTV_PICTURE
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>

#include "rooms/library/parts.h"
#include "rooms/media_player/bookmarks.h"
#include "rooms/media_player/media_player.h"
#include "rooms/media_player/media_player_test.h"

namespace {

using namespace media_test;

TEST_F(MediaSet, AThirdPlayerEndsOneThatWasLeft) {
  EXPECT_EQ(a_vextvapi_cb_pb_init(0, 0, nullptr, 0, nullptr, nullptr), 0u);
  EXPECT_EQ(a_vextvapi_cb_pb_init(0, 0, nullptr, 0, nullptr, ""), 0u);
  const auto is_there = [](UINT32 player) { return a_vextvapi_cb_pb_setRepeat(player, PLAYER_REPEAT_OFF) == 0; };
  const UINT32 playing = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_play(playing), 0);
  const UINT32 missing = create(path("missing.mp4"));
  EXPECT_NE(a_vextvapi_cb_pb_open(missing), 0);
  const UINT32 third = create(path("film.ts"));
  EXPECT_FALSE(is_there(missing)) << "it plays nothing";
  EXPECT_TRUE(is_there(playing));
  forget_events();
  EXPECT_EQ(a_vextvapi_cb_pb_open(third), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_OPENED));
  const UINT32 fourth = create(path("song.mp3"));
  EXPECT_FALSE(is_there(playing)) << "the oldest";
  EXPECT_TRUE(is_there(third));
  EXPECT_EQ(a_vextvapi_cb_pb_open(fourth), 0);
}

// What a page that is loaded again and again leaves behind keeps nobody out.
TEST_F(MediaSet, PlayersThatAreNeverDestroyedKeepNobodyOut) {
  for (int i = 0; i < 5; ++i) {
    forget_events();
    EXPECT_EQ(a_vextvapi_cb_pb_play(open("film.mp4")), 0);
    EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
  }
  const auto played = [] { return text(command({"player"}), "path"); };
  EXPECT_EQ(command({"player", "play", path("song.mp3")}).if_contains("error"), nullptr);
  EXPECT_TRUE(until([&] { return played() == path("song.mp3"); }));
  const UINT32 player = open("film.ts");  // beside the viewer's, which plays on below it
  EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
  EXPECT_TRUE(until([&] { return played() == path("song.mp3"); }));
}

TEST_F(MediaSet, AViewersPlayerThatPlaysAgainIsOneOfTwo) {
  EXPECT_EQ(command({"player", "play", path("film.mp4"), "11"}).if_contains("error"), nullptr);
  EXPECT_TRUE(until([] { return text(command({"player"}), "state") == "ended"; }));
  const UINT32 left = create(path("film.ts"));
  const UINT32 opened = open("film.mkv");
  EXPECT_EQ(command({"player", "play", path("film.mp4")}).if_contains("error"), nullptr);
  EXPECT_EQ(a_vextvapi_cb_pb_setRepeat(left, PLAYER_REPEAT_OFF), IVEX_PB_ERROR_CODE_INV_HANDLE);
  EXPECT_EQ(a_vextvapi_cb_pb_setRepeat(opened, PLAYER_REPEAT_OFF), 0);
}

TEST_F(MediaSet, AResetEndsAllPlayers) {
  const UINT32 player = open("film.mp4");
  command({"reset"});
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), IVEX_PB_ERROR_CODE_INV_HANDLE);
  EXPECT_EQ(text(command({"player"}), "state"), "none");
}

TEST_F(MediaSet, WhatFollowsAStopAtOnceFindsItStopped) {
  for (int i = 0; i < 5; ++i) {
    const UINT32 player = open("film.mp4");
    EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
    EXPECT_TRUE(comes_to(player, 1, 11));
    forget_events();
    EXPECT_EQ(a_vextvapi_cb_pb_stop(player), 0);
    EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 5), IVEX_PB_ERROR_CODE_NOT_READY);
    EXPECT_EQ(a_vextvapi_cb_pb_pause(player), IVEX_PB_ERROR_CODE_NOT_READY);
    EXPECT_EQ(a_vextvapi_cb_pb_FF(player), IVEX_PB_ERROR_CODE_NOT_READY);
    EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
    EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
    EXPECT_EQ(heard(PLAYER_EVENT_STOPPED).size(), 1u);
    EXPECT_EQ(heard(PLAYER_EVENT_PLAYING).at(0).data, 0) << "it plays from its beginning";
    EXPECT_EQ(a_vextvapi_cb_pb_stop(player), 0);
    EXPECT_EQ(a_vextvapi_cb_pb_deinit(player), 0);
    EXPECT_EQ(a_vextvapi_cb_pb_play(player), IVEX_PB_ERROR_CODE_INV_HANDLE);
    forget_events();
  }
}

TEST_F(MediaSet, AStoppedLockedFileIsLockedAgain) {
  EXPECT_EQ(command({"config", "g_misc__parental_age", "12"}).if_contains("error"), nullptr);
  const UINT32 player = open("film.mkv");
  EXPECT_TRUE(hears(PLAYER_EVENT_RATING_BLOCKED));
  EXPECT_EQ(a_vextvapi_cb_pb_stop(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_STOPPED));
  forget_events();
  EXPECT_EQ(a_vextvapi_cb_pb_play(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_RATING_BLOCKED));
  EXPECT_EQ(a_vextvapi_cb_pb_unblockRating(player), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_PLAYING));
}

// ---- What follows a viewer's file ----

// The films of the folder, one after the other, begin with the first near its end.
void play_around(const MediaSet& set) {
  scans_settle();
  EXPECT_EQ(command({"player", "play", set.path("film.mp4"), "11"}).if_contains("error"), nullptr);
  EXPECT_EQ(command({"player", "repeat", "folder"}).if_contains("error"), nullptr);
}

std::atomic<int> ends;

TEST_F(MediaSet, TheNextFileFollowsWithoutAnEnd) {
  ends = 0;
  media_player_on_change([] {
    const auto playing = media_player_playing();
    if (playing && playing->state == MediaState::kEnded) ++ends;
  });
  play_around(*this);
  EXPECT_TRUE(until([&] {
    const std::string played = text(command({"player"}), "path");
    return !played.empty() && played != path("film.mp4");
  }));
  media_player_on_change(nullptr);
  EXPECT_EQ(ends, 0) << "between the two, something else could have been chosen and lost";
  // The first was seen to its end.
  EXPECT_EQ(command({"player", "play", path("film.mp4")}).if_contains("error"), nullptr);
  EXPECT_TRUE(until([] { return text(command({"player"}), "state") == "playing"; }));
  EXPECT_LT(number(command({"player"}), "position"), 3);
}

TEST_F(MediaSet, WhatIsChosenAtTheEndOfAFileCounts) {
  play_around(*this);
  for (int i = 0; i < 8; ++i) {
    command({"power", "on"});
    EXPECT_EQ(command({"player", "play", path("film.mp4"), "11.8"}).if_contains("error"), nullptr);
    EXPECT_TRUE(until([] { return number(command({"player"}), "position") >= 11.8; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200 + 25 * i));  // about when it ends
    command({"power", "standby"});
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(media_player_drawer(), nullptr) << "round " << i;
  }
}

TEST_F(MediaSet, APauseDoesNotCountOnTheWayBack) {
  const UINT32 player = open("film.mp4");
  EXPECT_EQ(a_vextvapi_cb_pb_timeSeek(player, 11), 0);
  EXPECT_TRUE(hears(PLAYER_EVENT_SOUGHT));
  EXPECT_EQ(a_vextvapi_cb_pb_setSpeed(player, -200), 0);
  EXPECT_TRUE(comes_to(player, 0, 10));
  EXPECT_EQ(a_vextvapi_cb_pb_pause(player), 0);
  std::this_thread::sleep_for(std::chrono::seconds(3));
  const UINT32 paused = position(player);
  EXPECT_GT(paused, 4u) << "it did not wait";
  EXPECT_EQ(a_vextvapi_cb_pb_setSpeed(player, -200), 0);
  EXPECT_TRUE(comes_to(player, 0, paused - 1));
  EXPECT_GE(position(player) + 4, paused) << "three seconds of pause are six of the film";
}

// ---- Where files were left ----

FileIdentity nth_file(int number) { return {.path = "/stick/" + std::to_string(number), .size = 1, .changed = 1}; }

TEST(MediaPositions, SurviveAProcessThatIsKilledWhileItSaves) {
  const TvFolder folder;
  int last = -1;
  for (int round = 0; round < 5; ++round) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
      if (dtv_tv_start(folder.path.c_str(), nullptr) != 0) _exit(1);
      for (int number = last + 1;; ++number)
        if (!bookmark_save(nth_file(number), number + 1) || write(ends[1], &number, sizeof number) < 0) _exit(2);
    }
    close(ends[1]);
    for (int told = -1; told < last + 50 + 7 * round;) {
      const ssize_t got = read(ends[0], &told, sizeof told);
      ASSERT_EQ(got, static_cast<ssize_t>(sizeof told)) << "the process has ended by itself";
    }
    kill(child, SIGKILL);  // it goes on saving until then
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    for (int told = -1; read(ends[0], &told, sizeof told) == sizeof told;) last = told;
    close(ends[0]);
    ASSERT_EQ(tv_start(folder.path), "");
    for (int number = std::max(0, last - 900); number <= last; ++number)
      EXPECT_EQ(bookmark_read(nth_file(number)), number + 1) << "of " << last;
    EXPECT_TRUE(bookmark_save(nth_file(last), last + 1));
    dtv_tv_stop();
  }
}

}  // namespace
#endif
