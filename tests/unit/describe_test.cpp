// The description of the registry and the item types, beside the tables it is made of.
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "support.h"
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_main/registry.h"

namespace {

class Describe : public testing::Test {
 protected:
  void SetUp() override {
    char* const text = a_dtv_jsp_describe();
    ASSERT_NE(text, nullptr);
    text_ = text;
    std::free(text);
    root_ = parse_json(text_);
    ASSERT_TRUE(root_);
    uris_ = cJSON_GetObjectItemCaseSensitive(root_.get(), "uris");
    types_ = cJSON_GetObjectItemCaseSensitive(root_.get(), "types");
    ASSERT_TRUE(cJSON_IsArray(uris_));
    ASSERT_TRUE(cJSON_IsObject(types_));
  }

  std::string text_;
  Json root_ = {nullptr, cJSON_Delete};
  const cJSON* uris_ = nullptr;
  const cJSON* types_ = nullptr;
};

const cJSON* member(const cJSON* object, const char* key) { return cJSON_GetObjectItemCaseSensitive(object, key); }

std::string text_of(const cJSON* object, const char* key) {
  const cJSON* const value = member(object, key);
  return cJSON_IsString(value) ? value->valuestring : "(no text)";
}

int number_of(const cJSON* object, const char* key) {
  const cJSON* const value = member(object, key);
  return cJSON_IsNumber(value) ? value->valueint : -999;
}

std::vector<std::string> keys_of(const cJSON* object) {
  std::vector<std::string> keys;
  for (const cJSON* child = object ? object->child : nullptr; child; child = child->next)
    keys.emplace_back(child->string);
  return keys;
}

TEST_F(Describe, ListsUrisAndTypes) { EXPECT_EQ(keys_of(root_.get()), (std::vector<std::string>{"uris", "types"})); }

TEST_F(Describe, EveryRowOfTheRegistry) {
  const auto rows = tvc_registry();
  ASSERT_EQ(cJSON_GetArraySize(uris_), 402);
  const cJSON* object = uris_->child;
  for (const TV_CTRL_URI_ID_MAP_T& row : rows) {
    std::vector<std::string> keys{"uri", "id", "group", "record", "type", "get", "set", "notify"};
    const std::string_view uri = row.s_uri;
    if (uri == "/tv/key/irrc" || uri == "/tv/menu/misc/start_native_app") keys.push_back("values");
    EXPECT_EQ(keys_of(object), keys);
    EXPECT_EQ(text_of(object, "uri"), row.s_uri);
    EXPECT_EQ(number_of(object, "id"), row.ui2_id);
    EXPECT_EQ(text_of(object, "group"), tvc_group_name(row.ui2_id >> 8));
    EXPECT_EQ(number_of(object, "record"), row.ui2_id & 0xFF);
    EXPECT_EQ(text_of(object, "type"), tvc_item_type_name(row.ui1_type));
    for (const char* const flag : {"get", "set", "notify"})
      EXPECT_TRUE(cJSON_IsBool(member(object, flag))) << row.s_uri;
    object = object->next;
  }
}

// What can be done with a URI, as its group's handlers allow it.
TEST_F(Describe, SaysWhatAUriIsGoodFor) {
  struct Use {
    bool get, set, notify;
    bool operator==(const Use&) const = default;
  };
  std::map<std::string, Use> found;
  for (const cJSON* object = uris_->child; object; object = object->next)
    found.emplace(text_of(object, "uri"),
                  Use{cJSON_IsTrue(member(object, "get")) != 0, cJSON_IsTrue(member(object, "set")) != 0,
                      cJSON_IsTrue(member(object, "notify")) != 0});
  EXPECT_EQ(found.at("/tv/cast/volume/volume"), (Use{true, true, false}));
  EXPECT_EQ(found.at("/tv/cast/volume/mute"), (Use{true, true, false}));
  EXPECT_FALSE(found.at("/tv/cast/volume/volume_increase").get) << "refused";
  EXPECT_EQ(found.at("/tv/ws/notify/volume_ctrl"), (Use{false, false, true}));
  EXPECT_EQ(found.at("/tv/ws/notify/usb_detect"), (Use{false, false, true}));
  EXPECT_EQ(found.at("/tv/config/value_number"), (Use{true, true, false}));
  EXPECT_EQ(found.at("/tv/config/language_string"), (Use{true, false, false}));
  EXPECT_EQ(found.at("/tv/key/irrc"), (Use{false, true, false}));
  EXPECT_EQ(found.at("/tv/ws/notify/config_update"), (Use{false, false, true}));
  EXPECT_EQ(found.at("/tv/menu/video/3d_item"), (Use{false, false, false}));
  EXPECT_EQ(found.at("/tv/menu/tuner/scan"), (Use{false, false, false}));
  for (const auto& [uri, use] : found)
    if (!uri.starts_with("/tv/ws/notify/")) EXPECT_FALSE(use.notify) << uri;
}

// The names of the keys, in their order.
// The names that a URI's value may have, each once.
std::vector<std::string> values_of(const cJSON* uris, const std::string& uri) {
  const cJSON* object = uris->child;
  while (object && text_of(object, "uri") != uri) object = object->next;
  const cJSON* const values = member(object, "values");
  EXPECT_TRUE(cJSON_IsArray(values));
  std::vector<std::string> names;
  for (const cJSON* value = values ? values->child : nullptr; value; value = value->next)
    names.emplace_back(cJSON_IsString(value) ? value->valuestring : "(no text)");
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
  return names;
}

TEST_F(Describe, NamesTheApplications) {
  const std::vector<std::string> names = values_of(uris_, "/tv/menu/misc/start_native_app");
  ASSERT_EQ(names.size(), 17u);
  EXPECT_EQ(names.front(), "GUIDE");
}

TEST_F(Describe, NamesTheKeys) {
  const std::vector<std::string> names = values_of(uris_, "/tv/key/irrc");
  ASSERT_EQ(names.size(), 58u);
  EXPECT_EQ(names.front(), "POWER");
  EXPECT_EQ(names[31], "VOL+");
  EXPECT_EQ(names.back(), "BLUE");
}

TEST_F(Describe, EveryItemTypeWithARecord) {
  std::set<std::string> expected, found;
  for (const ItemType& item : tvc_item_types()) expected.insert(tvc_item_type_name(item.type));
  for (const std::string& key : keys_of(types_)) found.insert(key);
  EXPECT_EQ(found, expected);
}

const char* kind_of(const Field& field) {
  switch (field.kind) {
    case FieldKind::kInt32:
      return "int32";
    case FieldKind::kUint8:
      return "uint8";
    case FieldKind::kUint16:
      return "uint16";
    case FieldKind::kUint32:
      return "uint32";
    case FieldKind::kInt64:
      return "int64";
    case FieldKind::kUint64:
    case FieldKind::kWord:
      return "uint64";
    case FieldKind::kText:
    case FieldKind::kText16:
      return "text";
    case FieldKind::kUint8Array:
      return "uint8_array";
    case FieldKind::kUint32Array:
      return "uint32_array";
    case FieldKind::kObject:
      return "object";
    case FieldKind::kConstant:
      return "constant";
  }
  return "";
}

void expect_fields(const cJSON* array, std::span<const Field> fields, FieldUse use, const std::string& where) {
  ASSERT_TRUE(cJSON_IsArray(array)) << where;
  const cJSON* object = array->child;
  for (const Field& field : fields) {
    if (use != kEverywhere && !(field.use & use)) continue;
    const std::string name = where + "." + field.key.data();
    ASSERT_NE(object, nullptr) << name;
    EXPECT_EQ(text_of(object, "key"), field.key) << name;
    EXPECT_EQ(text_of(object, "kind"), kind_of(field)) << name;
    if (field.kind == FieldKind::kText)
      EXPECT_EQ(number_of(object, "limit"), static_cast<int>(field.size) - 1) << name;
    else
      EXPECT_EQ(member(object, "limit"), nullptr) << name;
    if (field.kind == FieldKind::kUint8Array || field.kind == FieldKind::kUint32Array)
      EXPECT_EQ(number_of(object, "count"),
                static_cast<int>(field.size) / (field.kind == FieldKind::kUint8Array ? 1 : 4))
          << name;
    else
      EXPECT_EQ(member(object, "count"), nullptr) << name;
    if (field.unit) EXPECT_EQ(text_of(object, "unit"), field.unit) << name;
    if (field.help) EXPECT_EQ(text_of(object, "help"), field.help) << name;
    if (field.kind == FieldKind::kConstant)
      EXPECT_EQ(text_of(object, "value"), field.text) << name;
    else
      EXPECT_EQ(member(object, "value"), nullptr) << name;
    if (field.kind == FieldKind::kObject)
      expect_fields(member(object, "fields"), field.fields, kEverywhere, name);
    else
      EXPECT_EQ(member(object, "fields"), nullptr) << name;
    object = object->next;
  }
  EXPECT_EQ(object, nullptr) << where << " has one more";
}

void expect_fields_or_null(const cJSON* value, const ItemType& item, FieldUse use, const std::string& where) {
  if (tvc_item_has(item, use))
    expect_fields(value, item.fields, use, where);
  else
    EXPECT_TRUE(cJSON_IsNull(value)) << where;
}

TEST_F(Describe, TypesAgreeWithTheirTables) {
  for (const ItemType& item : tvc_item_types()) {
    const std::string name = tvc_item_type_name(item.type);
    const cJSON* const type = member(types_, name.c_str());
    EXPECT_EQ(keys_of(type), (std::vector<std::string>{"query", "set", "response", "notify"})) << name;
    expect_fields_or_null(member(type, "query"), item, kQuery, name + " query");
    expect_fields_or_null(member(type, "response"), item, kResponse, name + " response");
    const cJSON* const notify = member(type, "notify");
    if (!tvc_item_has(item, kNotify)) {
      EXPECT_TRUE(cJSON_IsNull(notify)) << name;
      continue;
    }
    const bool queued = item.notify.form == NotifyForm::kQueued;
    EXPECT_EQ(text_of(notify, "form"), queued ? "queued" : "single") << name;
    EXPECT_EQ(text_of(notify, "member"), item.notify.form == NotifyForm::kSingleParameter ? "PARAMETER" : "ITEMS");
    if (queued)
      EXPECT_EQ(number_of(notify, "bound"), static_cast<int>(item.notify.bound)) << name;
    else
      EXPECT_TRUE(cJSON_IsNull(member(notify, "bound"))) << name;
    expect_fields(member(notify, "fields"), item.fields, kNotify, name + " notify");
  }
}

// The request word of a set: "MODIFY" for values, "ACTION" for actions, "ASSOCIATE" for the association, else "SET".
TEST_F(Describe, SetsNameTheirRequestWord) {
  const std::map<std::string, std::pair<std::string, FieldUse>> words = {
      {"TYPE_VALUE", {"MODIFY", kModify}}, {"TYPE_TEXT", {"MODIFY", kModify}},
      {"TYPE_TINT", {"MODIFY", kModify}},  {"TYPE_INTEGER", {"MODIFY", kModify}},
      {"TYPE_TIME", {"MODIFY", kModify}},  {"TYPE_ACTION", {"ACTION", 0}},
      {"TYPE_TUNER_SCAN", {"SET", kSet}},  {"TYPE_WLAN_ASSOCIATE", {"ASSOCIATE", kAssociate}},
  };
  for (const ItemType& item : tvc_item_types()) {
    const std::string name = tvc_item_type_name(item.type);
    const cJSON* const set = member(member(types_, name.c_str()), "set");
    if (item.type == TYPE_OPTION_LIST) {  // takes either word; one of them is told
      const bool modify = text_of(set, "request") == "MODIFY";
      EXPECT_TRUE(modify || text_of(set, "request") == "SET");
      expect_fields(member(set, "fields"), item.fields, modify ? kModify : kSet, name);
    } else if (const auto word = words.find(name); word != words.end()) {
      EXPECT_EQ(text_of(set, "request"), word->second.first) << name;
      if (word->second.second)
        expect_fields(member(set, "fields"), item.fields, word->second.second, name);
      else
        EXPECT_EQ(cJSON_GetArraySize(member(set, "fields")), 0) << name;
    } else if (tvc_item_has(item, kSet)) {
      EXPECT_EQ(text_of(set, "request"), "SET") << name;
    } else {
      EXPECT_TRUE(cJSON_IsNull(set)) << name;
    }
  }
}

// Limits that callers rely on, as numbers.
TEST_F(Describe, KnownLimits) {
  const auto limit = [this](const char* type, const char* use, const char* key) {
    const cJSON* fields = member(member(types_, type), use);
    if (!cJSON_IsArray(fields)) fields = member(fields, "fields");
    for (const cJSON* field = fields ? fields->child : nullptr; field; field = field->next)
      if (text_of(field, "key") == key) return number_of(field, "limit");
    return -1;
  };
  EXPECT_EQ(limit("TYPE_TEXT", "query", "VALUE"), 1023);
  EXPECT_EQ(limit("TYPE_TEXT", "set", "VALUE"), 1023);
  EXPECT_EQ(limit("TYPE_WLAN_ASSOCIATE", "set", "BSSID"), 17);
  EXPECT_EQ(limit("TYPE_WLAN_ASSOCIATE", "set", "SSID"), 32);
  EXPECT_EQ(limit("TYPE_WLAN_ASSOCIATE", "set", "CAPABILITIES"), 127);
  EXPECT_EQ(limit("TYPE_WLAN_ASSOCIATE", "set", "PASSWORD"), 64);
  EXPECT_EQ(limit("TYPE_VALUE", "response", "NAME"), 31);
  EXPECT_EQ(limit("TYPE_TUNER_SCAN", "response", "DVBT_CHANNEL_NAME"), 20);
}

}  // namespace
