// The response of every item type, also of those that no registry row has.
#include "tv_ctrl_api/response.h"

#include <cstring>
#include <limits>
#include <string>

#include "support.h"
#include "tv_ctrl_api/item_types.h"

namespace {

class Response : public PluginTest {
 protected:
  template <typename Record>
  static std::string render(UINT8 type, const Record& record, INT32 status = 0) {
    tv_ctrl_response_get("/tv/x", type, &record, status);
    return text();
  }

  static std::string text() {
    EXPECT_EQ(_z_send_buff_len, _ps_send_buff ? static_cast<int>(std::strlen(_ps_send_buff)) : 0);
    return _ps_send_buff ? _ps_send_buff : "";
  }

  template <typename Record>
  static Record headed(const char* name) {
    Record record = {};
    std::strcpy(record.name, name);
    record.id = 77;    // not rendered
    record.size = 78;  // not rendered
    record.group = 9;
    record.state = -1;
    return record;
  }

  static std::string item(const std::string& members, int status = 0) {
    return "{\"URI\":\"/tv/x\",\"STATUS\":" + std::to_string(status) + ",\"ITEMS\":[{" + members + "}]}";
  }
};

constexpr int kMax = std::numeric_limits<int>::max(), kMin = std::numeric_limits<int>::min();

TEST_F(Response, Value) {
  auto record = headed<T_VALUE>("Brightness");
  record.min_value = kMin;
  record.max_value = kMax;
  record.increment = 1;
  record.value = 50;
  EXPECT_EQ(render(TYPE_VALUE, record, -1),
            item(R"("NAME":"Brightness","TYPE":"TYPE_VALUE","GROUP":9,"STATE":-1,"MINIMUM":-2147483648,)"
                 R"("MAXIMUM":2147483647,"INCREMENT":1,"VALUE":50)",
                 -1));
}

TEST_F(Response, Integer) {
  auto record = headed<T_INTEGER>("Index");
  record.value = kMin;
  EXPECT_EQ(render(TYPE_INTEGER, record),
            item(R"("NAME":"Index","TYPE":"TYPE_INTEGER","GROUP":9,"STATE":-1,"VALUE":-2147483648)"));
}

TEST_F(Response, Tint) {
  auto record = headed<T_TINT>("Tint");
  record.min_value = -50;
  record.max_value = 50;
  record.increment = 2;
  record.center = 3;
  record.value = -7;
  EXPECT_EQ(render(TYPE_TINT, record), item(R"("NAME":"Tint","TYPE":"TYPE_TINT","GROUP":9,"STATE":-1,"MINIMUM":-50,)"
                                            R"("MAXIMUM":50,"INCREMENT":2,"CENTER":3,"VALUE":-7)"));
}

TEST_F(Response, Text) {
  auto record = headed<T_TEXT>("Name");
  std::strcpy(record.value, "a\"b\\c\n\x01\xC3\xA4");
  EXPECT_EQ(render(TYPE_TEXT, record), item("\"NAME\":\"Name\",\"TYPE\":\"TYPE_TEXT\",\"GROUP\":9,\"STATE\":-1,"
                                            "\"TEXT\":\"a\\\"b\\\\c\\n\\u0001\xC3\xA4\""));
}

TEST_F(Response, Text16IsReadAsBytes) {
  auto record = headed<T_TEXT_16>("Name");
  record.value[0] = 'A';
  record.value[1] = 'B';
  EXPECT_EQ(render(TYPE_TEXT_16, record), item(R"("NAME":"Name","TYPE":"TYPE_TEXT","GROUP":9,"STATE":-1,"TEXT":"A")"));
  record.value[0] = 'A' | 'B' << 8;
  record.value[1] = 'C';
  EXPECT_EQ(render(TYPE_TEXT_16, record),
            item(R"("NAME":"Name","TYPE":"TYPE_TEXT","GROUP":9,"STATE":-1,"TEXT":"ABC")"));
}

TEST_F(Response, OptionList) {
  auto record = headed<T_OPTION_LIST>("Country");
  std::strcpy(record.element, "one,two");
  record.value = 1;
  EXPECT_EQ(render(TYPE_OPTION_LIST, record),
            item(R"("NAME":"Country","TYPE":"TYPE_OPTION_LIST","GROUP":9,"STATE":-1,"OPTION":"one,two","VALUE":1)"));
}

TEST_F(Response, Action) {
  EXPECT_EQ(render(TYPE_ACTION, headed<T_ACTION>("Go")),
            item(R"("NAME":"Go","TYPE":"TYPE_ACTION","GROUP":9,"STATE":-1)"));
}

TEST_F(Response, Time) {
  auto record = headed<T_TIME>("Clock");
  record.value = 1900000000123;
  record.dtg = {.ui2_yr = 65535,
                .ui1_mo = 255,
                .ui1_day = 3,
                .ui1_dow = 4,
                .ui1_hr = 5,
                .ui1_min = 6,
                .ui1_sec = 7,
                .b_gmt = -8,
                .b_dst = 9};
  EXPECT_EQ(render(TYPE_TIME, record),
            item(R"("NAME":"Clock","TYPE":"TYPE_TIME","GROUP":9,"STATE":-1,"VALUE":1900000000123,"DTG":{"YEAR":65535,)"
                 R"("MONTH":255,"DAY":3,"WEEK":4,"HOUR":5,"MINUTE":6,"SECOND":7,"GMT":-8,"DST":9})"));
}

// Large values read as the library prints their doubles.
TEST_F(Response, TimeValuesAreTheLibrarysDoubles) {
  auto record = headed<T_TIME>("Clock");
  for (const INT64 value :
       {INT64{0}, INT64{-1}, INT64{999999999999999}, INT64{1000000000000000}, INT64{-999999999999999},
        INT64{-1000000000000000}, INT64{1} << 53, (INT64{1} << 53) + 1, INT64{1234567890123456789},
        std::numeric_limits<INT64>::max(), std::numeric_limits<INT64>::min()}) {
    record.value = value;
    const Json number(cJSON_CreateNumber(static_cast<double>(value)), cJSON_Delete);
    EXPECT_NE(render(TYPE_TIME, record).find("\"VALUE\":" + print_json(number.get()) + ","), std::string::npos)
        << value;
  }
}

// Every member shows its own field: each field has a different number.
TEST_F(Response, CiData) {
  auto record = headed<T_CI_DATA>("CAM");
  record.t_ci_cam_scan_req_data = {.ui1_slot_id = 10,
                                   .t_scan_req_type = 9,
                                   .b_req_query = 1,
                                   .mjd = 60000,
                                   .year = 2026,
                                   .month = 7,
                                   .day = 2,
                                   .hour = 3,
                                   .minute = 5,
                                   .second = 8,
                                   .hundredth = 4};
  record.t_ci_cam_upgrade_data = {.ui1_slot_id = 12, .ui1_upgrade_type = 13, .ui2_download_time = 65535};
  record.t_ci_cam_upgrade_progress_data = {.ui1_slot_id = 16, .ui1_download_progress_status = 15};
  record.t_ci_mmi_enq_ans.b_answer = -17;
  record.t_ci_mmi_enq_ans.ui4_id = 4294967295u;
  record.t_ci_mmi_enq_close_data = {.ui1_ci_slot = 19, .ui1_mmi_close_delay = 20};
  record.t_ci_mmi_enq_data.b_blind_ans = 21;
  record.t_ci_mmi_enq_data.ui1_ans_txt_len = 22;
  record.t_ci_mmi_enq_data.ui4_id = 23;
  record.t_ci_mmi_menu.ui1_choice_nb = 24;
  record.t_ci_mmi_menu.ui4_id = 25;
  record.t_ci_mmi_menu_ans = {.ui4_id = 27, .ui1_answer = 26};
  EXPECT_EQ(render(TYPE_CI_DATA, record),
            item(R"("NAME":"CAM","TYPE":"TYPE_CI_DATA","GROUP":9,"STATE":-1,"CI_REQ_QUERY":1,"CI_REQ_DAY":2,)"
                 R"("CI_REQ_HOUR":3,"CI_REQ_HUNDREDTH":4,"CI_REQ_MINUTE":5,"CI_REQ_MJD":60000,"CI_REQ_MONTH":7,)"
                 R"("CI_REQ_SECOND":8,"CI_REQ_TYPE":9,"CI_REQ_SLOT":10,"CI_REQ_YEAR":2026,"CI_UPG_SLOT":12,)"
                 R"("CI_UPG_TYPE":13,"CI_UPG_TIME":65535,"CI_UPG_PROG_STAT":15,"CI_UPG_PROG_SLOT":16,)"
                 R"("CI_MMI_ENQ_ANS":-17,"CI_MMI_ENQ_ANS_ID":4294967295,"CI_MMI_ENQ_CLS_SLOT":19,)"
                 R"("CI_MMI_ENQ_CLS_DELAY":20,"CI_MMI_ENQ_DATA_BLIND":21,"CI_MMI_ENQ_DATA_LEN":22,)"
                 R"("CI_MMI_ENQ_DATA_ID":23,"CI_MMI_MENU_CHOISE":24,"CI_MMI_MENU_ID":25,"CI_MMI_MENU_ANS":26,)"
                 R"("CI_MMI_MENU_ANS_ID":27)"));
}

TEST_F(Response, TextsEndWithTheirArrays) {
  T_TEXT record;
  std::memset(&record, 'z', sizeof record);
  record.group = record.state = 0;
  EXPECT_EQ(render(TYPE_TEXT, record),
            item("\"NAME\":\"" + std::string(32, 'z') +
                 "\",\"TYPE\":\"TYPE_TEXT\",\"GROUP\":0,\"STATE\":0,\"TEXT\":\"" + std::string(1024, 'z') + "\""));
}

TEST_F(Response, TypesWithoutResponseFieldsGiveNone) {
  const std::vector<char> record(1 << 20, 0);
  for (int type = 0; type <= 255; ++type) {
    const ItemType* const row = tvc_item_type(static_cast<UINT8>(type));
    if (row != nullptr && tvc_item_has(*row, kResponse)) continue;
    for (const INT32 status : {0, -1, 11}) {
      tv_ctrl_response_get("/tv/x", static_cast<UINT8>(type), record.data(), status);
      EXPECT_EQ(text(), item("")) << type;
    }
  }
  tv_ctrl_response_get("/tv/x", TYPE_NONE, nullptr, VEX_REQ_TYPE_NOT_MATCH);
  EXPECT_EQ(text(), item(""));
}

TEST_F(Response, UriIsEscaped) {
  tv_ctrl_response_get("/tv/\"\\\n", TYPE_NONE, nullptr, 0);
  EXPECT_EQ(text(), R"({"URI":"/tv/\"\\\n","STATUS":0,"ITEMS":[{}]})");
}

// A renderer without memory logs its own name.
TEST_F(Response, RootThatCannotBeCreatedIsToldByTheRenderersName) {
  const std::pair<UINT8, const char*> names[] = {
      {TYPE_VALUE, "_json_print_value_type"},   {TYPE_INTEGER, "_json_print_integer_type"},
      {TYPE_TEXT, "_json_print_text_type"},     {TYPE_TEXT_16, "_json_print_text_16_type"},
      {TYPE_TINT, "_json_print_tint_type"},     {TYPE_OPTION_LIST, "_json_print_option_list_type"},
      {TYPE_ACTION, "_json_print_action_type"}, {TYPE_TIME, "_json_print_time_type"},
      {TYPE_NONE, "_json_print_none_type"},
  };
  const std::vector<char> record(1 << 16, 0);
  for (const auto& row : names) {
    const std::string printed = printed_by([&] {
      const MemoryWatch memory(1, true);
      tv_ctrl_response_get("/tv/x", row.first, record.data(), 0);
    });
    EXPECT_EQ(printed, "<" + std::string(row.second) + "> Create root object failed!!!\n");
    EXPECT_EQ(_ps_send_buff, nullptr);
    EXPECT_EQ(_z_send_buff_len, 0);
  }
}

TEST_F(Response, TextOfTheLastRenderingIsReplaced) {
  tv_ctrl_response_get("/tv/first", TYPE_NONE, nullptr, 0);
  EXPECT_NE(text().find("first"), std::string::npos);
  tv_ctrl_response_get("/tv/second", TYPE_NONE, nullptr, 0);
  EXPECT_EQ(text().find("first"), std::string::npos);
}

}  // namespace
