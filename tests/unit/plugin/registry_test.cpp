// The whole URI registry. The conformance cases in registry/ check its rows one by one.
#include "tv_ctrl_main/registry.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "support.h"
#include "tv_ctrl_api/item_types.h"

namespace {

constexpr std::size_t kInTables = 396, kVolume = 4, kVideo = 2;
constexpr char k3dItem[] = "/tv/menu/video/3d_item";

struct LookUp {
  INT32 ret;
  UINT16 id;
  UINT8 type;
  bool operator==(const LookUp&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LookUp& found) {
  return out << "{ret " << found.ret << ", id " << found.id << ", type " << int{found.type} << "}";
}

LookUp look_up(const std::string& uri) {
  LookUp found = {.ret = 99, .id = 0xABCD, .type = 77};
  found.ret = tv_ctrl_get_info_with_uri(uri.c_str(), &found.id, &found.type);
  return found;
}

constexpr LookUp kUnknown = {.ret = VEXTVCTRLR_INV_URI, .id = 0, .type = TYPE_INVALID};

// The first row in table order with this text, found by a linear search.
LookUp scan(const std::string& uri) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry())
    if (uri == row.s_uri) return {.ret = 0, .id = row.ui2_id, .type = row.ui1_type};
  return kUnknown;
}

TEST(Registry, HoldsTheKnownRows) { EXPECT_EQ(tvc_registry().size(), kInTables + kVolume + kVideo); }

TEST(Registry, EveryGroupHasANameOfItsOwn) {
  std::set<std::string> names;
  int group = 1;
  for (; tvc_group_name(group) != nullptr; ++group) EXPECT_TRUE(names.insert(tvc_group_name(group)).second) << group;
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry())
    EXPECT_TRUE(tvc_group(row.ui2_id) >= 1 && tvc_group(row.ui2_id) < group) << row.s_uri;
  EXPECT_EQ(tvc_group_name(0), nullptr);
  for (; group <= 0xFF; ++group) EXPECT_EQ(tvc_group_name(group), nullptr) << group;
}

TEST(Registry, UrisAreAbsolutePathsOfPlainCharacters) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) {
    const std::string uri = row.s_uri;
    EXPECT_TRUE(uri.starts_with("/tv/")) << uri;
    EXPECT_FALSE(uri.ends_with("/")) << uri;
    EXPECT_LT(uri.size(), sizeof row.s_uri);
    EXPECT_EQ(uri.find_first_of(" ?#\\\""), std::string::npos) << uri;
  }
}

TEST(Registry, IdentifiersAreUnique) {
  std::set<UINT16> ids;
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) EXPECT_TRUE(ids.insert(row.ui2_id).second) << row.s_uri;
}

TEST(Registry, RecordsCountFromOne) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) EXPECT_GE(tvc_record(row.ui2_id), 1) << row.s_uri;
}

TEST(Registry, UnknownRangesAreOpen) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) {
    const int group = tvc_group(row.ui2_id), record = tvc_record(row.ui2_id);
    EXPECT_FALSE(group == 2 || group == 3 || group == 5 || group == 6) << row.s_uri;
    if (group == 1) EXPECT_TRUE(record == 80 || record == 82) << row.s_uri;
    if (group == 7) EXPECT_TRUE(record >= 9 && record <= 47) << row.s_uri;
  }
  for (int record = 9; record <= 47; ++record)
    EXPECT_NE(tv_ctrl_get_type_by_id(tvc_id(TV_CTRL_GRPID_TUNER, record)), TYPE_INVALID) << "record " << record;
}

TEST(Registry, NotificationGroupStandsFirst) {
  const auto rows = tvc_registry();
  const auto is_notification = [](const TV_CTRL_URI_ID_MAP_T& row) {
    return tvc_group(row.ui2_id) == TV_CTRL_GRPID_WS_NFY;
  };
  EXPECT_TRUE(is_notification(rows.front()));
  EXPECT_TRUE(std::is_partitioned(rows.begin(), rows.end(), is_notification));
  for (const TV_CTRL_URI_ID_MAP_T& row : rows)
    EXPECT_EQ(is_notification(row), std::string(row.s_uri).starts_with("/tv/ws/notify/")) << row.s_uri;
}

TEST(Registry, TypesAreItemTypes) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry())
    EXPECT_TRUE(row.ui1_type != TYPE_NONE && row.ui1_type != TYPE_INVALID && *tvc_item_type_name(row.ui1_type))
        << row.s_uri;
}

TEST(Registry, EveryUriIsFoundBothWays) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) {
    EXPECT_EQ(look_up(row.s_uri), scan(row.s_uri)) << row.s_uri;
    EXPECT_EQ(tv_ctrl_get_type_by_id(row.ui2_id), row.ui1_type) << row.s_uri;
    char uri[256];
    std::memset(uri, '#', sizeof uri);
    EXPECT_EQ(tv_ctrl_get_uri_by_id(row.ui2_id, uri), 0) << row.s_uri;
    EXPECT_STREQ(uri, row.s_uri);
  }
}

TEST(Registry, EveryIdentifierAnswersAsAScan) {
  for (int id = 0; id <= 0xFFFF; ++id) {
    const TV_CTRL_URI_ID_MAP_T* expected = nullptr;
    for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) {
      if (row.ui2_id != id) continue;
      expected = &row;
      break;
    }
    char uri[256] = "untouched";
    const auto key = static_cast<UINT16>(id);
    ASSERT_EQ(tv_ctrl_get_type_by_id(key), expected ? expected->ui1_type : UINT8{TYPE_INVALID}) << id;
    ASSERT_EQ(tv_ctrl_get_uri_by_id(key, uri), expected ? 0 : -1) << id;
    ASSERT_STREQ(uri, expected ? expected->s_uri : "untouched") << id;
  }
}

TEST(Registry, NearMissesAnswerAsAScan) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) {
    const std::string uri = row.s_uri;
    std::vector<std::string> misses = {
        uri + "x",     uri + "/", uri + " ", uri + "?a=1",         uri.substr(0, uri.size() - 1),
        uri.substr(1), "/" + uri, "x" + uri, "/TV" + uri.substr(3)};
    for (std::size_t i = 0; i < uri.size(); ++i) {
      std::string changed = uri;
      changed[i] = static_cast<char>(changed[i] ^ 0x20);  // a letter's case
      misses.push_back(changed);
      changed[i] = static_cast<char>(uri[i] + 1);
      misses.push_back(changed);
      changed[i] = static_cast<char>(uri[i] | 0x80);
      misses.push_back(changed);
    }
    for (const std::string& miss : misses) ASSERT_EQ(look_up(miss), scan(miss)) << miss;
    EXPECT_EQ(look_up(uri + "/"), kUnknown);
    EXPECT_EQ(look_up("/TV" + uri.substr(3)), kUnknown);
  }
}

TEST(Registry, OtherLengthsAreUnknown) {
  EXPECT_EQ(look_up(""), kUnknown);
  EXPECT_EQ(look_up("/"), kUnknown);
  EXPECT_EQ(look_up("/tv/"), kUnknown);
  for (std::size_t length = 1; length <= 600; ++length)
    EXPECT_EQ(look_up(std::string(length, '/')), kUnknown) << length;
  for (const std::size_t length : {254u, 255u, 256u, 257u, 300u, 100000u}) {
    std::string uri = k3dItem;
    uri.resize(length, 'x');
    EXPECT_EQ(look_up(uri), kUnknown) << length;
  }
}

TEST(Registry, NullArgumentsAreRefused) {
  UINT16 id = 7;
  UINT8 type = 8;
  EXPECT_EQ(tv_ctrl_get_info_with_uri(nullptr, &id, &type), -2);
  EXPECT_EQ(tv_ctrl_get_info_with_uri(k3dItem, nullptr, &type), -2);
  EXPECT_EQ(tv_ctrl_get_info_with_uri(k3dItem, &id, nullptr), -2);
  EXPECT_EQ(id, 7);
  EXPECT_EQ(type, 8);
  EXPECT_EQ(tv_ctrl_get_uri_by_id(0x0150, nullptr), -2);
  EXPECT_EQ(tv_ctrl_get_uri_by_id(0, nullptr), -2);
  EXPECT_EQ(tv_ctrl_get_type_by_id(0), 255);
}

TEST(Registry, LookUpsPrintNothing) {
  set_log_level(100);
  EXPECT_EQ(printed_by([] {
              look_up("/tv/nowhere");
              tv_ctrl_get_type_by_id(0);
              char uri[256];
              tv_ctrl_get_uri_by_id(0, uri);
            }),
            "");
  set_log_level(0);
}

}  // namespace
