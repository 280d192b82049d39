// The messages that become events of an application, and the views of the event that have their operands. Queries about
// the set are not among them: the set answers those itself.
#include <algorithm>

#include "bus.h"

namespace {

using Data = T_CECM_NFY_DATA;

UINT16 two(std::span<const UINT8> bytes) { return static_cast<UINT16>(bytes[0] << 8 | bytes[1]); }

UINT32 three(std::span<const UINT8> bytes) { return static_cast<UINT32>(bytes[0] << 16 | bytes[1] << 8 | bytes[2]); }

UINT8 bits(UINT8 byte, int lowest, int count) { return static_cast<UINT8>(byte >> lowest & ((1 << count) - 1)); }

UINT8 copy(std::span<const UINT8> bytes, UINT8 (&ret_array)[CEC_DATA_MAX]) {
  std::ranges::copy(bytes, ret_array);
  return static_cast<UINT8>(bytes.size());
}

void nothing(const CecReceived&, Data&) {}

template <auto Member>
void byte(const CecReceived& received, Data& data) {
  data.*Member = received.operands[0];
}

template <auto Member>
void three_bytes(const CecReceived& received, Data& data) {
  data.*Member = three(received.operands);
}

// The aborted message's opcode is in the event's sent opcode.
void abort_reason(const CecReceived& received, Data& data) { data.e_abort_reason = received.operands[1]; }

void image_view(const CecReceived& received, Data& data) {
  data.t_one_touch_play = {.t_comp = cec_component(received.address), .e_action = CECM_ONE_TOUCH_IMAGE_VIEW};
}

void text_view(const CecReceived& received, Data& data) {
  data.t_one_touch_play = {.t_comp = cec_component(received.address), .e_action = CECM_ONE_TOUCH_TEXT_VIEW};
}

void address(const CecReceived& received, Data& data) { data.t_pa = cec_component(two(received.operands)).t_pa; }

void active_source(const CecReceived& received, Data& data) { data.t_act_src = cec_component(two(received.operands)); }

void report_address(const CecReceived& received, Data& data) {
  data.t_report_pa = {.ui2_pa = two(received.operands), .e_dev_type = received.operands[2]};
}

void routing_change(const CecReceived& received, Data& data) {
  data.t_routing_chg = {.ui2_new_pa = two(received.operands.subspan(2)), .ui2_orig_pa = two(received.operands)};
}

// The view begins with the first character; the other characters follow it.
void osd_name(const CecReceived& received, Data& data) {
  std::ranges::copy(received.operands, reinterpret_cast<UINT8*>(data.aui4_words));
}

void osd_string(const CecReceived& received, Data& data) {
  data.t_osd_string.e_display_ctrl = received.operands[0];
  copy(received.operands.subspan(1), data.t_osd_string.aui1_string);
}

void audio_descriptors(const CecReceived& received, Data& data) {
  auto& view = data.t_short_aud_descr;
  view.ui1_descr_num = static_cast<UINT8>(std::min<std::size_t>(received.operands.size() / 3, CEC_SHORT_AUD_DESCR_MAX));
  for (std::size_t i = 0; i < view.ui1_descr_num; ++i) view.aui4_descr[i] = three(received.operands.subspan(3 * i));
}

// The duration, hours and minutes in two decimal digits each, is optional.
void timer_status(const CecReceived& received, Data& data) {
  const UINT8 status = received.operands[0];
  auto& view = data.t_timer_sts;
  view.b_overlap = bits(status, 7, 1);
  view.e_media_info = bits(status, 5, 2);
  view.b_programmed = bits(status, 4, 1);
  (view.b_programmed != 0 ? view.e_prog_info : view.e_err_info) = bits(status, 0, 4);
  if (received.operands.size() >= 3) view.ui2_duration = two(received.operands.subspan(1));
}

// An analogue service has five bytes of operands, a digital one eight.
void tuner_status(const CecReceived& received, Data& data) {
  const std::span<const UINT8> service = received.operands.subspan(1);
  auto& view = data.t_tuner_dev;
  view.e_svc = service.size() >= 7 ? 1 : 0;
  view.b_rec_flag = bits(received.operands[0], 7, 1);
  view.e_display = bits(received.operands[0], 0, 7);
  if (view.e_svc == 0) {
    view.e_ana_brdcst = service[0];
    view.ui2_ana_freq = two(service.subspan(1));
    view.e_ana_sys = service[3];
  } else {
    view.e_dig_id_method = bits(service[0], 7, 1);
    view.e_dig_sys = bits(service[0], 0, 7);
    view.ui2_dig_svc_id = two(service.subspan(3));
  }
}

void vendor_command(const CecReceived& received, Data& data) {
  data.t_vndr_cmd.ui1_size = copy(received.operands, data.t_vndr_cmd.aui1_cmd);
}

void vendor_command_with_id(const CecReceived& received, Data& data) {
  data.t_vndr_cmd_with_id = {.ui4_vndr_id = three(received.operands),
                             .ui1_cmd = received.operands[3],
                             .ui1_size = static_cast<UINT8>(received.operands.size() - 3)};
}

void vendor_button(const CecReceived& received, Data& data) {
  data.t_rc_code = {.ui1_code = received.operands[0], .ui1_size = static_cast<UINT8>(received.operands.size())};
}

// The profile and the features each have one or more bytes: the top bit means that another byte follows. Only the first
// byte of each is used.
void features(const CecReceived& received, Data& data) {
  const std::span<const UINT8> all = received.operands;
  const auto more = [](UINT8 byte) { return bits(byte, 7, 1) != 0; };
  std::size_t at = 2;
  while (at + 2 < all.size() && more(all[at])) ++at;
  const UINT8 profile = all[2];
  const UINT8 feature = all[at + 1];
  auto& view = data.t_feature;
  view.e_ver = all[0];
  view.e_type = all[1];
  view.b_prof_extension = bits(profile, 7, 1);
  view.b_prof_flag = bits(profile, 6, 1);
  if (view.b_prof_flag != 0) {
    view.ui1_prof_source = bits(profile, 0, 5);
  } else {
    view.ui1_prof_tv = bits(profile, 0, 4);
  }
  view.b_extension = bits(feature, 7, 1);
  view.ui1_feature = bits(feature, 0, 7);
  view.ui1_primary_type = received.type;
  view.ui1_dev_id = received.from;
}

void latency(const CecReceived& received, Data& data) {
  const UINT8 flags = received.operands[3];
  data.t_latency = {.ui2_pa = two(received.operands),
                    .ui1_out_delay = received.operands.size() > 4 ? received.operands[4] : UINT8{0},
                    .b_low_latency = bits(flags, 2, 1),
                    .e_out_comp = bits(flags, 0, 2),
                    .ui1_latency = received.operands[2]};
}

constexpr bool kDirect = false;
constexpr bool kAll = true;

constexpr CecMessage kMessages[] = {
    {kFeatureAbort, 2, kDirect, 0, abort_reason},
    {kImageViewOn, 0, kDirect, 0, image_view},
    {0x07, 5, kDirect, 0x08, tuner_status},
    {0x0A, 1, kDirect, 0x09, byte<&Data::e_rec_sts_info>},  // Record Status; Record On
    {kTextViewOn, 0, kDirect, 0, text_view},
    {0x1B, 1, kDirect, 0x1A, byte<&Data::e_deck_info>},  // Deck Status
    {kSetMenuLanguage, 3, kAll, kGetMenuLanguage, three_bytes<&Data::ui4_menu_lang>},
    {0x35, 1, kDirect, 0, timer_status},
    {kStandby, 0, kDirect, 0, nothing},
    {0x41, 1, kDirect, 0, byte<&Data::e_play_mode>},       // Play
    {0x42, 1, kDirect, 0, byte<&Data::e_deck_ctrl_mode>},  // Deck Control
    {0x43, 1, kDirect, 0, byte<&Data::e_timer_clr_sts>},   // Timer Cleared Status
    {0x44, 1, kDirect, 0, byte<&Data::e_user_ctrl>},       // User Control Pressed
    {0x45, 0, kDirect, 0, nothing},                        // User Control Released
    {kSetOsdName, 1, kDirect, kGiveOsdName, osd_name},
    {0x64, 2, kDirect, 0, osd_string},
    {kSetSystemAudioMode, 1, kAll, kSystemAudioModeRequest, byte<&Data::e_sys_aud_sts>},
    {kReportAudioStatus, 1, kDirect, kGiveAudioStatus, byte<&Data::ui1_aud_sts>},
    {kSystemAudioModeStatus, 1, kDirect, kGiveSystemAudioModeStatus, byte<&Data::e_sys_aud_sts>},
    {0x80, 4, kAll, 0, routing_change},
    {0x81, 2, kAll, 0, address},  // Routing Information
    {kActiveSource, 2, kAll, kRequestActiveSource, active_source},
    {kReportPhysicalAddress, 3, kAll, kGivePhysicalAddress, report_address},
    {kRequestActiveSource, 0, kAll, 0, nothing},
    {kDeviceVendorId, 3, kAll, kGiveDeviceVendorId, three_bytes<&Data::ui4_vndr_id>},
    {0x89, 1, kDirect, 0, vendor_command},
    {0x8A, 1, kDirect, 0, vendor_button},                     // Vendor Remote Button Down
    {0x8B, 0, kDirect, 0, nothing},                           // Vendor Remote Button Up
    {0x8D, 1, kDirect, 0, byte<&Data::e_menu_req_state>},     // Menu Request
    {0x8E, 1, kDirect, 0x8D, byte<&Data::e_menu_req_state>},  // Menu Status
    {kReportPowerStatus, 1, kDirect, kGiveDevicePowerStatus, byte<&Data::e_pwr_sts>},
    {kInactiveSource, 2, kDirect, 0, address},
    {kCecVersion, 1, kDirect, kGetCecVersion, byte<&Data::e_cec_ver>},
    {0xA0, 4, kDirect, 0, vendor_command_with_id},
    {0xA3, 3, kDirect, 0xA4, audio_descriptors},
    {kReportFeatures, 4, kAll, kGiveFeatures, features},
    {0xA8, 4, kAll, 0xA7, latency},  // Report Current Latency
};

static_assert(std::ranges::is_sorted(kMessages, {}, &CecMessage::opcode), "cec_message needs the opcodes in order");

}  // namespace

const CecMessage* cec_message(UINT8 opcode) {
  const CecMessage* const found = std::ranges::lower_bound(kMessages, opcode, {}, &CecMessage::opcode);
  return found != std::end(kMessages) && found->opcode == opcode ? found : nullptr;
}

bool cec_is_broadcast(UINT8 opcode) {
  constexpr UINT8 kNotReported[] = {0x86, 0xA7, 0xF8};  // Set Stream Path, Request Current Latency, CDC Message
  const CecMessage* const message = cec_message(opcode);
  return message != nullptr ? message->broadcast : std::ranges::find(kNotReported, opcode) != std::end(kNotReported);
}

T_CEC_COMP_ADDR cec_component(UINT16 address) {
  const auto input = static_cast<UINT16>(address >> 12);
  const bool is_input = input != 0 && input != CECM_INPUT_UNKNOWN;
  return {.t_pa = {.ui2_pa = address, .e_pa = input}, .ui2_comp_id = is_input ? input : UINT16{CECM_COMP_ID_NONE}};
}
