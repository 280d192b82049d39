// "Did you mean": the known names nearest to a mistyped one.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

// The names that differ from name in few letters, contain it, or end with the same part of a path: at most count,
// nearest first.
std::vector<std::string> nearest(std::string_view name, std::span<const std::string> names, std::size_t count);
