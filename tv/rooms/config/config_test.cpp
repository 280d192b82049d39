// The configuration store: reading and writing values.
#include "config_test.h"

namespace {

// ---- The catalogue ----

TEST_F(TvConfig, HasTheKeysThatApplicationsUse) {
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

TEST_F(TvConfig, EveryValueCanBeReadAndWrittenWithinItsLimits) {
  testing::internal::CaptureStderr();
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.key);
    INT32 value = -1;
    INT32 limits = 77;
    if (row.kind == Row::kText) {
      EXPECT_EQ(text(row.key), row.text);
      EXPECT_LE(std::strlen(row.text), row.longest);
      EXPECT_LE(row.longest, 1000u);  // the size of an application's buffer
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
    if (row.minimum > INT32_MIN) {
      EXPECT_LT(write(row.key, row.minimum - 1), 0);
    }
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

TEST_F(TvConfig, RefusesNumbersOutsideTheLimits) {
  expect_words(refusal([] { return write(kBalance, 51); }),
               {"a_vextvapi_config_set_value", kBalance, "-50", "50", "51"});
  expect_words(refusal([] { return write(kBalance, -51); }), {"-51"});
  expect_words(refusal([] { return write(kLogos, 2); }), {kLogos, "0 or 1", "2"});
  EXPECT_EQ(number(kBalance), 0);
  EXPECT_EQ(number(kLogos), 1);
}

TEST_F(TvConfig, LimitsAreTwoSigned16BitNumbers) {
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

TEST_F(TvConfig, RefusesUnknownKeysAndInputs) {
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
  for (const std::string& log : every_kind) expect_words(log, {"there is no key \"g_no\""});
  for (const char* const key : {"", "g_", "g_audio__balanc", "g_audio__balance_", "G_AUDIO__BALANCE", "zzz"})
    refusal([&] { return a_vextvapi_config_get_value(-1, key, &value); });
  const std::string log = refusal([&] { return a_vextvapi_config_get_value(-1, "a\nb\x1b[2J", &value); });
  EXPECT_NE(log.find("\"a?b?[2J\""), std::string::npos) << log;
  expect_words(refusal([&] { return a_vextvapi_config_get_value(3, kBalance, &value); }), {"input 3"});
  expect_words(refusal([&] { return a_vextvapi_config_set_value(0, kBalance, 1, 3); }), {"input 0"});
  expect_words(refusal([&] { return a_vextvapi_config_get_minmaxvalue(-2, kBalance, &value); }), {"input -2"});
  EXPECT_EQ(value, 5);
  EXPECT_EQ(length, 9u);
  EXPECT_STREQ(buffer, "before");
}

TEST_F(TvConfig, RefusesNullPointers) {
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

TEST_F(TvConfig, RefusesInvalidTexts) {
  const std::string before = text(kName);
  expect_words(refusal([] { return a_vextvapi_config_set_str_value(kName, std::string(65, 'x').c_str()); }),
               {"a_vextvapi_config_set_str_value", kName, "64", "65"});
  for (const char* const bad : {"\xFF", "a\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80"})
    expect_words(refusal([&] { return a_vextvapi_config_set_str_value(kName, bad); }), {kName, "UTF-8"});
  expect_words(refusal([] { return a_vextvapi_config_set_str_value(kBalance, "1"); }), {kBalance, "not a text"});
  expect_words(refusal([] { return write(kName, 1); }), {kName, "not a number"});
  EXPECT_EQ(text(kName), before);
}

TEST_F(TvConfig, BufferForATextIncludesItsTerminator) {
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

TEST_F(TvConfig, RefusesItemsOfAnotherKindAndUnknownItems) {
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

// Fills the buffer as the plugin does: the name, then bytes of 1, and a NUL as the last byte.
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

TEST_F(TvConfig, LookUpReturnsAnyValueAsText) {
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

TEST_F(TvConfig, FailedLookUpDoesNotChangeTheBuffer) {
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
  EXPECT_EQ(notified_keys(),
            (Keys{kStore, kStore, kStore, kBrightness, kBalance, kBrightness, "g_action__reset_picture",
                  "g_action__reset_picture", kBalance, kStore, "g_action__reset_all"}));
}

}  // namespace
