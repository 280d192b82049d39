// What the tests of the player share: broadcasts that ffmpeg makes, and an owner that lets a player work.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "rooms/screen/player/player.h"

namespace player_test {

using namespace std::chrono_literals;
using std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

constexpr auto kLongest = 30s;  // a first picture takes about 0.2 s
constexpr double kRate = 1'500'000 / 8.0;

// Ten seconds of a service, 1.5 Mbit/s. The video is a source of ffmpeg's.
inline Bytes broadcast(const std::string& video, int service = 1) {
  const std::string path =
      (std::filesystem::temp_directory_path() / ("screen_" + std::to_string(getpid()) + ".ts")).string();
  const std::string command = "ffmpeg -v error -y -f lavfi -i '" + video +
                              "' -f lavfi -i sine=440 -t 10 -c:v mpeg2video -b:v 900k -g 12 -pix_fmt yuv420p -c:a mp2 "
                              "-b:a 128k -mpegts_service_id " +
                              std::to_string(service) + " -muxrate 1500k -f mpegts " + path;
  EXPECT_EQ(std::system(command.c_str()), 0) << command;  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
  std::ifstream file(path, std::ios::binary);
  Bytes bytes{std::istreambuf_iterator<char>(file), {}};
  std::filesystem::remove(path);
  EXPECT_GT(bytes.size(), 1'000'000U);
  return bytes;
}

inline const Bytes& moving() {
  static const Bytes kBytes = broadcast("testsrc2=size=352x288:rate=25");
  return kBytes;
}

// Lets a player work as the screen's thread does.
struct PlayerOwner : testing::Test {
  std::mutex lock;
  std::condition_variable changed;
  bool woken = false;
  std::unique_ptr<Canvas> canvas = std::make_unique<Canvas>();
  PlayerHandle player;  // ends first

  PlayerWake wake() {
    return {.wake =
                [](void* context) {
                  auto& self = *static_cast<PlayerOwner*>(context);
                  const std::lock_guard guard(self.lock);
                  self.woken = true;
                  self.changed.notify_all();
                },
            .context = this};
  }

  void wait() {
    std::unique_lock guard(lock);
    changed.wait_for(guard, 100ms, [this] { return woken; });
    woken = false;
  }

  // Red, green and blue in the middle of the picture, or at another place.
  std::array<int, 3> colour(int x = kScreenWidth / 2, int y = kScreenHeight / 2) const {
    const std::uint8_t* const pixel =
        &canvas->pixels[static_cast<std::size_t>(y) * kScreenStride + static_cast<std::size_t>(x) * 4];
    return {pixel[2], pixel[1], pixel[0]};
  }
};

}  // namespace player_test
