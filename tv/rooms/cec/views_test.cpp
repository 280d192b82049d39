// The view of each message that becomes an event: what its operands become, word by word.
#include <functional>

#include "cec_test.h"

namespace {

using Data = T_CECM_NFY_DATA;

struct Case {
  const char* message;  // opcode and operands as a viewer writes them
  std::function<void(Data&)> expect;
  INT32 answered = 0;
  bool broadcast = false;
};

void nothing(Data&) {}

const Case kCases[] = {
    // Three-byte and two-byte operands come highest byte first on the bus.
    {"00 9F 00", [](Data& d) { d.e_abort_reason = 0; }, 0x9F},
    {"00 44 04", [](Data& d) { d.e_abort_reason = 4; }, 0x44},
    {"04",
     [](Data& d) {
       d.t_one_touch_play.t_comp = {.t_pa = {.ui2_pa = 0x2000, .e_pa = 2}, .ui2_comp_id = 2};
       d.t_one_touch_play.e_action = CECM_ONE_TOUCH_IMAGE_VIEW;
     }},
    {"0D",
     [](Data& d) {
       d.t_one_touch_play.t_comp = {.t_pa = {.ui2_pa = 0x2000, .e_pa = 2}, .ui2_comp_id = 2};
       d.t_one_touch_play.e_action = CECM_ONE_TOUCH_TEXT_VIEW;
     }},
    // Recording; shows an analogue tuner: satellite, 0x2F10 times 62.5 kHz, system SECAM L.
    {"07 80 01 2F 10 07",
     [](Data& d) {
       d.t_tuner_dev.b_rec_flag = 1;
       d.t_tuner_dev.e_ana_brdcst = 1;
       d.t_tuner_dev.ui2_ana_freq = 0x2F10;
       d.t_tuner_dev.e_ana_sys = 7;
     }},
    // Not recording, not showing a tuner; digital, by channel, DVB-T; then three numbers of which the second counts.
    {"07 01 9B 11 22 33 44 55 66",
     [](Data& d) {
       d.t_tuner_dev.e_svc = 1;
       d.t_tuner_dev.e_display = 1;
       d.t_tuner_dev.e_dig_id_method = 1;
       d.t_tuner_dev.e_dig_sys = 0x1B;
       d.t_tuner_dev.ui2_dig_svc_id = 0x3344;
     }},
    {"0A 1F", [](Data& d) { d.e_rec_sts_info = 0x1F; }},
    {"1B 11", [](Data& d) { d.e_deck_info = 0x11; }},
    {"32 67 65 72", [](Data& d) { d.ui4_menu_lang = 0x676572; }, 0, true},
    // Overlap, media present and unprotected, programmed, may not have enough space: 1 h 30.
    {"35 9B 01 30",
     [](Data& d) {
       d.t_timer_sts.b_overlap = 1;
       d.t_timer_sts.e_media_info = 0;
       d.t_timer_sts.b_programmed = 1;
       d.t_timer_sts.e_prog_info = 0x0B;
       d.t_timer_sts.ui2_duration = 0x0130;
     }},
    // No media, not programmed: no free timer.
    {"35 41",
     [](Data& d) {
       d.t_timer_sts.e_media_info = 2;
       d.t_timer_sts.e_err_info = 1;
     }},
    {"36", nothing},
    {"41 24", [](Data& d) { d.e_play_mode = 0x24; }},
    {"42 03", [](Data& d) { d.e_deck_ctrl_mode = 3; }},
    {"43 80", [](Data& d) { d.e_timer_clr_sts = 0x80; }},
    {"44 41", [](Data& d) { d.e_user_ctrl = 0x41; }},
    {"45", nothing},
    {"47 44 69 73 63", [](Data& d) { std::memcpy(&d, "Disc", 4); }},
    {"64 40 48 69",
     [](Data& d) {
       d.t_osd_string.e_display_ctrl = 0x40;
       std::memcpy(d.t_osd_string.aui1_string, "Hi", 2);
     }},
    {"72 01", [](Data& d) { d.e_sys_aud_sts = 1; }, 0, true},
    {"7A 9E", [](Data& d) { d.ui1_aud_sts = 0x9E; }},
    {"7E 01", [](Data& d) { d.e_sys_aud_sts = 1; }},
    {"80 10 00 21 30",
     [](Data& d) {
       d.t_routing_chg.ui2_orig_pa = 0x1000;
       d.t_routing_chg.ui2_new_pa = 0x2130;
     },
     0, true},
    {"81 21 30", [](Data& d) { d.t_pa = {.ui2_pa = 0x2130, .e_pa = 2}; }, 0, true},
    {"82 20 00", [](Data& d) { d.t_act_src = {.t_pa = {.ui2_pa = 0x2000, .e_pa = 2}, .ui2_comp_id = 2}; }, 0, true},
    {"82 00 00", nothing, 0, true},  // the set's own address: no input and no component
    {"82 FF FF", [](Data& d) { d.t_act_src = {.t_pa = {.ui2_pa = 0xFFFF, .e_pa = 15}, .ui2_comp_id = 0}; }, 0, true},
    {"84 20 00 04",
     [](Data& d) {
       d.t_report_pa.ui2_pa = 0x2000;
       d.t_report_pa.e_dev_type = 4;
     },
     0, true},
    {"85", nothing, 0, true},
    {"87 02 DE 01", [](Data& d) { d.ui4_vndr_id = 0x02DE01; }, 0, true},
    {"89 01 02 03",
     [](Data& d) {
       d.t_vndr_cmd.ui1_size = 3;
       std::memcpy(d.t_vndr_cmd.aui1_cmd, "\1\2\3", 3);
     }},
    {"89 1 2 3 4 5 6 7 8 9 a b c d e",  // the longest
     [](Data& d) {
       d.t_vndr_cmd.ui1_size = 14;
       for (UINT8 i = 0; i < 14; ++i) d.t_vndr_cmd.aui1_cmd[i] = static_cast<UINT8>(i + 1);
     }},
    {"8A 33 44",
     [](Data& d) {
       d.t_rc_code.ui1_code = 0x33;
       d.t_rc_code.ui1_size = 2;
     }},
    {"8B", nothing},
    {"8D 02", [](Data& d) { d.e_menu_req_state = 2; }},
    {"8E 01", [](Data& d) { d.e_menu_req_state = 1; }},
    {"90 02", [](Data& d) { d.e_pwr_sts = 2; }},
    {"9D 20 00", [](Data& d) { d.t_pa = {.ui2_pa = 0x2000, .e_pa = 2}; }},
    {"9E 05", [](Data& d) { d.e_cec_ver = 5; }},
    {"A0 02 DE 01 77 88",
     [](Data& d) {
       d.t_vndr_cmd_with_id.ui4_vndr_id = 0x02DE01;
       d.t_vndr_cmd_with_id.ui1_cmd = 0x77;
       d.t_vndr_cmd_with_id.ui1_size = 2;
     }},
    // Two descriptors: linear PCM and AC-3.
    {"A3 09 7F 07 15 07 50",
     [](Data& d) {
       d.t_short_aud_descr.ui1_descr_num = 2;
       d.t_short_aud_descr.aui4_descr[0] = 0x097F07;
       d.t_short_aud_descr.aui4_descr[1] = 0x150750;
     }},
    // Version 2.0, playback device, a source with menus 0 and 4, controls its deck.
    {"A6 06 10 51 10",
     [](Data& d) {
       d.t_feature.e_ver = 6;
       d.t_feature.e_type = 0x10;
       d.t_feature.b_prof_flag = 1;
       d.t_feature.ui1_prof_source = 0x11;
       d.t_feature.ui1_feature = 0x10;
       d.t_feature.ui1_primary_type = 4;
       d.t_feature.ui1_dev_id = 4;
     },
     0, true},
    // A television's profile 2 that one more byte follows, and features with one more byte as well.
    {"A6 06 80 86 00 B0 00",
     [](Data& d) {
       d.t_feature.e_ver = 6;
       d.t_feature.e_type = 0x80;
       d.t_feature.b_prof_extension = 1;
       d.t_feature.ui1_prof_tv = 6;
       d.t_feature.b_extension = 1;
       d.t_feature.ui1_feature = 0x30;
       d.t_feature.ui1_primary_type = 4;
       d.t_feature.ui1_dev_id = 4;
     },
     0, true},
    // Video 50 ms, low latency, audio delayed by 20 ms.
    {"A8 20 00 1A 07 0B",
     [](Data& d) {
       d.t_latency.ui2_pa = 0x2000;
       d.t_latency.ui1_latency = 0x1A;
       d.t_latency.b_low_latency = 1;
       d.t_latency.e_out_comp = 3;
       d.t_latency.ui1_out_delay = 0x0B;
     },
     0, true},
    {"A8 20 00 1A 05",
     [](Data& d) {
       d.t_latency.ui2_pa = 0x2000;
       d.t_latency.ui1_latency = 0x1A;
       d.t_latency.b_low_latency = 1;
       d.t_latency.e_out_comp = 1;
     },
     0, true},
};

std::vector<std::string> words_of(std::string_view text) {
  std::vector<std::string> words{""};
  for (const char c : text) {
    if (c == ' ') {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

TEST_F(TvCec, EveryMessageFillsItsView) {
  switch_on();
  cec({"send", "player", "84", "20", "00", "04"});  // reports its address, for messages that do not contain it
  for (const Case& each : kCases) {
    std::vector<std::string> words = words_of(each.message);
    words.insert(words.begin(), {"send", "player"});
    cec(words);
  }
  const std::vector<CecHeard> all = wait_for(1 + std::size(kCases));
  ASSERT_EQ(all.size(), 1 + std::size(kCases));
  for (std::size_t i = 0; i < std::size(kCases); ++i) {
    const Case& each = kCases[i];
    SCOPED_TRACE(each.message);
    const CECM_NFY_T& event = all[i + 1].event;
    const std::vector<std::string> words = words_of(each.message);
    EXPECT_EQ(event.e_sent_la, 4);
    EXPECT_EQ(event.e_nfy_type, CECM_NFY_TYPE_OPCODE);
    EXPECT_EQ(event.u_code.e_opcode, std::stoi(words[0], nullptr, 16));
    EXPECT_EQ(event.e_sent_opcode, each.answered);
    EXPECT_EQ(event.e_brdcst_type, each.broadcast ? CECM_BRDCST_TYPE_BROADCAST : CECM_BRDCST_TYPE_DIRECT);
    EXPECT_EQ(event.ui4_attr, words.size() - 1);
    Data expected{};
    each.expect(expected);
    const auto bytes = [](const void* data) {
      const auto* const first = static_cast<const UINT8*>(data);
      return std::vector<int>(first, first + sizeof event.u_data);
    };
    EXPECT_EQ(bytes(event.u_data), bytes(&expected));
  }
}

TEST_F(TvCec, ATooShortMessageIsIgnored) {
  switch_on();
  for (const char* const message : {"00 9F", "07 80 01 2F 10", "47", "64 40", "72", "80 10 00 20", "82 20", "84 20 00",
                                    "87 02 DE", "A0 02 DE 01", "A3 09 7F", "A6 06 10 51", "A8 20 00 1A", "9E"}) {
    std::vector<std::string> words = words_of(message);
    words.insert(words.begin(), {"send", "player"});
    cec(words);
  }
  cec({"send", "player", "36"});
  wait_for("op 36");
  EXPECT_EQ(names_of(ended()), Names{"op 36"});
}

}  // namespace
