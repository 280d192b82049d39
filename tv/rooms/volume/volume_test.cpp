// Volume and mute: limits, steps, callbacks.
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/unit/tv/support.h"

namespace {

struct Heard {
  INT32 type;
  void* tag;
  intptr_t args[4];
  std::thread::id thread;
};

std::mutex lock;
std::condition_variable arrived;
std::vector<Heard> heard;

INT32 listen(INT32 type, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
  const auto number = [](void* word) { return reinterpret_cast<intptr_t>(word); };
  const std::lock_guard guard(lock);
  heard.push_back({type, tag, {number(arg1), number(arg2), number(arg3), number(arg4)}, std::this_thread::get_id()});
  arrived.notify_all();
  return 0;
}

void* const kTag = reinterpret_cast<void*>(0x129CA8);

// Waits for at least count callbacks, switches the set off so that no other can follow, and returns all.
std::vector<Heard> wait_for(std::size_t count) {
  {
    std::unique_lock guard(lock);
    EXPECT_TRUE(arrived.wait_for(guard, std::chrono::seconds(5), [&] { return heard.size() >= count; }))
        << heard.size() << " of " << count << " callbacks";
  }
  dtv_tv_stop();
  return heard;
}

struct TvVolume : testing::Test {
  TvFolder folder;
  TvVolume() {
    heard.clear();
    EXPECT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(a_vextvapi_volctrl_reg_callback(listen, kTag), 0);
  }
};

TEST_F(TvVolume, NewSetHasVolumeTwentyUnmuted) {
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  EXPECT_EQ(a_vextvapi_volctrl_getMute(), 0);
}

TEST_F(TvVolume, AcceptsEveryValueOfTheScale) {
  for (INT16 volume : {INT16{0}, INT16{1}, INT16{99}, INT16{100}}) {
    EXPECT_EQ(a_vextvapi_volctrl_setVolume(volume), 0);
    EXPECT_EQ(a_vextvapi_volctrl_getVolume(), volume);
  }
}

TEST_F(TvVolume, RefusesValuesOutsideTheScale) {
  for (INT16 volume : {INT16{-1}, INT16{-5}, INT16{101}, INT16{32767}, INT16{-32768}}) {
    testing::internal::CaptureStderr();
    EXPECT_LT(a_vextvapi_volctrl_setVolume(volume), 0) << volume;
    EXPECT_NE(testing::internal::GetCapturedStderr().find(std::to_string(volume)), std::string::npos);
    EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  }
  for (UINT8 mute : {UINT8{2}, UINT8{255}}) {
    testing::internal::CaptureStderr();
    EXPECT_LT(a_vextvapi_volctrl_setMute(mute), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(std::to_string(mute)), std::string::npos);
    EXPECT_EQ(a_vextvapi_volctrl_getMute(), 0);
  }
  dtv_tv_stop();
  EXPECT_TRUE(heard.empty());
}

TEST_F(TvVolume, StepsByOneAndStopsAtBothEnds) {
  EXPECT_EQ(a_vextvapi_volctrl_incrVolume(), 0);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 21);
  EXPECT_EQ(a_vextvapi_volctrl_decrVolume(), 0);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
  a_vextvapi_volctrl_setVolume(100);
  EXPECT_EQ(a_vextvapi_volctrl_incrVolume(), 0);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 100);
  a_vextvapi_volctrl_setVolume(0);
  EXPECT_EQ(a_vextvapi_volctrl_decrVolume(), 0);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 0);
  dtv_tv_stop();  // ends after the last callback
  ASSERT_EQ(heard.size(), 4u);
  const intptr_t expected[] = {21, 20, 100, 0};
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(heard[i].args[0], expected[i]);
}

TEST_F(TvVolume, ReportsEveryChangeOnceInOrderOnTheEventThread) {
  a_vextvapi_volctrl_setVolume(23);
  a_vextvapi_volctrl_setVolume(23);
  a_vextvapi_volctrl_setMute(1);
  a_vextvapi_volctrl_setMute(1);
  a_vextvapi_volctrl_setMute(0);
  wait_for(3);
  ASSERT_EQ(heard.size(), 3u);
  const intptr_t expected[][2] = {{23, 0}, {23, 1}, {23, 0}};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(heard[i].type, 0);
    EXPECT_EQ(heard[i].tag, kTag);
    EXPECT_EQ(heard[i].args[0], expected[i][0]);
    EXPECT_EQ(heard[i].args[1], expected[i][1]);
    EXPECT_EQ(heard[i].args[2], 0);
    EXPECT_EQ(heard[i].args[3], 0);
    EXPECT_NE(heard[i].thread, std::this_thread::get_id());
    EXPECT_EQ(heard[i].thread, heard[0].thread);
  }
}

TEST_F(TvVolume, LaterCallbackReplacesTheEarlier) {
  int other = 0;
  a_vextvapi_volctrl_reg_callback(
      [](INT32, void* tag, void*, void*, void*, void*) {
        ++*static_cast<int*>(tag);
        return INT32{0};
      },
      &other);
  a_vextvapi_volctrl_setVolume(30);
  dtv_tv_stop();
  EXPECT_EQ(other, 1);
  EXPECT_TRUE(heard.empty());
}

TEST_F(TvVolume, CallbackMayCallTheSet) {
  // The callback reads the volume and raises it until it is 25; each change calls the callback again.
  a_vextvapi_volctrl_reg_callback(
      [](INT32 type, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
        EXPECT_EQ(a_vextvapi_volctrl_getVolume(), reinterpret_cast<intptr_t>(arg1));
        if (a_vextvapi_volctrl_getVolume() < 25) {
          EXPECT_EQ(a_vextvapi_volctrl_incrVolume(), 0);
        }
        return listen(type, tag, arg1, arg2, arg3, arg4);
      },
      kTag);
  a_vextvapi_volctrl_incrVolume();
  const std::vector<Heard> all = wait_for(5);
  ASSERT_EQ(all.size(), 5u);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(all[i].args[0], static_cast<intptr_t>(21 + i));
}

TEST_F(TvVolume, SlowCallbackDelaysNoCall) {
  static std::mutex gate;
  std::unique_lock closed(gate);
  a_vextvapi_volctrl_reg_callback(
      [](INT32 type, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
        const std::lock_guard wait(gate);
        return listen(type, tag, arg1, arg2, arg3, arg4);
      },
      kTag);
  for (INT16 volume = 21; volume <= 40; ++volume) EXPECT_EQ(a_vextvapi_volctrl_setVolume(volume), 0);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 40);
  EXPECT_TRUE(heard.empty());
  closed.unlock();
  const std::vector<Heard> all = wait_for(20);
  ASSERT_EQ(all.size(), 20u);
  for (std::size_t i = 0; i < 20; ++i) EXPECT_EQ(all[i].args[0], static_cast<intptr_t>(21 + i));
}

TEST_F(TvVolume, ManyThreadsEndInTheStateOfTheLastCallback) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 25; ++i) {
        if (t % 2 == 0) a_vextvapi_volctrl_incrVolume();
        if (t % 2 == 1) a_vextvapi_volctrl_decrVolume();
        a_vextvapi_volctrl_setMute(static_cast<UINT8>(i % 2));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  dtv_tv_stop();
  ASSERT_FALSE(heard.empty());
  for (std::size_t i = 1; i < heard.size(); ++i) {  // never the same twice in a row: each callback reports a change
    EXPECT_TRUE(heard[i].args[0] != heard[i - 1].args[0] || heard[i].args[1] != heard[i - 1].args[1]);
  }
  EXPECT_EQ(heard.back().args[0], a_vextvapi_volctrl_getVolume());
  EXPECT_EQ(heard.back().args[1], a_vextvapi_volctrl_getMute());
}

TEST_F(TvVolume, ApiChangesEitherTheVolumeOrMute) {
  a_vextvapi_volctrl_setMute(1);
  a_vextvapi_volctrl_setVolume(50);
  a_vextvapi_volctrl_incrVolume();
  a_vextvapi_volctrl_decrVolume();
  EXPECT_EQ(a_vextvapi_volctrl_getMute(), 1);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 50);
}

TEST_F(TvVolume, PlaybackLibraryIsReady) { EXPECT_EQ(IVexPb_Ctrl_Init(), 0); }

TEST_F(TvVolume, RemoteControl) {
  EXPECT_EQ(tv_control(R"(["volume"])"), R"({"volume":20,"mute":false})");
  EXPECT_EQ(tv_control(R"(["volume","up"])"), R"({"volume":21,"mute":false})");
  EXPECT_EQ(tv_control(R"(["volume","down"])"), R"({"volume":20,"mute":false})");
  EXPECT_EQ(tv_control(R"(["volume","23"])"), R"({"volume":23,"mute":false})");
  EXPECT_EQ(tv_control(R"(["mute"])"), R"({"volume":23,"mute":false})");
  EXPECT_EQ(tv_control(R"(["mute","on"])"), R"({"volume":23,"mute":true})");
  EXPECT_EQ(tv_control(R"(["mute","toggle"])"), R"({"volume":23,"mute":false})");
  EXPECT_EQ(tv_control(R"(["mute","toggle"])"), R"({"volume":23,"mute":true})");
  EXPECT_EQ(tv_control(R"(["mute","off"])"), R"({"volume":23,"mute":false})");
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 23);
  EXPECT_EQ(wait_for(7).size(), 7u);
}

TEST_F(TvVolume, RaisingByRemoteControlUnmutesInOneChange) {
  tv_control(R"(["mute","on"])");
  EXPECT_EQ(tv_control(R"(["volume","down"])"), R"({"volume":19,"mute":true})");
  EXPECT_EQ(tv_control(R"(["volume","10"])"), R"({"volume":10,"mute":true})");
  EXPECT_EQ(tv_control(R"(["volume","up"])"), R"({"volume":11,"mute":false})");
  tv_control(R"(["mute","on"])");
  EXPECT_EQ(tv_control(R"(["volume","100"])"), R"({"volume":100,"mute":false})");
  tv_control(R"(["mute","on"])");
  EXPECT_EQ(tv_control(R"(["volume","up"])"), R"({"volume":100,"mute":false})");
  dtv_tv_stop();
  ASSERT_EQ(heard.size(), 8u);
  EXPECT_EQ(heard[3].args[0], 11);
  EXPECT_EQ(heard[3].args[1], 0);
}

TEST_F(TvVolume, ResetRestoresTheFactoryState) {
  tv_control(R"(["volume","77"])");
  tv_control(R"(["mute","on"])");
  EXPECT_EQ(tv_control(R"(["reset"])"), "{" TV_FACTORY_STATE "}");
  EXPECT_EQ(tv_control(R"(["state"])"), "{" TV_FACTORY_STATE "}");
  const std::vector<Heard> all = wait_for(3);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[2].args[0], 20);
  EXPECT_EQ(all[2].args[1], 0);
}

TEST_F(TvVolume, ErrorsOfBadCommandsNameWhatIsAllowed) {
  struct Case {
    const char* command;
    std::vector<std::string> says;
  };
  const Case cases[] = {
      {R"(["volume","loud"])", {"loud", "up", "down", "0", "100"}},
      {R"(["volume","101"])", {"101", "0", "100"}},
      {R"(["volume","-1"])", {"-1"}},
      {R"(["volume","5x"])", {"5x"}},
      {R"(["volume",""])", {"volume takes"}},
      {R"(["volume","99999999999999999999"])", {"99999999999999999999"}},
      {R"(["volume","up","up"])", {"one word too many", "[N|up|down]"}},
      {R"(["mute","maybe"])", {"maybe", "on", "off", "toggle"}},
      {R"(["reset","all"])", {"all", "usage: reset"}},
      {R"(["dance"])", {"dance", "volume", "mute", "state", "reset", "help"}},
      {R"([])", {"JSON array of words"}},
      {R"({})", {"JSON array of words"}},
      {R"([)", {"JSON array of words"}},
      {"", {"JSON array of words"}},
      {R"([1])", {"JSON string"}},
      {R"(["volume",23])", {"JSON string"}},
  };
  for (const Case& each : cases) {
    const std::string answer = tv_control(each.command);
    EXPECT_EQ(answer.rfind(R"({"error":")", 0), 0u) << each.command << " gave " << answer;
    for (const std::string& word : each.says) EXPECT_NE(answer.find(word), std::string::npos) << answer;
  }
  const std::unique_ptr<char, decltype(&free)> nothing(dtv_tv_control(nullptr), free);
  EXPECT_EQ(std::string(nothing.get()).rfind(R"({"error":")", 0), 0u);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 20);
}

}  // namespace
