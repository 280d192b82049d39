// What the response hook and the handler receive from a set, also for item types that no registry row has.
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "recording_platform.h"
#include "support.h"
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/response.h"

namespace {

class SetHook : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    set_handler = [this](UINT16, void* record) {
      if (record) std::memcpy(seen_, record, sizeof seen_);
      return handler_result_;
    };
  }

  // Sets, forgetting what went before.
  INT32 set(const std::string& uri, const std::string& parameter) {
    set_events.clear();
    std::memset(seen_, 0, sizeof seen_);
    INT32 ret = 99;
    printed_ = printed_by([&] { ret = a_dtv_jsp_set(uri.c_str(), parameter.c_str()); });
    return ret;
  }

  static std::string request(const std::string& word, const std::string& more = "") {
    return R"({"PARAMETER":{"REQUEST":")" + word + "\"" + (more.empty() ? "" : "," + more) + "}}";
  }

  static int handler_calls() {
    int calls = 0;
    for (const SetEvent& event : set_events) calls += event.receiver == SetEvent::kHandler;
    return calls;
  }

  // The record that the handler saw.
  template <typename Record>
  const Record& seen() const {
    static_assert(sizeof(Record) <= sizeof seen_);
    return *reinterpret_cast<const Record*>(seen_);
  }

  INT32 handler_result_ = 0;
  std::string printed_;

 private:
  alignas(16) char seen_[sizeof(T_CONFIG)];
};

using Statuses = std::vector<int>;

TEST_F(SetHook, UnknownUri) {
  EXPECT_EQ(set("/tv/nowhere", request("MODIFY", "\"VALUE\":1")), -1);
  EXPECT_EQ(hook_statuses(), Statuses{VEX_INVALID_URI});
  EXPECT_EQ(handler_calls(), 0);
}

TEST_F(SetHook, Action) {
  const std::string uri = made_up_uri(TYPE_ACTION);
  EXPECT_EQ(set(uri, request("ACTION")), 0);
  EXPECT_EQ(hook_statuses(), Statuses{VEX_OK});
  ASSERT_EQ(set_events.size(), 2u);
  EXPECT_EQ(set_events[0].receiver, SetEvent::kHandler);
  EXPECT_FALSE(set_events[0].has_tree) << "an action passes no record";
  EXPECT_EQ(set_events[1].type, TYPE_ACTION);
  EXPECT_TRUE(set_events[1].has_tree);
  for (const INT32 code : {-1, -2, -7}) {
    handler_result_ = code;
    EXPECT_EQ(set(uri, request("ACTION")), code);
    EXPECT_EQ(hook_statuses(), Statuses{VEX_ACTION_FAIL});
  }
}

TEST_F(SetHook, ActionOnAnyOtherType) {
  for (int type = 0; type <= 255; ++type) {
    if (type == TYPE_ACTION) continue;
    EXPECT_EQ(set(made_up_uri(static_cast<UINT8>(type)), request("ACTION")), 0) << type;
    EXPECT_EQ(hook_statuses(), Statuses{VEX_INVALID_PARAM}) << type;
    EXPECT_EQ(handler_calls(), 0) << type;
  }
}

TEST_F(SetHook, Modify) {
  for (const int type : decoded_types(kModify)) {
    const std::string uri = made_up_uri(static_cast<UINT8>(type));
    const std::string word = request("MODIFY", type == TYPE_TEXT ? "\"VALUE\":\"23\"" : "\"VALUE\":23");
    handler_result_ = 0;
    EXPECT_EQ(set(uri, word), 0) << type;
    EXPECT_EQ(hook_statuses(), Statuses{VEX_OK}) << type;
    EXPECT_EQ(handler_calls(), 1) << type;
    EXPECT_EQ(set_events[0].receiver, SetEvent::kHandler) << type;
    handler_result_ = -1;
    EXPECT_EQ(set(uri, word), -1) << type;
    EXPECT_EQ(hook_statuses(), Statuses{VEX_MODIFY_FAIL}) << type;
  }
}

TEST_F(SetHook, ModifyOfAnyOtherType) {
  for (int type = 0; type <= 255; ++type) {
    if (decoded_types(kModify).contains(type)) continue;
    EXPECT_EQ(set(made_up_uri(static_cast<UINT8>(type)), request("MODIFY", "\"VALUE\":1")), -1) << type;
    EXPECT_EQ(hook_statuses(), Statuses{VEX_REQ_TYPE_NOT_MATCH}) << type;
    EXPECT_EQ(handler_calls(), 0) << type;
  }
}

TEST_F(SetHook, ModifyStoresInTheRecord) {
  set(made_up_uri(TYPE_VALUE), request("MODIFY", "\"VALUE\":-5"));
  EXPECT_EQ(seen<T_VALUE>().value, -5);
  set(made_up_uri(TYPE_VALUE), request("MODIFY", "\"VALUE\":\"7\""));
  EXPECT_EQ(seen<T_VALUE>().value, 0);
  set(made_up_uri(TYPE_TINT), request("MODIFY", "\"VALUE\":31"));
  EXPECT_EQ(seen<T_TINT>().value, 31);
  set(made_up_uri(TYPE_INTEGER), request("MODIFY", "\"VALUE\":3000000000"));
  EXPECT_EQ(seen<T_INTEGER>().value, 2147483647);
  set(made_up_uri(TYPE_OPTION_LIST), request("MODIFY", "\"VALUE\":2"));
  EXPECT_EQ(seen<T_OPTION_LIST>().value, 2);
  set(made_up_uri(TYPE_TIME), request("MODIFY", "\"VALUE\":1.9e9"));
  EXPECT_EQ(seen<T_TIME>().value, 1900000000);
  set(made_up_uri(TYPE_TEXT), request("MODIFY", "\"VALUE\":\"" + std::string(2000, 't') + "\""));
  EXPECT_EQ(std::string(seen<T_TEXT>().value), std::string(1023, 't'));
}

TEST_F(SetHook, ModifyOfATextWithAnotherKind) {
  for (const char* const value : {"1", "null", "true", "[\"a\"]", "{}"}) {
    EXPECT_EQ(set(made_up_uri(TYPE_TEXT), request("MODIFY", "\"VALUE\":" + std::string(value))), -1) << value;
    EXPECT_EQ(hook_statuses(), Statuses{VEX_REQ_TYPE_NOT_MATCH}) << value;
    EXPECT_EQ(handler_calls(), 0) << value;
  }
}

TEST_F(SetHook, ModifyWithoutValue) {
  EXPECT_EQ(set(made_up_uri(TYPE_VALUE), request("MODIFY", "\"value\":1")), -1);
  EXPECT_EQ(printed_, "<a_dtv_jsp_set> Error before: []\n");
  EXPECT_EQ(hook_statuses().size(), 1u);
  EXPECT_EQ(handler_calls(), 0);
}

TEST_F(SetHook, Set) {
  for (const int type : decoded_types(kSet)) {
    const std::string uri = made_up_uri(static_cast<UINT8>(type));
    handler_result_ = 0;
    const std::size_t passes = tvc_item_type(static_cast<UINT8>(type))->also_set_as == TYPE_NONE ? 1 : 2;
    EXPECT_EQ(set(uri, request("SET", "\"INDEX\":3,\"SCAN_MODE\":4")), 0) << type;
    EXPECT_EQ(hook_statuses(), Statuses(passes, VEX_OK)) << type;
    EXPECT_EQ(handler_calls(), static_cast<int>(passes)) << type;
    for (const INT32 code : {-1, -6}) {  // a duplicate is reported as such for channels only
      const bool duplicate = code == VEXTVCTRLR_DUPLICATE && type == TYPE_CHANNEL_INFO;
      handler_result_ = code;
      EXPECT_EQ(set(uri, request("SET", "\"INDEX\":3")), code) << type;
      EXPECT_EQ(hook_statuses(), Statuses(passes, duplicate ? VEX_DUPLICATE : VEX_SET_FAIL)) << type;
    }
  }
  handler_result_ = 0;
  set(made_up_uri(TYPE_OPTION_LIST), request("SET", "\"INDEX\":3"));
  EXPECT_EQ(seen<T_OPTION_LIST>().value, 3);
  set(made_up_uri(TYPE_TUNER_SCAN), request("SET", "\"SCAN_MODE\":4"));
  EXPECT_EQ(seen<T_TUNER_SCAN>().scan_mode, 4);
}

// An update of the guide is a request for events as well. The second request is made whatever came of the first, and
// its result is the set's.
TEST_F(SetHook, SetOfTwoTypesIsCarriedOutTwice) {
  for (const auto& [first, second] : {std::pair{0, -6}, {-6, 0}, {-1, -2}}) {
    std::vector<INT32> results = {second, first};
    std::vector<INT32> numbers;
    set_handler = [&](UINT16, void* record) {
      numbers.push_back(static_cast<const PpgUpdateGuide_T*>(record)->e_op);
      const INT32 result = results.back();
      results.pop_back();
      return result;
    };
    EXPECT_EQ(set(made_up_uri(TYPE_UPDATE_EPG), request("SET", R"("operation":1,"CH_ID":9)")), second);
    EXPECT_EQ(numbers, (std::vector<INT32>{1, 9})) << "the channel is where the operation was";
    EXPECT_EQ(hook_statuses(), (Statuses{first ? VEX_SET_FAIL : VEX_OK, second ? VEX_SET_FAIL : VEX_OK}));
  }
}

TEST_F(SetHook, SetOfANegativeIndexRendersNone) {
  const std::string uri = made_up_uri(TYPE_OPTION_LIST);
  EXPECT_EQ(set(uri, request("SET", "\"INDEX\":-1")), 0);
  EXPECT_EQ(hook_statuses(), Statuses{VEX_INVALID_PARAM});
  EXPECT_EQ(handler_calls(), 0);
  EXPECT_STREQ(_ps_send_buff, ("{\"URI\":\"" + uri + "\",\"STATUS\":0,\"ITEMS\":[{}]}").c_str());
}

TEST_F(SetHook, SetOfATypeWithoutDecoding) {
  for (int type = 0; type <= 255; ++type) {
    if (decoded_types(kSet).contains(type)) continue;
    EXPECT_EQ(set(made_up_uri(static_cast<UINT8>(type)), request("SET", "\"INDEX\":1,\"VALUE\":1")), -1) << type;
    EXPECT_EQ(printed_, "<a_dtv_jsp_set> ERROR: something wrong in param!") << type;
    EXPECT_EQ(hook_statuses(), Statuses{VEX_REQ_TYPE_NOT_MATCH}) << type;
    EXPECT_EQ(handler_calls(), 0) << type;
  }
}

TEST_F(SetHook, SetOfAConfigurationValueReachesTheHandler) {
  const std::string uri = made_up_uri(TYPE_CONFIG);
  const std::string members = R"("cfgId":"key","cfgItem":4000000000,"valueInt":-5,"valueString":"text")";
  EXPECT_EQ(set(uri, request("SET", members)), 0);
  EXPECT_EQ(hook_statuses(), Statuses{VEX_OK});
  const auto& record = seen<T_CONFIG>();
  EXPECT_STREQ(record.cfg_id, "key");
  EXPECT_EQ(record.cfg_item, 4000000000u);
  EXPECT_EQ(record.valueint, -5);
  EXPECT_STREQ(record.valuestring, "text");
  EXPECT_EQ(record.input_group, 0);
  EXPECT_EQ(record.update_flag, 0);
  EXPECT_EQ(record.valuemin, 0);
  EXPECT_EQ(record.valuemax, 0);
  for (const INT32 code : {INT32{VEXTVCTRLR_FAIL}, INT32{VEXTVCTRLR_DUPLICATE}}) {
    handler_result_ = code;
    EXPECT_EQ(set(uri, request("SET", members)), code);
    EXPECT_EQ(hook_statuses(), Statuses{VEX_SET_FAIL}) << code;
  }
}

TEST_F(SetHook, AssociateBeginsBeforeTheHandler) {
  const std::string uri = made_up_uri(TYPE_WLAN_ASSOCIATE);
  const std::string members = "\"BSSID\":\"" + std::string(20, 'b') + "\",\"SSID\":\"" + std::string(40, 's') +
                              "\",\"CAPABILITIES\":\"" + std::string(130, 'c') + "\",\"PASSWORD\":\"" +
                              std::string(70, 'p') + "\"";
  EXPECT_EQ(set(uri, request("ASSOCIATE", members)), 0);
  ASSERT_EQ(set_events.size(), 3u);
  EXPECT_EQ(set_events[0].receiver, SetEvent::kHook);
  EXPECT_EQ(set_events[0].status, VEX_ASSOCIATE_BEGIN);
  EXPECT_EQ(set_events[1].receiver, SetEvent::kHandler);
  EXPECT_EQ(set_events[2].receiver, SetEvent::kHook);
  EXPECT_EQ(set_events[2].status, VEX_OK);
  const auto& record = seen<T_WLAN_ASSOCIATE>();
  EXPECT_EQ(std::string(record.bssid), std::string(17, 'b'));
  EXPECT_EQ(std::string(record.ssid), std::string(32, 's'));
  EXPECT_EQ(std::string(record.capabilities), std::string(127, 'c'));
  EXPECT_EQ(std::string(record.password), std::string(64, 'p'));
  handler_result_ = -1;
  EXPECT_EQ(set(uri, request("ASSOCIATE", members)), -1);
  EXPECT_EQ(hook_statuses(), (Statuses{VEX_ASSOCIATE_BEGIN, VEX_ASSOCIATE_FAIL}));
}

TEST_F(SetHook, ThePasswordIsNotKeptBeyondTheRequest) {
  const T_WLAN_ASSOCIATE* record = nullptr;
  std::string password;
  set_handler = [&](UINT16, void* content) {
    record = static_cast<const T_WLAN_ASSOCIATE*>(content);
    password = record->password;
    return 0;
  };
  EXPECT_EQ(set(made_up_uri(TYPE_WLAN_ASSOCIATE), request("ASSOCIATE", R"("SSID":"home","PASSWORD":"secret")")), 0);
  EXPECT_EQ(password, "secret");
  ASSERT_NE(record, nullptr);
  // The record lives in the plugin's content buffer, which stays for the next request.
  EXPECT_EQ(std::string_view(record->password, sizeof record->password), std::string(sizeof record->password, '\0'));
}

TEST_F(SetHook, AssociateOnAnyOtherType) {
  for (int type = 0; type <= 255; ++type) {
    if (type == TYPE_WLAN_ASSOCIATE) continue;
    EXPECT_EQ(set(made_up_uri(static_cast<UINT8>(type)), request("ASSOCIATE", "\"SSID\":\"a\"")), -1) << type;
    EXPECT_EQ(hook_statuses(), Statuses{VEX_INVALID_PARAM}) << type;
    EXPECT_EQ(handler_calls(), 0) << type;
  }
}

TEST_F(SetHook, OtherWords) {
  for (const std::string word : {"", "GET", "QUERY", "set", "SET ", "MODIFYX", "MODIF", "NOTIFY", "\\u0000"}) {
    EXPECT_EQ(set(made_up_uri(TYPE_VALUE), request(word, "\"VALUE\":1")), -1) << word;
    EXPECT_EQ(printed_, "<a_dtv_jsp_set> ERROR: something wrong in REQUEST!") << word;
    EXPECT_EQ(hook_statuses(), Statuses{VEX_INVALID_PARAM}) << word;
    EXPECT_EQ(handler_calls(), 0) << word;
  }
}

TEST_F(SetHook, ToldOnceAtEveryFailure) {
  for (const char* const text :
       {"", "{", "{}", "{\"PARAMETER\":{}}", "{\"PARAMETER\":5}", "{\"PARAMETER\":{\"REQUEST\":5}}"}) {
    EXPECT_EQ(set(made_up_uri(TYPE_VALUE), text), -1) << text;
    EXPECT_EQ(hook_statuses().size(), 1u) << text;
    EXPECT_EQ(handler_calls(), 0) << text;
  }
}

TEST_F(SetHook, NullArgumentsTellNobody) {
  set_events.clear();
  EXPECT_EQ(a_dtv_jsp_set(nullptr, "{}"), -1);
  EXPECT_EQ(a_dtv_jsp_set("/tv/cast/volume/volume", nullptr), -1);
  EXPECT_TRUE(set_events.empty());
}

// --- Queries of types that no row has ---

class Query : public PluginTest {};

TEST_F(Query, DecodedTypes) {
  const std::set<int> queried = decoded_types(kQuery);
  int calls = 0;
  get_handler = [&calls](UINT16, void*) { return ++calls, 0; };
  for (int type = 0; type <= 255; ++type) {
    const std::string uri = made_up_uri(static_cast<UINT8>(type));
    char response[DTV_JSP_RESPONSE_MAX + 1] = {};
    const int before = calls;
    INT32 ret = 99;
    const std::string printed = printed_by(
        [&] { ret = a_dtv_jsp_get(uri.c_str(), R"({"PARAMETER":{"REQUEST":"QUERY","VALUE":"1"}})", response); });
    if (queried.contains(type)) {
      EXPECT_EQ(ret, 0) << type;
      EXPECT_EQ(calls, before + 1) << type;
    } else {
      EXPECT_EQ(ret, -1) << type;
      EXPECT_EQ(calls, before) << type;
      EXPECT_EQ(printed, "<a_dtv_jsp_get> ERROR: something wrong in param!") << type;
      EXPECT_STREQ(response, "") << type;
      EXPECT_EQ(std::string(_ps_send_buff), "{\"URI\":\"" + uri + "\",\"STATUS\":0,\"ITEMS\":[{}]}");
    }
  }
}

TEST_F(Query, BannerItemTakesItsValueAsInteger) {
  int item_id = -1;
  get_handler = [&item_id](UINT16, void* record) { return item_id = static_cast<T_BANNER_ITEM*>(record)->item_id, 0; };
  set_log_level(2);
  char response[DTV_JSP_RESPONSE_MAX + 1] = {};
  const std::string printed = printed_by([&] {
    a_dtv_jsp_get(made_up_uri(TYPE_BANNER_ITEM).c_str(), R"({"PARAMETER":{"REQUEST":"QUERY","VALUE":12}})", response);
  });
  EXPECT_EQ(item_id, 12);
  EXPECT_NE(printed.find("<a_dtv_jsp_get> item_id: 12!\n"), std::string::npos) << printed;
}

// --- Start-up ---

class StartUp : public PluginTest {};

TEST_F(StartUp, RunsOnce) {
  const std::vector<std::int64_t> registration = platform_registration("a_vextvapi_volctrl_reg_callback");
  ASSERT_EQ(registration.size(), 2u);
  EXPECT_EQ(registration[1], 0x129CA8);
  platform_reset();
  EXPECT_EQ(a_dtv_jsp_init_res(), 0);
  EXPECT_EQ(a_dtv_jsp_init(), 0);
  EXPECT_EQ(tv_ctrl_init(nullptr), 0);
  EXPECT_TRUE(platform_calls().empty());
}

TEST_F(StartUp, RefusedVolumeCallbackIsToldAndFails) {
  platform_answer("a_vextvapi_volctrl_reg_callback", -4);
  INT32 ret = 99;
  const std::string printed = printed_by([&] { ret = tv_ctrl_volctrl_init(); });
  EXPECT_EQ(ret, -1);
  EXPECT_TRUE(printed.starts_with("[TVC_MAIN]:Return fail:tv_ctrl_volctrl_init:")) << printed;
  EXPECT_TRUE(printed.ends_with(":-4\r\n")) << printed;
}

}  // namespace
