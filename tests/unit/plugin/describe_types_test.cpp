// Compares the description of the item types with what requests, responses and notifications do.
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

void put_integer(char* record, IntegerPlace place, UINT32 number) {
  if (place.size) std::memcpy(record + place.offset, &number, place.size);
}

// The value of the same kind that is 0 or empty.
std::string empty_value(const std::string& value) {
  return value[0] == '"' ? "\"\"" : value[0] == '{' ? "{}" : value[0] == '[' ? "[0]" : "0";
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

  // The URI whose requests read a member.
  std::string uri_of(int type, const cJSON* field) {
    return member(field, "uri") ? text_of(field, "uri") : uri_of(type);
  }

  // The record that a request with some members brings to the handler, from its first byte; empty: it brings none.
  Bytes record_of(const std::string& word, const std::string& members, const std::string& uri) {
    const std::string text = R"({"PARAMETER":{"REQUEST":")" + word + "\"" + members + "}}";
    char response[DTV_JSP_RESPONSE_MAX + 1] = {};
    seen_.clear();
    printed_by([&] {
      if (word == "QUERY")
        a_dtv_jsp_get(uri.c_str(), text.c_str(), response);
      else
        a_dtv_jsp_set(uri.c_str(), text.c_str());
    });
    return seen_;
  }

  // A request whose test is about one member.
  struct Asked {
    int type;
    std::string word, key, uri;
    std::string operation = "";  // a member that names the operation, as ",key:value"; empty: there is none
  };

  // The record of a request with that member and this value. An array follows the member that counts it, and a count
  // precedes its array.
  Bytes record_of(const Asked& asked, const std::string& value) {
    std::string members = asked.operation;
    const auto add = [&members](const std::string& key, const std::string& text) {
      members += ",\"" + key + "\":" + text;
    };
    for (const auto& [counting, array] : counted_arrays(asked.type))
      if (array == asked.key) add(counting, "100");
    add(asked.key, value);
    for (const auto& [counting, array] : counted_arrays(asked.type))
      if (counting == asked.key) add(array, "[0]");
    return record_of(asked.word, members, asked.uri);
  }

  // How many bytes of the record a member's value changes, compared with a value that is 0 or empty.
  std::size_t bytes_filled(const Asked& asked, const std::string& value) {
    const Bytes cleared = record_of(asked, empty_value(value));
    const Bytes record = record_of(asked, value);
    if (record.size() != cleared.size()) return 0;
    std::size_t changed = 0;
    for (std::size_t i = 0; i < record.size(); ++i) changed += record[i] != cleared[i];
    return changed;
  }

  // The member that names the operation which a described member belongs to, as a request has it; empty: it belongs to
  // none, or to requests that name none.
  static std::string operation_of(const cJSON* field) {
    const cJSON* const when = member(field, "when");
    if (!when || cJSON_IsNull(member(when, "value"))) return "";
    return ",\"" + text_of(when, "key") + "\":" + print_json(member(when, "value"));
  }

  // The described uses of a type, as request word and fields.
  static std::vector<std::pair<std::string, const cJSON*>> requests_of(const cJSON* row) {
    std::vector<std::pair<std::string, const cJSON*>> requests;
    if (const cJSON* const query = member(row, "query"); cJSON_IsArray(query)) requests.emplace_back("QUERY", query);
    const cJSON* const set = member(row, "set");
    if (cJSON_IsObject(set)) requests.emplace_back(text_of(set, "request"), member(set, "fields"));
    return requests;
  }

  // What a handler answers in its record.
  struct Answer {
    const Bytes* bytes;
    UINT32 entries = 0;                    // of its lists
    bool texts = false;                    // texts of its own, where it has places for them
    const FlatField* operation = nullptr;  // a field of the operation that it answers; null: as the bytes say
  };

  // The response of a URI to what its handler answers.
  Json response_of(int type, const std::string& uri, const Answer& answer) {
    fill_ = [&](char* record, std::size_t size) {
      const ItemType& item = *tvc_item_type(static_cast<UINT8>(type));
      std::memcpy(record, answer.bytes->data(), std::min(answer.bytes->size(), size));
      for (const ItemForm& form : item.forms) put_integer(record, form.list.count, answer.entries);
      if (answer.operation) put_integer(record, answer.operation->selector, answer.operation->selected);
      for_each_text(
          item, [&](char*& text) { text = nullptr; }, record);
      for_each_text(
          item, [&](char*& text) { text = answer.texts && !text ? strdup("text") : text; }, record);
    };
    char response[DTV_JSP_RESPONSE_MAX + 1] = {};
    printed_by([&] { a_dtv_jsp_get(uri.c_str(), nullptr, response); });
    fill_ = nullptr;
    return parse_json(response);
  }

  std::map<int, const cJSON*> rows_;  // of the description, by number
  int calls_ = 0;                     // of a handler

 private:
  const cJSON* described(int type) const {
    static const char* const kNames[] = {
#define TVC_ITEM_TYPE(name, number) "TYPE_" #name,
#include "vex_tv_ctrl/uris.def"
    };
    static const int kNumbers[] = {
#define TVC_ITEM_TYPE(name, number) number,
#include "vex_tv_ctrl/uris.def"
    };
    for (std::size_t i = 0; i < std::size(kNumbers); ++i)
      if (kNumbers[i] == type) return member(member(root_.get(), "types"), kNames[i]);
    return nullptr;
  }

  // The arrays that requests read, each behind the key of the member that counts it.
  static std::vector<std::pair<std::string, std::string>> counted_arrays(int type) {
    const std::vector<FlatField>& fields = flat(tvc_item_type(static_cast<UINT8>(type))->fields);
    std::vector<std::pair<std::string, std::string>> arrays;
    for (const FlatField& array : fields)
      for (const FlatField& field : fields)
        if (array.count.size && field.offset == array.count.offset) arrays.emplace_back(field.key, array.key);
    return arrays;
  }

  // Every text of a record that its handler allocates. Where another operation has something else in its place, there
  // is none.
  template <typename Action>
  static void for_each_text(const ItemType& item, const Action& action, char* record) {
    const auto walk = [&](std::span<const Field> fields) {
      for (const FlatField& field : flat(fields))
        if (field.kind == FieldKind::kOwnedText &&
            (!field.selector.size || tvc_integer_at(record, field.selector) == field.selected))
          action(field_at<char*>(record, field));
    };
    walk(item.fields);
    for (const ItemForm& form : item.forms)
      if (!form.list.entry_size) walk(form.fields);
  }

  INT32 observe(void* record) {
    ++calls_;
    INT32 size = 0;
    std::free(tv_ctrl_malloc_content_max(&size));
    auto* const bytes = static_cast<char*>(record);
    seen_.assign(bytes, bytes + size);
    if (fill_) fill_(bytes, static_cast<std::size_t>(size));
    return 0;
  }

  Bytes seen_;
  std::function<void(char* record, std::size_t size)> fill_;
};

TEST_F(DescribeTypes, EveryTypeOfTheTableAndNoOther) {
  EXPECT_EQ(rows_.size(), types_.size());
  for (const ItemType* const item : tvc_item_types()) EXPECT_TRUE(rows_.contains(item->type)) << int{item->type};
  int roots = 0;
  for (const auto& [type, row] : rows_) {
    std::vector<std::string> keys = {"query", "set", "response", "notify"};
    const bool has_root = tvc_item_has(*tvc_item_type(static_cast<UINT8>(type)), kRoot);
    if (has_root) keys.insert(keys.end() - 1, "root");
    EXPECT_EQ(keys_of(row), keys) << row->string;
    roots += has_root;
  }
  EXPECT_GT(roots, 0);
}

// --- Requests ---

TEST_F(DescribeTypes, RequestsReachTheHandlerWithTheDescribedWord) {
  for (const auto& [type, row] : rows_) {
    for (const std::string word : {"QUERY", "ACTION", "MODIFY", "SET", "ASSOCIATE"}) {
      const auto requests = requests_of(row);
      const bool described = std::ranges::any_of(requests, [&](const auto& request) { return request.first == word; });
      calls_ = 0;
      record_of(word, std::string(",\"VALUE\":") + (type == TYPE_TEXT ? "\"x\"" : "1"), uri_of(type));
      // An option list takes two words, of which one is described.
      const bool also_set = type == TYPE_OPTION_LIST && word == "SET";
      EXPECT_EQ(calls_ > 0, described || also_set) << row->string << " " << word;
    }
  }
}

// A value that fills every byte of the field.
std::string filling_value(const cJSON* field, const cJSON* kind) {
  if (text_of(kind, "json") == "array") {
    std::string elements = "1";
    for (int i = 1; i < number_of(field, "count"); ++i) elements += ",1";
    return "[" + elements + "]";
  }
  if (text_of(kind, "json") != "number") {
    const auto names = elements_of(member(field, "values"));  // of numbers, of which only the first may be 0
    return names.empty() ? "\"x\"" : print_json(member(names.back(), "value"));
  }
  const bool is_signed = text_of(kind, "minimum").starts_with("-");
  return is_signed ? "-1" : text_of(kind, "maximum");
}

// A member counts in requests that name its operation, and in no others; without an operation it counts at least in
// requests without one. The members that do not count are tested together in one request.
TEST_F(DescribeTypes, DescribedMembersAreDecodedAndNoOthers) {
  int members = 0, of_one_uri = 0, of_an_operation = 0;
  for (const auto& [type, row] : rows_) {
    std::map<std::string, std::string> values = {{"NO_MEMBER", "1"}};  // of the members that any use of the type names
    std::set<std::string> uris = {uri_of(type)};  // that read members of their own, and one that does not
    std::set<std::string> operations = {""};
    for (const auto& [word, fields] : requests_of(row))
      for (const cJSON* const field : elements_of(fields)) {
        values.emplace(text_of(field, "key"), filling_value(field, kind_row(text_of(field, "kind"))));
        uris.insert(uri_of(type, field));
        operations.insert(operation_of(field));
      }
    for (const cJSON* const field : elements_of(member(row, "response")))
      values.emplace(text_of(field, "key"), filling_value(field, kind_row(text_of(field, "kind"))));
    for (const auto& [word, fields] : requests_of(row)) {
      for (const std::string& uri : uris) {
        for (const std::string& operation : operations) {
          const std::string where = row->string + (" " + word) + " " + uri + operation;
          // Members that do not count in this request, beside the one without which it is refused.
          std::string others = word == "MODIFY" ? ",\"VALUE\":" + empty_value(values.at("VALUE")) : operation;
          std::string empty_others = others;
          for (const auto& [key, value] : values) {
            const cJSON *described = nullptr, *of_any = nullptr;
            for (const cJSON* const field : elements_of(fields)) {
              if (text_of(field, "key") != key || (member(field, "uri") && text_of(field, "uri") != uri)) continue;
              if (operation_of(field) == operation) described = field;
              if (!member(field, "when")) of_any = field;
            }
            if (!described && of_any) continue;
            if (!described) {
              others.append(",\"").append(key).append("\":").append(value);
              empty_others.append(",\"").append(key).append("\":").append(empty_value(value));
              continue;
            }
            if (text_of(described, "kind") == "object") continue;  // below
            const Asked asked = {.type = type, .word = word, .key = key, .uri = uri, .operation = operation};
            EXPECT_GT(bytes_filled(asked, filling_value(described, kind_row(text_of(described, "kind")))), 0u)
                << where << " " << key;
            ++members;
            of_one_uri += member(described, "uri") != nullptr;
            of_an_operation += !operation.empty();
          }
          const Bytes record = record_of(word, others, uri);
          EXPECT_EQ(record.empty(), word == "ACTION") << where;  // which brings no record
          EXPECT_EQ(record, record_of(word, empty_others, uri)) << where << " counts one of" << others;
        }
      }
    }
  }
  EXPECT_GT(members, of_one_uri + of_an_operation);
  EXPECT_GT(of_one_uri, 0);
  EXPECT_GT(of_an_operation, 0);
}

TEST_F(DescribeTypes, MembersOfObjectsAreDecoded) {
  int members = 0;
  for (const auto& [type, row] : rows_)
    for (const auto& [word, fields] : requests_of(row))
      for (const cJSON* const field : elements_of(fields))
        for (const cJSON* const inner : elements_of(member(field, "fields"))) {
          const std::string value = filling_value(inner, kind_row(text_of(inner, "kind")));
          const std::string object = "{\"" + text_of(inner, "key") + "\":" + value + "}";
          const Asked asked = {.type = type,
                               .word = word,
                               .key = text_of(field, "key"),
                               .uri = uri_of(type, field),
                               .operation = operation_of(field)};
          EXPECT_GT(bytes_filled(asked, object), 0u) << row->string << " " << object;
          ++members;
        }
  EXPECT_GT(members, 0);
}

// A text keeps as many bytes as its limit says, a number as many as its largest value has, an array as many elements as
// its count says. A member that the table has several rows for is kept by each of them.
TEST_F(DescribeTypes, LimitsAreThoseOfTheRecord) {
  const std::map<std::string, std::size_t> widths = {{"uint8", 1},  {"uint16", 2}, {"int32", 4},
                                                     {"uint32", 4}, {"int64", 8},  {"uint64", 8}};
  for (const auto& [type, row] : rows_) {
    for (const auto& [word, fields] : requests_of(row)) {
      for (const cJSON* const field : elements_of(fields)) {
        const std::string key = text_of(field, "key"), kind = text_of(field, "kind"), uri = uri_of(type, field);
        const Asked asked = {.type = type, .word = word, .key = key, .uri = uri, .operation = operation_of(field)};
        const std::string where = row->string + (" " + word) + " " + key + asked.operation;
        const auto rows = static_cast<std::size_t>(std::ranges::count_if(elements_of(fields), [&](const cJSON* other) {
          return text_of(other, "key") == key && (!member(other, "uri") || text_of(other, "uri") == uri) &&
                 operation_of(other) == asked.operation;
        }));
        const std::string value = filling_value(field, kind_row(kind));
        if (kind == "text" && !member(field, "limit")) continue;  // a name, of which a number is kept
        if (kind == "text") {
          const auto limit = static_cast<std::size_t>(number_of(field, "limit"));
          EXPECT_EQ(bytes_filled(asked, "\"" + std::string(limit + 9, 'x') + "\""), limit * rows) << where;
        } else if (value.starts_with('[')) {
          std::string more = value;
          more.insert(1, "1,1,1,");
          const auto count = static_cast<std::size_t>(number_of(field, "count"));
          const std::size_t kept = bytes_filled(asked, more);
          EXPECT_EQ(kept, bytes_filled(asked, value)) << where;
          // The number of elements that were taken may be kept as well.
          EXPECT_TRUE(kept == count || kept == count + 1) << where << " " << kept;
        } else if (widths.contains(kind)) {
          // What cannot be negative when it is set is an index.
          if (type == TYPE_OPTION_LIST && word == "SET") continue;
          EXPECT_EQ(bytes_filled(asked, value), widths.at(kind) * rows) << where;
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

// A member that a response or notification shows, as its key and what its value is in JSON.
using Shown = std::set<std::pair<std::string, std::string>>;
using KindRow = std::function<const cJSON*(const std::string&)>;

// A text that its record does not hold itself, which therefore has no limit, can be null.
bool describes(const cJSON* field, const cJSON* value, const KindRow& kind_row) {
  const std::string json = text_of(kind_row(text_of(field, "kind")), "json");
  const bool can_be_null = json == "string" && !member(field, "limit");
  return text_of(field, "key") == value->string && (json == json_kind(value) || (can_be_null && cJSON_IsNull(value)));
}

Shown described_members(const cJSON* fields, const KindRow& kind_row) {
  Shown members;
  for (const cJSON* const field : elements_of(fields))
    members.emplace(text_of(field, "key"), text_of(kind_row(text_of(field, "kind")), "json"));
  return members;
}

// Whether an array of the type is shown only as far as it is filled.
bool is_counted(const ItemType& item, const std::string& key) {
  const auto counts = [&key](const Field& field) { return field.key == key && field.count.size > 0; };
  return std::ranges::any_of(flat(item.fields), counts) || std::ranges::any_of(item.forms, [&](const ItemForm& form) {
           return std::ranges::any_of(form.fields, counts);
         });
}

// Compares an item with its description, which has the members in order unless the type has several forms. ret_shown:
// the members of the item.
void expect_item(const ItemType& type, const cJSON* item, const cJSON* fields, const std::string& where,
                 const KindRow& kind_row, Shown& ret_shown) {
  std::vector<const cJSON*> described = elements_of(fields);
  auto next = described.begin();
  for (const cJSON* value = item ? item->child : nullptr; value; value = value->next) {
    const std::string name = where + "." + value->string;
    if (type.forms.size() > 1) next = described.begin();
    next = std::find_if(next, described.end(), [&](const cJSON* field) { return describes(field, value, kind_row); });
    ASSERT_NE(next, described.end()) << name << " is not described, or not in this order";
    const cJSON* const field = *next++;
    if (!cJSON_IsNull(value)) ret_shown.emplace(value->string, json_kind(value));
    if (cJSON_IsArray(value) && is_counted(type, value->string))
      EXPECT_LE(cJSON_GetArraySize(value), number_of(field, "count")) << name;
    else if (cJSON_IsArray(value))
      EXPECT_EQ(cJSON_GetArraySize(value), number_of(field, "count")) << name;
    if (text_of(field, "kind") == "constant") EXPECT_EQ(text_of(field, "value"), value->valuestring) << name;
    if (!cJSON_IsObject(value)) continue;
    Shown inner;
    expect_item(type, value, member(field, "fields"), name, kind_row, inner);
    EXPECT_EQ(inner.size(), elements_of(member(field, "fields")).size()) << name;
  }
}

// The operations that a type's records answer, each as one of its fields, and none.
std::vector<const FlatField*> operations_of(const ItemType& item) {
  std::map<UINT16, const FlatField*> operations;
  for (const FlatField& field : flat(item.fields))
    if (field.selector.size) operations.emplace(field.selected, &field);
  std::vector<const FlatField*> all = {nullptr};
  for (const auto& [number, field] : operations) all.push_back(field);
  return all;
}

TEST_F(DescribeTypes, ResponsesShowTheDescribedMembers) {
  const auto kind_of = [this](const std::string& kind) { return kind_row(kind); };
  int responses = 0;
  for (const auto& [type, type_row] : rows_) {
    const cJSON* const row = type_row;  // a lambda captures no binding
    const ItemType& item_type = *tvc_item_type(static_cast<UINT8>(type));
    const cJSON* const fields = member(row, "response");
    Shown shown;
    const auto expect_response = [&](const cJSON* response) {
      std::vector<std::string> keys = {"URI", "STATUS"};
      for (const cJSON* const field : elements_of(member(row, "root"))) keys.push_back(text_of(field, "key"));
      keys.emplace_back("ITEMS");
      EXPECT_EQ(keys_of(response), keys) << row->string;
      for (const cJSON* const item : elements_of(member(response, "ITEMS")))
        expect_item(item_type, item, fields, row->string, kind_of, shown);
    };
    std::set<std::string> uris = {uri_of(type)};  // that have forms of their own, and one that has not
    for (const ItemForm& form : item_type.forms)
      if (char uri[256]; form.uri && tv_ctrl_get_uri_by_id(form.uri, uri) == VEXTVCTRLR_OK) uris.insert(uri);
    for (const std::string& uri : uris)
      for (const FlatField* const operation : operations_of(item_type))
        for (UINT32 number = 0; number <= 12; ++number)
          for (const std::size_t skipped : {0u, 128u})
            for (const bool texts : {false, true}) {
              const Bytes bytes = words_of(number, skipped);
              const Answer answer = {.bytes = &bytes, .entries = number, .texts = texts, .operation = operation};
              if (const Json response = response_of(type, uri, answer)) expect_response(response.get());
            }
    EXPECT_EQ(shown, described_members(fields, kind_of)) << row->string;
    responses += cJSON_IsArray(fields);
  }
  EXPECT_GT(responses, 0);
}

// The value of "when" for an operation's number: its name, null for no operation, the number where it has no name.
std::string when_of(const ItemType& item, const FlatField& operation) {
  if (operation.selected == 0) return "null";
  for (const FlatField& field : flat(item.fields)) {
    if (field.kind != FieldKind::kName || field.offset != operation.selector.offset) continue;
    for (const char* value = field.values; *value; value += std::strlen(value) + 1)
      if (std::stoi(value) == operation.selected) return "\"" + std::string(std::strchr(value, '=') + 1) + "\"";
  }
  return std::to_string(operation.selected);
}

// An operation's answer has the members of that operation, and of no other.
TEST_F(DescribeTypes, ResponsesShowTheMembersOfTheirOperation) {
  std::map<char, int> operations;  // by the first character of what "when" holds
  for (const auto& [type, row] : rows_) {
    const ItemType& item = *tvc_item_type(static_cast<UINT8>(type));
    const Bytes cleared(65536);
    for (const FlatField* const operation : operations_of(item)) {
      if (!operation) continue;
      const std::string when = when_of(item, *operation);
      ++operations[when[0]];
      std::vector<std::string> described;
      for (const cJSON* const field : elements_of(member(row, "response")))
        if (!member(field, "when") || print_json(member(member(field, "when"), "value")) == when)
          described.push_back(text_of(field, "key"));
      const Json response = response_of(type, uri_of(type), {.bytes = &cleared, .operation = operation});
      EXPECT_EQ(keys_of(member(response.get(), "ITEMS")->child), described) << row->string << " " << when;
    }
  }
  EXPECT_GT(operations['"'], 0);
  EXPECT_GT(operations['n'], 0);
  EXPECT_GT(operations['1'], 0) << "some operation has no name";
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
    const ItemType& item_type = *tvc_item_type(static_cast<UINT8>(type));
    Shown shown;
    if (cJSON_IsObject(carried)) {
      EXPECT_EQ(form, "single") << where;
      expect_item(item_type, carried, member(notify, "fields"), where, kind_of, shown);
    } else {
      EXPECT_EQ(cJSON_GetArraySize(carried), form == "queued" ? 2 : 1) << where;
      for (const cJSON* const item : elements_of(carried))
        expect_item(item_type, item, member(notify, "fields"), where, kind_of, shown);
    }
    EXPECT_EQ(shown, described_members(member(notify, "fields"), kind_of)) << where;
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
