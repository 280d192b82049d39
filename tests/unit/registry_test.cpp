// The URI registry, walked whole.
#include "tv_ctrl_main/registry.h"

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "support.h"

static_assert(TV_CTRL_GRPID_VIDEO == 1 && TV_CTRL_GRPID_CONFIG == 26);
static_assert(TV_CTRL_RECID_WS_NFY_VOL_CTRL == 14);
static_assert(TV_CTRL_RECID_VOL == 1 && TV_CTRL_RECID_VOL_INCREASE == 2 && TV_CTRL_RECID_VOL_DECREASE == 3 &&
              TV_CTRL_RECID_VOL_MUTE == 4);

namespace {

struct Group {
  int number;
  const char* name;
  std::size_t rows;
  const char* prefix;  // null: no row is known
  bool whole;          // every row of the group is known
};

// Rows and prefixes of each group.
constexpr Group groups[] = {
    {1, "VIDEO", 2, "/tv/menu/video/", false},
    {2, "AUDIO", 0, nullptr, false},
    {3, "AUD_LANG", 0, nullptr, false},
    {4, "VOLUME", 4, "/tv/cast/volume/", true},
    {5, "NETWORK", 0, nullptr, false},
    {6, "TIME", 0, nullptr, false},
    {7, "TUNER", 39, "/tv/menu/tuner/", false},
    {8, "RATING", 1, "/tv/menu/rating/", true},
    {9, "COMMON_SETTING", 118, "/tv/menu/common_setting/", true},
    {10, "FACTORY_SETTING", 49, "/tv/menu/factory_setting/", true},
    {11, "CHANNEL_INFO", 45, "/tv/channelinfo/", true},
    {12, "INPUT_SOURCE", 13, "/tv/", true},
    {13, "EVENT", 13, "/tv/eventinfo/", true},
    {14, "MISC", 24, "/tv/menu/misc/", true},
    {15, "SYS_INFO", 4, "/tv/", true},
    {16, "BRDCAST", 4, "/tv/brdcast/", true},
    {17, "BANNER", 1, "/tv/banner/", true},
    {18, "MULTIVIEW", 8, "/tv/multiview/", true},
    {19, "CBROWSER", 26, "/tv/cbrowser/", true},
    {20, "DLNA", 18, "/tv/cbrowser/dlna/", true},
    {21, "PUS", 4, "/tv/cbrowser/pus/", true},
    {22, "WS_NFY", 14, "/tv/ws/notify/", true},
    {23, "KEY", 2, "/tv/key/", true},
    {24, "CECM_CFG", 2, "/tv/cec/", true},
    {25, "PVR", 5, "/tv/pvr/", true},
    {26, "CONFIG", 6, "/tv/config/", true},
};
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

// The first row in table order whose text is equal, found the plain way.
LookUp scan(const std::string& uri) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry())
    if (uri == row.s_uri) return {.ret = 0, .id = row.ui2_id, .type = row.ui1_type};
  return kUnknown;
}

TEST(Registry, HoldsTheKnownRows) { EXPECT_EQ(tvc_registry().size(), kInTables + kVolume + kVideo); }

TEST(Registry, GroupsHaveTheirRows) {
  std::map<int, std::size_t> rows;
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) ++rows[tvc_group(row.ui2_id)];
  for (const Group& group : groups) {
    EXPECT_EQ(rows[group.number], group.rows) << group.name;
    EXPECT_STREQ(tvc_group_name(group.number), group.name);
    rows.erase(group.number);
  }
  EXPECT_TRUE(rows.empty()) << "a row of group " << rows.begin()->first;
  EXPECT_EQ(tvc_group_name(0), nullptr);
  EXPECT_EQ(tvc_group_name(27), nullptr);
}

TEST(Registry, UrisStandUnderTheirGroupsPrefix) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) {
    const std::string uri = row.s_uri;
    const Group& group = groups[tvc_group(row.ui2_id) - 1];
    ASSERT_NE(group.prefix, nullptr) << uri;
    EXPECT_TRUE(uri.starts_with(group.prefix) && uri.size() > std::strlen(group.prefix)) << uri;
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
  std::map<int, std::set<int>> records;
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) records[tvc_group(row.ui2_id)].insert(tvc_record(row.ui2_id));
  for (const Group& group : groups)
    if (group.whole) EXPECT_EQ(*records[group.number].begin(), 1) << group.name;
  for (const auto& [group, numbers] : records) EXPECT_GE(*numbers.begin(), 1) << "group " << group;
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
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const bool notification = tvc_group(rows[i].ui2_id) == TV_CTRL_GRPID_WS_NFY;
    EXPECT_EQ(notification, i < 14) << rows[i].s_uri;
    EXPECT_EQ(notification, std::string(rows[i].s_uri).starts_with("/tv/ws/notify/")) << rows[i].s_uri;
  }
}

TEST(Registry, NotificationUrisCarryTheirTypes) {
  const std::pair<const char*, UINT8> rows[] = {
      {"/tv/ws/notify/broadcast/chg_channel_res", TYPE_VALUE},
      {"/tv/ws/notify/tuner_scan", TYPE_TUNER_SCAN_NOTIFY},
      {"/tv/ws/notify/cbrowser_playback", TYPE_CBROWSER_PB_NOTIFY},
      {"/tv/ws/notify/dlna_dms", TYPE_DLNA_DMS_NOTIFY},
      {"/tv/ws/notify/dlna_dmr", TYPE_DLNA_DMR_NOTIFY},
      {"/tv/ws/notify/cbrowser_pus", TYPE_PUS_NOTIFY},
      {"/tv/ws/notify/usb_detect", TYPE_USB_DETECT_NOTIFY},
      {"/tv/ws/notify/cec_detect", TYPE_CEC_DETECT_NOTIFY},
      {"/tv/ws/notify/channel_info", TYPE_CHANNEL_INFO_NOTIFY},
      {"/tv/ws/notify/active_window_info", TYPE_ACTIVE_WINDOW_INFO_NOTIFY},
      {"/tv/ws/notify/active_window_time", TYPE_ACTIVE_WINDOW_TIME_NOTIFY},
      {"/tv/ws/notify/network", TYPE_NW_NOTIFY},
      {"/tv/ws/notify/config_update", TYPE_CONFIG_UPDATE_NOTIFY},
      {"/tv/ws/notify/volume_ctrl", TYPE_VOL_CTRL_NOTIFY},
  };
  for (const auto& [uri, type] : rows) EXPECT_EQ(look_up(uri).type, type) << uri;
  EXPECT_EQ(look_up("/tv/ws/notify/volume_ctrl").id, 0x160E);
}

TEST(Registry, TypesAreItemTypes) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry())
    EXPECT_TRUE(row.ui1_type > TYPE_NONE && row.ui1_type <= TYPE_VOL_CTRL_NOTIFY) << row.s_uri;
}

TEST(Registry, OneUriStandsTwice) {
  std::map<std::string, std::vector<UINT16>> ids;
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) ids[row.s_uri].push_back(row.ui2_id);
  for (const auto& [uri, found] : ids)
    if (uri != k3dItem) EXPECT_EQ(found.size(), 1u) << uri;
  EXPECT_EQ(ids[k3dItem], (std::vector<UINT16>{0x0150, 0x0152}));
  EXPECT_EQ(look_up(k3dItem), (LookUp{.ret = 0, .id = 0x0150, .type = TYPE_VALUE}));
  EXPECT_EQ(tv_ctrl_get_type_by_id(0x0152), TYPE_OPTION_LIST);
  char uri[256] = {};
  EXPECT_EQ(tv_ctrl_get_uri_by_id(0x0152, uri), 0);
  EXPECT_STREQ(uri, k3dItem);
}

TEST(Registry, EveryUriIsFoundBothWays) {
  for (const TV_CTRL_URI_ID_MAP_T& row : tvc_registry()) {
    EXPECT_EQ(look_up(row.s_uri), scan(row.s_uri)) << row.s_uri;
    if (row.ui2_id != 0x0152) EXPECT_EQ(look_up(row.s_uri).id, row.ui2_id);
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
