// Common interface: what a conditional access module asks, answers and reports.
#ifndef VEX_TV_CTRL_CI_H
#define VEX_TV_CTRL_CI_H

#include "vex_tv_ctrl/generic.h"

constexpr int CI_TEXT_LENGTH = 64;  // 16-bit characters of one text
constexpr int CI_MENU_CHOICES = 26;

struct T_CI_MMI_ENQ_CLOSE_DATA {
  UINT8 ui1_ci_slot;
  UINT8 ui1_mmi_close_delay;
};
TVC_RECORD(T_CI_MMI_ENQ_CLOSE_DATA, ui1_ci_slot, ui1_mmi_close_delay)

struct T_CI_CAM_UPGRADE_DATA {
  UINT8 ui1_slot_id;
  UINT8 ui1_upgrade_type;
  UINT16 ui2_download_time;
};
TVC_RECORD(T_CI_CAM_UPGRADE_DATA, ui1_slot_id, ui1_upgrade_type, ui2_download_time)

struct T_CI_CAM_UPGRADE_PROGRESS_DATA {
  UINT8 ui1_slot_id;
  UINT8 ui1_download_progress_status;
};
TVC_RECORD(T_CI_CAM_UPGRADE_PROGRESS_DATA, ui1_slot_id, ui1_download_progress_status)

struct T_CI_CAM_SCAN_REQ_DATA {
  UINT8 ui1_slot_id;
  INT32 t_scan_req_type;
  INT32 b_req_query;  // flag
  UINT16 mjd;         // modified Julian date
  UINT16 year;
  UINT8 month;
  UINT8 day;
  UINT8 hour;
  UINT8 minute;
  UINT8 second;
  UINT8 hundredth;
};
TVC_RECORD(T_CI_CAM_SCAN_REQ_DATA, ui1_slot_id, t_scan_req_type, b_req_query, mjd, year, month, day, hour, minute,
           second, hundredth)

struct T_CI_MMI_ENQ_DATA {
  UINT32 ui4_id;
  UINT8 ui1_ans_txt_len;
  INT32 b_blind_ans;  // flag: the answer is not shown while it is typed
  UINT16 w2s_text[CI_TEXT_LENGTH];
};
TVC_RECORD(T_CI_MMI_ENQ_DATA, ui4_id, ui1_ans_txt_len, b_blind_ans, w2s_text)

struct T_CI_MMI_MENU_ANS {
  UINT32 ui4_id;
  UINT8 ui1_answer;
};
TVC_RECORD(T_CI_MMI_MENU_ANS, ui4_id, ui1_answer)

struct T_CI_MMI_MENU {
  UINT32 ui4_id;
  UINT16 w2s_title[CI_TEXT_LENGTH];
  UINT16 w2s_subtitle[CI_TEXT_LENGTH];
  UINT16 w2s_bottom[CI_TEXT_LENGTH];
  UINT8 ui1_choice_nb;
  UINT16 w2s_choice[CI_MENU_CHOICES][CI_TEXT_LENGTH];
};
TVC_RECORD(T_CI_MMI_MENU, ui4_id, w2s_title, w2s_subtitle, w2s_bottom, ui1_choice_nb, w2s_choice)

struct T_CI_MMI_ENQ_ANS {
  UINT32 ui4_id;
  INT32 b_answer;  // flag
  UINT16 w2s_text[CI_TEXT_LENGTH];
};
TVC_RECORD(T_CI_MMI_ENQ_ANS, ui4_id, b_answer, w2s_text)

struct T_CI_DATA {
  TVC_HEADER
  T_CI_MMI_ENQ_CLOSE_DATA t_ci_mmi_enq_close_data;
  T_CI_CAM_UPGRADE_DATA t_ci_cam_upgrade_data;
  T_CI_CAM_UPGRADE_PROGRESS_DATA t_ci_cam_upgrade_progress_data;
  T_CI_CAM_SCAN_REQ_DATA t_ci_cam_scan_req_data;
  T_CI_MMI_ENQ_DATA t_ci_mmi_enq_data;
  T_CI_MMI_MENU_ANS t_ci_mmi_menu_ans;
  T_CI_MMI_MENU t_ci_mmi_menu;
  T_CI_MMI_ENQ_ANS t_ci_mmi_enq_ans;
};
TVC_RECORD(T_CI_DATA, TVC_HEADER_MEMBERS, t_ci_mmi_enq_close_data, t_ci_cam_upgrade_data,
           t_ci_cam_upgrade_progress_data, t_ci_cam_scan_req_data, t_ci_mmi_enq_data, t_ci_mmi_menu_ans, t_ci_mmi_menu,
           t_ci_mmi_enq_ans)

#endif
