// Requests, notifications, subscribing and fetching at once. Silent under the thread sanitizer; the texts that come out
// are whole.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "fake_platform.h"
#include "support.h"

namespace {

constexpr char kVolumeNotify[] = "/tv/ws/notify/volume_ctrl";
constexpr char kPlayerNotify[] = "/tv/ws/notify/cbrowser_playback";
constexpr char kUsbNotify[] = "/tv/ws/notify/usb_detect";
constexpr auto kDuration = std::chrono::milliseconds(1000);

// Hosts poll with a pause. Without one, readers would keep the lock from the notifications, which write.
void poll_pause() { std::this_thread::sleep_for(std::chrono::microseconds(50)); }

class Threads : public PluginTest {
 protected:
  // Runs each body again and again, on a thread of its own, until the time is up.
  static void run(const std::vector<std::function<void()>>& bodies) {
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    for (const auto& body : bodies)
      threads.emplace_back([&stop, body] {
        while (!stop) body();
      });
    std::this_thread::sleep_for(kDuration);
    stop = true;
    for (std::thread& thread : threads) thread.join();
  }

  static void raise_volume(std::intptr_t level) {
    platform_volume_callback()(0, platform_volume_tag(), reinterpret_cast<void*>(level), nullptr, nullptr, nullptr);
  }

  static void raise_player(INT32 type) {
    T_CBROWSER_PB_NOTIFY record = {.type = type, .tag = 0, .arg1 = 0, .arg2 = 0, .arg3 = 0, .arg4 = 0};
    tv_ctrl_notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_CBROWSER_PLAYBACK), &record);
  }

  static std::string volume_text(std::intptr_t level) {
    return R"({"URI":"/tv/ws/notify/volume_ctrl","REQUEST":"NOTIFY","ITEMS":[{"volValue":)" + std::to_string(level) +
           R"(,"muteStatus":0}]})";
  }
};

// Texts that several threads saw.
struct Seen {
  std::mutex mutex;
  std::map<std::string, int> texts;
  void add(const std::string& text) {
    const std::lock_guard guard(mutex);
    ++texts[text];
  }
  void expect_all_match(const char* pattern) {
    const std::regex whole(pattern);
    for (const auto& [text, count] : texts) EXPECT_TRUE(std::regex_match(text, whole)) << text;
    EXPECT_FALSE(texts.empty());
  }
};

TEST_F(Threads, EverythingAtOnce) {
  a_dtv_jsp_add_listener_buffer(kVolumeNotify);
  a_dtv_jsp_add_listener_buffer(kPlayerNotify);
  platform_answer("a_vextvapi_volctrl_getVolume", 17);
  Seen volumes, mutes, volume_texts, player_texts, usb_texts, failures;
  std::atomic<INT32> level = 0;
  const auto get = [](const char* uri, const char* param) {
    std::string response(DTV_JSP_RESPONSE_MAX + 1, '\0');
    a_dtv_jsp_get(uri, param, response.data());
    return std::string(response.c_str());
  };
  const auto fetch_into = [&failures](const char* uri, Seen& seen) {
    const auto text = fetch(uri, 70000);
    if (!text)
      failures.add("not subscribed");
    else if (!text->empty())
      seen.add(*text);
  };
  const std::function<void()> set_volume = [&failures] {
    if (a_dtv_jsp_set("/tv/cast/volume/volume", R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":5}})") != 0)
      failures.add("set");
  };
  const std::function<void()> fetch_volume = [&] { fetch_into(kVolumeNotify, volume_texts), poll_pause(); };
  const std::function<void()> fetch_player = [&] { fetch_into(kPlayerNotify, player_texts), poll_pause(); };
  const std::function<void()> toggle = [] {
    a_dtv_jsp_add_listener_buffer(kUsbNotify);
    a_dtv_jsp_add_listener_buffer(kUsbNotify);
    a_dtv_jsp_remove_listener_buffer(kUsbNotify);
    a_dtv_jsp_remove_listener_buffer(kUsbNotify);
  };
  run({
      [&] { volumes.add(get("/tv/cast/volume/volume", nullptr)); },
      [&] { mutes.add(get("/tv/cast/volume/mute", "{\"PARAMETER\":{\"REQUEST\":\"x\",\"y\":[1,2,{}]}}")); },
      [&] { get("/tv/cast/volume/volume", "{\"PARAMETER\":{\"REQUEST\":]"); },
      set_volume,
      set_volume,
      [&] { raise_volume(++level); },
      [&] { raise_volume(++level); },
      [&] { raise_player(++level); },
      [&] { raise_player(++level); },
      [] {
        T_USB_DETECT_NOTIFY record = {};
        tv_ctrl_notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_USB_DETECT), &record);
      },
      toggle,
      toggle,
      [&] {
        if (const auto text = fetch(kUsbNotify); text && !text->empty()) usb_texts.add(*text);
        poll_pause();
      },
      fetch_volume,
      fetch_volume,
      fetch_player,
      fetch_player,
      [] { std::free(a_dtv_jsp_describe()); },
  });
  EXPECT_TRUE(failures.texts.empty()) << failures.texts.begin()->first;
  volumes.expect_all_match(
      R"(\{"URI":"/tv/cast/volume/volume","STATUS":0,"ITEMS":\[\{"NAME":"Volume",.*"VALUE":17\}\]\})");
  mutes.expect_all_match(R"(\{"URI":"/tv/cast/volume/mute","STATUS":0,"ITEMS":\[\{"NAME":"Mute",.*"VALUE":0\}\]\})");
  volume_texts.expect_all_match(
      R"(\{"URI":"/tv/ws/notify/volume_ctrl","REQUEST":"NOTIFY","ITEMS":\[\{"volValue":\d+,"muteStatus":0\}\]\})");
  for (const auto& [text, count] : volume_texts.texts) EXPECT_EQ(count, 1) << text << " was handed over twice";
  for (const auto& [text, count] : player_texts.texts) EXPECT_TRUE(parse_json(text)) << text;
  EXPECT_FALSE(player_texts.texts.empty());
  for (const auto& [text, count] : usb_texts.texts) EXPECT_TRUE(parse_json(text)) << text;
  for (const PlatformCall& call : platform_calls())
    if (call.name == "a_vextvapi_volctrl_setVolume") EXPECT_EQ(call.arguments, std::vector<std::int64_t>{5});
}

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
