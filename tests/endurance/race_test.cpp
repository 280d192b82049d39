// Requests, notifications, subscribing and fetching at once, for DTV_RACE_SECONDS (5): every text that comes out is
// whole and right, requests exclude each other, and no thread gets stuck. The thread sanitizer reports nothing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform.h"
#include "plugin.h"

namespace {

constexpr int kDefaultSeconds = 5;
constexpr int kWindows = 2;  // in each of these parts of the time every thread must finish a round
constexpr auto kPatience = std::chrono::seconds(60);  // that a thread gets beyond its time, on a busy machine
constexpr int kLevels[] = {17, 5, 6};                 // at the start, and as the two setters set it
constexpr char kPlayerNotify[] = "/tv/ws/notify/cbrowser_playback";  // subscribed and unsubscribed all the time
constexpr char kPlayerItem[] = R"({"TYPE":1,"TAG":2,"ARG1":3,"ARG2":4,"ARG3":5,"ARG4":6})";

// Threads that fetch pause, as hosts do.
void poll_pause() { std::this_thread::sleep_for(std::chrono::microseconds(50)); }

// What the threads found wrong, each finding once.
struct Findings {
  std::mutex mutex;
  std::set<std::string> texts;
};

void check(Findings& findings, bool right, const std::string& what) {
  if (right) return;
  const std::lock_guard guard(findings.mutex);
  if (findings.texts.size() < 20) findings.texts.insert(what);
}

// Discards standard output: the log has a line for each broken request.
struct SilentOutput {
  int output = dup(STDOUT_FILENO);
  SilentOutput() { turn_to(open("/dev/null", O_WRONLY | O_CLOEXEC)); }
  ~SilentOutput() { turn_to(output); }
  SilentOutput(const SilentOutput&) = delete;
  SilentOutput& operator=(const SilentOutput&) = delete;
  static void turn_to(int descriptor) {
    std::fflush(stdout);
    dup2(descriptor, STDOUT_FILENO);
    close(descriptor);
  }
};

struct Worker {
  const char* name = nullptr;
  std::function<void()> round;
  std::atomic<std::uint64_t> rounds = 0;
  std::atomic<bool> ended = false;
};

// Takes a prefix off a text. False when the text does not start with it.
bool take(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// Takes a number without a sign off a text.
bool take(std::string_view& text, unsigned& ret_number) {
  std::size_t digits = 0;
  unsigned number = 0;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
    number = number * 10 + static_cast<unsigned>(text[digits++] - '0');
  if (digits == 0) return false;
  text.remove_prefix(digits);
  ret_number = number;
  return true;
}

// Whether a text is the notification of a URI whose items are, one after the other, what `take_item` takes off.
bool is_notification(std::string_view text, const char* uri, const std::function<bool(std::string_view&)>& take_item) {
  const std::string envelope = notification(uri, "");
  const std::string_view head(envelope.data(), envelope.size() - 2);
  if (!take(text, head) || !take_item(text)) return false;
  while (take(text, ","))
    if (!take_item(text)) return false;
  return text == "]}";
}

// Every port that one notifier raises is higher than the one before, so that a text holds them in this order.
bool is_usb_text(std::string_view text) {
  std::map<std::string, unsigned> last;
  return is_notification(text, kUsbNotify, [&last](std::string_view& rest) {
    for (const char* label : {"A", "B"}) {
      const std::string whole = usb_item(label, 0);
      if (!rest.starts_with(whole.substr(0, whole.size() - 2))) continue;
      unsigned port = 0;
      if (!take(rest, whole.substr(0, whole.size() - 2)) || !take(rest, port) || !take(rest, "}")) return false;
      return port > std::exchange(last[label], port);
    }
    return false;
  });
}

bool is_player_text(std::string_view text) {
  return is_notification(text, kPlayerNotify, [](std::string_view& rest) { return take(rest, kPlayerItem); });
}

// The level of a volume notification; 0 when the text is none. Levels count from 1.
int level_of(const std::string& text) {
  std::string_view rest = text;
  const std::string zero = volume_notification(0);
  unsigned level = 0;
  if (!take(rest, zero.substr(0, zero.find('0'))) || !take(rest, level)) return 0;
  return text == volume_notification(static_cast<int>(level)) ? static_cast<int>(level) : 0;
}

void raise_player(const Plugin& plugin) {
  T_CBROWSER_PB_NOTIFY record = {.type = 1, .tag = 2, .arg1 = 3, .arg2 = 4, .arg3 = 5, .arg4 = 6};
  plugin.notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_CBROWSER_PLAYBACK), &record);
}

bool wait_until(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition() && std::chrono::steady_clock::now() < deadline) poll_pause();
  return condition();
}

// Runs every worker on a thread of its own, and reports those that finish no round in a part of the time. A thread that
// does not end cannot be joined: then the process ends.
void run(std::deque<Worker>& workers, std::chrono::seconds duration, Findings& findings) {
  const SilentOutput silent;
  std::atomic<bool> stop = false;
  std::vector<std::thread> threads;
  for (Worker& worker : workers)
    threads.emplace_back([&worker, &stop] {
      while (!stop) {
        worker.round();
        ++worker.rounds;
      }
      worker.ended = true;
    });
  std::vector<std::uint64_t> rounds(workers.size());
  for (int window = 0; window < kWindows; ++window) {
    std::this_thread::sleep_for(std::chrono::duration<double>(duration) / kWindows);
    for (std::size_t i = 0; i < workers.size(); ++i) {
      const bool moves = wait_until([&] { return workers[i].rounds > rounds[i]; });
      check(findings, moves, std::string("stands still: ") + workers[i].name);
      rounds[i] = workers[i].rounds;
    }
  }
  stop = true;
  const auto ended = [](const Worker& worker) { return worker.ended.load(); };
  if (!wait_until([&] { return std::ranges::all_of(workers, ended); })) {
    for (const Worker& worker : workers)
      if (!worker.ended) std::fprintf(stderr, "hangs: %s\n", worker.name);
    _exit(1);
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(Race, EverythingAtOnce) {
  const char* const seconds = std::getenv("DTV_RACE_SECONDS");
  const std::chrono::seconds duration(seconds ? std::atoi(seconds) : kDefaultSeconds);
  ASSERT_GT(duration.count(), 0) << "DTV_RACE_SECONDS";
  platform.volume = kLevels[0];
  const Plugin plugin = start_plugin();
  plugin.subscribe(kVolumeNotify);
  plugin.subscribe(kUsbNotify);
  Findings findings;
  std::atomic<int> level = 0;
  std::vector<int> levels[2];  // that each of the two fetching threads got
  std::atomic<std::uint64_t> usb_texts = 0, player_texts = 0;

  const auto get_volume = [&] {
    const std::string text = get_text(plugin, kVolumeUri);
    check(findings, std::ranges::any_of(kLevels, [&](int set) { return text == volume_response(set); }),
          "get volume: " + text);
  };
  const auto get_mute = [&] {
    const std::string text = get_text(plugin, kMuteUri);
    check(findings, text == kMuteResponse, "get mute: " + text);
  };
  const auto get_badly = [&] {
    char response[DTV_JSP_RESPONSE_MAX + 1] = {};
    const INT32 ret = plugin.get(kVolumeUri, R"({"PARAMETER":{"REQUEST":]})", response);
    check(findings, ret == -1 && !response[0], "a request that does not parse is answered");
  };
  const auto set = [&](int value) {
    check(findings, set_volume(plugin, value) == 0, "set fails");
    const INT32 volume = platform.volume;
    check(findings, std::ranges::count(kLevels, volume) == 1, "the platform received " + std::to_string(volume));
  };
  const auto raise_single = [&] { raise_volume(++level); };
  const auto raise_queued = [&](const char* label, unsigned& port) {
    raise_usb(plugin, label, ++port);
    raise_player(plugin);
  };
  unsigned ports[2] = {};
  const auto fetch = [&](std::vector<int>& ret_levels) {
    const auto volume = fetch_text(plugin, kVolumeNotify);
    check(findings, volume.has_value(), "the volume is not subscribed");
    if (volume && !volume->empty()) {
      ret_levels.push_back(level_of(*volume));
      check(findings, ret_levels.back() > 0, "volume: " + *volume);
    }
    const auto usb = fetch_text(plugin, kUsbNotify);
    check(findings, usb.has_value(), "USB is not subscribed");
    if (usb && !usb->empty()) {
      check(findings, is_usb_text(*usb), "USB: " + *usb);
      ++usb_texts;
    }
    if (const auto player = fetch_text(plugin, kPlayerNotify); player && !player->empty()) {
      check(findings, is_player_text(*player), "player: " + *player);
      ++player_texts;
    }
    poll_pause();
  };
  const auto toggle = [&] {
    for (int i = 0; i < 2; ++i) plugin.subscribe(kPlayerNotify);
    check(findings, fetch_text(plugin, kPlayerNotify).has_value(), "subscribed, and is not");
    poll_pause();
    for (int i = 0; i < 2; ++i) plugin.unsubscribe(kPlayerNotify);
  };
  const auto describe = [&] {
    char* const text = plugin.describe();
    check(findings, text && text[0] == '{' && text[std::strlen(text) - 1] == '}', "the description is not whole");
    std::free(text);
    poll_pause();
  };

  std::deque<Worker> workers;
  const auto add = [&workers](const char* name, std::function<void()> round) {
    Worker& worker = workers.emplace_back();
    worker.name = name;
    worker.round = std::move(round);
  };
  add("get volume", get_volume);
  add("get mute", get_mute);
  add("get with a broken parameter", get_badly);
  add("set, first thread", [&] { set(kLevels[1]); });
  add("set, second thread", [&] { set(kLevels[2]); });
  add("single notification, first thread", raise_single);
  add("single notification, second thread", raise_single);
  add("queued notification, first thread", [&] { raise_queued("A", ports[0]); });
  add("queued notification, second thread", [&] { raise_queued("B", ports[1]); });
  add("fetch, first thread", [&] { fetch(levels[0]); });
  add("fetch, second thread", [&] { fetch(levels[1]); });
  add("subscribe and unsubscribe, first thread", toggle);
  add("subscribe and unsubscribe, second thread", toggle);
  add("describe", describe);
  run(workers, duration, findings);

  for (const std::string& text : findings.texts) ADD_FAILURE() << text;
  EXPECT_EQ(platform.overlaps, 0) << "requests that did not exclude each other";
  std::vector<int> all = levels[0];
  all.insert(all.end(), levels[1].begin(), levels[1].end());
  std::ranges::sort(all);
  const auto twice = std::ranges::adjacent_find(all);
  if (twice != all.end()) ADD_FAILURE() << "handed over twice: " << volume_notification(*twice);
  EXPECT_FALSE(all.empty());
  EXPECT_GT(usb_texts, 0u);
  EXPECT_GT(player_texts, 0u);
  for (const Worker& worker : workers)
    std::printf("%10llu  %s\n", static_cast<unsigned long long>(worker.rounds), worker.name);
  EXPECT_TRUE(unload_plugin(plugin));
}

}  // namespace
