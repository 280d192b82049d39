// The command "stick" for tests.
#pragma once

#include "tests/unit/tv/support.h"

// Runs the command with these words, which must need no escapes in JSON.
inline std::string stick(const std::vector<std::string>& words) {
  std::string command = R"(["stick")";
  for (const std::string& word : words) command += ",\"" + word + '"';
  return tv_control(command + ']');
}

inline void expect_error(const std::string& answer, const std::vector<std::string>& words) {
  EXPECT_EQ(answer.rfind(R"({"error":")", 0), 0u) << answer;
  for (const std::string& word : words) EXPECT_NE(answer.find(word), std::string::npos) << word << " in: " << answer;
}
