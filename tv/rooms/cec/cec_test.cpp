// HDMI-CEC: discovery, one touch play, standby, plugging, both switches, the set's answers.
#include "cec_test.h"

namespace {

constexpr UINT32 kBoth = 1 << 4 | 1 << 5;

const char* const kNew =
    R"({"devices":[{"device":"amplifier","name":"AV Amplifier","logical":5,"address":"1.0.0.0","plugged":true,)"
    R"("power":"standby","active":false},{"device":"player","name":"Disc Player","logical":4,"address":"2.0.0.0",)"
    R"("plugged":true,"power":"standby","active":false}]})";

// The events of one sender's messages.
std::vector<CecHeard> from(const std::vector<CecHeard>& heard, INT32 la) {
  std::vector<CecHeard> result;
  for (const CecHeard& each : heard)
    if (each.event.e_sent_la == la) result.push_back(each);
  return result;
}

bool reports_cec() { return tv_control(R"(["state"])").find(R"("cec")") != std::string::npos; }

int times_delivered(const std::string& frame) {
  const std::string all = TvCec::cec({"frames"});
  const std::string field = R"("frame":")" + frame + '"';
  int times = 0;
  for (std::size_t at = 0; (at = all.find(field, at)) != std::string::npos; ++at) ++times;
  return times;
}

INT32 config(const char* key) {
  INT32 value = -1;
  EXPECT_EQ(a_vextvapi_config_get_value(-1, key, &value), 0);
  return value;
}

UINT8 function_state() {
  UINT8 state = 77;
  EXPECT_EQ(a_vextvapi_cec_get_cec_func(&state), 0);
  return state;
}

// ---- The functions of the set ----

TEST_F(TvCec, NewSetHasTwoDevicesInStandbyAndCecOn) {
  EXPECT_EQ(cec({}), kNew);
  EXPECT_FALSE(reports_cec());
  EXPECT_EQ(function_state(), 1);
  UINT8 ports = 0;
  EXPECT_EQ(a_vextvapi_cec_get_hdmi_port_num(&ports), 0);
  EXPECT_EQ(ports, 4);
}

TEST_F(TvCec, TheFunctionIsAConfigurationValueAndIsStored) {
  EXPECT_EQ(a_vextvapi_cec_set_cec_func(0), 0);
  EXPECT_EQ(function_state(), 0);
  EXPECT_EQ(config("g_misc__cec_enable"), 0);
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(function_state(), 0);
  EXPECT_EQ(a_vextvapi_config_set_value(-1, "g_misc__cec_enable", 1, 0), 0);
  EXPECT_EQ(function_state(), 1);
}

TEST_F(TvCec, RefusesInvalidCalls) {
  expect_words(refusal([] { return a_vextvapi_cec_set_cec_func(2); }), {"0 or 1", "2"});
  EXPECT_EQ(function_state(), 1);
  expect_words(refusal([] { return a_vextvapi_cec_set_cec_fct({.b_enable = 2, .ui1_hdmi_port_num = 3}); }), {"2"});
  expect_words(refusal([] { return a_vextvapi_cec_set_cec_fct({.b_enable = 1, .ui1_hdmi_port_num = 5}); }), {"4", "5"});
  expect_words(refusal([] { return a_vextvapi_cec_signal_cec_ready(3); }), {"3"});
  expect_words(refusal([] { return discover(1, 14); }), {"CEC is off"});
  enable();
  expect_words(refusal([] { return discover(0, 14); }), {"0 to 14", "1 to 14"});
  expect_words(refusal([] { return discover(1, 15); }), {"1 to 15"});
  expect_words(refusal([] { return discover(5, 4); }), {"5 to 4"});
  expect_words(refusal([] { return discover(-1, 3); }), {"-1"});
  a_vextvapi_cec_set_cec_func(0);
  expect_words(refusal([] { return discover(1, 14); }), {"CEC is off"});
  EXPECT_LT(a_vextvapi_cec_start_dev_discovery_ex(nullptr), 0);
  EXPECT_LT(a_vextvapi_cec_get_cec_func(nullptr), 0);
  EXPECT_LT(a_vextvapi_cec_get_hdmi_port_num(nullptr), 0);
}

// ---- Discovery ----

TEST_F(TvCec, DiscoveryFindsBothDevicesAndQueriesThem) {
  switch_on();
  ASSERT_EQ(discover(1, 14), 0);
  const std::vector<CecHeard> all = wait_for("msg 1");

  for (int la = 1; la <= 14; ++la) {
    char poll[4];
    snprintf(poll, sizeof poll, "%02X", la);
    EXPECT_NE(cec({"frames"}).find(row(poll, la == 4 || la == 5)), std::string::npos) << poll;
  }
  expect_frames({"04", "04:83", "4F:84:20:00:04", "04:46", "40:47:44:69:73:63:20:50:6C:61:79:65:72", "04:8C",
                 "4F:87:02:DE:02", "04:9F", "40:9E:05", "04:8F", "40:90:01"});
  expect_frames({"05", "05:83", "5F:84:10:00:05", "05:46", "50:47:41:56:20:41:6D:70:6C:69:66:69:65:72", "05:8C",
                 "5F:87:02:DE:01", "05:9F", "50:9E:06", "05:8F", "50:90:01", "05:7D", "50:7E:00"});

  const std::vector<CecHeard> player = from(all, 4);
  EXPECT_EQ(names_of(player), (Names{"op 84", "op 47", "op 87", "op 9E", "op 90"}));
  const INT32 questions[] = {0x83, 0x46, 0x8C, 0x9F, 0x8F, 0x7D};
  for (std::size_t i = 0; i < player.size(); ++i) EXPECT_EQ(player[i].event.e_sent_opcode, questions[i]) << i;
  EXPECT_EQ(player[0].data().t_report_pa.ui2_pa, 0x2000);
  EXPECT_EQ(player[0].data().t_report_pa.e_dev_type, 4);
  EXPECT_EQ(player[1].data().ui1_osd_name, 'D');
  EXPECT_EQ(player[4].data().e_pwr_sts, 1);
  const std::vector<CecHeard> amplifier = from(all, 5);
  EXPECT_EQ(names_of(amplifier), (Names{"op 84", "op 47", "op 87", "op 9E", "op 90", "op 7E"}));
  for (std::size_t i = 0; i < amplifier.size(); ++i) EXPECT_EQ(amplifier[i].event.e_sent_opcode, questions[i]) << i;
  EXPECT_EQ(amplifier[0].data().t_report_pa.ui2_pa, 0x1000);
  EXPECT_EQ(amplifier[0].data().t_report_pa.e_dev_type, 5);

  ASSERT_EQ(all.size(), 12u);
  const CecHeard& list = all.back();
  EXPECT_EQ(list.event.e_sent_la, 0);
  EXPECT_EQ(list.event.e_nfy_type, CECM_NFY_TYPE_MSGCODE);
  EXPECT_EQ(list.event.u_code.e_msgcode, CECM_MSGCODE_DEV_LST);
  EXPECT_EQ(list.event.ui4_attr, kBoth);
  EXPECT_EQ(list.data().t_dev_nfy_lst.e_sts, CECM_DEV_LST_CHANGED);
  EXPECT_EQ(list.data().t_dev_nfy_lst.e_start_la, 1);
  EXPECT_EQ(list.data().t_dev_nfy_lst.e_stop_la, 14);
  for (const CecHeard& each : all) {
    EXPECT_EQ(each.tag, kCecTag);
    EXPECT_NE(each.thread, std::this_thread::get_id());
    EXPECT_EQ(each.thread, all[0].thread);
  }

  forget();
  ASSERT_EQ(discover(4, 4), 0);
  const CecHeard again = wait_for("msg 1").back();
  EXPECT_EQ(again.event.ui4_attr, kBoth);
  EXPECT_EQ(again.data().t_dev_nfy_lst.e_sts, CECM_DEV_LST_UNCHANGED);
  EXPECT_EQ(again.data().t_dev_nfy_lst.e_start_la, 4);
  EXPECT_EQ(again.data().t_dev_nfy_lst.e_stop_la, 4);
}

TEST_F(TvCec, BatchPollsAllBeforeItQueries) {
  switch_on();
  ASSERT_EQ(discover(4, 5, 0, 1), 0);
  wait_for("msg 1");
  expect_frames({"04", "05", "04:83", "4F:84:20:00:04"});
  expect_frames({"40:90:01", "05:83", "5F:84:10:00:05"});
}

TEST_F(TvCec, PollsHaveTheRequestedInterval) {
  switch_on();
  ASSERT_EQ(discover(1, 3, 100), 0);
  // A start bit, ten bits and the silence take 45.3 ms: polls end at 145.3, 290.6 and 435.9 ms.
  dtv_tv_advance(145 - 1);
  for (const char* const poll : {"01", "02", "03"}) {
    dtv_tv_advance(1);
    EXPECT_EQ(times_delivered(poll), 0);
    dtv_tv_advance(1);
    EXPECT_EQ(times_delivered(poll), 1);
    dtv_tv_advance(143);
  }
  wait_for("msg 1");
  EXPECT_EQ(ended().size(), 1u);
}

TEST_F(TvCec, ANewDiscoveryReplacesTheRunningOne) {
  switch_on();
  ASSERT_EQ(discover(6, 14, 50), 0);
  ASSERT_EQ(discover(1, 2), 0);
  const CecHeard list = wait_for("msg 1").front();
  EXPECT_EQ(list.data().t_dev_nfy_lst.e_stop_la, 2);
  EXPECT_EQ(list.event.ui4_attr, 0u);
  EXPECT_EQ(list.data().t_dev_nfy_lst.e_sts, CECM_DEV_LST_UNCHANGED);
  dtv_tv_advance(2'000);  // the other one's nine polls would have ended
  EXPECT_EQ(ended().size(), 1u);
}

TEST_F(TvCec, DiscoverySwitchesSystemAudioOnIfConfigured) {
  switch_on();
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__cec_speakers", 1, 0), 0);
  ASSERT_EQ(discover(5, 5), 0);
  const std::vector<CecHeard> all = wait_for("op 72");
  expect_frames({"05:70:00:00", "5F:90:00", "5F:72:01"});
  EXPECT_EQ(all.back().event.e_sent_opcode, 0x70);
  EXPECT_EQ(all.back().data().e_sys_aud_sts, 1);
  forget();
  cec({"standby", "amplifier"});
  wait_for("op 72");
  expect_frames({"5F:72:00", "5F:90:01"});
}

// ---- One touch play and standby ----

TEST_F(TvCec, OneTouchPlay) {
  switch_on();
  cec({"play", "player"});
  const std::vector<CecHeard> all = wait_for(2);
  ASSERT_EQ(names_of(all), (Names{"op 04", "op 82"}));
  EXPECT_EQ(all[0].event.e_sent_la, 4);
  EXPECT_EQ(all[0].event.e_brdcst_type, CECM_BRDCST_TYPE_DIRECT);
  EXPECT_EQ(all[0].data().t_one_touch_play.t_comp.t_pa.ui2_pa, 0xFFFF);  // it has not reported its address yet
  EXPECT_EQ(all[1].event.e_sent_la, 4);
  EXPECT_EQ(all[1].event.e_brdcst_type, CECM_BRDCST_TYPE_BROADCAST);
  EXPECT_EQ(all[1].data().t_act_src.t_pa.ui2_pa, 0x2000);
  EXPECT_EQ(all[1].data().t_act_src.t_pa.e_pa, 2);
  EXPECT_EQ(all[1].data().t_act_src.ui2_comp_id, 2);
  expect_frames({"40:04", "4F:82:20:00"});
  EXPECT_NE(cec({}).find(R"("device":"player","name":"Disc Player","logical":4,"address":"2.0.0.0","plugged":true,)"
                         R"("power":"on","active":true)"),
            std::string::npos)
      << cec({});
  EXPECT_TRUE(reports_cec());

  forget();
  cec({"play", "amplifier"});  // a device of version 2.0 reports that it is on
  EXPECT_EQ(names_of(wait_for(3)), (Names{"op 90", "op 04", "op 82"}));
  expect_frames({"5F:90:00", "50:04", "5F:82:10:00"});
  EXPECT_NE(cec({}).find(R"("address":"2.0.0.0","plugged":true,"power":"on","active":false)"), std::string::npos);
  EXPECT_NE(cec({}).find(R"("address":"1.0.0.0","plugged":true,"power":"on","active":true)"), std::string::npos);
}

TEST_F(TvCecInRealTime, EventsArriveAtTheBusSpeed) {
  switch_on();
  const auto begin = std::chrono::steady_clock::now();
  cec({"play", "player"});
  const std::vector<CecHeard> all = wait_for(2);
  ASSERT_EQ(names_of(all), (Names{"op 04", "op 82"}));
  EXPECT_GE(all[1].when - begin, std::chrono::milliseconds(144));  // six bytes of ten bits of 2.4 ms each
}

TEST_F(TvCec, StandbyOfTheActiveSourceAndOfAnotherDevice) {
  switch_on();
  cec({"play", "player"});
  cec({"standby", "player"});
  const std::vector<CecHeard> all = wait_for(3);
  ASSERT_EQ(names_of(all), (Names{"op 04", "op 82", "op 9D"}));
  EXPECT_EQ(all[2].event.e_sent_la, 4);
  EXPECT_EQ(all[2].data().t_pa.ui2_pa, 0x2000);
  expect_frames({"40:04", "4F:82:20:00", "40:9D:20:00"});
  EXPECT_EQ(cec({}), kNew);
  forget();
  ASSERT_EQ(discover(1, 1), 0);  // which queries the active source
  EXPECT_EQ(names_of(wait_for("msg 1")), Names{"msg 1"});

  forget();
  cec({"play", "player"});
  cec({"play", "amplifier"});
  wait_for(5);
  cec({"standby", "player"});  // it is not playing any more, so it sends nothing
  cec({"standby", "amplifier"});
  wait_frame("5F:90:01");
  EXPECT_EQ(cec({}), kNew);
  expect_frames({"5F:82:10:00", "50:9D:10:00", "5F:90:01"});
  wait_for(7);
  EXPECT_EQ(names_of(ended()), (Names{"op 04", "op 82", "op 90", "op 04", "op 82", "op 9D", "op 90"}));
}

TEST_F(TvCec, DiscoveryFindsTheActiveSource) {
  enable();
  cec({"play", "player"});
  wait_frame("4F:82:20:00");
  EXPECT_EQ(a_vextvapi_cec_signal_cec_ready(1), 0);
  ASSERT_EQ(discover(1, 1), 0);
  const std::vector<CecHeard> all = wait_for("msg 1");
  EXPECT_EQ(names_of(all), (Names{"op 82", "msg 1"}));
  EXPECT_EQ(all[0].event.e_sent_opcode, 0x85);
  expect_frames({"0F:85", "4F:82:20:00"});
  cec({"send", "player", "82", "20", "00"});
  EXPECT_EQ(wait_for(3).back().event.e_sent_opcode, 0);  // not an answer to a query
}

bool shown(const std::string& part) { return tv_control(R"(["state"])").find(part) != std::string::npos; }

const char* const kStandby = R"("power":"standby","channel":)";  // the set's power, not a device's

TEST_F(TvCec, ASourceThatPlaysWakesTheSetAndIsShown) {
  enable();
  tv_control(R"(["power","standby"])");
  cec({"play", "player"});
  wait_frame("4F:82:20:00");
  EXPECT_TRUE(shown(R"("power":"on","channel":null,"source":"HDMI 2")"));
  cec({"play", "amplifier"});
  wait_frame("5F:82:10:00");
  EXPECT_TRUE(shown(R"("source":"HDMI 1")"));
  cec({"send", "player", "82", "31", "00"});  // behind another device at that input
  wait_frame("4F:82:31:00");
  EXPECT_TRUE(shown(R"("source":"HDMI 3")"));
  for (const char* nowhere : {"00", "50", "FF"}) {
    cec({"send", "player", "82", nowhere, "00"});
    wait_frame(std::string("4F:82:") + nowhere + ":00");
    EXPECT_TRUE(shown(R"("source":"HDMI 3")")) << nowhere;
  }
  tv_control(R"(["power","standby"])");
  cec({"send", "player", "82", "20", "00"});  // this message alone does not wake the set
  cec({"send", "player", "C0"});
  wait_frame("04:00:C0:00");
  EXPECT_TRUE(shown(kStandby));
  EXPECT_TRUE(shown(R"("source":"HDMI 3")"));
  cec({"send", "player", "0D"});
  wait_frame("40:0D");
  EXPECT_FALSE(shown(kStandby));
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_TRUE(shown(R"("source":"HDMI 3")"));
}

TEST_F(TvCec, ASourceWakesTheSetOnlyIfConfigured) {
  enable();
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__cec_auto_on", 0, 0), 0);
  tv_control(R"(["power","standby"])");
  cec({"play", "player"});
  cec({"send", "player", "0D"});
  wait_frame("40:0D");
  EXPECT_TRUE(shown(kStandby));
  EXPECT_TRUE(shown(R"("source":"TV")"));
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__cec_auto_on", 1, 0), 0);
  a_vextvapi_cec_set_cec_func(0);
  cec({"send", "player", "04"});
  wait_frame("40:04", false);
  EXPECT_TRUE(shown(kStandby));
  tv_control(R"(["power","on"])");
  cec({"send", "player", "82", "20", "00"});
  cec({"send", "player", "46"});
  wait_frame("40:46", false);
  EXPECT_TRUE(shown(R"("source":"TV")"));
}

TEST_F(TvCec, InStandbyTheSetReportsStandby) {
  enable();
  tv_control(R"(["power","standby"])");
  cec({"send", "player", "8F"});
  expect_frames({"40:8F", "04:90:01"});
  tv_control(R"(["power","on"])");
  cec({"send", "player", "8F"});
  expect_frames({"40:8F", "04:90:00"});
}

TEST_F(TvCec, DevicesGoToStandbyWithTheSet) {
  switch_on();
  cec({"play", "amplifier"});
  cec({"play", "player"});
  wait_frame("4F:82:20:00");
  tv_control(R"(["key","POWER"])");
  wait_frame("40:9D:20:00");
  wait_frame("5F:90:01");
  EXPECT_EQ(cec({}), kNew);
  wait_for("op 9D");

  tv_control(R"(["power","standby"])");  // the player is plugged in
  a_vextvapi_cec_set_cec_func(0);
  tv_control(R"(["power","on"])");
  tv_control(R"(["power","standby"])");
  tv_control(R"(["power","on"])");
  a_vextvapi_cec_set_cec_func(1);
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_misc__cec_auto_off", 0, 0), 0);
  tv_control(R"(["power","standby"])");
  cec({"send", "player", "8F"});
  wait_frame("04:90:01");
  EXPECT_EQ(times_delivered("0F:36"), 1) << cec({"frames"});
}

// ---- Plugging ----

TEST_F(TvCec, UnplugAndPlug) {
  switch_on();
  ASSERT_EQ(discover(4, 5), 0);
  wait_for("msg 1");
  forget();

  cec({"unplug", "amplifier"});
  std::vector<CecHeard> all = wait_for("msg 1");
  ASSERT_EQ(names_of(all), (Names{"msg 2", "msg 1"}));
  EXPECT_EQ(all[0].event.e_sent_la, 0);
  EXPECT_EQ(all[0].data().t_5v_pwr.ui1_5v_pwr, 0);
  EXPECT_EQ(all[0].data().t_5v_pwr.ui2_comp_id, 1);
  EXPECT_EQ(all[1].event.ui4_attr, UINT32{1} << 4);
  EXPECT_EQ(all[1].data().t_dev_nfy_lst.e_sts, CECM_DEV_LST_CHANGED);
  wait_frame("05", false);
  EXPECT_NE(cec({}).find(R"("address":"1.0.0.0","plugged":false,"power":"none","active":false)"), std::string::npos);
  EXPECT_TRUE(reports_cec());

  forget();
  cec({"plug", "amplifier"});
  all = wait_for("msg 1");
  ASSERT_EQ(names_of(all),
            (Names{"msg 2", "op A6", "op 84", "op 87", "op 84", "op 47", "op 87", "op 9E", "op 90", "op 7E", "msg 1"}));
  EXPECT_EQ(all[0].data().t_5v_pwr.ui1_5v_pwr, 1);
  EXPECT_EQ(all[1].data().t_feature.e_ver, 6);
  EXPECT_EQ(all[1].data().t_feature.e_type, 0x08);  // an audio system
  EXPECT_EQ(all[2].event.e_sent_opcode, 0);         // not an answer to a query
  EXPECT_EQ(all[4].event.e_sent_opcode, 0x83);
  EXPECT_EQ(all.back().event.ui4_attr, kBoth);
  wait_frame("55", false);  // its address is free
  EXPECT_EQ(cec({}), kNew);
}

TEST_F(TvCec, AnUnpluggedDeviceSendsNothing) {
  switch_on();
  cec({"play", "player"});
  cec({"unplug", "player"});
  EXPECT_EQ(names_of(wait_for("msg 1")), (Names{"msg 2", "msg 1"}));
  EXPECT_EQ(cec({"frames"}).find("40:04"), std::string::npos);
  cec({"play", "amplifier"});
  cec({"unplug", "amplifier"});
  cec({"plug", "amplifier"});
  wait_frame("5F:84:10:00:05");
  EXPECT_EQ(cec({"frames"}).find("5F:82"), std::string::npos);  // its waiting frames were discarded
}

TEST_F(TvCec, ManyPlugsCauseOneWaitingDiscovery) {
  switch_on();
  for (int i = 0; i < 20; ++i) {
    cec({"unplug", "player"});
    cec({"plug", "player"});
  }
  cec({"unplug", "amplifier"});
  wait_frame("05", false);  // the last discovery
  EXPECT_LE(times_delivered("04"), 3);
  EXPECT_NE(cec({"frames"}).find(row("04")), std::string::npos) << "the discovery finds its current state";
}

// ---- No events ----

TEST_F(TvCec, NoEventsBeforeTheApplicationIsReady) {
  enable();
  cec({"play", "player"});
  cec({"unplug", "amplifier"});
  wait_frame("4F:82:20:00");
  EXPECT_EQ(a_vextvapi_cec_signal_cec_ready(1), 0);
  cec({"send", "player", "36"});
  wait_for("op 36");
  EXPECT_EQ(a_vextvapi_cec_signal_cec_ready(0), 0);
  cec({"send", "player", "44", "41"});
  wait_frame("40:44:41");
  Names names;
  for (const std::string& each : names_of(ended()))
    if (each != "msg 1") names.push_back(each);  // the list of a discovery that ends after ready
  EXPECT_EQ(names, Names{"op 36"});
}

void expect_no_events(TvCec& test, const char* name) {
  TvCec::cec({"play", name});
  TvCec::wait_frame("40:04", false);  // not acknowledged
  TvCec::wait_frame("4F:82:20:00");
  TvCec::cec({"unplug", name});
  TvCec::cec({"plug", name});
  TvCec::wait_frame("4F:87:02:DE:02");
  TvCec::cec({"send", name, "46"});
  TvCec::wait_frame("40:46", false);
  const std::lock_guard guard(test.lock);
  EXPECT_TRUE(test.heard.empty()) << name_of(test.heard[0].event);
}

TEST_F(TvCec, NoEventsWhileTheFunctionIsOff) {
  switch_on();
  ASSERT_EQ(a_vextvapi_cec_set_cec_func(0), 0);
  expect_no_events(*this, "player");
  ASSERT_EQ(a_vextvapi_cec_set_cec_func(1), 0);
  cec({"send", "player", "36"});
  EXPECT_EQ(names_of(wait_for(1)), Names{"op 36"});
}

TEST_F(TvCec, NoEventsWhileTheManagerIsOff) {
  EXPECT_EQ(a_vextvapi_cec_signal_cec_ready(1), 0);  // never switched on
  expect_no_events(*this, "player");
  enable();
  enable(0);
  cec({"send", "player", "36"});
  wait_frame("40:36", false);
  EXPECT_TRUE(ended().empty());
}

TEST_F(TvCec, SwitchingOffEndsTheDiscovery) {
  switch_on();
  ASSERT_EQ(discover(1, 14), 0);
  wait_for("op 84");
  ASSERT_EQ(a_vextvapi_cec_set_cec_func(0), 0);
  const std::size_t told = wait_for(1).size();
  cec({"send", "player", "36"});
  wait_frame("40:36", false);
  EXPECT_EQ(cec({"frames"}).find(R"("frame":"0E")"), std::string::npos);
  EXPECT_LE(ended().size(), told + 1);  // one event may have been queued already
}

TEST_F(TvCecInRealTime, SwitchingTheSetOffEndsEverythingAtOnce) {
  switch_on();
  ASSERT_EQ(discover(1, 14, 60'000), 0);
  const auto start = std::chrono::steady_clock::now();
  dtv_tv_stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  ASSERT_EQ(tv_start(folder.path), "");
  EXPECT_EQ(cec({}), kNew);
  EXPECT_EQ(cec({"frames"}), R"({"frames":[]})");
  cec({"play", "player"});
  wait_frame("40:04", false);  // the manager is off after a restart
  switch_on();
  cec({"send", "player", "36"});
  wait_frame("40:36");  // acknowledged, but no callback is registered
  EXPECT_TRUE(ended().empty());
}

TEST_F(TvCec, LaterCallbackReplacesTheEarlierAndMayCallTheSet) {
  switch_on();
  a_vextvapi_cec_mw_reg_callback(
      [](INT32, const CECM_NFY_T* event, void* tag, UINT32) {
        EXPECT_EQ(function_state(), 1);
        if (event->u_code.e_opcode == 0x36) {
          EXPECT_EQ(discover(1, 1), 0);
        }
        if (event->e_nfy_type == CECM_NFY_TYPE_MSGCODE) {
          *static_cast<bool*>(tag) = true;
          listen(0, event, tag, 0);
        }
        return INT32{0};
      },
      new bool(false));
  cec({"send", "player", "36"});
  const std::vector<CecHeard> all = wait_for(1);
  EXPECT_EQ(names_of(all), Names{"msg 1"});
  bool* const told = static_cast<bool*>(all[0].tag);
  dtv_tv_stop();
  EXPECT_TRUE(*told);
  delete told;
}

// ---- What the set answers ----

TEST_F(TvCec, TheSetAnswersQueries) {
  enable();
  ASSERT_EQ(a_vextvapi_config_set_value(-1, "g_gui_lang__gui_language", 0x64657500, 0), 0);  // "deu", on the bus "ger"
  const struct {
    const char* opcode;
    const char* question;
    const char* answer;
  } exchanges[] = {
      {"83", "40:83", "0F:84:00:00:00"},    {"46", "40:46", "04:47:54:56"}, {"8C", "40:8C", "0F:87:02:DE:00"},
      {"8F", "40:8F", "04:90:00"},          {"9F", "40:9F", "04:9E:06"},    {"91", "40:91", "0F:32:67:65:72"},
      {"A5", "40:A5", "0F:A6:06:80:02:20"}, {"FF", "40:FF", "04:00:FF:04"}, {"C0", "40:C0", "04:00:C0:00"},
      {"3", "40:03", "04:00:03:00"},
  };
  for (const auto& [opcode, question, answer] : exchanges) {
    EXPECT_EQ(cec({"send", "player", opcode}), std::string(R"({"frame":")") + question + R"("})");
    expect_frames({question, answer});
  }
  a_vextvapi_config_set_value(-1, "g_gui_lang__gui_language", 0x656E6700, 0);
  cec({"send", "amplifier", "91"});
  expect_frames({"50:91", "0F:32:65:6E:67"});
  EXPECT_TRUE(ended().empty());
}

TEST_F(TvCec, BroadcastMessagesAreSentAsBroadcasts) {
  enable();
  EXPECT_EQ(cec({"send", "player", "86", "20", "00"}), R"({"frame":"4F:86:20:00"})");
  EXPECT_EQ(cec({"send", "player", "A7", "20", "00"}), R"({"frame":"4F:A7:20:00"})");
  EXPECT_EQ(cec({"send", "player", "F8", "20", "00", "13"}), R"({"frame":"4F:F8:20:00:13"})");
  EXPECT_EQ(cec({"send", "player", "C0"}), R"({"frame":"40:C0"})");
  expect_frames({"4F:86:20:00", "4F:A7:20:00", "4F:F8:20:00:13", "40:C0"});
}

TEST_F(TvCec, ResetRestoresTheDevices) {
  switch_on();
  cec({"unplug", "amplifier"});
  cec({"play", "player"});
  wait_for("op 82");
  tv_control(R"(["reset"])");
  EXPECT_EQ(cec({}), kNew);
  EXPECT_FALSE(reports_cec());
  wait_for("op 9D");
  wait_frame("5F:84:10:00:05");
}

TEST_F(TvCec, ErrorsOfBadCommandsNameWhatIsAllowed) {
  cec({"unplug", "amplifier"});
  struct Case {
    const char* command;
    std::vector<std::string> says;
  };
  const Case cases[] = {
      {R"(["cec","dance"])", {"dance", "play", "standby", "unplug", "plug", "send", "frames"}},
      {R"(["cec","play"])", {"a word is missing", "cec play|standby|unplug|plug DEVICE"}},
      {R"(["cec","play","radio"])", {"radio", "amplifier, player"}},
      {R"(["cec","play","player","now"])", {"now", "one word too many", "cec play DEVICE"}},
      {R"(["cec","play","amplifier"])", {"amplifier is unplugged", "plug it"}},
      {R"(["cec","unplug","amplifier"])", {"amplifier is unplugged"}},
      {R"(["cec","send","amplifier","36"])", {"amplifier is unplugged"}},
      {R"(["cec","plug","player"])", {"player is plugged in already"}},
      {R"(["cec","send","player"])", {"a word is missing", "cec send DEVICE BYTE..."}},
      {R"(["cec","send","player","zz"])", {"zz", "00 to ff"}},
      {R"(["cec","send","player","100"])", {"100", "00 to ff"}},
      {R"(["cec","send","player","44","-1"])", {"-1", "00 to ff"}},
      {R"(["cec","send","player","44",""])", {"00 to ff"}},
      {R"(["cec","send","player","89","1","2","3","4","5","6","7","8","9","a","b","c","d","e","f"])",
       {"f", "one word too many"}},
      {R"(["cec","frames","all"])", {"frames"}},
  };
  for (const Case& each : cases) {
    const std::string answer = tv_control(each.command);
    EXPECT_EQ(answer.rfind(R"({"error":")", 0), 0u) << each.command << " gave " << answer;
    expect_words(answer, each.says);
  }
}

}  // namespace
