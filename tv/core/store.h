// The store: the set's settings, values by key in a SQLite database in the state folder (store.cpp, store_open.cpp,
// store_sync.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

struct Setting {
  const char* key;
  std::int64_t factory;  // the value of a new set
  std::int64_t minimum;
  std::int64_t maximum;
};

struct TextSetting {
  const char* key;
  const char* factory;
  std::size_t longest;  // in bytes
};

struct SettingValue {
  using Value = std::variant<std::int64_t, std::string_view>;
  const char* key;
  Value value;
};

// Opens or creates the database, and locks its folder until store_close. Renames a damaged file, and fails. Reports a
// damaged value on stderr, and resets it to the factory value.
bool store_open(const std::string& folder, std::string& ret_error);
void store_close();
bool store_is_open();

// Whether the store accepts the text: UTF-8 without a NUL.
bool store_is_text(std::string_view text);

// Returns the stored value, or the factory value if none is stored. If the stored value has another type or is outside
// its limits, reports that on stderr and returns the factory value. A room reads each of its keys when it loads.
std::int64_t store_read(const Setting& setting);
std::string store_read(const TextSetting& setting);

// Stores all values or none. When it returns true they are on the disk, or with dtv_tv_on_kept written to the operating
// system. False: they may not survive a restart; after a failed sync, or where the folder was moved, they may be in the
// file all the same. Values that have not changed are not written again. Reports a failure on stderr.
bool store_write(std::span<const SettingValue> values);

// Deletes all values at once, so that each key has its factory value again. Returns and reports as store_write does.
bool store_reset();
