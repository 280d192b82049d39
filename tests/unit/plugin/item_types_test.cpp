// The item-type table and the content records, walked whole.
#include "tv_ctrl_api/item_types.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support.h"
#include "tv_ctrl_api/request.h"
#include "tv_ctrl_main/registry.h"

// Numbers of subtitle encodings and kinds, which C callers put into a player's record or read there.
static_assert(T_CBROWSER_PB_SBTL_FONT_ENC_AUTO == 0 && T_CBROWSER_PB_SBTL_FONT_ENC_UTF8 == 1 &&
              T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1258 == 14 && T_CBROWSER_PB_SBTL_FONT_ENC_KOI8_R == 21);
static_assert(T_CBROWSER_PB_SBTL_UNKNOWN == 0 && T_CBROWSER_PB_SBTL_SRT == 4 && T_CBROWSER_PB_SBTL_SUP == 16);

namespace {

constexpr FieldUse kUses[] = {kQuery, kModify, kSet, kAssociate, kResponse, kNotify};

std::size_t size_of_kind(FieldKind kind) {
  switch (kind) {
    case FieldKind::kUint8:
      return 1;
    case FieldKind::kInt16:
    case FieldKind::kUint16:
      return 2;
    case FieldKind::kInt32:
    case FieldKind::kUint32:
    case FieldKind::kName:
      return 4;
    case FieldKind::kInt64:
    case FieldKind::kUint64:
    case FieldKind::kDouble:
      return 8;
    case FieldKind::kOwnedText:
    case FieldKind::kWord:
      return sizeof(void*);
    default:
      return 0;  // of any size
  }
}

void check_fields(std::span<const Field> fields, std::size_t record_size, const std::string& where) {
  for (const FlatField& field : flat(fields)) {
    const std::string name = where + "." + field.key.data();
    if (field.kind == FieldKind::kConstant) {
      EXPECT_NE(field.text, nullptr) << name;
      continue;
    }
    EXPECT_LE(field.offset + field.size, record_size) << name;
    EXPECT_GT(field.size, 0u) << name;
    if (const std::size_t size = size_of_kind(field.kind)) EXPECT_EQ(field.size, size) << name;
    if (field.kind == FieldKind::kText) EXPECT_GE(field.size, 2u) << name << " has room for no text";
    EXPECT_EQ(field.kind == FieldKind::kObject, !field.fields.empty()) << name;
    if (field.kind == FieldKind::kObject) check_fields(field.fields, field.size, name);
    for (const IntegerPlace place : {field.count, field.found, field.missing, field.selector})
      EXPECT_LE(std::size_t{place.offset} + place.size, record_size) << name;
  }
}

TEST(ItemTypes, FieldsLieInTheirRecords) {
  for (const ItemType* const item : tvc_item_types())
    check_fields(item->fields, item->record_size, tvc_item_type_name(item->type));
}

TEST(ItemTypes, FormsLieInTheirRecords) {
  int lists = 0;
  for (const ItemType* const item : tvc_item_types()) {
    for (const ItemForm& form : item->forms) {
      const EntryList& list = form.list;
      lists += list.entry_size > 0;
      check_fields(form.fields, list.entry_size ? list.entry_size : item->record_size, tvc_item_type_name(item->type));
      EXPECT_LE(list.entries_offset + list.entry_size * list.most, item->record_size) << int{item->type};
      EXPECT_LE(UINT32{list.count.offset} + list.count.size, item->record_size) << int{item->type};
    }
  }
  EXPECT_GT(lists, 0) << "the mount points are one";
}

constexpr FieldUse kDecodedUses = kQuery | kModify | kSet | kAssociate;

// Whether some request or record has both rows; a decoding row can belong to one URI.
bool can_meet(const FlatField& one, const FlatField& other, bool decoded) {
  const bool same_operation = !one.selector.size || !other.selector.size || one.selected == other.selected;
  return one.key == other.key && same_operation && (!decoded || one.uri == other.uri);
}

// Several rows may show one member, each under a condition, or read it, each for a URI, for an operation or under a
// condition.
void check_keys(std::span<const Field> fields, FieldUse use, const std::string& where) {
  const bool decoded = (use & kDecodedUses) != 0;
  const auto takes_part = [use](const Field& field) { return use == kEverywhere || (field.use & use); };
  const auto is_conditional = [decoded](const Field& field) { return !decoded && field.when; };
  const std::vector<FlatField>& rows = flat(fields);
  for (const FlatField& field : rows) {
    if (!takes_part(field)) continue;
    EXPECT_FALSE(field.key.empty()) << where;
    EXPECT_TRUE(
        std::all_of(field.key.begin(), field.key.end(), [](char c) { return c > ' ' && c != '"' && c != '\\'; }))
        << where << "." << field.key << " would have to be escaped";
    for (const FlatField& before : std::span(rows).first(static_cast<std::size_t>(&field - rows.data())))
      if (takes_part(before) && can_meet(field, before, decoded))
        EXPECT_TRUE(is_conditional(field) && is_conditional(before)) << where << "." << field.key << " occurs twice";
    check_keys(field.fields, kEverywhere, where + "." + field.key.data());
  }
}

TEST(ItemTypes, KeysAreUniqueWithinAUse) {
  for (const ItemType* const item : tvc_item_types())
    for (const FieldUse use : kUses) check_keys(item->fields, use, tvc_item_type_name(item->type));
  for (const ItemType* const item : tvc_item_types())
    for (const ItemForm& form : item->forms) check_keys(form.fields, kEverywhere, tvc_item_type_name(item->type));
}

// A request of the URI that a row names is decoded as the row's type.
TEST(ItemTypes, UrisOfRowsHaveTheTypeOfTheirRow) {
  int rows = 0;
  for (const ItemType* const item : tvc_item_types()) {
    const auto expect_type = [&](UINT16 uri) {
      if (uri == 0) return;
      ++rows;
      EXPECT_EQ(tv_ctrl_get_type_by_id(uri), item->type) << uri;
    };
    for (const FlatField& field : flat(item->fields)) {
      expect_type(field.uri);
      EXPECT_TRUE(field.uri == 0 || (field.use & kDecodedUses)) << field.key << " is only shown";
    }
    for (const ItemForm& form : item->forms) expect_type(form.uri);
  }
  EXPECT_GT(rows, 0) << "the guide's filter has some";
}

// What counts the elements of a decoded array is decoded before it, in every request that reads the array.
TEST(ItemTypes, DecodedArraysAreCountedByARowBeforeThem) {
  int arrays = 0;
  for (const ItemType* const item : tvc_item_types()) {
    for (const FlatField& array : flat(item->fields)) {
      if (!array.count.size || !(array.use & kDecodedUses)) continue;
      ++arrays;
      const auto counts = [&array](const FlatField& field) {
        return &field < &array && field.offset == array.count.offset && field.size == array.count.size &&
               (array.use & kDecodedUses & ~field.use) == 0 && (field.uri == 0 || field.uri == array.uri);
      };
      EXPECT_TRUE(std::ranges::any_of(flat(item->fields), counts))
          << tvc_item_type_name(item->type) << "." << array.key;
    }
  }
  EXPECT_GT(arrays, 0);
}

// What selects the operation is decoded before the members that belong to it, in every request that reads them.
TEST(ItemTypes, MembersOfAnOperationStandBehindTheRowThatNamesIt) {
  int members = 0;
  for (const ItemType* const item : tvc_item_types()) {
    for (const FlatField& member : flat(item->fields)) {
      if (!member.selector.size) continue;
      ++members;
      const auto selects = [&member](const FlatField& field) {
        return &field < &member && field.kind == FieldKind::kName && field.offset == member.selector.offset &&
               field.size == member.selector.size && (member.use & kDecodedUses & ~field.use) == 0;
      };
      EXPECT_TRUE(std::ranges::any_of(flat(item->fields), selects))
          << tvc_item_type_name(item->type) << "." << member.key;
    }
  }
  EXPECT_GT(members, 0) << "those of players are some";
}

TEST(ItemTypes, FieldsTakePartSomewhere) {
  for (const ItemType* const item : tvc_item_types())
    for (const FlatField& field : flat(item->fields)) EXPECT_NE(field.use, kEverywhere) << field.key;
}

TEST(ItemTypes, OnlyOneFieldIsModified) {
  for (const ItemType* const item : tvc_item_types()) {
    const auto modified =
        std::count_if(item->fields.begin(), item->fields.end(), [](const Field& f) { return (f.use & kModify) != 0; });
    EXPECT_EQ(modified, decoded_types(kModify).contains(item->type) ? 1 : 0) << tvc_item_type_name(item->type);
  }
}

TEST(ItemTypes, EveryNumberFindsItsRow) {
  std::map<int, const ItemType*> rows;
  for (const ItemType* const item : tvc_item_types())
    EXPECT_TRUE(rows.emplace(item->type, item).second) << int{item->type};
  for (int type = 0; type <= 255; ++type)
    EXPECT_EQ(tvc_item_type(static_cast<UINT8>(type)), rows.contains(type) ? rows[type] : nullptr) << type;
  EXPECT_FALSE(rows.contains(TYPE_NONE));
  EXPECT_FALSE(rows.contains(TYPE_INVALID));
}

TEST(ItemTypes, EveryNumberWithoutAGapHasANameOfItsOwn) {
  std::set<std::string> names;
  int type = 0;
  for (; *tvc_item_type_name(static_cast<UINT8>(type)); ++type) {
    const std::string name = tvc_item_type_name(static_cast<UINT8>(type));
    EXPECT_TRUE(name.starts_with("TYPE_") && name.size() > std::strlen("TYPE_")) << type;
    EXPECT_TRUE(names.insert(name).second) << name;
  }
  for (const ItemType* const item : tvc_item_types()) EXPECT_LT(item->type, type);
  for (; type < TYPE_INVALID; ++type) EXPECT_STREQ(tvc_item_type_name(static_cast<UINT8>(type)), "") << type;
  EXPECT_STREQ(tvc_item_type_name(TYPE_INVALID), "TYPE_INVALID");
}

// --- Notification rules: what is notified, and how, the conformance cases in notify/ say ---

TEST(ItemTypes, NotificationRulesFitTheirForm) {
  for (const ItemType* const row : tvc_item_types()) {
    const ItemType& item = *row;
    const NotifyRule& rule = item.notify;
    const std::string name = tvc_item_type_name(item.type);
    const std::string log_name = rule.log_name ? rule.log_name : "";
    EXPECT_EQ(rule.form != NotifyForm::kNone, tvc_item_has(item, kNotify)) << name;
    EXPECT_EQ(rule.form != NotifyForm::kNone, log_name.starts_with("_json_print_") && log_name.ends_with("_notify"))
        << name;
    EXPECT_EQ(rule.form == NotifyForm::kQueued, rule.bound > 0) << name;
    if (rule.form == NotifyForm::kQueued) {
      EXPECT_TRUE(rule.traces_text) << name;
    } else {
      EXPECT_FALSE(rule.restarts_unusable) << name;
    }
  }
}

// The names of types that trace no text are logged only when memory runs out, which no conformance case can cause.
TEST(ItemTypes, NotificationsThatTraceNoTextAreNamedWithoutMemory) {
  constexpr auto kBase = "_json_print_base_type_notify";
  const std::map<int, std::string> names = {
      {TYPE_VALUE, kBase},
      {TYPE_TEXT, kBase},
      {TYPE_TINT, kBase},
      {TYPE_OPTION_LIST, kBase},
      {TYPE_TEXT_16, kBase},
      {TYPE_WLAN_ASSOCIATE, "_json_print_nw_associate_notify"},
      {TYPE_TUNER_SCAN_NOTIFY, "_json_print_tuner_scan_notify"},
      {TYPE_CI_DATA, "_json_print_ci_data_notify"},
      {TYPE_CEC_DETECT_NOTIFY, "_json_print_cec_detect_notify"},
  };
  std::map<int, std::string> found;
  for (const ItemType* const item : tvc_item_types())
    if (item->notify.form != NotifyForm::kNone && !item->notify.traces_text) found[item->type] = item->notify.log_name;
  EXPECT_EQ(found, names);
}

// --- Records and their allocation ---

struct Freed {
  void operator()(void* block) const { std::free(block); }
};
using Block = std::unique_ptr<void, Freed>;

// Of the types up to TYPE_CECM_CFG, those that are never allocated; types above it never are.
const std::set<int> kNeverAllocated = {
    TYPE_NONE,
    TYPE_LANG_STRING,
    TYPE_NW_NOTIFY,
    TYPE_TEXT_16,
    TYPE_DLNA_DMR_NOTIFY,
    TYPE_PUS,
    TYPE_PUS_NOTIFY,
    TYPE_PVR_REC_LIST_INFO,
    TYPE_PVR_RMDR_EVENT,
    TYPE_PVR_REC_PAIRED_DISK_INFO,
    TYPE_PVR_FILE_INFO,
    TYPE_PVR_UI_STATUS,
    TYPE_MOUNT_INFO,
    TYPE_HBBTV,
    TYPE_PORTAL,
    TYPE_CHANNEL_INFO_NOTIFY,
};

TEST(Content, EveryTypeIsAllocatedAsItsRule) {
  for (int type = 0; type <= 255; ++type) {
    const Block block(tv_ctrl_malloc_content(static_cast<UINT8>(type)));
    const bool allocated = type <= TYPE_CECM_CFG && !kNeverAllocated.contains(type);
    EXPECT_EQ(block != nullptr, allocated) << type;
    if (!block) continue;
    const std::size_t size = last_calloc_size();
    EXPECT_GE(malloc_usable_size(block.get()), size);
    const auto* const bytes = static_cast<const char*>(block.get());
    EXPECT_TRUE(std::all_of(bytes, bytes + size, [](char byte) { return byte == 0; })) << type;
    std::memset(block.get(), 0xFF, size);  // all of it is the caller's
  }
}

TEST(Content, AllocatedSizesAreTheRecords) {
  // Types that are allocated as another's record.
  const std::map<int, std::size_t> shared = {
      {TYPE_INPUT_DEV_INFO, sizeof(T_VALUE)},
      {TYPE_ACTIVE_WINDOW_INFO_NOTIFY, sizeof(T_CBROWSER_PB_NOTIFY)},
      {TYPE_CHANNEL_SELECT, sizeof(T_ACTIVE_WINDOW_TIME_NOTIFY)},
  };
  for (const ItemType* const row : tvc_item_types()) {
    const ItemType& item = *row;
    const Block block(tv_ctrl_malloc_content(item.type));
    if (!block) continue;
    const auto other = shared.find(item.type);
    EXPECT_EQ(last_calloc_size(), other == shared.end() ? std::size_t{item.record_size} : other->second)
        << tvc_item_type_name(item.type);
  }
}

TEST(Content, SharedBufferHoldsEveryRegisteredRecord) {
  INT32 size = -1;
  const Block block(tv_ctrl_malloc_content_max(&size));
  ASSERT_NE(block, nullptr);
  ASSERT_GT(size, 0);
  EXPECT_EQ(last_calloc_size(), static_cast<std::size_t>(size) + 1);  // one byte more stays zero
  const auto* const bytes = static_cast<const char*>(block.get());
  EXPECT_TRUE(std::all_of(bytes, bytes + size + 1, [](char byte) { return byte == 0; }));
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) {
    const ItemType* const item = tvc_item_type(row.ui1_type);
    if (item) EXPECT_LE(item->record_size, static_cast<UINT32>(size)) << tvc_item_type_name(item->type);
  }
  EXPECT_GE(static_cast<std::size_t>(size), sizeof(T_INTEGER));
  EXPECT_GE(static_cast<std::size_t>(size), sizeof(T_OPTION_LIST));
  EXPECT_EQ(tv_ctrl_malloc_content_max(nullptr), nullptr);
}

// What is printed when a type's parameter is missing.
TEST(ItemTypes, TheMessageOfAFailedDecodingNamesTheType) {
  const struct {
    UINT8 type;
    FieldUse use;
    const char* word;
  } rows[] = {{TYPE_CONFIG, kQuery, "config"},       {TYPE_LANG_STRING, kQuery, "language"},
              {TYPE_TIME, kQuery, "time"},           {TYPE_CBROWSER, kQuery, "cbrowser"},
              {TYPE_TUNER_SCAN, kSet, "tuner scan"}, {TYPE_HBBTV, kSet, "hbbtv"},
              {TYPE_PORTAL, kSet, "portal"},         {TYPE_WLAN_ASSOCIATE, kAssociate, "wlan associate"},
              {TYPE_CECM_CFG, kSet, "input source"}};
  for (const auto& row : rows) {
    const ItemType* const item = tvc_item_type(row.type);
    std::vector<char> record(item->record_size);
    const std::string printed = printed_by([&] {
      EXPECT_EQ(tvc_decode_parameter("a_dtv_jsp_set", item, row.use, nullptr, record.data()), Decoded::kFailed);
    });
    EXPECT_TRUE(printed.ends_with("<a_dtv_jsp_set> error: parse " + std::string(row.word) + " param!")) << printed;
  }
}

TEST(Content, WithoutMemoryThereIsNoRecord) {
  const MemoryWatch memory(1, true);
  INT32 size = 77;
  EXPECT_EQ(tv_ctrl_malloc_content_max(&size), nullptr);
  EXPECT_EQ(size, 77);
  EXPECT_EQ(tv_ctrl_malloc_content(TYPE_VALUE), nullptr);
}

TEST(Content, ConfigurationBackedItems) {
  const std::string name40(40, 'n');
  T_VALUE value;
  std::memset(&value, 0x55, sizeof value);
  EXPECT_EQ(tvc_util_fill_t_value_content_by_config_type(0x0901, "g_any__thing", name40.c_str(), &value), 0);
  EXPECT_EQ(value.id, 0x0901);
  EXPECT_EQ(std::string(value.name), name40.substr(0, 31));
  EXPECT_EQ(value.group, 0);
  EXPECT_EQ(value.state, 1);
  EXPECT_EQ(value.value, 0);
  EXPECT_EQ(value.min_value, 0);
  EXPECT_EQ(value.max_value, 0);
  EXPECT_EQ(value.increment, 1);
  T_OPTION_LIST list = {};
  list.value = 9;
  EXPECT_EQ(tvc_util_fill_t_option_list_content_by_config_type(0x0902, nullptr, "Country", &list), 0);
  EXPECT_EQ(list.id, 0x0902);
  EXPECT_STREQ(list.name, "Country");
  EXPECT_EQ(list.group, 0);
  EXPECT_EQ(list.state, 1);
  EXPECT_EQ(list.value, 0);
  EXPECT_EQ(tvc_util_fill_t_value_content_by_config_type(1, nullptr, "x", nullptr), -2);
  EXPECT_EQ(tvc_util_fill_t_option_list_content_by_config_type(1, nullptr, "x", nullptr), -2);
  EXPECT_EQ(tv_util_init(), 0);
}

}  // namespace
