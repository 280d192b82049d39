// "Did you mean": the known names that a mistyped one is nearest to.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

// At most count of the names, nearest first, that differ from name in few letters or contain it.
std::vector<std::string> nearest(std::string_view name, std::span<const std::string> names, std::size_t count);
