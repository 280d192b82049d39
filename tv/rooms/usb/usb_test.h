// The command "stick" as a test gives it.
#pragma once

#include "tests/unit/tv/support.h"

// The command's words as the JSON array that the set takes. The words of these tests need no escapes.
inline std::string stick(const std::vector<std::string>& words) {
  std::string command = R"(["stick")";
  for (const std::string& word : words) command += ",\"" + word + '"';
  return tv_control(command + ']');
}

inline void expect_error(const std::string& answer, const std::vector<std::string>& words) {
  EXPECT_EQ(answer.rfind(R"({"error":")", 0), 0u) << answer;
  for (const std::string& word : words) EXPECT_NE(answer.find(word), std::string::npos) << word << " in: " << answer;
}
