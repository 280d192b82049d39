// Loads, starts, uses and closes the library again and again: nothing of it stays in the process.
#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <chrono>
#include <string>
#include <thread>

#include "platform.h"
#include "plugin.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LEAK_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZER_HEAP
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace {

constexpr int kRounds = 1000;
constexpr int kEarlyRounds = 20;  // in these the process's own caches fill
constexpr char kThreads[] = "/proc/self/task";
constexpr char kNetworkNotify[] = "/tv/ws/notify/network";

int entries(const char* folder) {
  int count = 0;
  DIR* const dir = opendir(folder);
  while (readdir(dir)) ++count;
  closedir(dir);
  return count;
}

struct Footprint {
  std::size_t heap;  // bytes in use
  int descriptors;
};

Footprint footprint() {
#ifdef SANITIZER_HEAP
  const std::size_t heap = __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  const std::size_t heap = info.uordblks + info.hblkhd;
#endif
  return {.heap = heap, .descriptors = entries("/proc/self/fd")};
}

// Everything that makes the library allocate; a pending text and subscriptions are left behind.
void use(const Plugin& plugin) {
  EXPECT_EQ(get_text(plugin, kMuteUri), kMuteResponse);
  EXPECT_EQ(set_volume(plugin, 23), 0);
  EXPECT_EQ(get_text(plugin, kVolumeUri), volume_response(23));
  for (const char* uri : {kVolumeNotify, kVolumeNotify, kUsbNotify, kNetworkNotify})
    EXPECT_EQ(plugin.subscribe(uri), 0);
  std::thread([&plugin] {
    EXPECT_EQ(raise_volume(24), 0);
    EXPECT_EQ(raise_usb(plugin, "A", 1), 0);
    EXPECT_EQ(raise_usb(plugin, "A", 2), 0);
  }).join();
  EXPECT_EQ(fetch_text(plugin, kVolumeNotify), volume_notification(24));
  EXPECT_EQ(fetch_text(plugin, kUsbNotify), notification(kUsbNotify, usb_item("A", 1) + "," + usb_item("A", 2)));
  std::thread([&plugin] {
    EXPECT_EQ(raise_volume(25), 0);
    EXPECT_EQ(raise_usb(plugin, "B", 3), 0);
  }).join();
  EXPECT_EQ(plugin.unsubscribe(kNetworkNotify), 0);
  EXPECT_EQ(plugin.unsubscribe(kVolumeNotify), 0);
}

// The library as it is after loading: not started, nobody subscribed.
void expect_fresh(const Plugin& plugin) {
  for (const char* uri : {kVolumeNotify, kUsbNotify, kNetworkNotify})
    EXPECT_EQ(fetch_text(plugin, uri), std::nullopt) << uri << " is subscribed";
  EXPECT_EQ(raise_usb(plugin, "A", 1), -1) << "the core is started";
}

void load_use_and_unload() {
  const Plugin plugin = load_plugin();
  expect_fresh(plugin);
  volume_callback = nullptr;
  const int starts = platform.starts;
  EXPECT_EQ(plugin.init_res(), 0);
  EXPECT_EQ(plugin.init(), 0);
  EXPECT_EQ(platform.starts, starts + 1);
  Dl_info callback = {}, entry = {};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(volume_callback.load()), &callback), 0);
  ASSERT_NE(dladdr(reinterpret_cast<void*>(plugin.get), &entry), 0);
  EXPECT_EQ(callback.dli_fbase, entry.dli_fbase) << "registered with the platform is another library's function";
  use(plugin);
  EXPECT_TRUE(unload_plugin(plugin));
}

// What the process holds after that many rounds on a new thread. When a thread ends, the C library takes back the freed
// blocks that it has kept for the thread, so that only blocks in use count.
Footprint footprint_after(int rounds) {
  std::thread([rounds] {
    for (int round = 1; round <= rounds && !testing::Test::HasFailure(); ++round) {
      SCOPED_TRACE("round " + std::to_string(round));
      load_use_and_unload();
    }
  }).join();
  return footprint();
}

TEST(Load, AThousandTimesLeavesNothingBehind) {
  std::thread([] {}).join();  // with the first one a sanitizer may start a thread of its own
  const int threads = entries(kThreads);
  const Footprint early = footprint_after(kEarlyRounds);
  const Footprint late = footprint_after(kRounds - kEarlyRounds);
  EXPECT_EQ(late.heap, early.heap) << "bytes in use after " << kRounds << " and after " << kEarlyRounds << " rounds";
  EXPECT_EQ(late.descriptors, early.descriptors);
  // A thread is listed for a moment after it has been joined.
  for (int i = 0; i < 1000 && entries(kThreads) > threads; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_LE(entries(kThreads), threads);
#ifdef LEAK_SANITIZER
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
}

// Also a library that was loaded and never started, or only its resources.
TEST(Load, UnloadsInEveryState) {
  for (int calls = 0; calls < 3; ++calls) {
    const Plugin plugin = load_plugin();
    if (calls > 0) plugin.init_res();
    if (calls > 1) plugin.subscribe(kUsbNotify);
    EXPECT_TRUE(unload_plugin(plugin)) << calls;
  }
#ifdef LEAK_SANITIZER
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
}

}  // namespace
