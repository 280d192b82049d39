// Categories of channels that a broadcaster sends.
#include <algorithm>
#include <iterator>

#include "tv_ctrl_util/log.h"
#include "tvapi/channel.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

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

// Logs what came of a call; true when it failed.
static bool call_failed(const RecordRequest& request, INT32 ret, int line = __builtin_LINE()) {
  if (ret == 0) return false;
  tvc_log_message("[TVC_MAIN][%s][%d] i4_ret: %d.\n", request.operation, line, ret);
  return true;
}

INT32 tvc_category_list(const RecordRequest& request) {
  tvc_log_progress("[TVC_MAIN][%s][%d] enter.\n", request.operation, __LINE__);
  T_LOL_INFO& content = tvc_content<T_LOL_INFO>(request);
  content.ui4_lol_data_tag = LOL_DATA_TAG_TKGS_CATEGORIES;
  const UINT32 list =
      a_vextvapi_channellist_get_lol_handle_by_lol_id(content.ui2_lol_id != 0 ? content.ui2_lol_id : UINT16{1});
  if (call_failed(request, list != 0 ? VEXTVCTRLR_OK : VEXTVCTRLR_FAIL)) return VEXTVCTRLR_FAIL;
  LOL_REC_T record = {};
  UINT32 version = 0;
  const INT32 ret =
      c_lol_get_rec_by_data_tag(list, LOL_DATA_TAG_TKGS_CATEGORIES, content.ui2_lol_idx, &record, &version);
  if (call_failed(request, std::min(ret, 0)) || call_failed(request, c_lol_lock(list))) return VEXTVCTRLR_FAIL;
  dump(request, record);
  content.ui2_lol_rec_id = record.ui2_lol_rec_id;
  content.ui4_lol_data_tag = record.ui4_data_tag;
  if (record.ui4_data_tag == LOL_DATA_TAG_TKGS_CATEGORIES)
    copy_categories(record.t_category_list, content.t_category_list);
  c_lol_unlock(list);
  return VEXTVCTRLR_OK;
}
