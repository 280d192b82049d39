// The entries of the configuration store, as catalogue.def lists them. For config.cpp only.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "core/contract.h"

enum class ConfigKind : std::uint8_t { kBool, kNumber, kCode, kText, kAction };

inline constexpr const char* kConfigKindNames[] = {"bool", "number", "code", "text", "action"};

struct ConfigEntry {
  ConfigKind kind;
  const char* key;
  UINT32 item;
  INT32 minimum;
  INT32 maximum;
  INT32 factory;        // the value in a new set; 0 for texts
  std::size_t longest;  // of a text, in bytes
  const char* text;     // a text: its value in a new set; an action: the prefix of the keys that it resets
  const char* help;
  const char* names = "";  // of a number's values 0, 1, 2 and so on, with ", " between them; "" if they have none
};

inline constexpr std::string_view kConfigNameEnd = ", ";

// The greatest value of a choice with these names.
constexpr INT32 last_of(std::string_view names) {
  INT32 last = 0;
  for (std::size_t at = names.find(kConfigNameEnd); at != names.npos; at = names.find(kConfigNameEnd, at + 1)) ++last;
  return last;
}

constexpr INT32 code_of(std::string_view letters) {
  INT32 code = 0;
  for (const char letter : letters.substr(0, 3)) code = code << 8 | letter;
  return code << 8;
}

// clang-format off
#define TV_CFG_BOOL(key, item, value, help) ConfigEntry{ConfigKind::kBool, key, item, 0, 1, value, 0, "", help},
#define TV_CFG_NUMBER(key, item, least, most, value, help) ConfigEntry{ConfigKind::kNumber, key, item, least, most, value, 0, "", help},
#define TV_CFG_CHOICE(key, item, value, help, names) ConfigEntry{ConfigKind::kNumber, key, item, 0, last_of(names), value, 0, "", help, names},
#define TV_CFG_CODE(key, item, value, help) ConfigEntry{ConfigKind::kCode, key, item, INT32_MIN, INT32_MAX, code_of(value), 0, "", help},
#define TV_CFG_TEXT(key, item, most, value, help) ConfigEntry{ConfigKind::kText, key, item, 0, 0, 0, most, value, help},
#define TV_CFG_ACTION(key, item, prefix, help) ConfigEntry{ConfigKind::kAction, key, item, 0, INT32_MAX, 0, 0, prefix, help},
// clang-format on
inline constexpr ConfigEntry kConfigEntries[] = {
#include "catalogue.def"
};

inline constexpr std::size_t kConfigCount = std::size(kConfigEntries);

constexpr bool before(const ConfigEntry& left, const ConfigEntry& right) {
  return std::string_view(left.key) < std::string_view(right.key);
}

constexpr bool items_differ() {
  for (const ConfigEntry& one : kConfigEntries)
    for (const ConfigEntry& other : kConfigEntries)
      if (&one != &other && one.item != 0 && one.item == other.item) return false;
  return true;
}

static_assert(std::adjacent_find(std::begin(kConfigEntries), std::end(kConfigEntries),
                                 [](const ConfigEntry& a, const ConfigEntry& b) { return !before(a, b); }) ==
                  std::end(kConfigEntries),
              "the catalogue is in the order of its keys, without duplicates");
static_assert(items_differ(), "two entries of the catalogue have the same item id");
