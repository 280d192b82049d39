// Two threads fetch what a third notifies. tests/endurance/race_test.cpp does everything at once.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "recording_platform.h"
#include "support.h"

namespace {

constexpr char kVolumeNotify[] = "/tv/ws/notify/volume_ctrl";
constexpr char kPlayerNotify[] = "/tv/ws/notify/cbrowser_playback";

// Fetching threads pause, as hosts do. Without it, readers would keep the lock from the notifications, which write.
void poll_pause() { std::this_thread::sleep_for(std::chrono::microseconds(50)); }

// Waits until the fetching threads have taken so many. Returns false when they do not within a minute.
bool await_taken(const std::atomic<int>& taken, int count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (taken < count && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  return taken >= count;
}

class Threads : public PluginTest {
 protected:
  static void raise_volume(std::intptr_t level) {
    static const std::vector<std::int64_t> kRegistration = platform_registration("a_vextvapi_volctrl_reg_callback");
    address_in<a_vextvapi_volctrl_nfy_fct>(kRegistration.at(0))(
        0, address_in<void*>(kRegistration.at(1)), reinterpret_cast<void*>(level), nullptr, nullptr, nullptr);
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
  bool lost = false;
  for (int i = 1; i <= kNotifications && !lost; ++i) {
    raise_volume(i);
    lost = !await_taken(taken, i);
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

// The notifying thread does not wait: a newer text may replace an older, but none comes twice, none is torn, and the
// last is not lost.
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

// The tags of a text's items.
std::vector<int> tags_of(const std::string& text) {
  std::vector<int> tags;
  const Json root = parse_json(text);
  const cJSON* item;
  cJSON_ArrayForEach(item, cJSON_GetObjectItem(root.get(), "ITEMS")) {
    tags.push_back(cJSON_GetObjectItem(item, "TAG")->valueint);
  }
  return tags;
}

// Notifications that are appended while two threads fetch: each item comes once, in a whole text.
TEST_F(Threads, EachQueuedItemComesOnce) {
  a_dtv_jsp_add_listener_buffer(kPlayerNotify);
  constexpr int kNotifications = 10000;
  constexpr int kPending = 8;  // far fewer than fill the buffer
  std::atomic<int> taken = 0;
  std::atomic<bool> stop = false;
  std::vector<std::string> texts[2];
  std::vector<std::thread> fetchers;
  for (std::vector<std::string>& own : texts)
    fetchers.emplace_back([&own, &taken, &stop] {
      while (!stop) {
        const std::string text = fetch(kPlayerNotify, 2048).value_or("not subscribed");
        if (text.empty()) {
          poll_pause();
          continue;
        }
        own.push_back(text);
        for (std::size_t at = text.find("TAG"); at != std::string::npos; at = text.find("TAG", at + 1)) ++taken;
      }
    });
  bool lost = false;
  for (int i = 1; i <= kNotifications && !lost; ++i) {
    lost = !await_taken(taken, i - kPending);
    T_CBROWSER_PB_NOTIFY record = {
        .type = 0, .tag = static_cast<UINT32>(i), .arg1 = 0, .arg2 = 0, .arg3 = 0, .arg4 = 0};
    tv_ctrl_api_notify_func(kPlayerNotify, &record);
  }
  lost = lost || !await_taken(taken, kNotifications);
  stop = true;
  for (std::thread& fetcher : fetchers) fetcher.join();
  ASSERT_FALSE(lost) << "an item was lost: " << taken << " taken";
  std::vector<int> all, expected;
  std::size_t appended = 0;
  for (const auto& own : texts) {
    int last = 0;
    for (const std::string& text : own) {
      const std::vector<int> tags = tags_of(text);
      EXPECT_FALSE(tags.empty()) << text;
      for (const int tag : tags) EXPECT_GT(tag, std::exchange(last, tag)) << text;
      if (tags.size() > 1) ++appended;
      all.insert(all.end(), tags.begin(), tags.end());
    }
  }
  EXPECT_GT(appended, 0u);
  std::sort(all.begin(), all.end());
  for (int i = 1; i <= kNotifications; ++i) expected.push_back(i);
  EXPECT_EQ(all, expected);
}

}  // namespace
