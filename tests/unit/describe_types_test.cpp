// What the description says of item types against what requests, responses and notifications do.
#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "description.h"

namespace {

using Bytes = std::vector<char>;

// Words of one number each. Numbers choose what a record shows; those of `skipped` bytes at its beginning are 0.
Bytes words_of(UINT32 number, std::size_t skipped = 0) {
  Bytes bytes(65536);
  for (std::size_t i = skipped; i < bytes.size(); i += sizeof number) std::memcpy(&bytes[i], &number, sizeof number);
  return bytes;
}

class DescribeTypes : public DescribedTest {
 protected:
  void SetUp() override {
    DescribedTest::SetUp();
    for (int type = 0; type <= 255; ++type)
      if (const cJSON* const row = described(type)) rows_[type] = row;
    ASSERT_FALSE(rows_.empty());
    get_handler = [this](UINT16, void* record) { return observe(record); };
    set_handler = [this](UINT16, void* record) { return record ? observe(record) : (++calls_, 0); };
  }

  std::string uri_of(int type) { return made_up_uri(static_cast<UINT8>(type)); }

  // The record that a request with one member brings to the handler, from its first byte; empty: it brings none.
  Bytes record_of(int type, const std::string& word, const std::string& key, const std::string& value) {
    const std::string text = R"({"PARAMETER":{"REQUEST":")" + word + "\",\"" + key + "\":" + value + "}}";
    char response[DTV_JSP_RESPONSE_MAX + 1] = {};
    seen_.clear();
    printed_by([&] {
      if (word == "QUERY")
        a_dtv_jsp_get(uri_of(type).c_str(), text.c_str(), response);
      else
        a_dtv_jsp_set(uri_of(type).c_str(), text.c_str());
    });
    return seen_;
  }

  // How many bytes of the record a member's value changes, compared with a value that is 0 or empty.
  std::size_t bytes_filled(int type, const std::string& word, const std::string& key, const std::string& value) {
    const Bytes cleared = record_of(type, word, key, value[0] == '"' ? "\"\"" : value[0] == '{' ? "{}" : "0");
    const Bytes record = record_of(type, word, key, value);
    if (record.size() != cleared.size()) return 0;
    std::size_t changed = 0;
    for (std::size_t i = 0; i < record.size(); ++i) changed += record[i] != cleared[i];
    return changed;
  }

  // The described uses of a type, as request word and fields.
  static std::vector<std::pair<std::string, const cJSON*>> requests_of(const cJSON* row) {
    std::vector<std::pair<std::string, const cJSON*>> requests;
    if (const cJSON* const query = member(row, "query"); cJSON_IsArray(query)) requests.emplace_back("QUERY", query);
    const cJSON* const set = member(row, "set");
    if (cJSON_IsObject(set)) requests.emplace_back(text_of(set, "request"), member(set, "fields"));
    return requests;
  }

  // The response of a record of these bytes.
  Json response_of(int type, const Bytes& bytes) {
    fill_ = bytes;
    char response[DTV_JSP_RESPONSE_MAX + 1] = {};
    a_dtv_jsp_get(uri_of(type).c_str(), nullptr, response);
    fill_.clear();
    return parse_json(response);
  }

  std::map<int, const cJSON*> rows_;  // of the description, by number
  int calls_ = 0;                     // of a handler

 private:
  const cJSON* described(int type) const {
    static const char* const names[] = {
#define TVC_ITEM_TYPE(name, number) "TYPE_" #name,
#include "vex_tv_ctrl/uris.def"
    };
    static const int numbers[] = {
#define TVC_ITEM_TYPE(name, number) number,
#include "vex_tv_ctrl/uris.def"
    };
    for (std::size_t i = 0; i < std::size(numbers); ++i)
      if (numbers[i] == type) return member(member(root_.get(), "types"), names[i]);
    return nullptr;
  }

  INT32 observe(void* record) {
    ++calls_;
    INT32 size = 0;
    std::free(tv_ctrl_malloc_content_max(&size));
    auto* const bytes = static_cast<char*>(record);
    seen_.assign(bytes, bytes + size);
    if (!fill_.empty())
      std::memcpy(bytes, fill_.data(), std::min<std::size_t>(fill_.size(), static_cast<UINT32>(size)));
    return 0;
  }

  Bytes seen_, fill_;
};

TEST_F(DescribeTypes, EveryTypeOfTheTableAndNoOther) {
  EXPECT_EQ(rows_.size(), types_.size());
  for (int type = 0; type <= 255; ++type)
    if (type_exists(type)) EXPECT_TRUE(rows_.contains(type)) << type;
  for (const auto& [type, row] : rows_)
    EXPECT_EQ(keys_of(row), (std::vector<std::string>{"query", "set", "response", "notify"})) << row->string;
}

// --- Requests ---

TEST_F(DescribeTypes, RequestsReachTheHandlerWithTheDescribedWord) {
  for (const auto& [type, row] : rows_) {
    for (const std::string word : {"QUERY", "ACTION", "MODIFY", "SET", "ASSOCIATE"}) {
      const auto requests = requests_of(row);
      const bool described = std::ranges::any_of(requests, [&](const auto& request) { return request.first == word; });
      calls_ = 0;
      record_of(type, word, "VALUE", type == TYPE_TEXT ? "\"x\"" : "1");
      // An option list takes two words, of which one is described.
      const bool also_set = type == TYPE_OPTION_LIST && word == "SET";
      EXPECT_EQ(calls_ > 0, described || also_set) << row->string << " " << word;
    }
  }
}

// A value that fills every byte of the field.
std::string filling_value(const cJSON* field, const cJSON* kind) {
  if (text_of(kind, "json") != "number") return "\"" + std::string(number_of(field, "limit") > 0 ? 1 : 0, 'x') + "\"";
  const bool is_signed = text_of(kind, "minimum").starts_with("-");
  return is_signed ? "-1" : text_of(kind, "maximum");
}

TEST_F(DescribeTypes, DescribedMembersAreDecodedAndNoOthers) {
  int members = 0;
  for (const auto& [type, row] : rows_) {
    std::set<std::string> keys;  // that any use of the type names
    for (const char* const use : {"query", "response"})
      for (const cJSON* const field : elements_of(member(row, use))) keys.insert(text_of(field, "key"));
    for (const auto& [word, fields] : requests_of(row))
      for (const cJSON* const field : elements_of(fields)) keys.insert(text_of(field, "key"));
    keys.insert("NO_MEMBER");
    for (const auto& [word, fields] : requests_of(row)) {
      for (const std::string& key : keys) {
        const cJSON* described = nullptr;
        for (const cJSON* const field : elements_of(fields))
          if (text_of(field, "key") == key) described = field;
        const std::string where = row->string + (" " + word) + " " + key;
        if (described && text_of(described, "kind") == "object") continue;  // below
        const std::string value = described ? filling_value(described, kind_row(text_of(described, "kind"))) : "1";
        EXPECT_EQ(bytes_filled(type, word, key, value) > 0, described != nullptr) << where;
        members += described != nullptr;
      }
    }
  }
  EXPECT_GT(members, 0);
}

TEST_F(DescribeTypes, MembersOfObjectsAreDecoded) {
  int members = 0;
  for (const auto& [type, row] : rows_)
    for (const auto& [word, fields] : requests_of(row))
      for (const cJSON* const field : elements_of(fields))
        for (const cJSON* const inner : elements_of(member(field, "fields"))) {
          const std::string value = filling_value(inner, kind_row(text_of(inner, "kind")));
          const std::string object = "{\"" + text_of(inner, "key") + "\":" + value + "}";
          EXPECT_GT(bytes_filled(type, word, text_of(field, "key"), object), 0u) << row->string << " " << object;
          ++members;
        }
  EXPECT_GT(members, 0);
}

// A text keeps as many bytes as its limit says, a number as many as its largest value has.
TEST_F(DescribeTypes, LimitsAreThoseOfTheRecord) {
  const std::map<std::string, std::size_t> widths = {{"uint8", 1},  {"uint16", 2}, {"int32", 4},
                                                     {"uint32", 4}, {"int64", 8},  {"uint64", 8}};
  for (const auto& [type, row] : rows_) {
    for (const auto& [word, fields] : requests_of(row)) {
      for (const cJSON* const field : elements_of(fields)) {
        const std::string key = text_of(field, "key"), kind = text_of(field, "kind");
        const std::string where = row->string + (" " + word) + " " + key;
        if (kind == "text") {
          const auto limit = static_cast<std::size_t>(number_of(field, "limit"));
          EXPECT_EQ(bytes_filled(type, word, key, "\"" + std::string(limit + 9, 'x') + "\""), limit) << where;
        } else if (widths.contains(kind)) {
          // What cannot be negative when it is set is an index.
          if (type == TYPE_OPTION_LIST && word == "SET") continue;
          const std::string value = filling_value(field, kind_row(kind));
          EXPECT_EQ(bytes_filled(type, word, key, value), widths.at(kind)) << where;
        }
      }
    }
  }
}

// Limits that callers rely on, as numbers.
TEST_F(DescribeTypes, KnownLimits) {
  const auto limit = [this](int type, const char* use, const char* key) {
    const cJSON* fields = member(rows_.at(type), use);
    if (!cJSON_IsArray(fields)) fields = member(fields, "fields");
    for (const cJSON* const field : elements_of(fields))
      if (text_of(field, "key") == key) return number_of(field, "limit");
    return -1;
  };
  EXPECT_EQ(limit(TYPE_TEXT, "query", "VALUE"), 1023);
  EXPECT_EQ(limit(TYPE_TEXT, "set", "VALUE"), 1023);
  EXPECT_EQ(limit(TYPE_WLAN_ASSOCIATE, "set", "BSSID"), 17);
  EXPECT_EQ(limit(TYPE_WLAN_ASSOCIATE, "set", "SSID"), 32);
  EXPECT_EQ(limit(TYPE_WLAN_ASSOCIATE, "set", "CAPABILITIES"), 127);
  EXPECT_EQ(limit(TYPE_WLAN_ASSOCIATE, "set", "PASSWORD"), 64);
  EXPECT_EQ(limit(TYPE_VALUE, "response", "NAME"), 31);
  EXPECT_EQ(limit(TYPE_TUNER_SCAN, "response", "DVBT_CHANNEL_NAME"), 20);
}

// --- Responses and notifications ---

std::string json_kind(const cJSON* value) {
  if (cJSON_IsNumber(value)) return "number";
  if (cJSON_IsString(value)) return "string";
  if (cJSON_IsArray(value)) return "array";
  return cJSON_IsObject(value) ? "object" : "?";
}

// Holds an item against its description; ret_shown: the keys that it has.
void expect_item(const cJSON* item, const cJSON* fields, const std::string& where,
                 const std::function<const cJSON*(const std::string&)>& kind_row, std::set<std::string>& ret_shown) {
  std::vector<const cJSON*> described = elements_of(fields);
  auto next = described.begin();
  for (const cJSON* value = item ? item->child : nullptr; value; value = value->next) {
    const std::string name = where + "." + value->string;
    next =
        std::find_if(next, described.end(), [&](const cJSON* field) { return text_of(field, "key") == value->string; });
    ASSERT_NE(next, described.end()) << name << " is not described, or not in this order";
    const cJSON* const field = *next++;
    ret_shown.insert(value->string);
    EXPECT_EQ(json_kind(value), text_of(kind_row(text_of(field, "kind")), "json")) << name;
    if (cJSON_IsArray(value)) EXPECT_EQ(cJSON_GetArraySize(value), number_of(field, "count")) << name;
    if (text_of(field, "kind") == "constant") EXPECT_EQ(text_of(field, "value"), value->valuestring) << name;
    if (!cJSON_IsObject(value)) continue;
    std::set<std::string> inner;
    expect_item(value, member(field, "fields"), name, kind_row, inner);
    EXPECT_EQ(inner.size(), elements_of(member(field, "fields")).size()) << name;
  }
}

std::set<std::string> keys_described(const cJSON* fields) {
  std::set<std::string> keys;
  for (const cJSON* const field : elements_of(fields)) keys.insert(text_of(field, "key"));
  return keys;
}

TEST_F(DescribeTypes, ResponsesShowTheDescribedMembers) {
  const auto kind_of = [this](const std::string& kind) { return kind_row(kind); };
  int responses = 0;
  for (const auto& [type, row] : rows_) {
    const cJSON* const fields = member(row, "response");
    std::set<std::string> shown;
    for (UINT32 number = 0; number <= 12; ++number) {
      for (const std::size_t skipped : {0u, 128u}) {
        const Json response = response_of(type, words_of(number, skipped));
        for (const cJSON* const item : elements_of(member(response.get(), "ITEMS")))
          expect_item(item, fields, row->string, kind_of, shown);
      }
    }
    EXPECT_EQ(shown, keys_described(fields)) << row->string;
    responses += cJSON_IsArray(fields);
  }
  EXPECT_GT(responses, 0);
}

TEST_F(DescribeTypes, NotificationsHaveTheDescribedForm) {
  const auto kind_of = [this](const std::string& kind) { return kind_row(kind); };
  int notifications = 0;
  for (const auto& [type, row] : rows_) {
    const cJSON* const notify = member(row, "notify");
    const std::string uri = uri_of(type);
    a_dtv_jsp_add_listener_buffer(uri.c_str());
    Bytes record(65536);
    tv_ctrl_api_notify_func(uri.c_str(), record.data());
    tv_ctrl_api_notify_func(uri.c_str(), record.data());
    const std::string text = fetch(uri).value_or("");
    ASSERT_EQ(text.empty(), !cJSON_IsObject(notify)) << row->string;
    if (text.empty()) continue;
    ++notifications;
    const Json parsed = parse_json(text);
    const std::string form = text_of(notify, "form"), where = row->string;
    const cJSON* const carried = parsed->child->next->next;
    EXPECT_EQ(text_of(notify, "member"), carried->string) << where;
    std::set<std::string> shown;
    if (cJSON_IsObject(carried)) {
      EXPECT_EQ(form, "single") << where;
      expect_item(carried, member(notify, "fields"), where, kind_of, shown);
    } else {
      EXPECT_EQ(cJSON_GetArraySize(carried), form == "queued" ? 2 : 1) << where;
      for (const cJSON* const item : elements_of(carried))
        expect_item(item, member(notify, "fields"), where, kind_of, shown);
    }
    EXPECT_EQ(shown, keys_described(member(notify, "fields"))) << where;
    EXPECT_EQ(cJSON_IsNumber(member(notify, "bound")) != 0, form == "queued") << where;
  }
  EXPECT_GT(notifications, 0);
}

// A pending text that is longer than the bound is given up.
TEST_F(DescribeTypes, QueuesStartAnewBeyondTheirBound) {
  for (const auto& [type, row] : rows_) {
    const cJSON* const bound = member(member(row, "notify"), "bound");
    if (!cJSON_IsNumber(bound)) continue;
    const std::string uri = uri_of(type);
    a_dtv_jsp_add_listener_buffer(uri.c_str());
    Bytes record(65536);
    const std::string envelope = "{\"URI\":\"" + uri + "\",\"REQUEST\":\"NOTIFY\",\"ITEMS\":[{\"A\":\"\"}]}";
    for (const std::size_t beyond : {0u, 1u}) {
      const std::size_t padding = static_cast<std::size_t>(bound->valueint) + beyond - envelope.size();
      poke_pending(uri, std::string(envelope).insert(envelope.size() - 4, padding, 'x'));
      tv_ctrl_api_notify_func(uri.c_str(), record.data());
      const Json parsed = parse_json(fetch(uri).value_or(""));
      EXPECT_EQ(cJSON_GetArraySize(member(parsed.get(), "ITEMS")), beyond ? 1 : 2) << row->string;
    }
  }
}

}  // namespace
