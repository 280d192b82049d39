// HDMI-CEC: its on/off state, and the events of the bus.
#ifndef VEX_TV_CTRL_CEC_H
#define VEX_TV_CTRL_CEC_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_CECM_CFG {
  UINT8 ui1_cec_func;      // the current state: 1 on, 0 off
  UINT8 ui1_cec_func_set;  // the requested state
};
TVC_RECORD(T_CECM_CFG, ui1_cec_func, ui1_cec_func_set)

// A physical address: ui2_pa has its four hexadecimal digits, e_pa the input that they lead to, in the platform's
// numbers.
struct T_CEC_PHY_ADDR {
  UINT16 ui2_pa;
  UINT16 e_pa;
};

// A physical address and the component that it belongs to.
struct T_CEC_COMP_ADDR {
  T_CEC_PHY_ADDR t_pa;
  UINT16 ui2_comp_id;
};

inline constexpr int CEC_DATA_MAX = 16;            // bytes of one frame
inline constexpr int CEC_SHORT_AUD_DESCR_MAX = 4;  // short audio descriptors of one message

// The data of an event, in a view for each kind of event. Operands have the size that they have on the bus: one byte,
// unless noted. A three-byte operand is in the low bytes of a 32-bit field, its first byte highest.
union T_CECM_NFY_DATA {
  UINT32 aui4_words[10];

  struct {
    INT32 e_sts;
    INT32 e_start_la;
    INT32 e_stop_la;
  } t_dev_nfy_lst;  // the discovery that found a list of devices
  INT32 e_ack_cond;
  struct {
    T_CEC_COMP_ADDR t_comp;
    INT32 e_action;
  } t_one_touch_play;
  struct {
    INT32 e_pwr_sts;  // in the numbers of the CEC manager
    UINT16 ui2_pa;
  } t_pwr_on;
  struct {
    UINT8 ui1_5v_pwr;
    UINT16 ui2_comp_id;
  } t_5v_pwr;
  T_CEC_PHY_ADDR t_pa;
  T_CEC_COMP_ADDR t_act_src;
  T_CEC_COMP_ADDR t_mhl_content;
  struct {
    INT32 e_la;
    UINT8 ui1_data_len;
    UINT8 aui1_data[CEC_DATA_MAX];
  } t_mhl_scratchpad;
  UINT8 e_rec_sts_info;
  UINT8 e_deck_ctrl_mode;
  UINT8 e_deck_info;
  UINT8 e_play_mode;
  UINT8 e_menu_req_state;
  UINT8 e_user_ctrl;
  UINT8 e_cec_ver;
  UINT32 ui4_menu_lang;  // three letters
  struct {
    UINT16 ui2_pa;
    UINT8 e_dev_type;
  } t_report_pa;
  UINT32 ui4_vndr_id;   // three bytes
  UINT8 ui1_osd_name;   // the name's first character
  UINT8 e_sys_aud_sts;  // 1: the amplifier plays the sound
  struct {
    UINT8 ui1_descr_num;
    UINT32 aui4_descr[CEC_SHORT_AUD_DESCR_MAX];  // three bytes each
  } t_short_aud_descr;
  UINT8 ui1_aud_sts;  // bit 7: muted; below: volume, 0 to 100
  UINT8 e_timer_clr_sts;
  struct {
    UINT8 b_overlap;
    UINT8 e_media_info;
    UINT8 b_programmed;
    UINT8 e_prog_info;
    UINT8 e_err_info;
    UINT16 ui2_duration;
  } t_timer_sts;
  struct {
    UINT8 e_svc;      // analogue or digital
    UINT8 e_display;  // what the tuner shows
    UINT8 b_rec_flag;
    UINT8 e_ana_brdcst;
    UINT16 ui2_ana_freq;
    UINT8 e_ana_sys;
    UINT8 e_dig_id_method;
    UINT8 e_dig_sys;
    UINT16 ui2_dig_svc_id;
  } t_tuner_dev;
  struct {
    UINT8 e_display_ctrl;
    UINT8 aui1_string[CEC_DATA_MAX];
  } t_osd_string;
  struct {
    UINT16 ui2_new_pa;
    UINT16 ui2_orig_pa;
  } t_routing_chg;
  UINT8 e_abort_reason;
  struct {
    UINT8 ui1_size;
    UINT8 aui1_cmd[CEC_DATA_MAX];
  } t_vndr_cmd;
  struct {
    UINT32 ui4_vndr_id;  // three bytes
    UINT8 ui1_cmd;       // first byte of the command
    UINT8 ui1_size;
  } t_vndr_cmd_with_id;
  struct {
    UINT8 ui1_code;  // first byte of the code
    UINT8 ui1_size;
  } t_rc_code;
  UINT8 e_pwr_sts;
  struct {
    UINT8 e_type;
    UINT8 e_ver;
    UINT8 b_extension;
    UINT8 ui1_feature;
    UINT8 ui1_primary_type;
    UINT8 b_prof_extension;
    UINT8 b_prof_flag;  // 0: a television's profile, 1: a source's
    UINT8 ui1_prof_source;
    UINT8 ui1_prof_tv;
    UINT8 ui1_dev_id;
  } t_feature;
  struct {
    UINT16 ui2_pa;
    UINT8 ui1_out_delay;  // of the audio, in steps of 2 ms, plus 1
    UINT8 b_low_latency;
    UINT8 e_out_comp;   // how the audio delay is compensated
    UINT8 ui1_latency;  // of the video, in steps of 2 ms, plus 1
  } t_latency;
};
// The data of an event are given as {"hex": "..."}, or as words.
TVC_UNION(T_CECM_NFY_DATA, aui4_words)

// A byte-for-byte copy of the platform's event.
struct T_CECM_NFY {
  INT32 e_sent_la;      // logical address of the sender
  INT32 e_sent_opcode;  // opcode of the set's message that the event answers; 0: it answers none
  INT32 e_nfy_type;
  INT32 e_brdcst_type;
  UINT32 ui4_attr;
  union {
    INT32 e_msgcode;  // of an event of the CEC manager
    INT32 e_opcode;   // of a message on the bus
  } u_code;
  T_CECM_NFY_DATA u_data;
};
TVC_UNION(decltype(T_CECM_NFY::u_code), e_msgcode, e_opcode)
TVC_RECORD(T_CECM_NFY, e_sent_la, e_sent_opcode, e_nfy_type, e_brdcst_type, ui4_attr, u_code, u_data)
static_assert(sizeof(T_CECM_NFY) == 16 * sizeof(UINT32), "an event is 16 words long");

#endif
