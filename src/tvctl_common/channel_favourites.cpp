// Favourites of a service list, which has several lists of them, and of the one channel list, which has one.
#include "tv_ctrl_util/log.h"
#include "tvctl_common/channel_record.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

static UINT8 list_of(const T_CHANNEL_PARAM& wanted) { return static_cast<UINT8>(wanted.fav_index); }

// --- Of a service list ---

INT32 tvc_favourite_add(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(request, a_vextvapi_favorite_list_add_tail(wanted.svl_id, list_of(wanted), wanted.ch_id));
}

INT32 tvc_favourite_delete(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(request, a_vextvapi_favorite_list_delete(wanted.svl_id, list_of(wanted), wanted.ch_id));
}

INT32 tvc_favourite_add_all(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(request,
                     a_vextvapi_favorite_list_add_all(wanted.svl_id, list_of(wanted), wanted.nw_mask, wanted.nw_value));
}

INT32 tvc_favourite_delete_all(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(request,
                     a_vextvapi_favorite_list_del_all(wanted.svl_id, list_of(wanted), wanted.nw_mask, wanted.nw_value));
}

INT32 tvc_favourite_move(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(
      request, a_vextvapi_favorite_list_insert_move(wanted.svl_id, list_of(wanted), wanted.nw_mask, wanted.nw_value,
                                                    wanted.index_from, wanted.index_to));
}

INT32 tvc_favourite_swap(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(request, a_vextvapi_favorite_list_swap_by_channel_id(wanted.svl_id, list_of(wanted),
                                                                          wanted.ch_id_from, wanted.ch_id_to));
}

INT32 tvc_favourite_count(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  const INT32 number =
      a_vextvapi_favorite_list_number_by_mask(wanted.svl_id, list_of(wanted), wanted.nw_mask, wanted.nw_value);
  if (tvc_checked(request, number)) return VEXTVCTRLR_FAIL;
  wanted.ch_num = number;
  return VEXTVCTRLR_OK;
}

INT32 tvc_favourite_by_index(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  SVL_REC_T svl = {};
  const INT32 ret = a_vextvapi_favorite_list_get_svl_rec_by_index(wanted.svl_id, list_of(wanted), wanted.nw_mask,
                                                                  wanted.nw_value, wanted.index, &svl);
  if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  return tvc_format_channel(wanted.svl_id, svl, nullptr, tvc_content<T_CHANNEL_INFO>(request));
}

INT32 tvc_favourite_index(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  INT32 index = 0;
  const INT32 ret = a_vextvapi_favorite_list_get_index_by_channel(wanted.svl_id, list_of(wanted), wanted.nw_mask,
                                                                  wanted.nw_value, wanted.ch_id, &index);
  if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  wanted.index = index;
  return VEXTVCTRLR_OK;
}

// --- Of the one channel list ---

INT32 tvc_ocl_favourite_add(const RecordRequest& request) {
  return tvc_checked(request, vextvapi_1CL_addFavToTailByChannel(tvc_channel_parameters(request).ch_id));
}

INT32 tvc_ocl_favourite_delete(const RecordRequest& request) {
  return tvc_checked(request, vextvapi_1CL_removeFavByChannel(tvc_channel_parameters(request).ch_id));
}

INT32 tvc_ocl_favourite_add_all(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(request, vextvapi_1CL_addAllToFavByMask(wanted.nw_value, wanted.nw_mask));
}

INT32 tvc_ocl_favourite_delete_all(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(request, vextvapi_1CL_delAllFavByMask(wanted.nw_value, wanted.nw_mask));
}

INT32 tvc_ocl_favourite_move(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  return tvc_checked(request,
                     vextvapi_1CL_moveFavByIdx(wanted.index_from, wanted.index_to, wanted.nw_value, wanted.nw_mask));
}

INT32 tvc_ocl_favourite_count(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  const INT32 number = vextvapi_1CL_getFavNumByMask(wanted.nw_value, wanted.nw_mask);
  if (tvc_checked(request, number)) return VEXTVCTRLR_FAIL;
  wanted.ch_num = number;
  return VEXTVCTRLR_OK;
}

INT32 tvc_ocl_favourite_by_index(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  SVL_REC_T svl = {};
  const INT32 ret = vextvapi_1CL_getFavByIdxAndMask(wanted.nw_value, wanted.nw_mask, wanted.index, &svl);
  if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  return tvc_format_channel(wanted.svl_id, svl, nullptr, tvc_content<T_CHANNEL_INFO>(request));
}

INT32 tvc_ocl_favourite_index(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  const INT32 index = vextvapi_1CL_getFavIdxByChannelAndMask(wanted.nw_value, wanted.nw_mask, wanted.ch_id);
  if (tvc_checked(request, index)) return VEXTVCTRLR_FAIL;
  wanted.index = index;
  return VEXTVCTRLR_OK;
}
