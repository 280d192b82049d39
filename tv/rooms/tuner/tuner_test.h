// A set with channels, for the tests of the rooms that choose them.
#pragma once

#include <fstream>

#include "tests/unit/tv/support.h"

inline std::string run(const std::vector<std::string>& words) {
  std::string command = "[";
  for (const std::string& word : words) command += (command.size() > 1 ? ",\"" : "\"") + word + '"';
  return tv_control(command + "]");
}

inline void expect_done(const std::string& answer) { EXPECT_EQ(answer.find("\"error\""), std::string::npos) << answer; }

struct TestChannel {
  const char* name;
  int number;
  int stream;  // its multiplex
  int service;
};

// Of network 1. Multiplexes 10 and 20 are over the air, 60 is a satellite's.
inline constexpr TestChannel kTestChannels[] = {
    {"One", 1, 10, 101},   {"Two", 2, 10, 102},      {"Three", 3, 20, 201},
    {"Radio", 4, 20, 202}, {"Nowhere", 42, 30, 301}, {"Far", 1234, 20, 203},
};
inline constexpr TestChannel kTestSatellite[] = {{"Orbit", 7, 60, 601}};

inline std::string channel_lines(const TestChannel& each, const std::string& delivery) {
  const auto line = [](const std::string& key, const std::string& value) { return "\t" + key + " = " + value + "\n"; };
  return "[" + std::string(each.name) + "]\n" + line("SERVICE_ID", std::to_string(each.service)) +
         line("NETWORK_ID", "1") + line("TRANSPORT_ID", std::to_string(each.stream)) +
         line("VCHANNEL", std::to_string(each.number)) + line("VIDEO_PID", "256") + line("AUDIO_PID", "257") +
         line("FREQUENCY", delivery == "DVBS" ? "11000000" : "506000000") + line("DELIVERY_SYSTEM", delivery) +
         line("SYMBOL_RATE", "27500000") + "\n";
}

// The identifier of a channel over the air (see tvapi/channel.h).
constexpr UINT32 channel_id(int number) { return static_cast<UINT32>(number) << 18 | 1; }

// Its timers run in `advance` only. Files that the set may read are in `home`.
struct TunerSet : testing::Test {
  ManualClock manual;
  TvFolder home;
  TvFolder folder;
  TunerSet() {
    dtv_tv_stick_root(home.path.c_str());
    EXPECT_EQ(tv_start(folder.path), "");
  }
  ~TunerSet() override { dtv_tv_stick_root(nullptr); }
  TunerSet(const TunerSet&) = delete;
  TunerSet& operator=(const TunerSet&) = delete;

  void restart() {
    dtv_tv_stop();
    ASSERT_EQ(tv_start(folder.path), "");
  }

  void import(const std::string& file, const std::string& content) {
    std::ofstream(home.path + "/" + file) << content;
    expect_done(run({"channels", "import", home.path + "/" + file}));
  }

  void import_channels() {
    std::string content;
    for (const TestChannel& each : kTestChannels) content += channel_lines(each, "DVBT");
    import("air.conf", content);
  }

  void import_satellite() { import("Test-19.2E", channel_lines(kTestSatellite[0], "DVBS")); }

  // While it is so, the set refuses every change.
  void move_folder_away(bool away) {
    const std::string other = home.path + "/moved";
    away ? std::filesystem::rename(folder.path, other) : std::filesystem::rename(other, folder.path);
  }
};

// "12 TV": channel and source, as "state" shows them
inline std::string place() {
  const std::string state = tv_control(R"(["state"])");
  const auto after = [&](const std::string& name) {
    const std::size_t start = state.find('"' + name + "\":") + name.size() + 3;
    std::string value = state.substr(start, state.find_first_of(",}", start) - start);
    std::erase(value, '"');
    return value;
  };
  return after("channel") + " " + after("source");
}

inline void press(const std::string& key) { expect_done(run({"key", key})); }

inline void press_all(std::initializer_list<const char*> keys) {
  for (const char* const key : keys) press(key);
}
