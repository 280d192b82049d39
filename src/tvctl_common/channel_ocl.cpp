// The one channel list: all service lists in one, under one name.
#include "tv_ctrl_util/log.h"
#include "tvctl_common/channel_record.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

static constexpr const char* kList = "all_channel";

static INT32 format(const RecordRequest& request, UINT16 svl_id, const SVL_REC_T& svl) {
  return tvc_format_channel(svl_id, svl, nullptr, tvc_content<T_CHANNEL_INFO>(request));
}

// --- By direction; a reference of 0 is no channel ---

static INT32 format_reference(const RecordRequest& request, UINT32 reference) {
  if (reference == 0) return VEXTVCTRLR_FAIL;
  SVL_REC_T svl = {};
  UINT16 svl_id = 0;
  if (tvc_checked(request, vextvapi_getChannelSvlRec(reference, &svl))) return VEXTVCTRLR_FAIL;
  if (tvc_checked(request, vextvapi_getChannelSvlID(reference, &svl_id))) return VEXTVCTRLR_FAIL;
  return format(request, svl_id, svl);
}

using Neighbour = UINT32 (*)(UINT32 reference, UINT32 nw_value, UINT32 nw_mask);

static INT32 find_neighbour(const RecordRequest& request, Neighbour neighbour) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  const UINT32 reference = vextvapi_getRefChannelByID(kList, wanted.ch_id);
  if (reference == 0) return VEXTVCTRLR_FAIL;
  return format_reference(request, neighbour(reference, wanted.nw_value, wanted.nw_mask));
}

INT32 tvc_ocl_previous(const RecordRequest& request) {
  return find_neighbour(request, vextvapi_GetPrevVirtualChannelByMask);
}

INT32 tvc_ocl_next(const RecordRequest& request) {
  return find_neighbour(request, vextvapi_GetNextVirtualChannelByMask);
}

INT32 tvc_ocl_first(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return format_reference(request, vextvapi_GetFirstVirtualChannelByMask(kList, wanted.nw_value, wanted.nw_mask));
}

INT32 tvc_ocl_find(const RecordRequest& request) {
  const INT32 direction = tvc_channel_parameters(request).direction;
  if (direction == 0) return tvc_channel_current(request);
  return direction > 0 ? tvc_ocl_next(request) : tvc_ocl_previous(request);
}

// --- By index and name ---

static INT32 find_by_name(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  SVL_REC_T svl = {};
  const INT32 ret = vextvapi_1CL_getChannelByNameAndIdx(kList, wanted.nw_value, wanted.nw_mask, wanted.ch_edit_name,
                                                        wanted.index, &svl);
  if (ret != 0) {
    tvc_log_message("[TVC_MAIN][%s][%d] -- i4_ret: %d.\n", request.operation, __LINE__, ret);
    return VEXTVCTRLR_FAIL;
  }
  return format(request, wanted.svl_id, svl);
}

INT32 tvc_ocl_by_index(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  if (wanted.is_edit_ch_name == 1) return find_by_name(request);
  SVL_REC_T svl = {};
  UINT16 svl_id = 0;
  INT32 ret = vextvapi_getChannelSvlRecByIdxAndMask(kList, wanted.nw_value, wanted.nw_mask, wanted.index, &svl);
  if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  ret = vextvapi_getChannelSvlID(svl.t_rec_hdr.ui4_channel_id, &svl_id);
  return tvc_checked(request, ret) ? VEXTVCTRLR_FAIL : format(request, svl_id, svl);
}

INT32 tvc_ocl_index(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  INT32 index = 0;
  const INT32 ret = vextvapi_getIdxByChannelIdAndMask(kList, wanted.nw_value, wanted.nw_mask, wanted.ch_id, &index);
  if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  wanted.index = index;
  return VEXTVCTRLR_OK;
}

INT32 tvc_ocl_nearest_index(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  INT32 index = 0;
  const INT32 ret = vextvapi_getNearestIdxByMajorAndMask(kList, wanted.nw_value, wanted.nw_mask, wanted.major, &index);
  if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  wanted.index = index;
  return VEXTVCTRLR_OK;
}

INT32 tvc_ocl_count(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  const UINT32 mask = tvc_mask_or_active(wanted.nw_mask);
  INT32 number = 0;
  if (wanted.is_edit_ch_name == 1) {
    number = vextvapi_1CL_getNumofChannelByName(kList, wanted.nw_value, mask, wanted.ch_edit_name);
    tvc_log_message("[TVC_MAIN][%s][%d] -- i4_num: %d.\n", request.operation, __LINE__, number);
  } else {
    number = vextvapi_GetNumofChListByMask(kList, wanted.nw_value, mask);
  }
  if (tvc_checked(request, number)) return VEXTVCTRLR_FAIL;
  wanted.ch_num = number;
  return VEXTVCTRLR_OK;
}
