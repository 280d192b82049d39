// The store on an unreliable disk: power cuts, killed processes, a slow disk, a failing one, a full one.
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "disk.h"
#include "store_support.h"
#include "tv/rooms/config/config_test.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Stores a number; the key accepts any.
bool keep(std::uint64_t number) { return write(kChannel, static_cast<INT32>(number)) == 0; }

// Registers with dtv_tv_on_kept and records the reports. Only one may exist; construct it before the start.
struct Kept {
  std::mutex lock;
  std::condition_variable changed;
  std::uint64_t change = 0;
  int failure = 0;
  int calls = 0;
  milliseconds takes{0};
  std::atomic<bool> inside = false;

  Kept() { dtv_tv_on_kept(take, this); }
  ~Kept() { dtv_tv_on_kept(nullptr, nullptr); }
  static void take(void* context, std::uint64_t change, std::int32_t failure) {
    auto& kept = *static_cast<Kept*>(context);
    kept.inside = true;
    std::this_thread::sleep_for(kept.takes);
    {
      const std::lock_guard guard(kept.lock);
      EXPECT_GE(change, kept.change);
      kept.change = change;
      kept.failure = failure;
      ++kept.calls;
    }
    kept.inside = false;
    kept.changed.notify_all();
  }
  // Returns false on a timeout.
  bool wait(std::uint64_t wanted) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, std::chrono::seconds(20), [&] { return change >= wanted; });
  }
};

// ---- Power cuts ----

// Starts a set with what each power cut has left, and checks that everything acknowledged before is there.
void expect_nothing_lost(const std::vector<PowerCut>& cuts) {
  const DiskGuard quick([](int) { return 0; });
  for (const PowerCut& cut : cuts) {
    TvFolder folder;
    for (const auto& [name, content] : cut.image) write_file(folder.path + "/" + name, content);
    testing::internal::CaptureStderr();
    const std::string error = tv_start(folder.path);
    const std::string log = testing::internal::GetCapturedStderr();
    ASSERT_EQ(error, "") << cut.where;
    EXPECT_EQ(log, "") << cut.where;
    const auto found = static_cast<std::uint64_t>(number(kChannel));
    EXPECT_GE(found, cut.acknowledged) << cut.where;
    EXPECT_LE(found, cut.begun) << cut.where;
  }
}

TEST(TvStoreDisk, PowerCutLosesNothingAcknowledged) {
  TvFolder folder;
  std::atomic<std::uint64_t> begun = 0, acknowledged = 0;
  PowerRecorder recorder(folder.path);
  recorder.begun = [&] { return begun.load(); };
  recorder.acknowledged = [&] { return acknowledged.load(); };
  {
    const DiskGuard disk([&](int descriptor) { return recorder.sync(descriptor); });
    ASSERT_EQ(tv_start(folder.path), "");
    for (std::uint64_t value = 1; value <= 1200; ++value) {  // more than one log
      begun = value;
      ASSERT_TRUE(keep(value));
      acknowledged = value;
    }
    EXPECT_GE(recorder.database_syncs, 1u);
    dtv_tv_stop();
    ASSERT_EQ(tv_start(folder.path), "");
    begun = 1201;
    ASSERT_TRUE(keep(1201));
    acknowledged = 1201;
    dtv_tv_stop();
  }
  EXPECT_GE(recorder.cuts.size(), 60u);
  expect_nothing_lost(recorder.cuts);
}

TEST(TvStoreDisk, PowerCutLosesNothingReported) {
  TvFolder folder;
  const ManualClock clock;
  std::atomic<std::uint64_t> begun = 0;
  PowerRecorder recorder(folder.path);
  recorder.every = 10;
  Kept kept;
  // Value N is change number base + N, since nothing else changes.
  const std::uint64_t base = dtv_tv_last_change();
  recorder.begun = [&] { return begun.load(); };
  recorder.acknowledged = [&] {
    const std::lock_guard guard(kept.lock);
    return kept.change > base ? kept.change - base : 0;
  };
  {
    const DiskGuard disk([&](int descriptor) { return recorder.sync(descriptor); });
    ASSERT_EQ(tv_start(folder.path), "");
    const std::uint64_t at_start = recorder.database_syncs;
    for (std::uint64_t value = 1; value <= 1500; ++value) {
      begun = value;
      ASSERT_TRUE(keep(value));
      ASSERT_EQ(dtv_tv_last_change(), base + value);
      if (value % 7 == 0) {
        ASSERT_TRUE(kept.wait(base + value));
      }
    }
    ASSERT_TRUE(kept.wait(base + 1500));
    dtv_tv_advance(99);
    EXPECT_EQ(recorder.database_syncs, at_start) << "the log is brought into the database too early";
    dtv_tv_advance(1);
    const auto end = Clock::now() + std::chrono::seconds(20);
    while (recorder.database_syncs == at_start && Clock::now() < end) std::this_thread::sleep_for(milliseconds(10));
    EXPECT_EQ(recorder.database_syncs, at_start + 1) << "the log is brought into the database when nothing happens";
    for (std::uint64_t value = 1501; value <= 1510; ++value) {
      begun = value;
      ASSERT_TRUE(keep(value));
    }
    dtv_tv_stop();
    EXPECT_EQ(kept.change, base + 1510) << "dtv_tv_stop syncs all changes";
  }
  EXPECT_GE(recorder.cuts.size(), 60u);
  EXPECT_EQ(kept.failure, 0);
  expect_nothing_lost(recorder.cuts);
}

// ---- Killed processes ----

struct Progress {
  std::atomic<std::uint64_t> begun;
  std::atomic<std::uint64_t> returned;
};

// DTV_KILLS: how often.
TEST(TvStoreDisk, KilledAtAnyMoment) {
  TvFolder folder;
  void* const shared = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto& progress = *new (shared) Progress{};
  std::mt19937 random{std::random_device()()};
  const int kills = times("DTV_KILLS", 30);
  for (int round = 0; round < kills; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      if (round % 2 == 1) dtv_tv_on_kept([](void*, std::uint64_t, std::int32_t) {}, nullptr);
      if (dtv_tv_start(folder.path.c_str(), nullptr) != 0) _exit(1);
      while (true) {
        const std::uint64_t next = ++progress.begun;
        if (a_vextvapi_config_set_value(-1, kChannel, static_cast<INT32>(next), 3) != 0) _exit(2);
        progress.returned = next;
      }
    }
    const std::uint64_t before = progress.begun;
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
    // In some rounds it is killed during the start, in the others after it.
    const auto end = Clock::now() + std::chrono::seconds(20);
    while (round % 4 != 0 && progress.begun < before + random() % 200 + 2 && Clock::now() < end) {
      std::this_thread::yield();
    }
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    ASSERT_EQ(tv_start(folder.path), "") << round;
    const auto found = static_cast<std::uint64_t>(number(kChannel));
    EXPECT_GE(found, progress.returned) << round;
    EXPECT_LE(found, progress.begun) << round;
    dtv_tv_stop();
  }
  EXPECT_GT(progress.returned, 0u);
  munmap(shared, sizeof(Progress));
}

// ---- The sync thread ----

TEST(TvStoreDisk, WithoutAFunctionAChangeIsSyncedWhenItReturns) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  std::atomic<int> syncs = 0;
  const DiskGuard disk([&](int) {
    ++syncs;
    return 0;
  });
  for (INT32 value = 1; value <= 5; ++value) {
    EXPECT_EQ(write(kChannel, value), 0);
    EXPECT_EQ(syncs, value);
  }
}

TEST(TvStoreDisk, SlowDiskDelaysNoChange) {
  TvFolder folder;
  Kept kept;
  ASSERT_EQ(tv_start(folder.path), "");
  const std::uint64_t base = dtv_tv_last_change();
  std::atomic<int> syncs = 0;
  std::atomic<bool> stuck = true;
  const auto end = Clock::now() + std::chrono::seconds(60);
  const DiskGuard disk([&](int) {
    ++syncs;
    while (stuck && Clock::now() < end) std::this_thread::sleep_for(milliseconds(1));
    return 0;
  });
  for (INT32 value = 1; value <= 100; ++value) EXPECT_EQ(write(kChannel, value), 0);
  EXPECT_LT(Clock::now(), end) << "the changes waited for the disk";
  EXPECT_EQ(dtv_tv_last_change(), base + 100);
  {
    const std::lock_guard guard(kept.lock);
    EXPECT_LE(kept.change, base);
  }
  stuck = false;
  ASSERT_TRUE(kept.wait(base + 100));
  EXPECT_LE(syncs, 3) << "changes that come while a sync runs share the next one";
  const int calls = kept.calls;
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_LE(syncs, 3) << "there is nothing to sync";
  EXPECT_EQ(kept.calls, calls);
}

TEST(TvStoreDisk, WritingTheSameValueIsNotAChange) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(write(kChannel, 5), 0);
  const std::uint64_t change = dtv_tv_last_change();
  EXPECT_EQ(write(kChannel, 5), 0);
  EXPECT_EQ(dtv_tv_last_change(), change);
}

TEST(TvStoreDisk, EarlierChangesAreReported) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(write(kChannel, 5), 0);
  Kept kept;
  EXPECT_TRUE(kept.wait(dtv_tv_last_change()));
  EXPECT_EQ(kept.change, dtv_tv_last_change());
  EXPECT_EQ(kept.failure, 0);
}

TEST(TvStoreDisk, FunctionDoesNotRunAfterItsRemoval) {
  TvFolder folder;
  Kept kept;
  kept.takes = milliseconds(300);
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(write(kChannel, 5), 0);
  while (!kept.inside) std::this_thread::yield();
  dtv_tv_on_kept(nullptr, nullptr);
  EXPECT_FALSE(kept.inside);
  const int calls = kept.calls;
  std::atomic<int> syncs = 0;
  const DiskGuard disk([&](int) {
    ++syncs;
    return 0;
  });
  EXPECT_EQ(write(kChannel, 6), 0);
  EXPECT_EQ(syncs, 1) << "the change itself syncs, as no function is registered";
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_EQ(kept.calls, calls);
}

TEST(TvStoreDisk, ChangesOfManyThreadsAreAllReported) {
  TvFolder folder;
  Kept kept;
  ASSERT_EQ(tv_start(folder.path), "");
  const std::uint64_t base = dtv_tv_last_change();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([thread, &kept] {
      for (INT32 value = 1; value <= 50; ++value) {
        EXPECT_EQ(write(kChannel, thread * 1000 + value), 0);
        EXPECT_TRUE(value % 10 != 0 || kept.wait(dtv_tv_last_change()));
      }
    });
  }
  for (int turn = 0; turn < 20; ++turn) {  // while the threads run
    dtv_tv_on_kept(nullptr, nullptr);
    dtv_tv_on_kept(Kept::take, &kept);
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(dtv_tv_last_change(), base + 200);
  EXPECT_TRUE(kept.wait(base + 200));
}

// ---- A disk that fails ----

TEST(TvStoreDisk, FailedSyncFailsTheChange) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(write(kChannel, 5), 0);
  {
    const DiskGuard broken([](int) { return EIO; });
    expect_words(refusal([] { return write(kChannel, 6); }), {"not saved", "I/O"});
    EXPECT_EQ(number(kChannel), 5);
  }
  EXPECT_EQ(write(kChannel, 7), 0);
}

TEST(TvStoreDisk, FailedSyncIsReportedAndChangesAreRefusedUntilTheNextStart) {
  TvFolder folder;
  Kept kept;
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(write(kChannel, 5), 0);
  ASSERT_TRUE(kept.wait(dtv_tv_last_change()));
  EXPECT_EQ(kept.failure, 0);
  {
    const DiskGuard broken([](int) { return EIO; });
    EXPECT_EQ(write(kChannel, 6), 0);
    ASSERT_TRUE(kept.wait(dtv_tv_last_change()));
    EXPECT_EQ(kept.failure, 5);
  }
  const std::uint64_t change = dtv_tv_last_change();
  expect_words(refusal([] { return write(kChannel, 7); }), {"the disk has failed", "start the set again"});
  EXPECT_EQ(dtv_tv_last_change(), change);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(write(kChannel, 8), 0);
  ASSERT_TRUE(kept.wait(dtv_tv_last_change()));
  EXPECT_EQ(kept.failure, 0);
}

TEST(TvStoreDisk, FolderRenamedDuringTheSyncIsReported) {
  TvFolder folder;
  const std::string elsewhere = folder.path + "-elsewhere";
  Kept kept;
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(write(kChannel, 5), 0);
  ASSERT_TRUE(kept.wait(dtv_tv_last_change()));
  {
    const DiskGuard disk([&](int) {
      std::filesystem::rename(folder.path, elsewhere);
      return 0;
    });
    EXPECT_EQ(write(kChannel, 6), 0);
    ASSERT_TRUE(kept.wait(dtv_tv_last_change()));
  }
  EXPECT_EQ(kept.failure, 2);
  refusal([] { return write(kChannel, 7); });
  std::filesystem::rename(elsewhere, folder.path);
  EXPECT_EQ(write(kChannel, 8), 0);
  ASSERT_TRUE(kept.wait(dtv_tv_last_change()));
  EXPECT_EQ(kept.failure, 0);
}

// ---- A full disk ----

// Mounts a file system of this many kilobytes in a mount namespace of this process.
bool mount_small(const std::string& folder, int kilobytes) {
  const std::string uid = std::to_string(geteuid()), gid = std::to_string(getegid());
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", uid + " " + uid + " 1");
    write_file("/proc/self/gid_map", gid + " " + gid + " 1");
  }
  const std::string size = "mode=700,size=" + std::to_string(kilobytes) + "k";
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
}

void fill(const std::string& folder) {
  std::ofstream file(folder + "/filler", std::ios::binary);
  const std::string piece(512, 'x');
  while (file << piece << std::flush) {
  }
}

std::string state_without_key() {
  std::string state = tv_control(R"(["state"])");
  const std::size_t at = state.find(R"("key":")");
  if (at != std::string::npos) state.erase(at, state.find('"', at + 7) - at);  // the last key is not stored
  return state;
}

void expect_nothing_kept(const std::string& stick) {
  const std::string error = R"({"error":"the change could not be saved; see the set's log"})";
  const std::string before = state_without_key();
  for (const std::string command :
       {R"(["volume","33"])", R"(["volume","up"])", R"(["mute","toggle"])", R"(["config","g_video__brightness","11"])",
        R"(["config","g_misc__tv_network_name","Attic"])", R"(["config","g_misc__channel_store","trigger"])",
        R"(["clock","set","2030-01-01T00:00:00Z"])", R"(["clock","zone","Asia/Tokyo"])", R"(["network","lose"])",
        R"(["key","VOL+"])", R"(["key","VOL-"])", R"(["key","MUTE"])", R"(["key","SOURCE"])", R"(["key","SUBTITLE"])",
        R"(["key","CC"])", R"(["reset"])", R"(["stick","remove","all"])"}) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(tv_control(command), error) << command;
    expect_words(testing::internal::GetCapturedStderr(), {"the change was not saved", "full"});
    EXPECT_EQ(state_without_key(), before) << command;
  }
  EXPECT_EQ(tv_control(R"(["stick","insert",")" + stick + R"("])"), error);
  EXPECT_LT(a_vextvapi_volctrl_setVolume(33), 0);
  EXPECT_LT(a_vextvapi_volctrl_incrVolume(), 0);
  EXPECT_LT(a_vextvapi_volctrl_setMute(1), 0);
  EXPECT_LT(a_vextvapi_time_set_utc_time(1), 0);
  EXPECT_LT(a_vextvapi_cec_set_cec_func(0), 0);
  EXPECT_LT(a_vextvapi_util_set(0, 2, 1, 0), 0);
  EXPECT_EQ(state_without_key(), before);
  EXPECT_EQ(tv_control(R"(["key","POWER"])").find("error"), std::string::npos);  // stores nothing
  EXPECT_EQ(tv_control(R"(["power","on"])").find("error"), std::string::npos);
}

void live_on_a_full_disk(const std::string& folder, bool deferred) {
  TvFolder sticks;
  std::filesystem::create_directory(sticks.path + "/one");
  std::filesystem::create_directory(sticks.path + "/two");
  dtv_tv_stick_root(sticks.path.c_str());
  if (deferred) dtv_tv_on_kept([](void*, std::uint64_t, std::int32_t) {}, nullptr);
  ASSERT_EQ(tv_start(folder), "");
  EXPECT_EQ(tv_control(R"(["volume","64"])").find("error"), std::string::npos);
  EXPECT_EQ(tv_control(R"(["key","SOURCE"])").find("error"), std::string::npos);
  EXPECT_EQ(tv_control(R"(["stick","insert",")" + sticks.path + R"(/one"])").find("error"), std::string::npos);
  fill(folder);
  expect_nothing_kept(sticks.path + "/two");
  const std::string kept = state_without_key();
  std::filesystem::remove(folder + "/filler");
  EXPECT_EQ(tv_control(R"(["volume","65"])").find("error"), std::string::npos);
  EXPECT_EQ(tv_control(R"(["volume","64"])").find("error"), std::string::npos);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder), "");
  EXPECT_EQ(state_without_key(), kept);
  fill(folder);
  dtv_tv_stop();
  std::filesystem::remove(folder + "/filler");
  ASSERT_EQ(tv_start(folder), "");
  EXPECT_EQ(state_without_key(), kept);
  EXPECT_EQ(tv_control(R"(["reset"])").find("error"), std::string::npos);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  dtv_tv_stop();
}

TEST(TvStoreDisk, FullDiskFailsTheChangeAndChangesNothing) {
  for (const bool deferred : {false, true}) {
    TvFolder folder;
    bool skipped = false;
    const int status = run_apart([&] {
      if (!mount_small(folder.path, 1024)) _exit(77);
      live_on_a_full_disk(folder.path, deferred);
      return !testing::Test::HasFailure();
    });
    skipped = WIFEXITED(status) && WEXITSTATUS(status) == 77;
    if (skipped) GTEST_SKIP() << "mounts are not allowed here";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << (deferred ? ", deferred" : "");
  }
}

// ---- Reset ----

TEST(TvStoreDisk, ResetIsOneChange) {
  TvFolder folder;
  ASSERT_EQ(tv_start(folder.path), "");
  for (const char* command : {R"(["volume","64"])", R"(["config","g_video__brightness","11"])", R"(["key","SOURCE"])",
                              R"(["clock","set","2030-01-01T00:00:00Z"])", R"(["network","lose"])"}) {
    EXPECT_EQ(tv_control(command).find("error"), std::string::npos) << command;
  }
  const std::uint64_t change = dtv_tv_last_change();
  EXPECT_EQ(tv_control(R"(["reset"])").find("error"), std::string::npos);
  EXPECT_EQ(dtv_tv_last_change(), change + 1);
  const std::string state = tv_control(R"(["state"])");
  EXPECT_EQ(tv_control(R"(["reset"])"), state);
  EXPECT_EQ(dtv_tv_last_change(), change + 1) << "there is nothing to reset";
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(tv_control(R"(["state"])"), state);
}

}  // namespace
