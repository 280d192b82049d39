// What a step prints and returns, and the comparison with what a case expects.
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

// Everything since the last call. The stream must have been flushed.
std::string capture_take(Capture& capture);

// Lines without their line feeds; characters after the last line feed are a line as well.
std::vector<std::string> split_lines(std::string_view text);

// Whether a line is as expected; '#' in expected matches a line number.
bool line_matches(std::string_view expected, std::string_view line);

// Empty when the lines are exactly, or contain in order, what the case lists.
std::string compare_lines(const cJSON* expected, const std::vector<std::string>& lines, bool exactly);

// Returns the first difference between two JSON texts, at path; empty when they have the same members in the same order
// with the same values. "*" matches anything.
std::string compare_json(const cJSON* expected, const cJSON* came, const std::string& path);

// For messages: a JSON text, cut when it is long.
std::string quoted(std::string_view text);

}  // namespace runner
