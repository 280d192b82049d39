// Shared by the configuration store's tests: the catalogue's rows, short forms of its functions, and a listener.
#pragma once

#include <sqlite3.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/tv/support.h"

inline constexpr INT32 kEnglish = 0x656E6700;
inline constexpr INT32 kGerman = 0x64657500;
inline constexpr const char* kLanguage = "g_gui_lang__gui_language";
inline constexpr const char* kBalance = "g_audio__balance";        // -50 to 50
inline constexpr const char* kBrightness = "g_video__brightness";  // 0 to 100
inline constexpr const char* kDst = "g_time__dst";                 // a number whose values 0 to 2 have names
inline constexpr const char* kLogos = "g_misc__ch_logos_status";   // a bool
inline constexpr const char* kName = "g_misc__tv_network_name";    // a text
inline constexpr const char* kStore = "g_misc__channel_store";     // an action
inline constexpr const char* kChannel = "g_misc__air_channel_id";  // its limits do not fit into 16 bits
inline constexpr UINT32 kLookUp = VEXTVAPI_CONFIG_ITEM_LOOK_UP;
inline constexpr UINT32 kUnknownItem = 0x07FF0001;

struct Row {
  enum ValueKind { kBool, kNumber, kCode, kText, kAction } kind;
  const char* key;
  UINT32 item;
  INT32 minimum;
  INT32 maximum;
  INT32 number;
  std::size_t longest;
  const char* text;
};

inline INT32 code(const char* letters) { return letters[0] << 24 | letters[1] << 16 | letters[2] << 8; }

inline INT32 names_in(const std::string& names) {
  INT32 count = 1;
  for (const char c : names) count += c == ',';
  return count;
}

inline const std::vector<Row>& rows() {
  static const std::vector<Row> kRows = {
#define TV_CFG_BOOL(key, item, value, help) {Row::kBool, key, item, 0, 1, value, 0, ""},
#define TV_CFG_NUMBER(key, item, least, most, value, help) {Row::kNumber, key, item, least, most, value, 0, ""},
#define TV_CFG_CHOICE(key, item, value, help, names) {Row::kNumber, key, item, 0, names_in(names) - 1, value, 0, ""},
#define TV_CFG_CODE(key, item, value, help) {Row::kCode, key, item, 0, 0, code(value), 0, ""},
#define TV_CFG_TEXT(key, item, most, value, help) {Row::kText, key, item, 0, 0, 0, most, value},
#define TV_CFG_ACTION(key, item, prefix, help) {Row::kAction, key, item, 0, 0, 0, 0, ""},
#include "catalogue.def"
  };
  return kRows;
}

inline UINT32 item_of(const char* key) {
  for (const Row& row : rows())
    if (std::strcmp(row.key, key) == 0) return row.item;
  ADD_FAILURE() << key;
  return 0;
}

inline INT32 number(const std::string& key) {
  INT32 value = -12345;
  EXPECT_EQ(a_vextvapi_config_get_value(-1, key.c_str(), &value), 0) << key;
  return value;
}

inline INT32 write(const char* key, INT32 value) { return a_vextvapi_config_set_value(-1, key, value, 3); }

inline std::string text(const std::string& key) {
  char buffer[1024] = "untouched";
  UINT32 length = 1023;
  EXPECT_EQ(a_vextvapi_config_get_str_value(key.c_str(), buffer, &length), 0) << key;
  EXPECT_EQ(length, std::strlen(buffer));
  return buffer;
}

struct Heard {
  INT32 id;
  void* tag;
  std::string key;
  bool others_null;
  std::thread::id thread;
};

inline std::mutex lock;
inline std::condition_variable arrived;
inline std::vector<Heard> heard;

inline INT32 listen(INT32 id, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
  const auto* const change = static_cast<const VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T*>(arg2);
  const std::lock_guard guard(lock);
  const bool null = arg1 == nullptr && arg3 == nullptr && arg4 == nullptr;
  heard.push_back({id, tag, std::string(change->s_cfg, strnlen(change->s_cfg, sizeof change->s_cfg)), null,
                   std::this_thread::get_id()});
  arrived.notify_all();
  return 0;
}

inline void* const kTag = reinterpret_cast<void*>(0x14BF88);

// Switches the set off, so that no callback can follow, and returns the keys of all callbacks.
inline std::vector<std::string> notified_keys() {
  dtv_tv_stop();
  std::vector<std::string> keys;
  for (const Heard& each : heard) keys.push_back(each.key);
  return keys;
}

using Keys = std::vector<std::string>;

struct TvConfig : testing::Test {
  TvFolder folder;
  TvConfig() { start(); }
  void start() {
    heard.clear();
    EXPECT_EQ(tv_start(folder.path), "");
    EXPECT_EQ(a_vextvapi_config_reg_callback(listen, kTag), 0);
  }
  void watch(std::initializer_list<const char*> keys) {
    for (const char* const key : keys) EXPECT_EQ(a_vextvapi_config_add_value_changed_callback(key), 0) << key;
  }
  void sql(const std::string& statement) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(folder.database().c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
  }
};
