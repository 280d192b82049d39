// The delivery of notifications: types without a row, bounds, and unusable pending texts.
#include <cstring>
#include <string>
#include <vector>

#include "recording_platform.h"
#include "support.h"
#include "tv_ctrl_api/item_types.h"

namespace {

class Notify : public PluginTest {
 protected:
  static void subscribe(const std::string& uri) { ASSERT_EQ(a_dtv_jsp_add_listener_buffer(uri.c_str()), 0); }

  template <typename Record>
  static std::string delivered(UINT8 type, Record record) {
    const std::string uri = made_up_uri(type);
    subscribe(uri);
    tv_ctrl_api_notify_func(uri.c_str(), &record);
    return fetch(uri).value_or("not subscribed");
  }

  static std::string envelope(UINT8 type, const std::string& rest) {
    return "{\"URI\":\"" + made_up_uri(type) + "\",\"REQUEST\":\"NOTIFY\"," + rest + "}";
  }
};

// --- Single form ---

TEST_F(Notify, BaseTypes) {
  T_VALUE value = {};
  value.value = -3;
  EXPECT_EQ(delivered(TYPE_VALUE, value), envelope(TYPE_VALUE, R"("PARAMETER":{"VALUE":-3})"));
  T_TEXT text = {};
  std::strcpy(text.value, "a\"b");
  EXPECT_EQ(delivered(TYPE_TEXT, text), envelope(TYPE_TEXT, R"("PARAMETER":{"VALUE":"a\"b"})"));
  T_TINT tint = {};
  tint.center = 1;
  tint.value = 2147483647;
  EXPECT_EQ(delivered(TYPE_TINT, tint), envelope(TYPE_TINT, R"("PARAMETER":{"VALUE":2147483647})"));
  T_OPTION_LIST list = {};
  std::strcpy(list.element, "not sent");
  list.value = 4;
  EXPECT_EQ(delivered(TYPE_OPTION_LIST, list), envelope(TYPE_OPTION_LIST, R"("PARAMETER":{"VALUE":4})"));
  T_TEXT_16 text_16 = {};
  text_16.value[0] = 'A';
  text_16.value[1] = 'B';
  EXPECT_EQ(delivered(TYPE_TEXT_16, text_16), envelope(TYPE_TEXT_16, R"("PARAMETER":{"VALUE":"A"})"));
}

TEST_F(Notify, AssociationTellsTheNetworkOnly) {
  T_WLAN_ASSOCIATE record = {};
  std::strcpy(record.bssid, "00:11:22:33:44:55");
  std::strcpy(record.ssid, "home");
  std::strcpy(record.password, "secret");
  EXPECT_EQ(delivered(TYPE_WLAN_ASSOCIATE, record), envelope(TYPE_WLAN_ASSOCIATE, R"("PARAMETER":{"SSID":"home"})"));
}

TEST_F(Notify, ScanProgressAndNetwork) {
  EXPECT_EQ(delivered(TYPE_TUNER_SCAN_NOTIFY, T_TUNER_SCAN_NOTIFY{-1, 50, 12, 3}),
            envelope(TYPE_TUNER_SCAN_NOTIFY, R"("PARAMETER":{"MSG_ID":-1,"PROGRESS":50,"CHAN_NUM":12,"RESERVED":3})"));
  EXPECT_EQ(delivered(TYPE_NW_NOTIFY, T_NW_NOTIFY{.tag = 5, .id = -6, .param = 7}),
            envelope(TYPE_NW_NOTIFY, R"("ITEMS":[{"TAG":5,"ID":-6,"PARAM":7}])"));
}

TEST_F(Notify, CiData) {
  T_CI_DATA record = {};
  std::strcpy(record.name, "CAM");
  record.group = 5;
  record.state = 1;
  record.t_ci_mmi_menu_ans.ui1_answer = 200;
  const std::string text = delivered(TYPE_CI_DATA, record);
  EXPECT_TRUE(
      text.starts_with(envelope(TYPE_CI_DATA, "").substr(0, envelope(TYPE_CI_DATA, "").size() - 1) +
                       R"("PARAMETER":{"NAME":"CAM","TYPE":"TYPE_CI_DATA","GROUP":5,"STATE":1,"CI_REQ_QUERY":0,)"))
      << text;
  EXPECT_TRUE(text.ends_with(R"("CI_MMI_MENU_ANS":200,"CI_MMI_MENU_ANS_ID":0}})")) << text;
  const Json json = parse_json(text);
  EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(json.get(), "PARAMETER")), 4 + 27);
}

TEST_F(Notify, TypesWithoutARenderingChangeNothing) {
  std::vector<char> record(1 << 16, 0);
  for (int type = 0; type <= 255; ++type) {
    const ItemType* const item = tvc_item_type(static_cast<UINT8>(type));
    if (item && item->notify.form != NotifyForm::kNone) continue;
    const std::string uri = made_up_uri(static_cast<UINT8>(type));
    subscribe(uri);
    poke_pending(uri, "kept");
    EXPECT_EQ(printed_by([&] { tv_ctrl_api_notify_func(uri.c_str(), record.data()); }), "") << type;
    EXPECT_EQ(fetch(uri), "kept") << type;
  }
}

TEST_F(Notify, SingleFormReplacesAnyText) {
  const char* const uri = "/tv/ws/notify/volume_ctrl";
  subscribe(uri);
  T_VOL_CTRL_NOTIFY record = {.vol_value = 23, .mute_status = 0};
  for (const char* const pending : {"{", "not json", "", "{\"ITEMS\":5}"}) {
    poke_pending(uri, pending);
    EXPECT_EQ(printed_by([&] { tv_ctrl_api_notify_func(uri, &record); }), "");
    EXPECT_EQ(fetch(uri),
              R"({"URI":"/tv/ws/notify/volume_ctrl","REQUEST":"NOTIFY","ITEMS":[{"volValue":23,"muteStatus":0}]})");
  }
}

TEST_F(Notify, NullArgumentsAndUnknownUris) {
  T_VALUE record = {};
  const std::string null = "<tv_ctrl_api_notify_content> uri or pv_content is null!!!\n";
  EXPECT_EQ(printed_by([] { tv_ctrl_api_notify_func("/tv/ws/notify/network", nullptr); }), null);
  EXPECT_EQ(printed_by([&] { tv_ctrl_api_notify_func(nullptr, &record); }), null);
  EXPECT_EQ(printed_by([&] { tv_ctrl_api_notify_func("/tv/nowhere", &record); }),
            "<tv_ctrl_api_notify_content> Get info with uri failed!!!\n");
}

// --- Queued form ---

struct Queued {
  UINT8 type;
  const char* uri;
  const char* log_name;
  std::size_t bound;
  const char* item;  // of a zeroed record
};

constexpr char kWindow[] = R"({"TYPE":0,"TAG":0,"SVL_HANDLE":0,"CONDITIONS":0,"REASON":0,"DATA":0})";
constexpr Queued kQueued[] = {
    {TYPE_CBROWSER_PB_NOTIFY, "/tv/ws/notify/cbrowser_playback", "_json_print_cbrowser_playback_notify", 1024,
     R"({"TYPE":0,"TAG":0,"ARG1":0,"ARG2":0,"ARG3":0,"ARG4":0})"},
    {TYPE_DLNA_DMS_NOTIFY, "/tv/ws/notify/dlna_dms", "_json_print_dlna_dms_notify", 10240,
     R"({"TYPE":0,"TAG":0,"SERVER_NAME":"","DEV_ID":0,"ARG1":0,"ARG2":0})"},
    {TYPE_DLNA_DMR_NOTIFY, "/tv/ws/notify/dlna_dmr", "_json_print_dlna_dmr_notify", 1024,
     R"({"TYPE":0,"TAG":0,"URL":"","PROTOCOL_INFO":"","ARG1":0,"ARG2":0})"},
    {TYPE_PUS_NOTIFY, "/tv/ws/notify/cbrowser_pus", "_json_print_cbrowser_pus_notify", 1024,
     R"({"instance":0,"playCmd":0,"value":0})"},
    {TYPE_USB_DETECT_NOTIFY, "/tv/ws/notify/usb_detect", "_json_print_usb_detect_notify", 1024,
     R"({"TYPE":0,"TAG":0,"DEV":"","PATH":"","LABEL":"","PORT":0})"},
    {TYPE_CONFIG_UPDATE_NOTIFY, "/tv/ws/notify/config_update", "_json_print_config_update_notify", 1024,
     R"({"ID":0,"TAG":0,"ARG1":0,"ARG2":""})"},
    {TYPE_CHANNEL_INFO_NOTIFY, "/tv/ws/notify/channel_info", "_json_print_channel_info_notify", 1024, kWindow},
    {TYPE_ACTIVE_WINDOW_INFO_NOTIFY, "/tv/ws/notify/active_window_info", "_json_print_active_window_info_notify", 1024,
     kWindow},
    {TYPE_ACTIVE_WINDOW_TIME_NOTIFY, "/tv/ws/notify/active_window_time", "_json_print_active_window_time_notify", 1024,
     R"({"TYPE":0,"TAG":0,"SVL_HANDLE":0})"},
};

class NotifyQueued : public Notify, public testing::WithParamInterface<Queued> {
 protected:
  void SetUp() override {
    Notify::SetUp();
    subscribe(GetParam().uri);
  }

  static void raise() {
    std::vector<char> record(4096, 0);
    tv_ctrl_api_notify_func(GetParam().uri, record.data());
  }

  static std::string fresh(int items = 1) {
    std::string text = "{\"URI\":\"" + std::string(GetParam().uri) + "\",\"REQUEST\":\"NOTIFY\",\"ITEMS\":[";
    for (int i = 0; i < items; ++i) text += (i ? "," : "") + std::string(GetParam().item);
    return text + "]}";
  }

  static std::string logged(const std::string& message) {
    return "<" + std::string(GetParam().log_name) + "> " + message + "\n";
  }

  // An envelope with one item that is `length` characters long.
  static std::string padded(std::size_t length) {
    const std::string head = "{\"PAD\":\"", tail = "\",\"ITEMS\":[{}]}";
    return head + std::string(length - head.size() - tail.size(), 'p') + tail;
  }
};

INSTANTIATE_TEST_SUITE_P(Types, NotifyQueued, testing::ValuesIn(kQueued),
                         [](const auto& info) { return std::string(tvc_item_type_name(info.param.type)); });

TEST_P(NotifyQueued, Appends) {
  raise();
  EXPECT_EQ(fetch(GetParam().uri), fresh());
  for (int i = 0; i < 3; ++i) raise();
  EXPECT_EQ(fetch(GetParam().uri), fresh(3));
  EXPECT_EQ(fetch(GetParam().uri), "");
}

TEST_P(NotifyQueued, TextOfTheBoundIsAppendedTo) {
  const std::string pending = padded(GetParam().bound);
  ASSERT_EQ(pending.size(), GetParam().bound);
  poke_pending(GetParam().uri, pending);
  EXPECT_EQ(printed_by(raise), "");
  EXPECT_EQ(fetch(GetParam().uri), pending.substr(0, pending.size() - 2) + "," + GetParam().item + "]}");
}

TEST_P(NotifyQueued, LongerTextIsDiscarded) {
  for (const int level : {0, 1, 2}) {
    set_log_level(level);
    poke_pending(GetParam().uri, padded(GetParam().bound + 1));
    const std::string printed = printed_by(raise);
    EXPECT_EQ(printed.starts_with(logged("Buffer is FULL.")), level >= 2) << printed;
    if (level < 2) EXPECT_EQ(printed, "");
    EXPECT_EQ(fetch(GetParam().uri), fresh());
  }
}

TEST_P(NotifyQueued, LongerTextIsDiscardedWithoutLookingAtIt) {
  poke_pending(GetParam().uri, std::string(GetParam().bound + 1, '{'));
  EXPECT_EQ(printed_by(raise), "");
  EXPECT_EQ(fetch(GetParam().uri), fresh());
}

TEST_P(NotifyQueued, UnusableTextIsToldAndKept) {
  const std::pair<std::string, std::string> rows[] = {
      {"{\"A\":1}", logged("Param do NOT has ITEMS.")},
      {"[1,2]", logged("Param do NOT has ITEMS.")},
      {"7", logged("Param do NOT has ITEMS.")},
      {"{\"ITEMS\":{}}", logged("Items type is NOT array!")},
      {"{\"ITEMS\":5}", logged("Items type is NOT array!")},
      {"{\"ITEMS\":null}", logged("Items type is NOT array!")},
      {"{\"ITEMS\":\"[]\"}", logged("Items type is NOT array!")},
  };
  for (const auto& [pending, message] : rows) {
    poke_pending(GetParam().uri, pending);
    EXPECT_EQ(printed_by(raise), message) << pending;
    // Only the player's text starts again; everywhere else the notification is dropped.
    EXPECT_EQ(fetch(GetParam().uri), GetParam().type == TYPE_CBROWSER_PB_NOTIFY ? fresh() : pending) << pending;
  }
}

TEST_P(NotifyQueued, TextThatDoesNotParseIsToldWithItsPosition) {
  const std::string pending = "{\"ITEMS\":[?]";
  EXPECT_FALSE(parse_json(pending));
  const std::string position = cJSON_GetErrorPtr();
  poke_pending(GetParam().uri, pending);
  EXPECT_EQ(printed_by(raise), logged("Error before: [" + position.substr(0, position.size()) + "]"));
  EXPECT_EQ(fetch(GetParam().uri), GetParam().type == TYPE_CBROWSER_PB_NOTIFY ? fresh() : pending);
  set_log_level(-1);
  poke_pending(GetParam().uri, pending);
  EXPECT_EQ(printed_by(raise), "");
}

TEST_P(NotifyQueued, PendingItemsOfAnyKindAreKept) {
  poke_pending(GetParam().uri, R"({"MORE":true,"ITEMS":[1,null,{"a":[]},"x"]})");
  raise();
  EXPECT_EQ(fetch(GetParam().uri),
            R"({"MORE":true,"ITEMS":[1,null,{"a":[]},"x",)" + std::string(GetParam().item) + "]}");
}

}  // namespace
