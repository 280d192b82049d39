// What two threads that fetch get of one that notifies. Everything at once is tests/endurance/race_test.cpp.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "fake_platform.h"
#include "support.h"

namespace {

constexpr char kVolumeNotify[] = "/tv/ws/notify/volume_ctrl";

// Hosts poll with a pause. Without one, readers would keep the lock from the notifications, which write.
void poll_pause() { std::this_thread::sleep_for(std::chrono::microseconds(50)); }

class Threads : public PluginTest {
 protected:
  static void raise_volume(std::intptr_t level) {
    platform_volume_callback()(0, platform_volume_tag(), reinterpret_cast<void*>(level), nullptr, nullptr, nullptr);
  }

  static std::string volume_text(std::intptr_t level) {
    return R"({"URI":"/tv/ws/notify/volume_ctrl","REQUEST":"NOTIFY","ITEMS":[{"volValue":)" + std::to_string(level) +
           R"(,"muteStatus":0}]})";
  }
};

// One notification after the other, each awaited: with two threads that fetch, exactly one of them gets each text.
TEST_F(Threads, EachTextReachesOneOfTwoFetchers) {
  a_dtv_jsp_add_listener_buffer(kVolumeNotify);
  constexpr int kNotifications = 2000;
  std::atomic<int> taken = 0;
  std::atomic<bool> stop = false;
  std::vector<std::string> texts[2];
  std::vector<std::thread> fetchers;
  for (std::vector<std::string>& own : texts)
    fetchers.emplace_back([&own, &taken, &stop] {
      char buffer[256];
      while (!stop) {
        std::memset(buffer, 0, sizeof buffer);
        a_dtv_jsp_get_listener_buffer(kVolumeNotify, buffer, sizeof buffer - 1);
        if (!buffer[0]) {
          poll_pause();
          continue;
        }
        own.emplace_back(buffer);
        ++taken;
      }
    });
  const auto begun = std::chrono::steady_clock::now();
  bool lost = false;
  for (int i = 1; i <= kNotifications && !lost; ++i) {
    raise_volume(i);
    while (taken < i && !lost) {
      std::this_thread::yield();
      lost = std::chrono::steady_clock::now() - begun > std::chrono::seconds(60);
    }
  }
  stop = true;
  for (std::thread& fetcher : fetchers) fetcher.join();
  ASSERT_FALSE(lost) << "a text was lost: " << taken << " taken";
  std::vector<std::string> all = texts[0], expected;
  all.insert(all.end(), texts[1].begin(), texts[1].end());
  for (int i = 1; i <= kNotifications; ++i) expected.push_back(volume_text(i));
  std::sort(all.begin(), all.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(all, expected);
}

// Not awaited: a newer text may replace an older, but none comes twice, none is torn and the last one is not lost.
TEST_F(Threads, TheLastTextIsNotLost) {
  a_dtv_jsp_add_listener_buffer(kVolumeNotify);
  constexpr int kNotifications = 20000;
  std::atomic<bool> stop = false;
  std::vector<std::string> texts[2];
  std::vector<std::thread> fetchers;
  for (std::vector<std::string>& own : texts)
    fetchers.emplace_back([&own, &stop] {
      for (bool last = false; !last;) {
        last = stop;  // once more after the notifier has ended
        const std::string text = fetch(kVolumeNotify, 256).value_or("not subscribed");
        if (!text.empty()) own.push_back(text);
      }
    });
  for (int i = 1; i <= kNotifications; ++i) raise_volume(i);
  stop = true;
  for (std::thread& fetcher : fetchers) fetcher.join();
  std::map<std::string, int> count;
  for (const auto& own : texts)
    for (const std::string& text : own) ++count[text];
  EXPECT_EQ(count[volume_text(kNotifications)], 1);
  std::map<std::string, int> known;
  for (int i = 1; i <= kNotifications; ++i) known[volume_text(i)] = i;
  for (const auto& [text, times] : count) {
    EXPECT_EQ(times, 1) << text;
    EXPECT_TRUE(known.contains(text)) << text;
  }
  for (const auto& own : texts)
    EXPECT_TRUE(
        std::is_sorted(own.begin(), own.end(), [&](const auto& a, const auto& b) { return known[a] < known[b]; }));
}

}  // namespace
