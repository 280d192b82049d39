// Item type of common interface data. Only its numbers are rendered, not its 16-bit texts.
#include "tv_ctrl_api/item_types.h"

#define CI(json_key, member, text) \
  { .key = json_key, TVC_MEMBER(T_CI_DATA, member), .use = kResponse | kNotify, .help = text }

static constexpr Field kCiDataFields[] = {
    CI("NAME", name, "display name"),
    {.key = "TYPE", .use = kResponse | kNotify, .text = "TYPE_CI_DATA", .help = "item type"},
    CI("GROUP", group, "group number"),
    CI("STATE", state, "1: available"),
    CI("CI_REQ_QUERY", t_ci_cam_scan_req_data.b_req_query, "scan request: 1: the module asks the user first"),
    CI("CI_REQ_DAY", t_ci_cam_scan_req_data.day, "scan request: day"),
    CI("CI_REQ_HOUR", t_ci_cam_scan_req_data.hour, "scan request: hour"),
    CI("CI_REQ_HUNDREDTH", t_ci_cam_scan_req_data.hundredth, "scan request: hundredths of a second"),
    CI("CI_REQ_MINUTE", t_ci_cam_scan_req_data.minute, "scan request: minute"),
    CI("CI_REQ_MJD", t_ci_cam_scan_req_data.mjd, "scan request: modified Julian date"),
    CI("CI_REQ_MONTH", t_ci_cam_scan_req_data.month, "scan request: month"),
    CI("CI_REQ_SECOND", t_ci_cam_scan_req_data.second, "scan request: second"),
    CI("CI_REQ_TYPE", t_ci_cam_scan_req_data.t_scan_req_type, "scan request: kind"),
    CI("CI_REQ_SLOT", t_ci_cam_scan_req_data.ui1_slot_id, "scan request: slot of the module"),
    CI("CI_REQ_YEAR", t_ci_cam_scan_req_data.year, "scan request: year"),
    CI("CI_UPG_SLOT", t_ci_cam_upgrade_data.ui1_slot_id, "upgrade: slot of the module"),
    CI("CI_UPG_TYPE", t_ci_cam_upgrade_data.ui1_upgrade_type, "upgrade: kind"),
    CI("CI_UPG_TIME", t_ci_cam_upgrade_data.ui2_download_time, "upgrade: duration of the download"),
    CI("CI_UPG_PROG_STAT", t_ci_cam_upgrade_progress_data.ui1_download_progress_status,
       "upgrade: progress of the download"),
    CI("CI_UPG_PROG_SLOT", t_ci_cam_upgrade_progress_data.ui1_slot_id,
       "upgrade: slot of the module that the progress is of"),
    CI("CI_MMI_ENQ_ANS", t_ci_mmi_enq_ans.b_answer, "answer to an enquiry: 1: the user has answered"),
    CI("CI_MMI_ENQ_ANS_ID", t_ci_mmi_enq_ans.ui4_id, "answer to an enquiry: identifier of the enquiry"),
    CI("CI_MMI_ENQ_CLS_SLOT", t_ci_mmi_enq_close_data.ui1_ci_slot, "closing: slot of the module"),
    CI("CI_MMI_ENQ_CLS_DELAY", t_ci_mmi_enq_close_data.ui1_mmi_close_delay,
       "closing: delay before the enquiry is closed"),
    CI("CI_MMI_ENQ_DATA_BLIND", t_ci_mmi_enq_data.b_blind_ans, "enquiry: 1: what is typed is not shown"),
    CI("CI_MMI_ENQ_DATA_LEN", t_ci_mmi_enq_data.ui1_ans_txt_len, "enquiry: length of the answer, in characters"),
    CI("CI_MMI_ENQ_DATA_ID", t_ci_mmi_enq_data.ui4_id, "enquiry: identifier"),
    CI("CI_MMI_MENU_CHOISE", t_ci_mmi_menu.ui1_choice_nb, "menu: number of choices"),
    CI("CI_MMI_MENU_ID", t_ci_mmi_menu.ui4_id, "menu: identifier"),
    CI("CI_MMI_MENU_ANS", t_ci_mmi_menu_ans.ui1_answer, "answer to a menu: number of the choice"),
    CI("CI_MMI_MENU_ANS_ID", t_ci_mmi_menu_ans.ui4_id, "answer to a menu: identifier of the menu"),
};

constexpr ItemType item_CI_DATA = {
    .type = TYPE_CI_DATA,
    .record_size = sizeof(T_CI_DATA),
    .allocated_size = sizeof(T_CI_DATA),
    .renderer = "_json_print_ci_data_type",
    .fields = kCiDataFields,
    .notify = {.form = NotifyForm::kSingleParameter, .log_name = "_json_print_ci_data_notify"}};
