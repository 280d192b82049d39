// What words of a guide mean: categories, languages, ages.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

// The content byte (level 1 in the upper nibble, level 2 in the lower) for a category by its English name, in any case;
// 0 if the name is not known.
std::uint8_t category_of(std::string_view name);

// The bytes in one number, the first in the lowest byte; zeros and repetitions are left out, and what is beyond
// kMostEventCategories.
std::uint64_t pack_categories(const std::vector<std::uint8_t>& categories);
std::vector<std::uint8_t> unpack_categories(std::uint64_t packed);

// Whether the event has one of the wanted categories. A wanted one without a level 2 matches its whole level 1.
bool has_category(std::uint64_t packed, const std::vector<std::uint8_t>& wanted);

// Whether two codes of ISO 639, with two or three letters, are the same language, whatever a region follows.
bool same_language(std::string_view left, std::string_view right);

// The age in a rating such as "16", "FSK 12", "PG-13" or "18+": its first number, if that is 1 to 21; else 0.
std::uint8_t age_of(std::string_view rating);
