// Shared by the HDMI-CEC tests: a listener, and checks of the bus's frames.
#pragma once

#include <chrono>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/tv/support.h"
#include "vex_tv_ctrl/cec.h"

struct CecHeard {
  CECM_NFY_T event;
  void* tag;
  std::thread::id thread;
  std::chrono::steady_clock::time_point when;
  T_CECM_NFY_DATA data() const {
    T_CECM_NFY_DATA data;
    static_assert(sizeof data == sizeof event.u_data);
    std::memcpy(&data, event.u_data, sizeof data);
    return data;
  }
};

// The event's type and code: "op 82" or "msg 1".
inline std::string name_of(const CECM_NFY_T& event) {
  char text[32];
  const bool own = event.e_nfy_type == CECM_NFY_TYPE_MSGCODE;
  snprintf(text, sizeof text, own ? "msg %X" : "op %02X", static_cast<unsigned>(event.u_code.e_opcode));
  return text;
}

using Names = std::vector<std::string>;

inline void* const kCecTag = reinterpret_cast<void*>(0x16080);

// A set with a manual clock.
struct TvCec : testing::Test {
  std::optional<ManualClock> manual;  // none: the machine's clock
  TvFolder folder;
  std::mutex lock;
  std::vector<CecHeard> heard;

  static inline TvCec* now = nullptr;

  static INT32 listen(INT32, const CECM_NFY_T* event, void* tag, UINT32) {
    const std::lock_guard guard(now->lock);
    now->heard.push_back({*event, tag, std::this_thread::get_id(), std::chrono::steady_clock::now()});
    return 0;
  }

  explicit TvCec(bool on_manual_clock = true) {
    now = this;
    if (on_manual_clock) manual.emplace();
    EXPECT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(a_vextvapi_cec_mw_reg_callback(listen, kCecTag), 0);
  }
  ~TvCec() override { dtv_tv_stop(); }

  static void enable(UINT8 on = 1) {
    EXPECT_EQ(a_vextvapi_cec_set_cec_fct({.b_enable = on, .ui1_hdmi_port_num = 3}), 0);
  }
  static void switch_on() {
    enable();
    EXPECT_EQ(a_vextvapi_cec_signal_cec_ready(1), 0);
  }
  static INT32 discover(INT32 start, INT32 stop, UINT32 interval = 0, UINT8 batch = 0) {
    const CECM_DEV_DISCOVERY_T request{
        .e_start_la = start, .e_stop_la = stop, .ui4_itvl = interval, .b_batch_polling = batch};
    return a_vextvapi_cec_start_dev_discovery_ex(&request);
  }

  // Runs the command cec with these words, for example {"play", "player"}.
  static std::string cec(const std::vector<std::string>& words) {
    std::string command = R"(["cec")";
    for (const std::string& word : words) command += ",\"" + word + '"';
    const std::string answer = tv_control(command + ']');
    EXPECT_EQ(answer.find("error"), std::string::npos) << answer;
    return answer;
  }

  // Advances the clock until the condition is true, by at most a minute. A frame takes at least four steps. Returns
  // false on a timeout.
  template <typename Condition>
  static bool pass_until(Condition condition) {
    constexpr std::chrono::milliseconds kStep(10);
    for (auto passed = kStep; !condition(); passed += kStep) {
      if (passed > std::chrono::minutes(1)) return false;
      if (now->manual) {
        dtv_tv_advance(kStep.count());
      } else {
        std::this_thread::sleep_for(kStep);
      }
    }
    return true;
  }

  std::vector<CecHeard> received() {
    const std::lock_guard guard(lock);
    return heard;
  }

  // Waits for at least count events, and returns all received so far.
  std::vector<CecHeard> wait_for(std::size_t count) {
    EXPECT_TRUE(pass_until([&] { return received().size() >= count; }))
        << received().size() << " of " << count << " events";
    return received();
  }

  // The same, but waits for an event of that name.
  std::vector<CecHeard> wait_for(const std::string& name) {
    const auto come = [&] {
      for (const CecHeard& each : received())
        if (name_of(each.event) == name) return true;
      return false;
    };
    EXPECT_TRUE(pass_until(come)) << "no " << name;
    return received();
  }

  // Switches the set off, and returns all events.
  std::vector<CecHeard> ended() {
    dtv_tv_stop();
    return heard;
  }

  void forget() {
    const std::lock_guard guard(lock);
    heard.clear();
  }

  static std::string row(const std::string& frame, bool was_heard = true) {
    return R"({"frame":")" + frame + R"(","heard":)" + (was_heard ? "true" : "false") + '}';
  }

  // Waits until the bus has delivered the frame.
  static void wait_frame(const std::string& frame, bool was_heard = true) {
    ASSERT_TRUE(pass_until([&] { return cec({"frames"}).find(row(frame, was_heard)) != std::string::npos; }))
        << frame << " was not delivered: " << cec({"frames"});
  }

  // Waits until the bus has delivered these frames directly after each other.
  static void expect_frames(const std::vector<std::string>& frames) {
    std::string all;
    for (const std::string& each : frames) all += (all.empty() ? "" : ",") + row(each);
    wait_frame(frames.back());
    EXPECT_NE(cec({"frames"}).find(all), std::string::npos) << all << "\nin " << cec({"frames"});
  }
};

// The same with the machine's clock.
struct TvCecInRealTime : TvCec {
  TvCecInRealTime() : TvCec(false) {}
};

inline Names names_of(const std::vector<CecHeard>& heard) {
  Names names;
  for (const CecHeard& each : heard) names.push_back(name_of(each.event));
  return names;
}
