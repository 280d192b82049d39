// What a step prints, and its comparison with a case.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tap/json.h"

namespace runner {

// A standard stream that has been turned into a memory file.
struct Capture {
  int file = -1;
  std::size_t taken = 0;  // bytes that earlier steps printed
};

// Everything since the last time. The stream's buffer must have been flushed.
std::string capture_take(Capture& capture);

// Lines without their line feeds; what stands behind the last line feed is a line of its own.
std::vector<std::string> split_lines(std::string_view text);

// Whether a line is as expected; '#' in expected stands for a line number.
bool line_matches(std::string_view expected, std::string_view line);

// Empty when the lines are exactly, or contain in order, what the case lists.
std::string compare_lines(const cJSON* expected, const std::vector<std::string>& lines, bool exactly);

// Empty when came is the same JSON: same members in the same order, same values; "*" matches anything. path names the
// place of a difference.
std::string compare_json(const cJSON* expected, const cJSON* came, const std::string& path);

// For messages: a JSON text, cut when it is long.
std::string quoted(std::string_view text);

}  // namespace runner
