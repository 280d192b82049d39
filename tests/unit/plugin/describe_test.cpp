// The form of the description, and its content about URIs, values, kinds and results.
#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "description.h"
#include "tv_ctrl_main/registry.h"

namespace {

using Keys = std::vector<std::string>;

class Describe : public DescribedTest {
 protected:
  // The values that a URI names for its "VALUE", each once.
  std::vector<std::string> values_of(const std::string& uri) const {
    std::vector<std::string> values;
    for (const cJSON* const row : uris_)
      if (text_of(row, "uri") == uri)
        for (const cJSON* const value : elements_of(member(row, "values"))) values.push_back(text_of(value, "value"));
    EXPECT_EQ(std::set<std::string>(values.begin(), values.end()).size(), values.size()) << uri;
    return values;
  }

  // Calls it for every field of every use, members of objects included.
  template <typename Action>
  void for_each_field(const Action& action) const {
    for (const cJSON* const type : types_)
      for (const char* const use : {"query", "set", "response", "notify"}) {
        const cJSON* const described = member(type, use);
        walk(cJSON_IsArray(described) ? described : member(described, "fields"), type->string, action);
      }
  }

 private:
  template <typename Action>
  static void walk(const cJSON* fields, const std::string& where, const Action& action) {
    for (const cJSON* const field : elements_of(fields)) {
      const std::string name = where + "." + text_of(field, "key");
      action(field, name);
      walk(member(field, "fields"), name, action);
    }
  }
};

TEST_F(Describe, HasFourParts) { EXPECT_EQ(keys_of(root_.get()), (Keys{"uris", "types", "kinds", "results"})); }

// The members of an object in their order, of which those in brackets may be missing.
void expect_members(const cJSON* object, const Keys& members, const std::string& where) {
  auto next = members.begin();
  for (const std::string& key : keys_of(object)) {
    while (next != members.end() && *next != key && *next == "[" + next->substr(1, next->size() - 2) + "]" &&
           *next != "[" + key + "]")
      ++next;
    ASSERT_TRUE(next != members.end() && (*next == key || *next == "[" + key + "]")) << where << " has " << key;
    ++next;
  }
  for (; next != members.end(); ++next) EXPECT_EQ(next->front(), '[') << where << " lacks " << *next;
}

TEST_F(Describe, EveryRowOfTheRegistry) {
  ASSERT_EQ(uris_.size(), tvc_registry().size());
  for (std::size_t i = 0; i < uris_.size(); ++i) {
    const TV_CTRL_URI_ID_MAP_T& row = tvc_registry()[i];
    expect_members(uris_[i],
                   {"uri", "id", "group", "record", "type", "get", "set", "notify", "[without_effect]", "[get_needs]",
                    "[set_needs]", "[help]", "[unit]", "[limit]", "[values]", "[minimum]", "[maximum]"},
                   row.s_uri);
    EXPECT_EQ(text_of(uris_[i], "uri"), row.s_uri);
    EXPECT_EQ(number_of(uris_[i], "id"), row.ui2_id);
    EXPECT_EQ(text_of(uris_[i], "group"), tvc_group_name(row.ui2_id >> 8));
    EXPECT_EQ(number_of(uris_[i], "record"), row.ui2_id & 0xFF);
  }
}

// The type is the one by which a request of the URI is decoded.
TEST_F(Describe, TypesAreThoseOfTheLookUp) {
  for (const cJSON* const row : uris_) {
    const auto id = static_cast<UINT16>(number_of(row, "id"));
    const std::string name = text_of(row, "type");
    ASSERT_TRUE(name.starts_with("TYPE_")) << name;
    const std::map<std::string, int> some = {{"TYPE_VALUE", 1},  {"TYPE_ACTION", 4},
                                             {"TYPE_CONFIG", 6}, {"TYPE_CHANNEL_INFO", 11},
                                             {"TYPE_TIME", 24},  {"TYPE_VOL_CTRL_NOTIFY", 55}};
    if (some.contains(name)) EXPECT_EQ(tv_ctrl_get_type_by_id(id), some.at(name)) << name;
  }
}

TEST_F(Describe, NamesTheApplications) {
  const Keys names = values_of("/tv/menu/misc/start_native_app");
  ASSERT_EQ(names.size(), 17u);
  EXPECT_EQ(names.front(), "GUIDE");
}

TEST_F(Describe, NamesTheKeys) {
  const Keys names = values_of("/tv/key/irrc");
  ASSERT_EQ(names.size(), 58u);
  EXPECT_EQ(names.front(), "POWER");
  EXPECT_EQ(names[31], "VOL+");
  EXPECT_EQ(names.back(), "BLUE");
}

// Of the codes of languages and of the country, three letters count.
TEST_F(Describe, CodesHaveThreeLetters) {
  std::set<std::string> limited;
  for (const cJSON* const row : uris_) {
    const cJSON* const limit = member(row, "limit");
    if (!limit) continue;
    EXPECT_EQ(limit->valueint, 3) << text_of(row, "uri");
    limited.insert(text_of(row, "uri"));
  }
  const std::string folder = "/tv/menu/common_setting/";
  EXPECT_EQ(limited, (std::set{folder + "gui_language", folder + "country", folder + "subtitle_lang",
                               folder + "subtitle_2nd_lang"}));
}

// A value is a text, or a number with its meaning.
TEST_F(Describe, NamedValuesAreTextsOrNumbersWithAMeaning) {
  int numbers = 0, texts = 0;
  const auto expect_values = [&](const cJSON* values, const std::string& where) {
    std::set<std::string> seen;
    for (const cJSON* const row : elements_of(values)) {
      const cJSON* const value = member(row, "value");
      EXPECT_TRUE(seen.insert(print_json(value)).second) << where << " names " << print_json(value) << " twice";
      const bool number = cJSON_IsNumber(value);
      ++(number ? numbers : texts);
      EXPECT_EQ(keys_of(row), number ? (Keys{"value", "help"}) : (Keys{"value"})) << where;
      EXPECT_TRUE(number || (cJSON_IsString(value) && *value->valuestring)) << where;
      if (number) EXPECT_NE(text_of(row, "help"), "") << where;
    }
    EXPECT_TRUE(!values || !seen.empty()) << where;
  };
  for (const cJSON* const row : uris_) expect_values(member(row, "values"), text_of(row, "uri"));
  for_each_field([&](const cJSON* field, const std::string& where) {
    const cJSON* const values = member(field, "values");
    expect_values(values, where);
    for (const cJSON* const row : elements_of(values))
      EXPECT_EQ(cJSON_IsNumber(member(row, "value")) != 0,
                text_of(kind_row(text_of(field, "kind")), "json") == "number")
          << where;
  });
  EXPECT_GT(numbers, 0);
  EXPECT_GT(texts, 0);
}

// The platform's functions receive the master volume as 16 bits with a sign, and the mode of the set as 8 bits.
TEST_F(Describe, NarrowNumbersHaveARange) {
  const auto range_of = [](const cJSON* row) { return text_of(row, "minimum") + ".." + text_of(row, "maximum"); };
  std::map<std::string, std::string> ranges;
  for (const cJSON* const row : uris_) {
    EXPECT_EQ(member(row, "minimum") != nullptr, member(row, "maximum") != nullptr) << text_of(row, "uri");
    EXPECT_FALSE(member(row, "minimum") && member(row, "values")) << text_of(row, "uri");
    if (member(row, "minimum")) ranges.emplace(text_of(row, "uri"), range_of(row));
  }
  EXPECT_EQ(ranges, (std::map<std::string, std::string>{{"/tv/cast/volume/volume", "-32768..32767"},
                                                        {"/tv/multiview/set_tv_mode", "0..255"},
                                                        {"/tv/multiview/set_change_source", "0..255"}}));
  std::map<std::string, std::string> of_fields;
  for_each_field([&](const cJSON* field, const std::string& where) {
    if (!member(field, "minimum")) return;
    EXPECT_EQ(text_of(kind_row(text_of(field, "kind")), "json"), "number") << where;
    EXPECT_EQ(member(field, "values"), nullptr) << where;
    of_fields.emplace(text_of(field, "key"), range_of(field));
  });
  EXPECT_EQ(of_fields["FAV_IDX"], "0..255");
  EXPECT_EQ(of_fields["DEVICE_TYPE"], "0..255");
  EXPECT_EQ(of_fields["zoom"], "0..65535");
  EXPECT_EQ(of_fields["setsubfontsizevalue"], "0..255");
}

// What a request needs are members that it can have, and a URI that cannot be read or set needs nothing.
TEST_F(Describe, NeedsAreMembersOfTheRequest) {
  std::map<std::string, std::string> needs;
  for (const cJSON* const row : uris_) {
    const std::string uri = text_of(row, "uri");
    const cJSON* const type = member(member(root_.get(), "types"), text_of(row, "type").c_str());
    for (const auto& [use, key] : {std::pair{"get", "get_needs"}, std::pair{"set", "set_needs"}}) {
      const cJSON* const listed = member(row, key);
      if (!listed) continue;
      needs.emplace(uri + " " + use, print_json(listed));
      EXPECT_TRUE(is_true(row, use)) << uri;
      Keys keys;
      const bool get = std::string_view(use) == "get";
      for (const cJSON* const field : elements_of(get ? member(type, "query") : member(member(type, "set"), "fields")))
        if (!member(field, "uri") || text_of(field, "uri") == uri) keys.push_back(text_of(field, "key"));
      for (const cJSON* const group : elements_of(listed)) {
        EXPECT_FALSE(elements_of(group).empty()) << uri;
        for (const cJSON* const name : elements_of(group))
          EXPECT_TRUE(std::ranges::count(keys, name->valuestring) > 0) << uri << " has no " << name->valuestring;
      }
    }
  }
  EXPECT_EQ(needs["/tv/config/value_number get"], R"([["cfgId","cfgItem"]])");
  EXPECT_EQ(needs["/tv/config/value_number set"], R"([["cfgId","cfgItem"],["valueInt"]])");
  EXPECT_EQ(needs["/tv/config/value_bool set"], R"([["cfgItem"],["valueInt"]])");
  EXPECT_EQ(needs["/tv/channelinfo/sort_channel_info set"], R"([["CH_FROM"],["CH_TO"]])");
  EXPECT_FALSE(needs.contains("/tv/cast/volume/volume set"));  // a "MODIFY"
}

TEST_F(Describe, EveryFieldHasHelpAndAKnownKind) {
  int fields = 0;
  for_each_field([&](const cJSON* field, const std::string& where) {
    ++fields;
    const cJSON* const kind = kind_row(text_of(field, "kind"));
    ASSERT_NE(kind, nullptr) << where;
    const std::string name = text_of(kind, "kind");
    EXPECT_FALSE(text_of(field, "help") == "(no text)" || text_of(field, "help").empty()) << where;
    expect_members(field,
                   {"key", "kind", "[uri]", "[when]", "[limit]", "[count]", "[unit]", "[values]", "[minimum]",
                    "[maximum]", "help", "[value]", "[fields]"},
                   where);
    EXPECT_EQ(member(field, "count") != nullptr, name.ends_with("_array")) << where;
    EXPECT_EQ(member(field, "value") != nullptr, name == "constant") << where;
    EXPECT_EQ(member(field, "fields") != nullptr, name == "object") << where;
    EXPECT_TRUE(!member(field, "limit") || name == "text") << where;
  });
  EXPECT_GT(fields, 0);
}

// "when" has the member of the type's requests that names the operation, and as its value one of the names that the
// member has, the number of an operation without a name, or null for requests without an operation.
TEST_F(Describe, MembersOfAnOperationSayWhichItIs) {
  std::set<std::string> kinds;
  for_each_field([&](const cJSON* field, const std::string& where) {
    const cJSON* const when = member(field, "when");
    if (!when) return;
    EXPECT_EQ(keys_of(when), (Keys{"key", "value"})) << where;
    const cJSON* const type = member(member(root_.get(), "types"), where.substr(0, where.find('.')).c_str());
    Keys names;
    for (const cJSON* const asked : elements_of(member(type, "query")))
      if (text_of(asked, "key") == text_of(when, "key"))
        for (const cJSON* const row : elements_of(member(asked, "values"))) names.push_back(text_of(row, "value"));
    EXPECT_FALSE(names.empty()) << where << ": no request has " << text_of(when, "key");
    const cJSON* const value = member(when, "value");
    if (cJSON_IsString(value)) EXPECT_TRUE(std::ranges::count(names, value->valuestring) == 1) << where;
    kinds.insert(cJSON_IsString(value)   ? "name"
                 : cJSON_IsNull(value)   ? "null"
                 : cJSON_IsNumber(value) ? "number"
                                         : "?");
  });
  EXPECT_EQ(kinds, (std::set<std::string>{"name", "null", "number"}));
}

// Kinds that no field has yet are described as well, and each kind once.
TEST_F(Describe, KindsSayWhatTheirValuesAre) {
  std::set<std::string> names;
  for (const cJSON* const row : elements_of(member(root_.get(), "kinds"))) {
    const std::string name = text_of(row, "kind"), json = text_of(row, "json");
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_NE(text_of(row, "help"), "(no text)") << name;
    EXPECT_TRUE((std::set<std::string>{"number", "string", "array", "object"}.contains(json))) << name;
    EXPECT_EQ(keys_of(row),
              json == "number" ? (Keys{"kind", "json", "help", "minimum", "maximum"}) : (Keys{"kind", "json", "help"}));
  }
  const auto limits_of = [this](const char* kind) {
    return text_of(kind_row(kind), "minimum") + ".." + text_of(kind_row(kind), "maximum");
  };
  EXPECT_EQ(limits_of("uint8"), "0..255");
  EXPECT_EQ(limits_of("int32"), std::to_string(INT32_MIN) + ".." + std::to_string(INT32_MAX));
  EXPECT_EQ(limits_of("uint16"), "0..65535");
  EXPECT_EQ(limits_of("uint32"), "0.." + std::to_string(UINT32_MAX));
  EXPECT_EQ(limits_of("int64"), std::to_string(INT64_MIN) + ".." + std::to_string(INT64_MAX));
  EXPECT_EQ(limits_of("uint64"), "0.." + std::to_string(UINT64_MAX));
}

TEST_F(Describe, ResultsHaveNamesAndMeanings) {
  std::map<int, std::string> names;
  for (const cJSON* const row : elements_of(member(root_.get(), "results"))) {
    EXPECT_EQ(keys_of(row), (Keys{"result", "name", "help"}));
    EXPECT_NE(text_of(row, "help"), "");
    names.emplace(number_of(row, "result"), text_of(row, "name"));
  }
  for (int result = -7; result <= 15; ++result) EXPECT_TRUE(names.contains(result)) << result;
  EXPECT_EQ(names.size(), 23u);
  EXPECT_EQ(names[0], "VEXTVCTRLR_OK");
  EXPECT_EQ(names[-1], "VEXTVCTRLR_FAIL");
  EXPECT_EQ(names[-2], "VEXTVCTRLR_INV_ARG");
  EXPECT_EQ(names[-7], "VEXTVCTRLR_NOT_SUPPORT");
  EXPECT_EQ(names[14], "VEX_USB_DISABLE_AUTO_JUMP");
  EXPECT_EQ(names[15], "VEX_SET_FAIL");
}

}  // namespace
