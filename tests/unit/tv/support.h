// A temporary state folder, and functions that start and control the set in it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "dtv_tv.h"
#include "tvapi/all.h"

struct TvFolder {
  std::string path;
  TvFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tv_test_XXXXXX").string();
    path = mkdtemp(name.data());
  }
  ~TvFolder() {
    dtv_tv_stop();
    dtv_tv_stick_root(nullptr);  // a test's root is gone after it
    std::filesystem::remove_all(path);
  }
  TvFolder(const TvFolder&) = delete;
  TvFolder& operator=(const TvFolder&) = delete;
  std::string database() const { return path + "/tv.sqlite"; }
};

// While it exists, only dtv_tv_advance moves the set's clock. Construct it before the set is switched on.
struct ManualClock {
  ManualClock() { dtv_tv_manual_clock(1); }
  ~ManualClock() { dtv_tv_manual_clock(0); }
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;
};

// What "state" reports for a new set.
#define TV_FACTORY_STATE R"("power":"on","channel":null,"source":"TV","key":"","volume":20,"mute":false)"

// Starts the set. Returns the error, empty on success.
inline std::string tv_start(const std::string& folder) {
  char* error = nullptr;
  const int32_t result = dtv_tv_start(folder.c_str(), &error);
  std::string text = error == nullptr ? "" : error;
  free(error);
  EXPECT_EQ(result, text.empty() ? 0 : -1);
  return text;
}

inline std::string tv_control(const std::string& command) {
  const std::unique_ptr<char, decltype(&free)> answer(dtv_tv_control(command.c_str()), free);
  return answer == nullptr ? "null" : answer.get();
}

// Makes a call that must fail, and returns what it wrote to stderr.
template <typename Call>
std::string refusal(Call call) {
  testing::internal::CaptureStderr();
  const INT32 result = call();
  std::string log = testing::internal::GetCapturedStderr();
  EXPECT_LT(result, 0) << log;
  return log;
}

inline void expect_words(const std::string& log, const std::vector<std::string>& words) {
  for (const std::string& word : words) EXPECT_NE(log.find(word), std::string::npos) << word << " in: " << log;
}
