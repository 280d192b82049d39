// The picture's player: packets in, pictures out.
#ifdef DTV_PICTURE
#include "rooms/screen/player_test.h"

#include <algorithm>
#include <atomic>
#include <random>
#include <set>
#include <thread>

namespace {

using namespace player_test;

// Puts a broadcast's packets into the ring at its rate, on a thread.
struct Feed {
  std::atomic<bool> ends = false;
  std::thread thread;
  Feed(std::shared_ptr<PacketRing> ring, const Bytes& bytes)
      : thread([this, ring = std::move(ring), &bytes] {
          const auto begin = steady_clock::now();
          for (std::size_t at = 0; !ends && at < bytes.size();) {
            const double due = kRate * std::chrono::duration<double>(steady_clock::now() - begin).count();
            const std::size_t until = std::min(bytes.size(), static_cast<std::size_t>(due) / kPacketSize * kPacketSize);
            ring_put(*ring, {bytes.data() + at, until - at});
            at = until;
            std::this_thread::sleep_for(10ms);
          }
        }) {}
  ~Feed() {
    ends = true;
    thread.join();
  }
};

struct ScreenPlayer : PlayerOwner {
  std::shared_ptr<PacketRing> ring = std::make_shared<PacketRing>();
  std::uint64_t stream = 0;

  void start() {
    std::string error;
    player = player_start(ring, wake(), error);
    ASSERT_NE(player, nullptr) << error;
  }

  // Until done returns true for one of the player's pictures.
  bool watch(const std::function<bool()>& done, steady_clock::duration longest = kLongest) {
    const auto end = steady_clock::now() + longest;
    while (steady_clock::now() < end) {
      wait();
      if (const std::uint64_t newest = ring_stream(*ring); newest != stream) {
        stream = newest;
        player.reset();
        start();
        if (player == nullptr) return false;
      }
      if (player_step(*player, *canvas) && done()) return true;
    }
    return false;
  }
};

TEST_F(ScreenPlayer, PicturesFollowEachOther) {
  const Feed feed(ring, moving());
  start();
  std::set<Bytes> pictures;
  EXPECT_TRUE(watch([&] {
    Bytes jpeg;
    std::string error;
    EXPECT_TRUE(jpeg_write(*canvas, jpeg, error)) << error;
    pictures.insert(std::move(jpeg));
    return pictures.size() == 10;
  })) << pictures.size();
  for (const Bytes& picture : pictures) {
    ASSERT_GT(picture.size(), 1000U);
    EXPECT_LT(picture.size(), 1U << 20);
    EXPECT_EQ((Bytes{picture[0], picture[1]}), (Bytes{0xFF, 0xD8}));
    EXPECT_EQ((Bytes{*(picture.end() - 2), *(picture.end() - 1)}), (Bytes{0xFF, 0xD9}));
    const Bytes size = {8, kScreenHeight >> 8, kScreenHeight & 0xFF, kScreenWidth >> 8, kScreenWidth & 0xFF};
    EXPECT_NE(std::search(picture.begin(), picture.end(), size.begin(), size.end()), picture.end());
  }
}

TEST_F(ScreenPlayer, AtMostTenPicturesASecond) {
  const Feed feed(ring, moving());
  start();
  ASSERT_TRUE(watch([] { return true; }));
  const auto begin = steady_clock::now();
  int pictures = 0;
  watch([&] { return ++pictures < 0; }, 3s);
  const double seconds = std::chrono::duration<double>(steady_clock::now() - begin).count();
  EXPECT_LE(pictures, seconds * 10 + 1);
  EXPECT_GE(pictures, 3);
}

TEST_F(ScreenPlayer, AFourToThreePictureHasBarsAtItsSides) {
  const Bytes bytes = broadcast("color=white:size=352x288:rate=25,setdar=4/3");
  const Feed feed(ring, bytes);
  start();
  ASSERT_TRUE(watch([&] { return colour()[0] > 200; }));
  EXPECT_LT(colour(20)[0], 30);
  EXPECT_LT(colour(kScreenWidth - 20)[0], 30);
  EXPECT_GT(colour(kScreenWidth / 2, 3)[0], 200);
}

TEST_F(ScreenPlayer, AnotherServiceIsShown) {
  const Bytes red = broadcast("color=red:size=352x288:rate=25", 1);
  const Bytes blue = broadcast("color=blue:size=352x288:rate=25", 2);
  {
    const Feed feed(ring, red);
    start();
    ASSERT_TRUE(watch([&] { return colour()[0] > 200; }));
  }
  const Feed feed(ring, blue);
  EXPECT_TRUE(watch([&] { return colour()[0] < 50 && colour()[2] > 200; }));
}

TEST_F(ScreenPlayer, APlayerWithoutPacketsEnds) {
  start();
  EXPECT_FALSE(watch([] { return true; }, 1500ms));
  const auto begin = steady_clock::now();
  player.reset();
  EXPECT_LT(steady_clock::now() - begin, kPlayerStopTime);
}

TEST_F(ScreenPlayer, AStreamThatStopsInTheMiddleEnds) {
  const Bytes begin_only(moving().begin(), moving().begin() + 400'000);
  {
    const Feed feed(ring, begin_only);
    start();
    ASSERT_TRUE(watch([] { return true; }));
    EXPECT_FALSE(watch([] { return false; }, 3s));
  }
  const auto begin = steady_clock::now();
  player.reset();
  EXPECT_LT(steady_clock::now() - begin, kPlayerStopTime);
}

TEST_F(ScreenPlayer, ABrokenStreamIsPlayedAgainOnceItIsGood) {
  Bytes broken = moving();
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same in each run
  for (std::size_t at = 0; at < broken.size(); ++at)
    if (at % kPacketSize != 0 && random() % 20 == 0) broken[at] = static_cast<std::uint8_t>(random());
  testing::internal::CaptureStderr();
  {
    const Feed feed(ring, broken);
    start();
    watch([] { return false; }, 4s);
  }
  const Feed feed(ring, moving());
  EXPECT_TRUE(watch([] { return true; }));
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_LE(std::ranges::count(log, '\n'), 16) << log;
}

}  // namespace
#endif
