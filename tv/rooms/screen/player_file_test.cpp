// The player with a file: complete, growing, deleted, shortened, broken.
#ifdef DTV_PICTURE
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

#include "rooms/screen/player_test.h"

namespace {

using namespace player_test;

// Red, then green, then blue, two seconds each.
const Bytes& colours() {
  static const Bytes kBytes = [] {
    const std::string part = ":size=352x288:rate=25:duration=2,format=yuv420p";
    return broadcast("color=red" + part + "[r];color=lime" + part + "[g];color=blue" + part +
                     "[b];[r][g][b]concat=n=3:v=1:a=0");
  }();
  return kBytes;
}

struct FilePlayer : PlayerOwner {
  std::string path =
      (std::filesystem::temp_directory_path() / ("player_file_" + std::to_string(getpid()) + ".ts")).string();
  ~FilePlayer() override {
    player.reset();
    std::filesystem::remove(path);
  }

  void write(std::span<const std::uint8_t> bytes, std::ios::openmode mode = std::ios::trunc) const {
    std::ofstream(path, std::ios::binary | mode)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  void start(PlayerFile file) {
    std::string error;
    file.path = path;
    player = player_start_file(file, wake(), error);
    ASSERT_NE(player, nullptr) << error;
  }

  const PlayerFacts& facts() const { return player_facts(*player); }

  // Until done returns true.
  bool watch(const std::function<bool()>& done, steady_clock::duration longest = kLongest) {
    const auto end = steady_clock::now() + longest;
    while (steady_clock::now() < end) {
      player_step(*player, *canvas);
      if (done()) return true;
      wait();
    }
    return false;
  }
  bool plays() {
    return watch([this] { return facts().state == PlayerState::kPlaying && facts().position > 0.2; });
  }
  bool ends(PlayerState state) {
    return watch([&] { return facts().state == state; });
  }
  bool shows(std::size_t place) {  // of red, green, blue
    return watch([this, place] {
      const std::array<int, 3> seen = colour();
      return seen[place] > 180 && seen[(place + 1) % 3] < 90 && seen[(place + 2) % 3] < 90;
    });
  }
};

TEST_F(FilePlayer, PlaysToTheEnd) {
  write(colours());
  start({});
  EXPECT_TRUE(shows(0));
  EXPECT_NEAR(facts().duration, 10, 1);  // the sound is longer than the pictures
  EXPECT_TRUE(shows(1));
  EXPECT_TRUE(ends(PlayerState::kEnded)) << facts().position;
  EXPECT_EQ(facts().reason, "");
}

TEST_F(FilePlayer, ListsTheTracks) {
  write(colours());
  start({});
  ASSERT_TRUE(plays());
  ASSERT_TRUE(watch([this] { return facts().tracks.size() == 2; }));
  const PlayerTrack &video = facts().tracks[0], &sound = facts().tracks[1];
  EXPECT_EQ(video.kind, TrackKind::kVideo);
  EXPECT_EQ(video.codec, "mpeg2video");
  EXPECT_EQ(sound.kind, TrackKind::kAudio);
  EXPECT_EQ(sound.codec, "mp2");
  EXPECT_EQ(sound.number, 1);
  EXPECT_TRUE(sound.chosen);
  EXPECT_TRUE(watch([this] { return facts().video.width != 0 && facts().video.aspect != 0; }));
  player_choose(*player, TrackKind::kAudio, 0);
  EXPECT_TRUE(watch([this] { return !facts().tracks[1].chosen; }));
}

TEST_F(FilePlayer, SeeksWhilePlayingAndWhilePaused) {
  write(colours());
  start({.from = 2.5, .paused = true});
  EXPECT_TRUE(shows(1));
  player_seek(*player, 4.5);
  EXPECT_EQ(facts().position, 4.5);
  EXPECT_TRUE(shows(2));
  EXPECT_TRUE(watch([this] { return !facts().seeking; }));
  EXPECT_NEAR(facts().position, 4.5, 0.3);
  player_seek(*player, 0.5);
  EXPECT_TRUE(shows(0));
  player_pause(*player, false);
  EXPECT_TRUE(shows(1));
}

TEST_F(FilePlayer, ASeekAfterTheEndPlaysAgain) {
  write(colours());
  start({.from = 9.5});
  ASSERT_TRUE(ends(PlayerState::kEnded));
  player_seek(*player, 2.5);
  EXPECT_EQ(facts().position, 2.5);
  EXPECT_TRUE(facts().seeking);
  EXPECT_TRUE(shows(1));
  EXPECT_TRUE(watch([this] { return !facts().seeking && facts().position > 2.6; })) << facts().position;
  EXPECT_EQ(facts().state, PlayerState::kPlaying);
  player_seek_percent(*player, 97);
  ASSERT_TRUE(ends(PlayerState::kEnded));
  player_pause(*player, true);
  player_seek(*player, 1);
  player_seek(*player, 0.5);  // while the file is being opened again
  EXPECT_TRUE(shows(0));
  EXPECT_TRUE(watch([this] { return !facts().seeking; }));
  EXPECT_NEAR(facts().position, 0.5, 0.3);
  EXPECT_EQ(facts().state, PlayerState::kPlaying);
}

TEST_F(FilePlayer, APausedFileStandsStill) {
  write(colours());
  start({.from = 1, .paused = true});
  ASSERT_TRUE(watch([this] { return facts().state == PlayerState::kPlaying; }));
  const double before = facts().position;
  EXPECT_FALSE(watch([&] { return facts().position > before + 0.2; }, 700ms));
  player_pause(*player, false);
  EXPECT_TRUE(watch([&] { return facts().position > before + 0.2; }));
}

TEST_F(FilePlayer, PlaysFaster) {
  write(moving());
  start({.speed = 4});
  ASSERT_TRUE(plays());
  const auto begin = steady_clock::now();
  const double position = facts().position;
  // At the usual speed the position never gains on the clock, however slow the machine is.
  EXPECT_TRUE(watch([&] {
    const std::chrono::duration<double> passed = steady_clock::now() - begin;
    return facts().position - position > std::max(1.0, 1.5 * passed.count());
  }));
  EXPECT_TRUE(ends(PlayerState::kEnded));
}

TEST_F(FilePlayer, AGrowingFileIsFollowedToItsEnd) {
  const std::span<const std::uint8_t> all = moving();
  const std::size_t begin = all.size() / 10 / 188 * 188 * 2, more = begin * 2;
  write(all.first(begin));
  start({.grows = true});
  ASSERT_TRUE(plays());
  // The file ends at about two seconds; the player waits there.
  EXPECT_FALSE(watch([this] { return facts().state == PlayerState::kEnded || facts().position > 2.5; }, 3s));
  write(all.subspan(begin, more - begin), std::ios::app);
  EXPECT_TRUE(watch([this] { return facts().position > 2.6; })) << facts().position;
  player_seek(*player, 0.5);
  EXPECT_TRUE(watch([this] { return !facts().seeking && facts().position < 1; }));
  player_set_growing(*player, false);
  EXPECT_TRUE(ends(PlayerState::kEnded));
  EXPECT_GT(facts().position, 3);
}

TEST_F(FilePlayer, AWaitingPlayerEndsAtOnce) {
  write(std::span(moving()).first(188 * 2000));
  start({.grows = true});
  ASSERT_TRUE(plays());
  watch([] { return false; }, 1500ms);
  const auto begin = steady_clock::now();
  player.reset();
  EXPECT_LT(steady_clock::now() - begin, kPlayerStopTime);
}

TEST_F(FilePlayer, ADeletedFileEndsWithItsReason) {
  write(moving());
  start({});
  ASSERT_TRUE(plays());
  std::filesystem::remove(path);
  EXPECT_TRUE(ends(PlayerState::kFailed));
  EXPECT_EQ(facts().reason, "the file was deleted while it was played");
}

TEST_F(FilePlayer, AShortenedFileEndsWithItsReason) {
  write(moving());
  start({});
  ASSERT_TRUE(plays());
  std::filesystem::resize_file(path, 188 * 100);
  EXPECT_TRUE(ends(PlayerState::kFailed));
  EXPECT_EQ(facts().reason, "the file became shorter while it was played");
}

TEST_F(FilePlayer, WhatCannotBePlayedSaysWhy) {
  start({});
  EXPECT_TRUE(ends(PlayerState::kFailed));
  EXPECT_EQ(facts().reason, "the file cannot be opened: No such file or directory");
  player.reset();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  start({});
  EXPECT_TRUE(ends(PlayerState::kFailed));
  EXPECT_EQ(facts().reason, "it is not a regular file");
  player.reset();
  std::filesystem::remove(path);
  write(Bytes(300'000, 'x'));
  start({});
  EXPECT_TRUE(ends(PlayerState::kFailed));
  EXPECT_NE(facts().reason.find("the file cannot be played: "), std::string::npos) << facts().reason;
}

TEST_F(FilePlayer, CallsForAFileAreHarmlessForARing) {
  std::string error;
  player = player_start(std::make_shared<PacketRing>(), wake(), error);
  ASSERT_NE(player, nullptr) << error;
  player_pause(*player, true);
  player_seek(*player, 3);
  player_set_speed(*player, 2);
  player_choose(*player, TrackKind::kAudio, 2);
  player_choose_chapter(*player, 1);
  player_set_growing(*player, true);
  player_step(*player, *canvas);
  EXPECT_EQ(facts().state, PlayerState::kOpening);
  EXPECT_EQ(facts().position, 0);
}

}  // namespace
#endif
