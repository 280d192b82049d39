// Field table of common interface data: numbers only, its 16-bit texts are not rendered.
#include "tv_ctrl_api/item_types.h"

#define CI(json_key, member) \
  { .key = json_key, TVC_MEMBER(T_CI_DATA, member), .use = kResponse | kNotify }

static constexpr Field ci_data_table[] = {
    CI("NAME", name),
    {.key = "TYPE", .use = kResponse | kNotify, .text = "TYPE_CI_DATA"},
    CI("GROUP", group),
    CI("STATE", state),
    CI("CI_REQ_QUERY", t_ci_cam_scan_req_data.b_req_query),
    CI("CI_REQ_DAY", t_ci_cam_scan_req_data.day),
    CI("CI_REQ_HOUR", t_ci_cam_scan_req_data.hour),
    CI("CI_REQ_HUNDREDTH", t_ci_cam_scan_req_data.hundredth),
    CI("CI_REQ_MINUTE", t_ci_cam_scan_req_data.minute),
    CI("CI_REQ_MJD", t_ci_cam_scan_req_data.mjd),
    CI("CI_REQ_MONTH", t_ci_cam_scan_req_data.month),
    CI("CI_REQ_SECOND", t_ci_cam_scan_req_data.second),
    CI("CI_REQ_TYPE", t_ci_cam_scan_req_data.t_scan_req_type),
    CI("CI_REQ_SLOT", t_ci_cam_scan_req_data.ui1_slot_id),
    CI("CI_REQ_YEAR", t_ci_cam_scan_req_data.year),
    CI("CI_UPG_SLOT", t_ci_cam_upgrade_data.ui1_slot_id),
    CI("CI_UPG_TYPE", t_ci_cam_upgrade_data.ui1_upgrade_type),
    CI("CI_UPG_TIME", t_ci_cam_upgrade_data.ui2_download_time),
    CI("CI_UPG_PROG_STAT", t_ci_cam_upgrade_progress_data.ui1_download_progress_status),
    CI("CI_UPG_PROG_SLOT", t_ci_cam_upgrade_progress_data.ui1_slot_id),
    CI("CI_MMI_ENQ_ANS", t_ci_mmi_enq_ans.b_answer),
    CI("CI_MMI_ENQ_ANS_ID", t_ci_mmi_enq_ans.ui4_id),
    CI("CI_MMI_ENQ_CLS_SLOT", t_ci_mmi_enq_close_data.ui1_ci_slot),
    CI("CI_MMI_ENQ_CLS_DELAY", t_ci_mmi_enq_close_data.ui1_mmi_close_delay),
    CI("CI_MMI_ENQ_DATA_BLIND", t_ci_mmi_enq_data.b_blind_ans),
    CI("CI_MMI_ENQ_DATA_LEN", t_ci_mmi_enq_data.ui1_ans_txt_len),
    CI("CI_MMI_ENQ_DATA_ID", t_ci_mmi_enq_data.ui4_id),
    CI("CI_MMI_MENU_CHOISE", t_ci_mmi_menu.ui1_choice_nb),
    CI("CI_MMI_MENU_ID", t_ci_mmi_menu.ui4_id),
    CI("CI_MMI_MENU_ANS", t_ci_mmi_menu_ans.ui1_answer),
    CI("CI_MMI_MENU_ANS_ID", t_ci_mmi_menu_ans.ui4_id),
};
constinit const std::span<const Field> ci_data_fields = ci_data_table;
