// The plugin's records, one line each: see "tap/record.h".
#pragma once

#include "tap/record.h"
#include "tv_ctrl_main.h"

#define RUNNER_HEADER id, size, pt_next, name, group, state

DTV_RECORD(T_ACTION, RUNNER_HEADER)
DTV_RECORD(T_VALUE, RUNNER_HEADER, min_value, max_value, increment, value)
DTV_RECORD(T_INTEGER, RUNNER_HEADER, value)
DTV_RECORD(T_TINT, RUNNER_HEADER, min_value, max_value, increment, center, value)
DTV_RECORD(T_TEXT, RUNNER_HEADER, value)
DTV_RECORD(T_TEXT_16, RUNNER_HEADER, value)
DTV_RECORD(T_OPTION_LIST, RUNNER_HEADER, element, value)
DTV_RECORD(T_TIME_DTG, ui2_yr, ui1_mo, ui1_day, ui1_dow, ui1_hr, ui1_min, ui1_sec, b_gmt, b_dst)
DTV_RECORD(T_TIME, RUNNER_HEADER, value, dtg)
DTV_RECORD(T_BANNER_ITEM, RUNNER_HEADER, item_id, item_state, item_content)

DTV_RECORD(decltype(T_TUNER_SCAN::atsc_scan_data), first_scan_index, last_scan_index, mod_mask, freq_plan)
DTV_RECORD(decltype(T_TUNER_SCAN::isdb_scan_data), first_scan_index, last_scan_index, config_flag)
DTV_RECORD(decltype(T_TUNER_SCAN::ntsc_scan_data), first_scan_index, last_scan_index)
DTV_RECORD(decltype(T_TUNER_SCAN::dvbt_scan_data), first_scan_index, last_scan_index, scan_index, freq, bandwidth,
           channel_name)
DTV_RECORD(decltype(T_TUNER_SCAN::dvbc_scan_data), network_id, start_freq, end_freq, config_flag)
DTV_RECORD(decltype(T_TUNER_SCAN::pal_scan_data), start_freq, end_freq)
DTV_RECORD(T_TUNER_SCAN, RUNNER_HEADER, skip_fake, scan_type, scan_mode, scan_default_setting, atsc_scan_data,
           isdb_scan_data, ntsc_scan_data, dvbt_scan_data, dvbc_scan_data, pal_scan_data)
DTV_RECORD(T_TUNER_SCAN_NOTIFY, msg_id, progress, chan_num, reserved)

DTV_RECORD(T_CI_MMI_ENQ_CLOSE_DATA, ui1_ci_slot, ui1_mmi_close_delay)
DTV_RECORD(T_CI_CAM_UPGRADE_DATA, ui1_slot_id, ui1_upgrade_type, ui2_download_time)
DTV_RECORD(T_CI_CAM_UPGRADE_PROGRESS_DATA, ui1_slot_id, ui1_download_progress_status)
DTV_RECORD(T_CI_CAM_SCAN_REQ_DATA, ui1_slot_id, t_scan_req_type, b_req_query, mjd, year, month, day, hour, minute,
           second, hundredth)
DTV_RECORD(T_CI_MMI_ENQ_DATA, ui4_id, ui1_ans_txt_len, b_blind_ans, w2s_text)
DTV_RECORD(T_CI_MMI_MENU_ANS, ui4_id, ui1_answer)
DTV_RECORD(T_CI_MMI_MENU, ui4_id, w2s_title, w2s_subtitle, w2s_bottom, ui1_choice_nb, w2s_choice)
DTV_RECORD(T_CI_MMI_ENQ_ANS, ui4_id, b_answer, w2s_text)
DTV_RECORD(T_CI_DATA, RUNNER_HEADER, t_ci_mmi_enq_close_data, t_ci_cam_upgrade_data, t_ci_cam_upgrade_progress_data,
           t_ci_cam_scan_req_data, t_ci_mmi_enq_data, t_ci_mmi_menu_ans, t_ci_mmi_menu, t_ci_mmi_enq_ans)

DTV_RECORD(T_VOL_CTRL_NOTIFY, vol_value, mute_status)
DTV_RECORD(T_CONFIG, cfg_id, cfg_item, input_group, update_flag, valuemin, valuemax, valueint, valuestring)
DTV_RECORD(T_LANG_STRING, lang_id, lang_string)
DTV_RECORD(T_CONFIG_NOTIFY, id, tag, arg1, arg2)
DTV_RECORD(T_CHANNEL_LIST_NOTIFY, type, tag, h_svl, conditions, reason, data)
DTV_RECORD(T_ACTIVE_WINDOW_INFO_NOTIFY, type, tag, h_svl, conditions, reason, data)
DTV_RECORD(T_ACTIVE_WINDOW_TIME_NOTIFY, type, tag, h_svl)
DTV_RECORD(T_CBROWSER_PB_NOTIFY, type, tag, arg1, arg2, arg3, arg4)
DTV_RECORD(T_DLNA_DMS_NOTIFY, type, tag, server_name, dev_id, arg1, arg2)
DTV_RECORD(T_DLNA_DMR_NOTIFY, type, tag, uri, protocolinfo, arg1, arg2)
DTV_RECORD(T_PUS_NOTIFY, instance, play_cmd, value)
DTV_RECORD(T_NW_NOTIFY, tag, id, param)
DTV_RECORD(T_WLAN_ASSOCIATE, bssid, ssid, capabilities, password)
DTV_RECORD(T_MOUNT_POINT_INFO, dev, path, label, port)
DTV_RECORD(T_USB_DETECT_NOTIFY, type, tag, mount_point)
DTV_RECORD(T_MOUNT_POINT_LIST, count, entries)
DTV_RECORD(T_NW_IP_INFO_T, ui4_address, ui4_netmask, ui4_gw, ui4_1st_dns, ui4_2nd_dns)
DTV_RECORD(T_NW_IP_INFO_DATA, RUNNER_HEADER, t_ip_info)
DTV_RECORD(T_NW_IPV6_INFO_T, ip_type, dns_type, ac_v6ip, ac_v6gw, ac_dns1, ac_dns2, ac_v6ip_ll, ui4_prefix,
           ui4_prefix_ll)
DTV_RECORD(T_NW_IPV6_INFO_DATA, RUNNER_HEADER, t_ipv6_info)
DTV_RECORD(T_HBBTV, is_enable, func_type, app_type, uri)
DTV_RECORD(T_PORTAL, app_mode, edfu_url, exit_reason)
DTV_RECORD(T_CECM_CFG, ui1_cec_func, ui1_cec_func_set)
// The data of an event are given as {"hex": "..."}, or as words.
DTV_UNION(T_CECM_NFY_DATA, aui4_words)
DTV_UNION(decltype(T_CECM_NFY::u_code), e_msgcode, e_opcode)
DTV_RECORD(T_CECM_NFY, e_sent_la, e_sent_opcode, e_nfy_type, e_brdcst_type, ui4_attr, u_code, u_data)
// Without its entries, which nothing fills yet; the fields of a union need not follow each other.
DTV_UNION(T_CBROWSER, path, count, index, sort, type, reserved)
