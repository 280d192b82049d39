// Satellites, categories that a broadcaster sends, and channel logos.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "tv_ctrl_util/log.h"
#include "tvapi/channel.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

// --- Satellites ---

INT32 tvc_satellite_count(const RecordRequest& request) {
  T_SATL_PARAM& wanted = tvc_content<T_SATL_INFO>(request).t_satl_param;
  const UINT32 list = a_vextvapi_channellist_get_satl_handle_by_satl_id(wanted.satl_id);
  if (list == 0) return VEXTVCTRLR_FAIL;
  INT32 number = 0;
  UINT32 version = 0;
  if (tvc_failed(c_satl_get_num_recs(list, &number, &version), request.operation)) return VEXTVCTRLR_FAIL;
  wanted.num = number;
  return VEXTVCTRLR_OK;
}

INT32 tvc_satellite_by_index(const RecordRequest& request) {
  T_SATL_INFO& content = tvc_content<T_SATL_INFO>(request);
  const UINT32 list = a_vextvapi_channellist_get_satl_handle_by_satl_id(content.t_satl_param.satl_id);
  if (list == 0 || tvc_failed(c_satl_read_lock(list), request.operation)) return VEXTVCTRLR_FAIL;
  SATL_REC_T found = {};
  UINT32 version = 0;
  const INT32 ret = c_satl_get_rec_by_rec_idx(list, content.t_satl_param.index, &found, &version);
  c_satl_read_unlock(list);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  T_SATL_REC& satellite = content.t_satl_rec;
  satellite.ui2_satl_rec_id = found.ui2_satl_rec_id;
  satellite.ui4_mask = found.ui4_mask;
  satellite.i2_orb_pos = found.i2_orb_pos;
  // Whole arrays: the texts need no end.
  std::ranges::copy(found.ac_sat_name, satellite.ac_sat_name);
  std::ranges::copy(found.ac_lnb_config, satellite.ac_lnb_config);
  return VEXTVCTRLR_OK;
}

// --- Categories ---

static_assert(UINT32{TVC_LOL_TAG_CATEGORIES} == UINT32{LOL_DATA_TAG_TKGS_CATEGORIES});

static void dump(const RecordRequest& request, const LOL_REC_T& record) {
  tvc_log_message("[TVC_MAIN][%s][%d] -- start lol rec dump.\n", request.operation, __LINE__);
  tvc_log_message("[TVC_MAIN] ui4_data_tag: [%u]\n", record.ui4_data_tag);
  tvc_log_message("[TVC_MAIN] ui2_lol_rec_id: [%u]\n", record.ui2_lol_rec_id);
  tvc_log_message("[TVC_MAIN] ui2_data_len: [%u]\n", record.ui2_data_len);
}

static void copy_categories(const LOL_CATEGORY_LIST_T& found, T_DVBS_TKGS_CATEGORY_LIST& ret_list) {
  constexpr UINT16 kMost = std::size(T_DVBS_TKGS_CATEGORY_LIST{}.at_category_arr);
  tvc_log_message("[TVC_MAIN] t_category_list.ui2_category_num: [%u]\n", found.ui2_category_num);
  ret_list.ui2_category_num = std::min(found.ui2_category_num, kMost);
  for (UINT16 i = 0; i < ret_list.ui2_category_num; ++i) {
    ret_list.at_category_arr[i].ui2_category_no = found.at_category_arr[i].ui2_category_no;
    std::ranges::copy(found.at_category_arr[i].ac_category_name, ret_list.at_category_arr[i].ac_category_name);
  }
}

// Logs a failure of the platform as this function always did; 0 or VEXTVCTRLR_FAIL.
static INT32 category_result(const RecordRequest& request, INT32 ret) {
  if (ret >= 0) return VEXTVCTRLR_OK;
  tvc_log_message("[TVC_MAIN][%s][%d] i4_ret: %d.\n", request.operation, __LINE__, ret);
  return VEXTVCTRLR_FAIL;
}

INT32 tvc_category_list(const RecordRequest& request) {
  tvc_log_progress("[TVC_MAIN][%s][%d] enter.\n", request.operation, __LINE__);
  T_LOL_INFO& content = tvc_content<T_LOL_INFO>(request);
  content.ui4_lol_data_tag = LOL_DATA_TAG_TKGS_CATEGORIES;
  const UINT32 list =
      a_vextvapi_channellist_get_lol_handle_by_lol_id(content.ui2_lol_id != 0 ? content.ui2_lol_id : UINT16{1});
  if (list == 0) return category_result(request, VEXTVCTRLR_FAIL);
  LOL_REC_T record = {};
  UINT32 version = 0;
  const INT32 ret =
      c_lol_get_rec_by_data_tag(list, LOL_DATA_TAG_TKGS_CATEGORIES, content.ui2_lol_idx, &record, &version);
  if (category_result(request, ret) || category_result(request, c_lol_lock(list))) return VEXTVCTRLR_FAIL;
  dump(request, record);
  content.ui2_lol_rec_id = record.ui2_lol_rec_id;
  content.ui4_lol_data_tag = record.ui4_data_tag;
  if (record.ui4_data_tag == LOL_DATA_TAG_TKGS_CATEGORIES)
    copy_categories(record.t_category_list, content.t_category_list);
  c_lol_unlock(list);
  return VEXTVCTRLR_OK;
}

// --- Logos ---

// False also for a name that makes the path too long.
static bool find_logo(const char* folder, const char* name, char (&ret_path)[256]) {
  const int length = snprintf(ret_path, sizeof ret_path, "/3rd_rw/ChLogo/%s/%s.png", folder, name);
  return length < static_cast<int>(sizeof ret_path) && access(ret_path, F_OK) == 0;
}

INT32 tvc_logo_path(const RecordRequest& request) {
  constexpr int kSizeOnTheSet = 1076;
  T_TEXT& text = tvc_fill_header<T_TEXT>(request, TV_CTRL_GRPID_CHANNEL_INFO);
  text.size = kSizeOnTheSet;
  tvc_end_text(text.value);
  if (text.value[0] == '\0') return VEXTVCTRLR_INV_ARG;
  char path[256];
  const bool found = find_logo("PreDef", text.value, path) || find_logo("UserDef", text.value, path);
  tvc_copy_text(text.value, found ? path : "");
  return found ? VEXTVCTRLR_OK : VEXTVCTRLR_FAIL;
}

INT32 tvc_logo_update(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_content<T_CHANNEL_INFO>(request).t_ch_param;
  return a_channel_logo_custom_update_logo_id_by_channel(wanted.svl_id, wanted.ch_id);
}
