// The set's memory: values by key in a SQLite database in the state folder (store.cpp, store_open.cpp, store_sync.cpp).
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

// Opens or creates the database, and locks its folder until store_close. A damaged file is moved aside, and the call
// fails. A damaged value is reported on stderr and becomes the factory's again.
bool store_open(const std::string& folder, std::string& ret_error);
void store_close();
bool store_is_open();

// Whether the store can keep the text: UTF-8 without a NUL.
bool store_is_text(std::string_view text);

// Returns the kept value, or the factory's where none is kept. Where the kept one is of another kind or out of its
// limits, that is reported on stderr, and the factory's is returned. A room reads each of its keys when it loads.
std::int64_t store_read(const Setting& setting);
std::string store_read(const TextSetting& setting);

// Keeps all values or none. When it returns true they are on the disk, or with dtv_tv_on_kept written to the operating
// system. Values that are kept already are not written again. A failure is reported on stderr.
bool store_write(std::span<const SettingValue> values);

// Forgets all values at once, so that each is the factory's; returns as store_write does.
bool store_reset();
