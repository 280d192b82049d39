// Every item type that a request decodes: decode, compare with the record meant, render, decode again.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support.h"
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/request.h"

namespace {

constexpr int kVariants = 6;
constexpr int kOne = kVariants;  // a further variant: the number 1

// A made-up value of a number field, at its limits for the first variants.
template <typename T>
T number_of(int variant) {
  switch (variant) {
    case 0:
      return std::numeric_limits<T>::min();
    case 1:
      return std::numeric_limits<T>::max();
    case 2:
      return 0;
    case 3:
      return static_cast<T>(-1);
    case 4:
      return sizeof(T) == 8 ? static_cast<T>(1LL << 49) : static_cast<T>(1) << (sizeof(T) * 8 - 2);
    case kOne:
      return 1;
    default:
      return 42;
  }
}

// At most `size` minus one bytes.
std::string text_of(int variant, std::size_t size) {
  std::string text;
  switch (variant) {
    case 0:
      return "";
    case 1:
      return std::string(size - 1, 'x');
    case 2:
      return std::string(size - 1, '"');
    case 3:
      text = "\\\b\f\n\r\t\x01\x1F/";
      break;
    case 4:
      text = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x93\xBA";  // characters of two, three and four bytes
      break;
    default:
      text = "plain";
  }
  return text.substr(0, size - 1);
}

template <typename T>
cJSON* put_number(void* record, const Field& field, int variant) {
  const T value = number_of<T>(variant);
  std::memcpy(static_cast<char*>(record) + field.offset, &value, sizeof value);
  // Beyond 2^53 a JSON number is not exact; a text is.
  return sizeof(T) == 8 ? cJSON_CreateString(std::to_string(value).c_str())
                        : cJSON_CreateNumber(static_cast<double>(value));
}

// --- A request, and the record that it means ---

// One request that is made up: its URI, the values of its members, the operation that it names, and whether it has a
// member.
struct Made {
  UINT16 uri = 0;
  int variant = 0;
  const FlatField* operation = nullptr;  // a field of that operation; null: names are as the variant says
  std::function<bool(std::string_view key)> has = [](std::string_view) { return true; };
};

cJSON* put_fields(std::span<const Field> fields, FieldUse use, void* record, const Made& made);

// How many elements a request's array has: one, as many as there is room for, or more.
template <typename Element>
cJSON* put_elements(void* record, const Field& field, int variant) {
  const std::size_t room = field.size / sizeof(Element);
  const std::size_t size = variant == 0 ? 1 : variant == 1 ? room : room + 3;
  char* place = static_cast<char*>(record) + field.offset;
  cJSON* const array = cJSON_CreateArray();
  for (std::size_t i = 0; i < size; ++i, place += sizeof(Element)) {
    const auto value = number_of<Element>(variant + static_cast<int>(i));
    cJSON_AddItemToArray(array, cJSON_CreateNumber(static_cast<double>(value)));
    if (i < room) std::memcpy(place, &value, sizeof value);
  }
  return array;
}

cJSON* put_array(const Field& field, void* record, int variant) {
  switch (field.kind) {
    case FieldKind::kUint8Array:
      return put_elements<UINT8>(record, field, variant);
    case FieldKind::kUint16Array:
      return put_elements<UINT16>(record, field, variant);
    case FieldKind::kInt32Array:
      return put_elements<INT32>(record, field, variant);
    case FieldKind::kUint32Array:
      return put_elements<UINT32>(record, field, variant);
    default:
      ADD_FAILURE() << field.key << " has a count and is no array";
      return cJSON_CreateNull();
  }
}

// Puts the number of one of a field's names into the record meant, or 0 for a name that it does not know. Returns the
// name, for odd variants in capitals.
cJSON* put_name(const Field& field, void* record, const Made& made) {
  std::vector<std::pair<INT32, std::string>> names;
  for (const char* value = field.values; *value; value += std::strlen(value) + 1)
    names.emplace_back(std::stoi(value), std::strchr(value, '=') + 1);
  const bool names_operation = made.operation && made.operation->selector.offset == field.offset;
  auto named = names.begin() + made.variant % static_cast<int>(names.size());
  if (names_operation) named = std::ranges::find(names, made.operation->selected, &decltype(names)::value_type::first);
  std::pair<INT32, std::string> found = {0, "no such name"};
  if (named != names.end() && (names_operation || made.variant > 0)) found = *named;
  std::memcpy(static_cast<char*>(record) + field.offset, &found.first, sizeof found.first);
  if (made.variant % 2 == 1)
    for (char& letter : found.second) letter = static_cast<char>(std::toupper(letter));
  return cJSON_CreateString(found.second.c_str());
}

// Puts a field's value into the record meant and returns the JSON that asks for it.
cJSON* put_field(const Field& field, void* record, const Made& made) {
  char* const place = static_cast<char*>(record) + field.offset;
  int variant = made.variant;
  // A row with a decoder of its own stores these two like its kind.
  if (field.decode && field.decode != tvc_decode_library_integer && number_of<UINT8>(variant) != 0) variant = kOne;
  switch (field.kind) {
    case FieldKind::kUint8:
      return put_number<UINT8>(record, field, variant);
    case FieldKind::kUint16:
      return put_number<UINT16>(record, field, variant);
    case FieldKind::kInt32:
      return put_number<INT32>(record, field, variant);
    case FieldKind::kUint32:
      return put_number<UINT32>(record, field, variant);
    case FieldKind::kInt64:
      return put_number<INT64>(record, field, variant);
    case FieldKind::kUint64:
      return put_number<UINT64>(record, field, variant);
    case FieldKind::kText: {
      const std::string text = text_of(variant, field.size);
      std::memset(place, 0, field.size);
      std::memcpy(place, text.c_str(), text.size() + 1);
      return cJSON_CreateString(text.c_str());
    }
    case FieldKind::kName:
      return put_name(field, record, made);
    case FieldKind::kObject:
      return put_fields(field.fields, kEverywhere, place, made);
    default:
      if (field.count.size) return put_array(field, record, variant);
      ADD_FAILURE() << field.key << " is of a kind that no request decodes";
      return cJSON_CreateNull();
  }
}

void put_integer(void* record, IntegerPlace place, INT32 value) {
  char* const at = static_cast<char*>(record) + place.offset;
  if (place.size == 1) *at = static_cast<char>(value);
  if (place.size == 2) std::memcpy(at, std::vector{static_cast<UINT16>(value)}.data(), place.size);
  if (place.size == 4) std::memcpy(at, &value, place.size);
}

// Whether the record's operation has the field.
bool is_selected(const FlatField& field, const void* record) {
  return !field.selector.size || tvc_integer_at(record, field.selector) == field.selected;
}

// Whether the request may touch the field. `object` has the request's members so far; a text that excludes the field
// stands before it in the table.
bool is_read(const FlatField& field, FieldUse use, const void* record, const cJSON* object, UINT16 uri) {
  if (use != kEverywhere && !(field.use & use)) return false;
  if (field.uri && field.uri != uri) return false;
  if (!is_selected(field, record)) return false;
  return !field.unless || !cJSON_IsString(cJSON_GetObjectItemCaseSensitive(object, field.unless));
}

// Adds a member; a key that two rows read has one value.
void add_member(cJSON* object, const Field& field, cJSON* value) {
  const cJSON* const before = cJSON_GetObjectItemCaseSensitive(object, field.key.data());
  if (!before) {
    cJSON_AddItemToObject(object, field.key.data(), value);
    return;
  }
  EXPECT_TRUE(cJSON_Compare(before, value, true)) << field.key << " is the name of two values";
  cJSON_Delete(value);
}

// Every member of the use that the request has, also those that the plugin must not read.
cJSON* put_fields(std::span<const Field> fields, FieldUse use, void* record, const Made& made) {
  cJSON* const object = cJSON_CreateObject();
  for (const FlatField& field : flat(fields)) {
    if (use != kEverywhere && !(field.use & use)) continue;
    const bool has = made.has(field.key);
    const bool reads = is_read(field, use, record, object, made.uri);
    const bool decodes = has && reads && (!field.count.size || tvc_integer_at(record, field.count) != 0);
    if (has) {
      std::vector<char> aside(static_cast<const char*>(record), static_cast<const char*>(record) + field.offset);
      aside.resize(field.offset + field.size);
      add_member(object, field, put_field(field, decodes ? record : aside.data(), made));
    }
    if (!reads) continue;
    put_integer(record, field.found, decodes);
    put_integer(record, field.missing, !decodes);
    if (decodes && field.sets_count) {
      const int sent = cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(object, field.key.data()));
      put_integer(record, field.count, std::min(sent, static_cast<int>(field.size / tvc_element_size(field.kind))));
    }
  }
  return object;
}

// The URIs for which rows have conditions; 0 is any other URI.
std::set<UINT16> uris_of(const ItemType& item) {
  std::set<UINT16> uris = {0};
  for (const FlatField& field : flat(item.fields)) uris.insert(field.uri);
  return uris;
}

// Requests with all members, with none, with all but one that excludes another, and with all in each operation.
std::vector<Made> requests_of(const ItemType& item, UINT16 uri, int variant) {
  std::vector<Made> requests = {{.uri = uri, .variant = variant},
                                {.uri = uri, .variant = variant, .has = [](std::string_view) { return false; }}};
  for (const FlatField& field : flat(item.fields))
    if (field.unless)
      requests.push_back(
          {.uri = uri, .variant = variant, .has = [&field](std::string_view key) { return key != field.unless; }});
  std::map<UINT16, const FlatField*> operations;
  for (const FlatField& field : flat(item.fields))
    if (field.selector.size) operations.emplace(field.selected, &field);
  for (const auto& [number, field] : operations)
    requests.push_back({.uri = uri, .variant = variant, .operation = field});
  return requests;
}

std::string response_item(const ItemType& item, const void* record) {
  JsonText json;
  tvc_write_object(json, item.fields, kResponse, record);
  EXPECT_TRUE(tvc_finish_text(json));
  const std::unique_ptr<char, decltype(&std::free)> owner(json.text, std::free);
  return {json.text, json.length};
}

// The rendered record, decoded again, is equal to the record in every field with the same key in both directions.
void expect_same_again(const ItemType& item, FieldUse use, const void* record, const std::string& where,
                       UINT16 uri = 0) {
  const std::string text = response_item(item, record);
  const Json parsed = parse_json(text);
  ASSERT_TRUE(parsed) << where << ": " << text;
  std::vector<char> again(item.record_size, 0);
  tvc_decode_fields(item.fields, use, parsed.get(), again.data(), "", uri);
  for (const FlatField& field : flat(item.fields)) {
    if (!(field.use & use) || !(field.use & kResponse) || (field.uri && field.uri != uri)) continue;
    const bool shown = is_selected(field, record) && (!field.when || field.when(record));
    EXPECT_EQ(cJSON_HasObjectItem(parsed.get(), field.key.data()), shown) << where << "." << field.key;
    if (shown)
      EXPECT_EQ(std::memcmp(again.data() + field.offset, static_cast<const char*>(record) + field.offset, field.size),
                0)
          << where << "." << field.key << " in " << text;
  }
}

void expect_decoded(const ItemType& item, FieldUse use, const Made& made, const std::string& where) {
  std::vector<char> meant(item.record_size, 0), decoded(item.record_size, 0);
  const Json parameter(put_fields(item.fields, use, meant.data(), made), cJSON_Delete);
  const std::string text = print_json(parameter.get());
  const Json parsed = parse_json(text);
  ASSERT_TRUE(parsed) << where;
  EXPECT_EQ(tvc_decode_fields(item.fields, use, parsed.get(), decoded.data(), "", made.uri), 0) << where;
  const auto [at, other] = std::ranges::mismatch(decoded, meant);
  EXPECT_TRUE(at == decoded.end()) << where << ": byte " << at - decoded.begin() << " of " << text;
  if (tvc_item_has(item, kResponse)) expect_same_again(item, use, decoded.data(), where, made.uri);
}

TEST(RoundTrip, DecodedRecordIsTheOneMeant) {
  for (const FieldUse use : {kQuery, kSet, kAssociate}) {
    for (const int type : decoded_types(use)) {
      const ItemType& item = *tvc_item_type(static_cast<UINT8>(type));
      for (const UINT16 uri : uris_of(item))
        for (int variant = 0; variant < kVariants; ++variant)
          for (const Made& made : requests_of(item, uri, variant))
            expect_decoded(item, use, made,
                           std::string(tvc_item_type_name(item.type)) + " of " + std::to_string(uri) + " variant " +
                               std::to_string(variant));
    }
  }
}

TEST(RoundTrip, WhatIsDecodedIsDescribedByATable) {
  for (const FieldUse use : {kQuery, kModify, kSet, kAssociate}) {
    std::set<int> types;
    for (const ItemType* const item : tvc_item_types())
      if (tvc_item_has(*item, use)) types.insert(item->type);
    EXPECT_EQ(types, decoded_types(use)) << int{use};
  }
}

TEST(RoundTrip, ModifiedRecordIsTheOneMeant) {
  for (const ItemType* const item : tvc_item_types()) {
    for (const FlatField& field : flat(item->fields)) {
      if (!(field.use & kModify)) continue;
      for (int variant = 0; variant < kVariants; ++variant) {
        const std::string where = std::string(tvc_item_type_name(item->type)) + " variant " + std::to_string(variant);
        std::vector<char> meant(item->record_size, 0), decoded(item->record_size, 0);
        Json value(put_field(field, meant.data(), {.variant = variant}), cJSON_Delete);
        if (field.kind == FieldKind::kInt64)  // texts are not converted here
          value = Json(cJSON_CreateNumber(static_cast<double>(number_of<INT64>(variant))), cJSON_Delete);
        EXPECT_TRUE(tvc_modify_record("", item, value.get(), decoded.data())) << where;
        EXPECT_EQ(decoded, meant) << where;
      }
    }
  }
}

TEST(RoundTrip, TextOfAnyLengthStaysInItsField) {
  for (const ItemType* const item : tvc_item_types()) {
    for (const FlatField& field : flat(item->fields)) {
      if (field.kind != FieldKind::kText) continue;
      for (const FieldUse use : {kQuery, kSet, kAssociate}) {
        if (!(field.use & use)) continue;
        std::vector<char> meant(item->record_size, 0), decoded(item->record_size, 0);
        const Made made = {.uri = field.uri, .has = [&field](std::string_view key) { return key == field.key; }};
        const Json parameter(put_fields(item->fields, use, meant.data(), made), cJSON_Delete);
        std::memset(meant.data() + field.offset, 'y', field.size - 1);
        cJSON_ReplaceItemInObjectCaseSensitive(parameter.get(), field.key.data(),
                                               cJSON_CreateString(std::string(100'000, 'y').c_str()));
        tvc_decode_fields(item->fields, use, parameter.get(), decoded.data(), "", field.uri);
        EXPECT_EQ(decoded, meant) << tvc_item_type_name(item->type) << "." << field.key;
      }
    }
  }
}

// A flag is 0 or 1 in the record, whatever number the request has.
TEST(RoundTrip, ChannelChoiceReadsItsFlag) {
  const std::pair<const char*, int> values[] = {{"0", 0}, {"1", 1}, {"2", 1}, {"255", 1}, {"256", 1}, {"65535", 1}};
  for (const auto& [value, flag] : values) {
    T_CHANNEL_SELECT record = {};
    record.b_check_barker_channel = 77;
    const Json parameter = parse_json("{\"CHECK_BARKER\":" + std::string(value) + "}");
    tvc_decode_fields(tvc_item_type(TYPE_CHANNEL_SELECT)->fields, kSet, parameter.get(), &record, "");
    EXPECT_EQ(record.b_check_barker_channel, flag) << value;
  }
}

// The blocks of a scan's record: which keys each scan type shows beside the eight common ones.
TEST(RoundTrip, TunerScanShowsTheBlockOfItsType) {
  const ItemType& item = *tvc_item_type(TYPE_TUNER_SCAN);
  const auto keys_of = [](int type) -> std::vector<std::string> {
    switch (type) {
      case 4:
      case 6:
      case 10:
        return {"ATSC_FIRST_SCAN_IDX", "ATSC_LAST_SCAN_IDX", "ATSC_MOD_MASK", "ATSC_FREQ_PLAN"};
      case 5:
      case 11:
        return {"ISDB_FIRST_SCAN_IDX", "ISDB_LAST_SCAN_IDX", "ISDB_CFG_FLAG"};
      case 3:
        return {"NTSC_FIRST_SCAN_IDX", "NTSC_LAST_SCAN_IDX"};
      case 1:
        return {"DVBT_SCAN_IDX", "DVBT_FREQ", "DVBT_BANDWIDTH", "DVBT_CHANNEL_NAME"};
      case 2:
        return {"DVBC_NW_ID", "DVBC_START_FREQ", "DVBC_END_FREQ", "DVBC_CFG_FLAG"};
      case 0:
        return {"PAL_START_FREQ", "PAL_END_FREQ"};
      default:
        return {};
    }
  };
  const std::vector<std::string> common = {
      "NAME", "TYPE", "GROUP", "STATE", "SCAN_TYPE", "SCAN_MODE", "SCAN_DEFAULT_SETTING", "SCAN_SKIP_FAKE"};
  for (int type = -2; type <= 20; ++type) {
    for (int variant = 0; variant < kVariants; ++variant) {
      T_TUNER_SCAN record = {};
      for (const FlatField& field : flat(item.fields))
        if (field.kind != FieldKind::kConstant) cJSON_Delete(put_field(field, &record, {.variant = variant}));
      record.scan_type = type;
      const Json rendered = parse_json(response_item(item, &record));
      ASSERT_TRUE(rendered) << "scan type " << type;
      std::vector<std::string> expected = common, found;
      for (const std::string& key : keys_of(type)) expected.push_back(key);
      for (const cJSON* member = rendered->child; member; member = member->next) found.emplace_back(member->string);
      EXPECT_EQ(found, expected) << "scan type " << type;
      EXPECT_STREQ(cJSON_GetObjectItem(rendered.get(), "NAME")->valuestring, "Tuner Scan");
      expect_same_again(item, kSet, &record, "scan type " + std::to_string(type));
    }
  }
}

TEST(RoundTrip, TunerScanMembersReachTheirFields) {
  const Json parameter = parse_json(
      R"({"SCAN_TYPE":-1,"SCAN_MODE":-2,"SCAN_DEFAULT_SETTING":-3,"SCAN_SKIP_FAKE":-4,"ATSC_FIRST_SCAN_IDX":1,)"
      R"("ATSC_LAST_SCAN_IDX":2,"ATSC_MOD_MASK":3,"ATSC_FREQ_PLAN":4,"ISDB_FIRST_SCAN_IDX":5,"ISDB_LAST_SCAN_IDX":6,)"
      R"("ISDB_CFG_FLAG":7,"NTSC_FIRST_SCAN_IDX":8,"NTSC_LAST_SCAN_IDX":9,"DVBT_FIRST_SCAN_IDX":10,)"
      R"("DVBT_LAST_SCAN_IDX":11,"DVBT_MANUAL_FREQ":12,"DVBC_NW_ID":-13,"DVBC_START_FREQ":-14,"DVBC_END_FREQ":-15,)"
      R"("DVBC_CFG_FLAG":-16,"PAL_START_FREQ":17,"PAL_END_FREQ":18,"DVBT_SCAN_IDX":99,"DVBT_BANDWIDTH":99,)"
      R"("DVBT_CHANNEL_NAME":"no","DVBT_FREQ":99,"GROUP":99,"STATE":99,"NAME":"no"})");
  T_TUNER_SCAN expected;
  std::memset(&expected, 0, sizeof expected);
  expected.scan_type = -1;
  expected.scan_mode = -2;
  expected.scan_default_setting = -3;
  expected.skip_fake = -4;
  expected.atsc_scan_data = {1, 2, 3, 4};
  expected.isdb_scan_data = {5, 6, 7};
  expected.ntsc_scan_data = {8, 9};
  expected.dvbt_scan_data.first_scan_index = 10;
  expected.dvbt_scan_data.last_scan_index = 11;
  expected.dvbt_scan_data.freq = 12;
  expected.dvbc_scan_data = {-13, -14, -15, -16};
  expected.pal_scan_data = {17, 18};
  T_TUNER_SCAN record;
  std::memset(&record, 0, sizeof record);
  tvc_decode_fields(tvc_item_type(TYPE_TUNER_SCAN)->fields, kSet, parameter.get(), &record, "");
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): the padding is cleared, and is to stay so
  EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
}

TEST(RoundTrip, TimeReadsItsMembers) {
  const Json parameter = parse_json(
      R"({"VALUE":"0x10","DTG":{"YEAR":2026,"MONTH":1,"DAY":"2","WEEK":3,"HOUR":4,"MINUTE":5,"SECOND":6,"GMT":7,"DST":8}})");
  T_TIME record = {};
  tvc_decode_fields(tvc_item_type(TYPE_TIME)->fields, kQuery, parameter.get(), &record, "");
  EXPECT_EQ(record.value, 16);
  EXPECT_EQ(record.dtg.ui2_yr, 2026);
  EXPECT_EQ(record.dtg.ui1_mo, 1);
  EXPECT_EQ(record.dtg.ui1_day, 2);
  EXPECT_EQ(record.dtg.ui1_dow, 3);
  EXPECT_EQ(record.dtg.ui1_hr, 4);
  EXPECT_EQ(record.dtg.ui1_min, 5);
  EXPECT_EQ(record.dtg.ui1_sec, 6);
  EXPECT_EQ(record.dtg.b_gmt, 7);
  EXPECT_EQ(record.dtg.b_dst, 8);
}

TEST(RoundTrip, DecodingWithoutObjectOrRecordFails) {
  const ItemType& item = *tvc_item_type(TYPE_TEXT);
  T_TEXT record = {};
  const Json object = parse_json("{\"VALUE\":\"x\"}");
  EXPECT_EQ(tvc_decode_fields(item.fields, kQuery, nullptr, &record, "f"), -1);
  EXPECT_EQ(tvc_decode_fields(item.fields, kQuery, object.get(), nullptr, "f"), -1);
  EXPECT_EQ(record.value[0], '\0');
}

}  // namespace
