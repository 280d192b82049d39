// For the tests of the tap: a platform behind it, the lines that it writes, and a fixture that resets it.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "contract.h"
#include "dtv_tap.h"
#include "tap/json.h"

struct TapLines {
  std::mutex lock;
  std::vector<std::string> lines;
};

inline void tap_add_line(void* context, const char* line) {
  TapLines& lines = *static_cast<TapLines*>(context);
  const std::lock_guard guard(lines.lock);
  lines.lines.emplace_back(line);
}

// A line without the members that differ from run to run: time, order, thread, duration.
inline std::string tap_plain(const std::string& line) {
  std::string error;
  const tap::Json json = tap::json_parse(line, error);
  for (const char* key : {"t", "seq", "thread", "duration"}) cJSON_DeleteItemFromObjectCaseSensitive(json.get(), key);
  return tap::json_print(json.get());
}

// The made-up platform behind the tap.
inline void* platform() {
  static void* library = dlopen(TAP_PLATFORM, RTLD_NOW | RTLD_LOCAL);
  return library;
}

inline void use_platform() {
  char* error = nullptr;
  ASSERT_NE(platform(), nullptr) << dlerror();
  ASSERT_EQ(dtv_tap_platform(platform(), &error), 0) << error;
}

inline std::int64_t raise(const char* function, const char* args) {
  std::int64_t result = -999;
  char* error = nullptr;
  EXPECT_EQ(dtv_tap_raise(function, args, &result, &error), 0) << (error == nullptr ? "" : error);
  std::free(error);
  return result;
}

inline std::string replay_report() {
  char* report = dtv_tap_replay_report();
  std::string text = report == nullptr ? "" : report;
  std::free(report);
  return text;
}

// A test begins and ends with a tap that only forwards, without a watcher.
struct TapTest : testing::Test {
  TapLines seen;
  void SetUp() override { reset(); }
  void TearDown() override { reset(); }
  static void reset() {
    dtv_tap_watch(nullptr, nullptr);
    dtv_tap_on_event(nullptr, nullptr);
    dtv_tap_fault(nullptr, nullptr);
    dtv_tap_script(nullptr, nullptr);
    dtv_tap_replay(nullptr, nullptr);
  }
  void watch() { dtv_tap_watch(tap_add_line, &seen); }
  std::vector<std::string> plain_lines() {
    const std::lock_guard guard(seen.lock);
    std::vector<std::string> plain;
    for (const std::string& line : seen.lines) plain.push_back(tap_plain(line));
    return plain;
  }
  static void script(const char* answers) {
    char* error = nullptr;
    EXPECT_EQ(dtv_tap_script(answers, &error), 0) << (error == nullptr ? "" : error);
    std::free(error);
  }
  // The error of a script that must be refused.
  static std::string script_error(const char* answers) {
    char* error = nullptr;
    EXPECT_EQ(dtv_tap_script(answers, &error), -1) << answers;
    std::string text = error == nullptr ? "" : error;
    std::free(error);
    return text;
  }
};
