// Item types of HDMI-CEC.
#include "tv_ctrl_api/item_types.h"

static constexpr char kSwitch[] =
    "0=off\0"
    "1=on\0";

static constexpr Field kCecmCfgFields[] = {
    {.key = "CECMFUNC",
     TVC_MEMBER(T_CECM_CFG, ui1_cec_func_set),
     .use = kSet,
     .values = kSwitch,
     .help = "state to switch HDMI-CEC to"},
    {.key = "cecm_func_statu",
     TVC_MEMBER(T_CECM_CFG, ui1_cec_func),
     .use = kResponse,
     .values = kSwitch,
     .help = "state of HDMI-CEC"},
};

constexpr ItemType item_CECM_CFG = {.type = TYPE_CECM_CFG,
                                    .record_size = sizeof(T_CECM_CFG),
                                    .allocated_size = sizeof(T_CECM_CFG),
                                    .error_word = "input source",
                                    .renderer = "_json_print_cecm_cfg_type",
                                    .fields = kCecmCfgFields};

#define EVENT(json_key, member, text, ...) \
  { .key = json_key, TVC_MEMBER(T_CECM_NFY, member), .use = kNotify, __VA_ARGS__ __VA_OPT__(, ).help = text }
#define DATA(json_key, member, text, ...) EVENT(json_key, u_data.member, text __VA_OPT__(, ) __VA_ARGS__)

// A notification shows the data of its event in every view of the union. The receiver picks the view that belongs to
// the event's type and opcode.
static constexpr Field kCecDetectNotifyFields[] = {
    EVENT("NOTIFY_TYPE", e_nfy_type, "origin of the event",
          .values = "0=a message on the bus\0"
                    "1=the CEC manager's own\0"),
    EVENT("SENTLA", e_sent_la, "logical address of the sender"),
    EVENT("SENTOPCODE", e_sent_opcode, "opcode of the set's message that this message answers; 0: it answers none"),
    EVENT("BRDCAST_TYPE", e_brdcst_type, "receiver of the message",
          .values = "0=the set\0"
                    "1=everybody\0"),
    EVENT("ATTR", ui4_attr, "number of operand bytes; for a list of devices, a bit for each logical address"),
    EVENT("U_CODE_MSGCODE", u_code.e_msgcode, "event of the CEC manager",
          .values = "1=list of devices\0"
                    "2=5 V of an input\0"),
    EVENT("U_CODE_OPCODE", u_code.e_opcode, "opcode of the message, as HDMI-CEC numbers it"),
    DATA("DEV_NFY_LST_STS", t_dev_nfy_lst.e_sts, "list of devices: difference from the previous list",
         .values = "0=unchanged\0"
                   "1=changed\0"),
    DATA("DEV_NFY_START_LA", t_dev_nfy_lst.e_start_la, "list of devices: first logical address polled"),
    DATA("DEV_NFY_STOP_LA", t_dev_nfy_lst.e_stop_la, "list of devices: last logical address polled"),
    DATA("U_DATA_ACK_COND", e_ack_cond, "whether the set's message was acknowledged, in the platform's numbers"),
    DATA("ONETOUCH_UI2_PA", t_one_touch_play.t_comp.t_pa.ui2_pa, "one touch play: physical address"),
    DATA("ONETOUCH_E_PA", t_one_touch_play.t_comp.t_pa.e_pa, "one touch play: input of the physical address"),
    DATA("ONETOUCH_COMPID", t_one_touch_play.t_comp.ui2_comp_id, "one touch play: component"),
    DATA("ONETOUCH_EACTION", t_one_touch_play.e_action, "one touch play: what the device wants",
         .values = "1=its picture alone\0"
                   "2=text over its picture\0"),
    DATA("PWRONPWRSTS", t_pwr_on.e_pwr_sts, "power on: the set's power state, in the platform's numbers"),
    DATA("PWRON_UI2_PA", t_pwr_on.ui2_pa, "power on: physical address"),
    DATA("5VPWR_5VPWR", t_5v_pwr.ui1_5v_pwr, "5 V: whether the input receives 5 V",
         .values = "0=no\0"
                   "1=yes\0"),
    DATA("5VPWR_COMPID", t_5v_pwr.ui2_comp_id, "5 V: component of the input"),
    DATA("U_DATA_UI2PA", t_pa.ui2_pa, "physical address"),
    DATA("U_DATA_E_PA", t_pa.e_pa, "input of the physical address"),
    DATA("ACTSRC_UI2PA", t_act_src.t_pa.ui2_pa, "active source: physical address"),
    DATA("ACTSRC_EPA", t_act_src.t_pa.e_pa, "active source: input of the physical address"),
    DATA("ACTSRC_COMPID", t_act_src.ui2_comp_id, "active source: component"),
    DATA("MHLCONTENT_UI2PA", t_mhl_content.t_pa.ui2_pa, "MHL content: physical address"),
    DATA("MHLCONTENT_EPA", t_mhl_content.t_pa.e_pa, "MHL content: input of the physical address"),
    DATA("MHLCONTENT_COMPID", t_mhl_content.ui2_comp_id, "MHL content: component"),
    DATA("MHLSCR_ELA", t_mhl_scratchpad.e_la, "MHL scratchpad: logical address"),
    DATA("MHLSCR_DATALEN", t_mhl_scratchpad.ui1_data_len, "MHL scratchpad: bytes of data"),
    DATA("MHLSCR_SCRDATA", t_mhl_scratchpad.aui1_data, "MHL scratchpad: data"),
    DATA("U_DATA_RECSTSINFO", e_rec_sts_info, "record status: information"),
    DATA("U_DATA_DECKCTRLMOD", e_deck_ctrl_mode, "deck control: mode"),
    DATA("U_DATA_DECKINFO", e_deck_info, "deck status: information"),
    DATA("U_DATA_PLAYMOD", e_play_mode, "play: mode"),
    DATA("U_DATA_MENUREQSTATE", e_menu_req_state, "menu request: kind"),
    DATA("U_DATA_USRDTRL", e_user_ctrl, "user control pressed: code of the key"),
    DATA("U_DATA_CECVER", e_cec_ver, "version of HDMI-CEC"),
    DATA("U_DATA_MENULANG", ui4_menu_lang, "menu language: three letters, the first in the third byte"),
    DATA("REPORTPHY_UI2PA", t_report_pa.ui2_pa, "report physical address: address"),
    DATA("REPORTPHY_DEVTYPE", t_report_pa.e_dev_type, "report physical address: kind of device"),
    DATA("U_DATA_VNDRID", ui4_vndr_id, "vendor: three bytes of identifier"),
    DATA("U_DATA_OSDNAME", ui1_osd_name, "OSD name: first character"),
    DATA("U_DATA_SYSSTS", e_sys_aud_sts, "system audio mode",
         .values = "0=off\0"
                   "1=on: the amplifier plays\0"),
    DATA("AUDDES_AUDDESNUM", t_short_aud_descr.ui1_descr_num, "short audio descriptors: how many"),
    DATA("DESCRI", t_short_aud_descr.aui4_descr, "short audio descriptors: three bytes each"),
    DATA("U_DATA_AUDSTS", ui1_aud_sts, "audio status: bit 7 is the mute, the others are the volume, 0 to 100"),
    DATA("U_DATA_TIMERSTS", e_timer_clr_sts, "timer cleared: status"),
    DATA("TIMERSTS_OVERLAP", t_timer_sts.b_overlap, "timer status: whether timers overlap",
         .values = "0=no\0"
                   "1=yes\0"),
    DATA("TIMERSTS_MEDIAINFO", t_timer_sts.e_media_info, "timer status: media"),
    DATA("TIMERSTS_PROGIND", t_timer_sts.b_programmed, "timer status: whether the timer is programmed",
         .values = "0=no\0"
                   "1=yes\0"),
    DATA("TIMERSTS_PROGINFO", t_timer_sts.e_prog_info, "timer status: information about a programmed timer"),
    DATA("TIMERSTS_ERRINFO", t_timer_sts.e_err_info, "timer status: why it is not programmed"),
    DATA("TIMERSTS_DURATION", t_timer_sts.ui2_duration,
         "timer status: duration that is available, as HDMI-CEC codes it"),
    DATA("TUNERDEV_SVC", t_tuner_dev.e_svc, "tuner device: kind of service, analogue or digital"),
    DATA("TUNERDEV_DISPALY", t_tuner_dev.e_display, "tuner device: what the tuner shows"),
    DATA("TUNERDEV_FLAG", t_tuner_dev.b_rec_flag, "tuner device: whether it records",
         .values = "0=no\0"
                   "1=yes\0"),
    DATA("TUNERDEV_ANA_BRADST", t_tuner_dev.e_ana_brdcst, "tuner device: kind of analogue broadcast"),
    DATA("TUNERDEV_ANA_FREQ", t_tuner_dev.ui2_ana_freq, "tuner device: analogue frequency, in steps of 62.5 kHz"),
    DATA("TUNERDEV_ANA_SYS", t_tuner_dev.e_ana_sys, "tuner device: analogue broadcast system"),
    DATA("TUNERDEV_DIG_ID", t_tuner_dev.e_dig_id_method, "tuner device: how the digital service is identified"),
    DATA("TUNERDEV_DIG_SYS", t_tuner_dev.e_dig_sys, "tuner device: digital broadcast system"),
    DATA("TUNERDEV_DIG_SVCID", t_tuner_dev.ui2_dig_svc_id, "tuner device: identifier of the digital service"),
    DATA("OSDSTRING_DIAPLAY", t_osd_string.e_display_ctrl, "OSD string: how long it is shown"),
    DATA("OSDSTRING_STRING", t_osd_string.aui1_string, "OSD string: text, one byte per character"),
    DATA("ROUTINGCHG_NEWPA", t_routing_chg.ui2_new_pa, "routing change: new physical address"),
    DATA("ROUTINGCHG_ORIGPA", t_routing_chg.ui2_orig_pa, "routing change: former physical address"),
    DATA("ABORT_REASON", e_abort_reason, "feature abort: reason"),
    DATA("CMDATA_CMDSIZE", t_vndr_cmd.ui1_size, "vendor command: bytes"),
    DATA("CMDATA_CMD", t_vndr_cmd.aui1_cmd, "vendor command: data"),
    DATA("CMDID_ID", t_vndr_cmd_with_id.ui4_vndr_id, "vendor command with identifier: three bytes of vendor"),
    DATA("CMDID_CMDID", t_vndr_cmd_with_id.ui1_cmd, "vendor command with identifier: first byte of the command"),
    DATA("CMDID_CMDIDSIZE", t_vndr_cmd_with_id.ui1_size, "vendor command with identifier: bytes of the command"),
    DATA("RCODE_RCODE", t_rc_code.ui1_code, "vendor remote button: first byte of the code"),
    DATA("RCODE_RCODESIZE", t_rc_code.ui1_size, "vendor remote button: bytes of the code"),
    DATA("U_DATA_PWRSTS", e_pwr_sts, "power status of the device"),
    DATA("FEATURE_TYPE", t_feature.e_type, "features: kinds of device"),
    DATA("FEATURE_VER", t_feature.e_ver, "features: version of HDMI-CEC"),
    DATA("FEATURE_EXTENSION", t_feature.b_extension, "features: whether another byte of them follows"),
    DATA("FEATURE_FEATURE", t_feature.ui1_feature, "features: device features, a bit each"),
    DATA("FEATURE_PRIMARYTYPE", t_feature.ui1_primary_type, "features: primary kind of device"),
    DATA("FEATURE_PROEXTENSION", t_feature.b_prof_extension, "features: whether another byte of the profile follows"),
    DATA("FEATURE_PROFLAG", t_feature.b_prof_flag, "features: whose profile it is",
         .values = "0=a television's\0"
                   "1=a source's\0"),
    DATA("FEATURE_PROSOURCE", t_feature.ui1_prof_source, "features: profile of a source, a bit for each menu"),
    DATA("FEATURE_PROTV", t_feature.ui1_prof_tv, "features: profile of a television"),
    DATA("FEATURE_DEVID", t_feature.ui1_dev_id, "features: identifier of the device"),
    DATA("LATE_PA", t_latency.ui2_pa, "latency: physical address"),
    DATA("LATEOUTDELAY", t_latency.ui1_out_delay, "latency: delay of the sound, in steps of 2 ms, plus 1"),
    DATA("LATE_MODE", t_latency.b_low_latency, "latency: low latency mode",
         .values = "0=off\0"
                   "1=on\0"),
    DATA("LATE_OUTCOMP", t_latency.e_out_comp, "latency: how the delay of the sound is compensated"),
    DATA("LATE_LATE", t_latency.ui1_latency, "latency: delay of the picture, in steps of 2 ms, plus 1"),
};

constexpr ItemType item_CEC_DETECT_NOTIFY = {
    .type = TYPE_CEC_DETECT_NOTIFY,
    .record_size = sizeof(T_CECM_NFY),
    .allocated_size = sizeof(T_CECM_NFY),
    .fields = kCecDetectNotifyFields,
    .notify = {.form = NotifyForm::kSingleItems, .log_name = "_json_print_cec_detect_notify"}};
