// The configuration store: what it takes and gives, whom it tells, what it keeps.
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "tv_support.h"

namespace {

constexpr INT32 kEnglish = 0x656E6700;
constexpr INT32 kGerman = 0x64657500;
constexpr const char* kLanguage = "g_gui_lang__gui_language";
constexpr const char* kBalance = "g_audio__balance";        // -50 to 50
constexpr const char* kBrightness = "g_video__brightness";  // 0 to 100
constexpr const char* kLogos = "g_misc__ch_logos_status";   // a bool
constexpr const char* kName = "g_misc__tv_network_name";    // a text
constexpr const char* kStore = "g_misc__channel_store";     // an action
constexpr const char* kChannel = "g_misc__air_channel_id";  // too large for limits of 16 bits
constexpr UINT32 kLookUp = 0x07240005;
constexpr UINT32 kUnknownItem = 0x07FF0001;

struct Row {
  enum Kind { kBool, kNumber, kCode, kText, kAction } kind;
  const char* key;
  UINT32 item;
  INT32 minimum;
  INT32 maximum;
  INT32 number;
  std::size_t longest;
  const char* text;
};

INT32 code(const char* letters) { return letters[0] << 24 | letters[1] << 16 | letters[2] << 8; }

const std::vector<Row>& rows() {
  static const std::vector<Row> all = {
#define TV_CFG_BOOL(key, item, value, help) {Row::kBool, key, item, 0, 1, value, 0, ""},
#define TV_CFG_NUMBER(key, item, least, most, value, help) {Row::kNumber, key, item, least, most, value, 0, ""},
#define TV_CFG_CODE(key, item, value, help) {Row::kCode, key, item, 0, 0, code(value), 0, ""},
#define TV_CFG_TEXT(key, item, most, value, help) {Row::kText, key, item, 0, 0, 0, most, value},
#define TV_CFG_ACTION(key, item, prefix, help) {Row::kAction, key, item, 0, 0, 0, 0, ""},
#include "../../tv/config_catalogue.def"
  };
  return all;
}

UINT32 item_of(const char* key) {
  for (const Row& row : rows())
    if (std::strcmp(row.key, key) == 0) return row.item;
  ADD_FAILURE() << key;
  return 0;
}

INT32 number(const std::string& key) {
  INT32 value = -12345;
  EXPECT_EQ(a_vextvapi_config_get_value(-1, key.c_str(), &value), 0) << key;
  return value;
}

INT32 write(const char* key, INT32 value) { return a_vextvapi_config_set_value(-1, key, value, 3); }

std::string text(const std::string& key) {
  char buffer[1024] = "untouched";
  UINT32 length = 1023;
  EXPECT_EQ(a_vextvapi_config_get_str_value(key.c_str(), buffer, &length), 0) << key;
  EXPECT_EQ(length, std::strlen(buffer));
  return buffer;
}

// What is said on stderr by a call that has to fail.
template <typename Call>
std::string refusal(Call call) {
  testing::internal::CaptureStderr();
  const INT32 result = call();
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_LT(result, 0) << said;
  return said;
}

void expect_words(const std::string& said, const std::vector<std::string>& words) {
  for (const std::string& word : words) EXPECT_NE(said.find(word), std::string::npos) << word << " in: " << said;
}

struct Heard {
  INT32 id;
  void* tag;
  std::string key;
  bool others_null;
  std::thread::id thread;
};

std::mutex lock;
std::condition_variable arrived;
std::vector<Heard> heard;

INT32 listen(INT32 id, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
  const auto* const change = static_cast<const VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T*>(arg2);
  const std::lock_guard guard(lock);
  const bool null = arg1 == nullptr && arg3 == nullptr && arg4 == nullptr;
  heard.push_back({id, tag, std::string(change->s_cfg, strnlen(change->s_cfg, sizeof change->s_cfg)), null,
                   std::this_thread::get_id()});
  arrived.notify_all();
  return 0;
}

void* const kTag = reinterpret_cast<void*>(0x14BF88);

// The keys that were told of until the set is off, so that one too many shows up as well.
std::vector<std::string> told() {
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

// ---- The catalogue ----

TEST_F(TvConfig, HasTheKeysThatApplicationsKnow) {
  for (const char* const key : {"g_country__country", "g_gui_lang__gui_language", "g_subtitle__subtitle_lang",
                                "g_subtitle__subtitle_lang_2nd"}) {
    const INT32 value = number(key);
    for (int shift = 8; shift <= 24; shift += 8) EXPECT_TRUE(std::islower(value >> shift & 0xFF)) << key;
    EXPECT_EQ(value & 0xFF, 0) << key;
  }
  EXPECT_EQ(number(kLanguage), kEnglish);
  for (const char* const key :
       {"g_bs__bs_src", "g_country__country_rid", "g_misc__air_channel_id", "g_misc__cab_channel_id",
        "g_misc__ch_logos_status", "g_misc__channel_store", "g_misc__dmr_2nd_device", "g_misc__dtv_tuner_type",
        "g_misc__dvb_subtitle_enabled", "g_misc__dvbs_support", "g_misc__misc_ocl_channel_id",
        "g_misc__ocl_toggle_type", "g_misc__one_chlist", "g_misc__sat_channel_id", "g_video__shop_mode"}) {
    EXPECT_GE(number(key), 0) << key;
    EXPECT_EQ(write(key, 1), 0) << key;
    EXPECT_EQ(number(key), 1) << key;
  }
  EXPECT_NE(text("g_password__password"), "");
  EXPECT_NE(text("g_misc__tv_network_name"), "");
  EXPECT_GE(rows().size(), 140u);
}

TEST_F(TvConfig, EveryRowIsReadWrittenAndLimited) {
  testing::internal::CaptureStderr();
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.key);
    INT32 value = -1;
    INT32 limits = 77;
    if (row.kind == Row::kText) {
      EXPECT_EQ(text(row.key), row.text);
      EXPECT_LE(std::strlen(row.text), row.longest);
      EXPECT_LE(row.longest, 1000u);  // what an application's buffer holds
      const std::string longest(row.longest, 'x');
      EXPECT_EQ(row.item == 0 ? a_vextvapi_config_set_str_value(row.key, longest.c_str())
                              : setConfigValueString(row.item, longest.c_str()),
                0);
      EXPECT_EQ(text(row.key), longest);
      EXPECT_LT(a_vextvapi_config_set_str_value(row.key, (longest + 'x').c_str()), 0);
      EXPECT_EQ(text(row.key), longest);
      EXPECT_EQ(a_vextvapi_config_set_str_value(row.key, ""), 0);
      EXPECT_EQ(text(row.key), "");
      continue;
    }
    EXPECT_EQ(number(row.key), row.number);
    EXPECT_EQ(getConfigValueInt32(row.item, &value), row.item == 0 ? -1 : 0);
    EXPECT_EQ(value, row.item == 0 ? -1 : row.number);
    if (row.kind != Row::kNumber && row.kind != Row::kBool) {
      EXPECT_NE(a_vextvapi_config_get_minmaxvalue(-1, row.key, &limits), 0);
      continue;
    }
    EXPECT_LE(row.minimum, row.number);
    EXPECT_GE(row.maximum, row.number);
    for (const INT32 wanted : {row.minimum, row.maximum}) {
      EXPECT_EQ(row.item == 0 ? write(row.key, wanted) : setConfigValueInt32(row.item, wanted), 0);
      EXPECT_EQ(number(row.key), wanted);
      EXPECT_EQ(write(row.key, wanted), 0);
    }
    if (row.maximum < INT32_MAX) {
      EXPECT_LT(write(row.key, row.maximum + 1), 0);
      EXPECT_EQ(a_vextvapi_config_get_minmaxvalue(-1, row.key, &limits), 0);
      EXPECT_EQ(static_cast<INT16>(limits & 0xFFFF), row.minimum);
      EXPECT_EQ(limits >> 16, row.maximum);
    }
    EXPECT_LT(write(row.key, row.minimum - 1), 0);
    EXPECT_EQ(number(row.key), row.maximum);
  }
  testing::internal::GetCapturedStderr();
}

// ---- Numbers ----

TEST_F(TvConfig, NumbersByKey) {
  EXPECT_EQ(write(kBrightness, 63), 0);
  EXPECT_EQ(number(kBrightness), 63);
  EXPECT_EQ(a_vextvapi_config_set_value(-1, kBrightness, 64, 0), 0);
  EXPECT_EQ(number(kBrightness), 64);
  EXPECT_EQ(write(kChannel, INT32_MAX), 0);
  EXPECT_EQ(number(kChannel), INT32_MAX);
}

TEST_F(TvConfig, RefusesWhatIsOutsideAndSaysWhat) {
  expect_words(refusal([] { return write(kBalance, 51); }),
               {"a_vextvapi_config_set_value", kBalance, "-50", "50", "51"});
  expect_words(refusal([] { return write(kBalance, -51); }), {"-51"});
  expect_words(refusal([] { return write(kLogos, 2); }), {kLogos, "0 or 1", "2"});
  EXPECT_EQ(number(kBalance), 0);
  EXPECT_EQ(number(kLogos), 1);
}

TEST_F(TvConfig, LimitsAreTwoSignedHalves) {
  INT32 limits = 0;
  EXPECT_EQ(a_vextvapi_config_get_minmaxvalue(-1, kBalance, &limits), 0);
  EXPECT_EQ(limits, 0x0032FFCE);
  EXPECT_EQ(a_vextvapi_config_get_minmaxvalue(-1, kLogos, &limits), 0);
  EXPECT_EQ(limits, 0x00010000);
  for (const char* const key : {kLanguage, kName, kStore, kChannel}) {
    limits = 77;
    EXPECT_NE(a_vextvapi_config_get_minmaxvalue(-1, key, &limits), 0) << key;
    EXPECT_EQ(limits, 77) << key;
  }
  expect_words(refusal([&] { return a_vextvapi_config_get_minmaxvalue(-1, "g_no", &limits); }), {"g_no"});
}

TEST_F(TvConfig, CodesAreThreeLetters) {
  EXPECT_EQ(write(kLanguage, kGerman), 0);
  EXPECT_EQ(number(kLanguage), kGerman);
  EXPECT_EQ(write(kLanguage, 0x44455520), 0);  // the lowest byte has no meaning
  EXPECT_EQ(number(kLanguage), 0x44455520);
  for (const INT32 bad : {0, -1, 1, 0x656E0000, 0x65206700, 0x65406700, 0x655B6700, 0x7B656700})
    expect_words(refusal([&] { return write(kLanguage, bad); }), {kLanguage, "three letters", std::to_string(bad)});
  EXPECT_EQ(number(kLanguage), 0x44455520);
}

TEST_F(TvConfig, UnknownKeysAndInputs) {
  INT32 value = 5;
  UINT32 length = 9;
  char buffer[9] = "before";
  const std::string every_kind[] = {
      refusal([&] { return a_vextvapi_config_get_value(-1, "g_no", &value); }),
      refusal([&] { return write("g_no", 1); }),
      refusal([&] { return a_vextvapi_config_get_str_value("g_no", buffer, &length); }),
      refusal([&] { return a_vextvapi_config_set_str_value("g_no", "x"); }),
      refusal([&] { return a_vextvapi_config_get_minmaxvalue(-1, "g_no", &value); }),
      refusal([&] { return a_vextvapi_config_add_value_changed_callback("g_no"); }),
  };
  for (const std::string& said : every_kind) expect_words(said, {"there is no key \"g_no\""});
  for (const char* const key : {"", "g_", "g_audio__balanc", "g_audio__balance_", "G_AUDIO__BALANCE", "zzz"})
    refusal([&] { return a_vextvapi_config_get_value(-1, key, &value); });
  const std::string said = refusal([&] { return a_vextvapi_config_get_value(-1, "a\nb\x1b[2J", &value); });
  EXPECT_NE(said.find("\"a?b?[2J\""), std::string::npos) << said;
  expect_words(refusal([&] { return a_vextvapi_config_get_value(3, kBalance, &value); }), {"input 3"});
  expect_words(refusal([&] { return a_vextvapi_config_set_value(0, kBalance, 1, 3); }), {"input 0"});
  expect_words(refusal([&] { return a_vextvapi_config_get_minmaxvalue(-2, kBalance, &value); }), {"input -2"});
  EXPECT_EQ(value, 5);
  EXPECT_EQ(length, 9u);
  EXPECT_STREQ(buffer, "before");
}

TEST_F(TvConfig, NothingToWriteInto) {
  INT32 value = 0;
  char buffer[100] = "x";
  UINT32 length = sizeof buffer;
  refusal([&] { return a_vextvapi_config_get_value(-1, nullptr, &value); });
  refusal([&] { return a_vextvapi_config_get_value(-1, kBalance, nullptr); });
  refusal([&] { return a_vextvapi_config_get_str_value(kName, nullptr, &length); });
  refusal([&] { return a_vextvapi_config_get_str_value(kName, buffer, nullptr); });
  refusal([&] { return a_vextvapi_config_set_str_value(kName, nullptr); });
  refusal([&] { return a_vextvapi_config_get_minmaxvalue(-1, kBalance, nullptr); });
  refusal([&] { return a_vextvapi_config_add_value_changed_callback(nullptr); });
  refusal([&] { return getConfigValueBool(item_of(kLogos), nullptr); });
  refusal([&] { return getConfigValueInt32(item_of(kBalance), nullptr); });
  refusal([&] { return getConfigValueString(item_of(kName), nullptr, buffer); });
  refusal([&] { return getConfigValueString(item_of(kName), &length, nullptr); });
  refusal([&] { return getConfigValueString(kLookUp, nullptr, buffer); });
  refusal([&] { return getConfigValueString(kLookUp, &length, nullptr); });
  refusal([&] { return setConfigValueString(item_of(kName), nullptr); });
  EXPECT_STREQ(buffer, "x");
  EXPECT_NE(text(kName), "");
}

// ---- Texts ----

TEST_F(TvConfig, Texts) {
  for (const char* const wanted : {"Kitchen", "", "Küche \"1\" \\ \xF0\x9F\x93\xBA", "line\nline\t"}) {
    EXPECT_EQ(a_vextvapi_config_set_str_value(kName, wanted), 0) << wanted;
    EXPECT_EQ(text(kName), wanted);
  }
}

TEST_F(TvConfig, TextsThatAreRefused) {
  const std::string before = text(kName);
  expect_words(refusal([] { return a_vextvapi_config_set_str_value(kName, std::string(65, 'x').c_str()); }),
               {"a_vextvapi_config_set_str_value", kName, "64", "65"});
  for (const char* const bad : {"\xFF", "a\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80"})
    expect_words(refusal([&] { return a_vextvapi_config_set_str_value(kName, bad); }), {kName, "UTF-8"});
  expect_words(refusal([] { return a_vextvapi_config_set_str_value(kBalance, "1"); }), {kBalance, "no text"});
  expect_words(refusal([] { return write(kName, 1); }), {kName, "no number"});
  EXPECT_EQ(text(kName), before);
}

TEST_F(TvConfig, RoomForATextIncludesItsTerminator) {
  ASSERT_EQ(a_vextvapi_config_set_str_value(kName, "12345"), 0);
  for (const UINT32 room : {0u, 1u, 5u}) {
    char buffer[8] = "before";
    UINT32 length = room;
    expect_words(refusal([&] { return a_vextvapi_config_get_str_value(kName, buffer, &length); }),
                 {kName, "5", std::to_string(room)});
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(length, room);
    refusal([&] { return getConfigValueString(item_of(kName), &length, buffer); });
    EXPECT_STREQ(buffer, "before");
  }
  char buffer[8] = "before.";
  UINT32 length = 6;
  EXPECT_EQ(a_vextvapi_config_get_str_value(kName, buffer, &length), 0);
  EXPECT_EQ(length, 5u);
  EXPECT_EQ(std::memcmp(buffer, "12345\0.", 8), 0);
  length = 6;
  EXPECT_EQ(getConfigValueString(item_of(kName), &length, buffer), 0);
  EXPECT_EQ(length, 5u);
  refusal([&] { return a_vextvapi_config_get_str_value(kBalance, buffer, &length); });
}

TEST_F(TvConfig, TextReadAsANumber) {
  const std::pair<const char*, INT32> cases[] = {{"42", 42}, {"-7 up", -7}, {"", 0}, {"x1", 0}, {"99999999999", 0}};
  for (const auto& [written, expected] : cases) {
    EXPECT_EQ(a_vextvapi_config_set_str_value(kName, written), 0);
    EXPECT_EQ(number(kName), expected) << written;
  }
}

// ---- Items ----

TEST_F(TvConfig, ItemsAreTheSameValuesAsKeys) {
  UINT8 flag = 9;
  EXPECT_EQ(getConfigValueBool(item_of(kLogos), &flag), 0);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(setConfigValueBool(item_of(kLogos), 0), 0);
  EXPECT_EQ(number(kLogos), 0);
  EXPECT_EQ(getConfigValueBool(item_of(kLogos), &flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(setConfigValueInt32(item_of(kBalance), -20), 0);
  EXPECT_EQ(number(kBalance), -20);
  INT32 value = 0;
  EXPECT_EQ(write(kBalance, 21), 0);
  EXPECT_EQ(getConfigValueInt32(item_of(kBalance), &value), 0);
  EXPECT_EQ(value, 21);
  EXPECT_EQ(setConfigValueString(item_of(kName), "Attic"), 0);
  EXPECT_EQ(text(kName), "Attic");
}

TEST_F(TvConfig, ItemsOfAnotherKindAndUnknownOnes) {
  UINT8 flag = 9;
  INT32 value = 8;
  char buffer[20] = "before";
  UINT32 length = sizeof buffer;
  const UINT32 bools = item_of(kLogos);
  const UINT32 numbers = item_of(kBalance);
  const UINT32 texts = item_of(kName);
  expect_words(refusal([&] { return getConfigValueBool(numbers, &flag); }), {kBalance, "kind number, not bool"});
  expect_words(refusal([&] { return setConfigValueBool(numbers, 1); }), {kBalance});
  expect_words(refusal([&] { return setConfigValueBool(bools, 2); }), {kLogos, "2"});
  expect_words(refusal([&] { return getConfigValueString(numbers, &length, buffer); }), {kBalance});
  expect_words(refusal([&] { return setConfigValueString(bools, "1"); }), {kLogos});
  expect_words(refusal([&] { return setConfigValueInt32(texts, 1); }), {kName});
  expect_words(refusal([&] { return setConfigValue(texts); }), {kName});
  for (const UINT32 item : {kUnknownItem, 0u, 0xFFFFFFFFu}) {
    char name[sizeof "0x00000000"];
    std::snprintf(name, sizeof name, "0x%08X", item);
    expect_words(refusal([&] { return getConfigValueBool(item, &flag); }), {name});
    expect_words(refusal([&] { return getConfigValueInt32(item, &value); }), {name});
    expect_words(refusal([&] { return getConfigValueString(item, &length, buffer); }), {name});
    expect_words(refusal([&] { return setConfigValue(item); }), {name});
    expect_words(refusal([&] { return setConfigValueBool(item, 1); }), {name});
    expect_words(refusal([&] { return setConfigValueInt32(item, 1); }), {name});
    expect_words(refusal([&] { return setConfigValueString(item, "x"); }), {name});
  }
  refusal([] { return setConfigValueString(kLookUp, "x"); });
  EXPECT_EQ(flag, 9);
  EXPECT_EQ(value, 8);
  EXPECT_STREQ(buffer, "before");
}

// As the plugin asks: the name, then bytes of 1 up to the last byte, a NUL.
std::string look_up(const char* name, INT32 expected = 0) {
  char scratch[32];
  std::memset(scratch, 1, sizeof scratch - 1);
  scratch[31] = '\0';
  std::memcpy(scratch, name, std::strlen(name));
  UINT32 length = 31;
  const INT32 result = getConfigValueString(kLookUp, &length, scratch);
  EXPECT_EQ(result < 0, expected < 0) << name;
  if (result == 0) {
    EXPECT_EQ(length, std::strlen(scratch));
  }
  return scratch;
}

TEST_F(TvConfig, LookUpGivesAnyKeyAsText) {
  EXPECT_EQ(look_up(kLanguage), "eng");
  EXPECT_EQ(look_up(kName), text(kName));
  write(kBalance, -20);
  EXPECT_EQ(look_up(kBalance), "-20");
  EXPECT_EQ(look_up(kStore), "0");
  EXPECT_EQ(a_vextvapi_config_set_str_value(kName, std::string(30, 'x').c_str()), 0);
  EXPECT_EQ(look_up(kName), std::string(30, 'x'));
  char terminated[32] = "g_gui_lang__gui_language";
  UINT32 length = sizeof terminated;
  EXPECT_EQ(getConfigValueString(kLookUp, &length, terminated), 0);
  EXPECT_STREQ(terminated, "eng");
}

TEST_F(TvConfig, LookUpThatFailsLeavesTheBuffer) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(look_up("g_no", -1), "g_no" + std::string(27, '\1'));
  EXPECT_EQ(look_up("", -1), std::string(31, '\1'));
  EXPECT_EQ(look_up("g_misc__misc_ocl_channel_id123", -1), "g_misc__misc_ocl_channel_id123\1");
  EXPECT_EQ(a_vextvapi_config_set_str_value(kName, std::string(31, 'x').c_str()), 0);
  EXPECT_EQ(look_up(kName, -1), kName + std::string(31 - std::strlen(kName), '\1'));
  char none[1] = {'g'};
  UINT32 length = 0;
  EXPECT_LT(getConfigValueString(kLookUp, &length, none), 0);
  testing::internal::GetCapturedStderr();
}

TEST_F(TvConfig, ActionsCountAndReset) {
  watch({kStore, kBrightness, kBalance, "g_video__contrast", "g_action__reset_picture"});
  EXPECT_EQ(setConfigValue(item_of(kStore)), 0);
  EXPECT_EQ(write(kStore, 0), 0);
  EXPECT_EQ(setConfigValueInt32(item_of(kStore), 5), 0);
  EXPECT_EQ(number(kStore), 3);
  write(kBrightness, 90);
  write(kBalance, 30);
  EXPECT_EQ(setConfigValue(item_of("g_action__reset_picture")), 0);
  EXPECT_EQ(number(kBrightness), 50);
  EXPECT_EQ(number(kBalance), 30);
  EXPECT_EQ(number("g_action__reset_picture"), 1);
  EXPECT_EQ(setConfigValue(item_of("g_action__reset_all")), 0);
  EXPECT_EQ(number(kBalance), 0);
  EXPECT_EQ(number(kStore), 0);
  EXPECT_EQ(number("g_action__reset_all"), 1);
  watch({"g_action__reset_all"});
  EXPECT_EQ(setConfigValue(item_of("g_action__reset_all")), 0);
  EXPECT_EQ(number("g_action__reset_all"), 2);
  EXPECT_EQ(told(), (Keys{kStore, kStore, kStore, kBrightness, kBalance, kBrightness, "g_action__reset_picture",
                          "g_action__reset_picture", kBalance, kStore, "g_action__reset_all"}));
}

// ---- Callbacks ----

TEST_F(TvConfig, TellsWhatWasAskedForOnceAndInOrder) {
  watch({kLanguage, kName});
  watch({kLanguage});
  write(kLanguage, kGerman);
  write(kLanguage, kGerman);
  write(kBrightness, 11);  // nobody asked
  a_vextvapi_config_set_str_value(kName, "Attic");
  a_vextvapi_config_set_str_value(kName, "Attic");
  refusal([] { return write(kLanguage, 1); });
  write(kLanguage, kEnglish);
  EXPECT_EQ(told(), (Keys{kLanguage, kName, kLanguage}));
  for (const Heard& each : heard) {
    EXPECT_EQ(each.id, -1);
    EXPECT_EQ(each.tag, kTag);
    EXPECT_TRUE(each.others_null);
    EXPECT_NE(each.thread, std::this_thread::get_id());
    EXPECT_EQ(each.thread, heard[0].thread);
  }
}

TEST_F(TvConfig, NobodyAskedNobodyIsTold) {
  write(kLanguage, kGerman);
  write(kBrightness, 11);
  EXPECT_EQ(told(), Keys{});
}

TEST_F(TvConfig, AskedForWithoutACallback) {
  EXPECT_EQ(a_vextvapi_config_reg_callback(nullptr, nullptr), 0);
  watch({kLanguage});
  EXPECT_EQ(write(kLanguage, kGerman), 0);
  EXPECT_EQ(told(), Keys{});
}

TEST_F(TvConfig, KeyIsCutToFiftyCharacters) {
  const char* const key = "g_nw__wake_up_by_remote_application_of_another_device";
  ASSERT_GT(std::strlen(key), 50u);
  watch({key});
  EXPECT_EQ(write(key, 1), 0);
  EXPECT_EQ(told(), Keys{std::string(key).substr(0, 50)});
}

TEST_F(TvConfig, CallbackSeesTheNewValueAndMayWrite) {
  a_vextvapi_config_reg_callback(
      [](INT32 id, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
        const INT32 value = number(kBrightness);
        if (value < 65) {
          EXPECT_EQ(write(kBrightness, value + 1), 0);
        }
        return listen(id, tag, arg1, arg2, arg3, arg4);
      },
      kTag);
  watch({kBrightness});
  write(kBrightness, 61);
  std::unique_lock guard(lock);
  EXPECT_TRUE(arrived.wait_for(guard, std::chrono::seconds(5), [] { return heard.size() == 5; })) << heard.size();
  guard.unlock();
  EXPECT_EQ(number(kBrightness), 65);
  EXPECT_EQ(told().size(), 5u);
}

TEST_F(TvConfig, SlowCallbackHoldsNoCallUp) {
  static std::mutex gate;
  std::unique_lock closed(gate);
  a_vextvapi_config_reg_callback(
      [](INT32 id, void* tag, void* arg1, void* arg2, void* arg3, void* arg4) {
        const std::lock_guard wait(gate);
        return listen(id, tag, arg1, arg2, arg3, arg4);
      },
      kTag);
  watch({kBrightness});
  for (INT32 value = 1; value <= 20; ++value) EXPECT_EQ(write(kBrightness, value), 0);
  EXPECT_EQ(number(kBrightness), 20);
  EXPECT_TRUE(heard.empty());
  closed.unlock();
  EXPECT_EQ(told().size(), 20u);
}

TEST_F(TvConfig, ManyThreads) {
  static std::vector<INT32> seen;  // touched by the event thread, read after it has ended
  seen.clear();
  a_vextvapi_config_reg_callback(
      [](INT32, void*, void*, void*, void*, void*) {
        seen.push_back(number(kBalance));
        return 0;
      },
      kTag);
  watch({kBalance});
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 25; ++i) {
        write(kBalance, t * 10 + i % 10);
        a_vextvapi_config_set_str_value(kName, std::string(static_cast<std::size_t>(10 + t), 'x').c_str());
        const std::string name = text(kName);
        EXPECT_EQ(name, std::string(name.size(), 'x'));
        EXPECT_GE(name.size(), 10u);
        number(kBalance);
        if (i % 8 == 0) setConfigValue(item_of(kStore));
        if (i % 8 == 1) tv_control(R"(["config","balance"])");
        if (i % 8 == 2) a_vextvapi_config_add_value_changed_callback(kBalance);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  dtv_tv_stop();
  EXPECT_EQ(number(kStore), 16);  // none was lost
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.back(), number(kBalance));
}

// ---- What is kept ----

TEST_F(TvConfig, SurvivesSwitchingOff) {
  write(kLanguage, kGerman);
  write(kBalance, -50);
  a_vextvapi_config_set_str_value(kName, "Küche");
  a_vextvapi_config_set_str_value("g_password__password", "");
  setConfigValue(item_of(kStore));
  dtv_tv_stop();
  start();
  EXPECT_EQ(number(kLanguage), kGerman);
  EXPECT_EQ(number(kBalance), -50);
  EXPECT_EQ(text(kName), "Küche");
  EXPECT_EQ(text("g_password__password"), "");
  EXPECT_EQ(number(kStore), 1);
  EXPECT_EQ(number(kBrightness), 50);
  EXPECT_EQ(told(), Keys{});
}

TEST_F(TvConfig, ListenersAreForgottenWhenTheSetIsSwitchedOn) {
  watch({kLanguage});
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(a_vextvapi_config_reg_callback(listen, kTag), 0);
  write(kLanguage, kGerman);  // the key is forgotten
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  watch({kLanguage});
  write(kLanguage, kEnglish);  // the callback is forgotten
  EXPECT_EQ(a_vextvapi_config_reg_callback(listen, kTag), 0);
  write(kLanguage, kGerman);
  EXPECT_EQ(told(), Keys{kLanguage});
}

TEST_F(TvConfig, SurvivesAKilledProcess) {
  dtv_tv_stop();
  const pid_t child = fork();
  if (child == 0) {
    const bool done = dtv_tv_start(folder.path.c_str(), nullptr) == 0 && write(kLanguage, kGerman) == 0 &&
                      a_vextvapi_config_set_str_value(kName, "Attic") == 0;
    if (done) kill(getpid(), SIGKILL);
    _exit(1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  start();
  EXPECT_EQ(number(kLanguage), kGerman);
  EXPECT_EQ(text(kName), "Attic");
}

TEST_F(TvConfig, WhatCannotBeKeptFallsBackAndIsSaid) {
  struct Damage {
    const char* key;
    const char* value;
  };
  const Damage damages[] = {
      {kBalance, "51"},
      {kBrightness, "'bright'"},
      {kLogos, "2"},
      {kLanguage, "1696622336"},  // 0x65206700, no letter in the middle
      {"g_country__country", "0"},
      {kChannel, "4294967296"},
      {kName, "17"},
      {"g_nw__ssid", "zeroblob(4)"},
      {"g_nw__proxy", "CAST(x'FF41' AS TEXT)"},
      {"g_ci__pin", "'1234567890123456'"},
      {"g_nw__dns_server", "CAST(x'410042' AS TEXT)"},
      {"g_password__password", "NULL"},
  };
  dtv_tv_stop();
  for (const Damage& each : damages)
    sql("INSERT OR REPLACE INTO settings VALUES ('" + std::string(each.key) + "'," + each.value + ")");
  sql("INSERT OR REPLACE INTO settings VALUES ('g_video__contrast', 33), ('g_rec__device', 'disk')");
  testing::internal::CaptureStderr();
  start();
  const std::string said = testing::internal::GetCapturedStderr();
  for (const Damage& each : damages) {
    expect_words(said, {std::string("the kept ") + each.key + " "});
    for (const Row& row : rows()) {
      if (std::strcmp(row.key, each.key) != 0) continue;
      if (row.kind == Row::kText) {
        EXPECT_EQ(text(row.key), row.text) << row.key;
      } else {
        EXPECT_EQ(number(row.key), row.number) << row.key;
      }
    }
  }
  expect_words(said, {"g_gui_lang__gui_language is not three letters; it is eng again"});
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), static_cast<std::ptrdiff_t>(std::size(damages))) << said;
  EXPECT_EQ(number("g_video__contrast"), 33);
  EXPECT_EQ(text("g_rec__device"), "disk");
  EXPECT_EQ(write(kBalance, 12), 0);
  dtv_tv_stop();
  start();
  EXPECT_EQ(number(kBalance), 12);
}

TEST_F(TvConfig, OffMeansRefused) {
  watch({kBrightness});
  dtv_tv_stop();
  expect_words(refusal([] { return write(kBrightness, 51); }), {"off"});
  expect_words(refusal([] { return a_vextvapi_config_set_str_value(kName, "x"); }), {"off"});
  expect_words(refusal([] { return setConfigValue(item_of(kStore)); }), {"off"});
  EXPECT_EQ(number(kBrightness), 50);
  EXPECT_NE(text(kName), "x");
  EXPECT_EQ(tv_control(R"(["config"])"), R"({"error":"the set is off"})");
  EXPECT_EQ(told(), Keys{});
}

// ---- The control ----

TEST_F(TvConfig, ResetTellsWhatChanges) {
  watch({kLanguage, kName, kBalance, kBrightness});
  write(kLanguage, kGerman);
  write(kBalance, 7);
  a_vextvapi_config_set_str_value(kName, "Attic");
  setConfigValue(item_of(kStore));
  EXPECT_EQ(tv_control(R"(["state"])"),
            R"({"volume":20,"mute":false,"config":{"g_audio__balance":7,"g_gui_lang__gui_language":"deu",)"
            R"("g_misc__channel_store":1,"g_misc__tv_network_name":"Attic"}})");
  EXPECT_EQ(tv_control(R"(["reset"])"), R"({"volume":20,"mute":false})");
  EXPECT_EQ(number(kLanguage), kEnglish);
  EXPECT_EQ(number(kStore), 0);
  EXPECT_EQ(text(kName), "Living room");
  EXPECT_EQ(told(), (Keys{kLanguage, kBalance, kName, kBalance, kLanguage, kName}));
  start();
  EXPECT_EQ(number(kLanguage), kEnglish);
}

TEST_F(TvConfig, CommandLists) {
  EXPECT_EQ(tv_control(R"(["config","GUI_LANG"])"), R"({"g_gui_lang__gui_language":"eng"})");
  EXPECT_EQ(tv_control(R"(["config","logos of"])"), R"({"g_misc__ch_logos_status":true})");
  const std::string all = tv_control(R"(["config"])");
  for (const Row& row : rows()) EXPECT_NE(all.find('"' + std::string(row.key) + "\":"), std::string::npos) << row.key;
  expect_words(all, {R"("g_audio__balance":0)", R"("g_misc__tv_network_name":"Living room")"});
}

TEST_F(TvConfig, CommandShows) {
  const auto detail = [](const char* key) { return tv_control(R"(["config",")" + std::string(key) + "\"]"); };
  char item[sizeof "0x00000000"];
  std::snprintf(item, sizeof item, "0x%08X", item_of(kBalance));
  write(kBalance, 4);
  EXPECT_EQ(detail(kBalance), R"({"key":"g_audio__balance","item":")" + std::string(item) +
                                  R"(","kind":"number","value":4,"default":0,"minimum":-50,"maximum":50,)"
                                  R"("help":"Balance; negative is left"})");
  EXPECT_EQ(detail(item), detail(kBalance));
  expect_words(detail(kLanguage), {R"("kind":"code","value":"eng","default":"eng","help")"});
  expect_words(detail(kName), {R"("kind":"text","value":"Living room","default":"Living room","longest":64,"help")"});
  expect_words(detail(kLogos), {R"("kind":"bool","value":true,"default":true,"help")"});
  expect_words(detail(kStore), {R"("kind":"action","value":0,"default":0,"help")"});
}

TEST_F(TvConfig, CommandChangesAsTheMenuDoes) {
  watch({kLanguage, kBalance, kLogos, kName, kStore});
  const auto set = [](const std::string& key, const std::string& value) {
    return tv_control(R"(["config",")" + key + R"(",")" + value + "\"]");
  };
  expect_words(set(kLanguage, "DEU"), {R"("value":"deu")"});
  EXPECT_EQ(number(kLanguage), kGerman);
  expect_words(set(kBalance, "-12"), {R"("value":-12)"});
  EXPECT_EQ(number(kBalance), -12);
  for (const char* const off : {"off", "false", "0"}) {
    set(kLogos, "on");
    EXPECT_EQ(number(kLogos), 1);
    expect_words(set(kLogos, off), {R"("value":false)"});
    EXPECT_EQ(number(kLogos), 0);
  }
  expect_words(set(kName, "Küche 2"), {R"("value":"Küche 2")"});
  expect_words(set(kName, ""), {R"("value":"")"});
  EXPECT_EQ(text(kName), "");
  expect_words(set(kStore, "trigger"), {R"("value":1)"});
  EXPECT_EQ(told(), (Keys{kLanguage, kBalance, kLogos, kLogos, kLogos, kLogos, kLogos, kName, kName, kStore}));
}

TEST_F(TvConfig, BadCommandsSayWhatIsAllowed) {
  struct Case {
    std::string command;
    std::vector<std::string> says;
  };
  const Case cases[] = {
      {R"(["config","nothing has this"])", {"nothing has this"}},
      {R"(["config","balance","1"])", {"no key", "balance"}},
      {R"(["config","0x07FF0001"])", {"0x07FF0001"}},
      {R"(["config","g_audio__balance","51"])", {"g_audio__balance", "-50", "50", "51"}},
      {R"(["config","g_audio__balance","left"])", {"left"}},
      {R"(["config","g_audio__balance","5x"])", {"5x"}},
      {R"(["config","g_audio__balance",""])", {"-50"}},
      {R"(["config","g_audio__balance","99999999999"])", {"99999999999"}},
      {R"(["config","g_misc__ch_logos_status","maybe"])", {"maybe", "on or off"}},
      {R"(["config","g_gui_lang__gui_language","de"])", {"three letters", "de"}},
      {R"(["config","g_gui_lang__gui_language","deut"])", {"deut"}},
      {R"(["config","g_gui_lang__gui_language","d3u"])", {"d3u"}},
      {R"(["config","g_misc__tv_network_name",")" + std::string(65, 'x') + "\"]", {"64"}},
      {R"(["config","g_misc__tv_network_name","a\u0000b"])", {"64"}},
      {R"(["config","g_misc__channel_store","5"])", {"trigger"}},
      {R"(["config","a","b","c"])", {"too much", "[WORD|KEY [VALUE]]"}},
  };
  for (const Case& each : cases) {
    const std::string answer = tv_control(each.command);
    EXPECT_EQ(answer.rfind(R"({"error":")", 0), 0u) << each.command << " gave " << answer;
    expect_words(answer, each.says);
  }
  EXPECT_EQ(tv_control(R"(["state"])"), R"({"volume":20,"mute":false})");
}

}  // namespace
