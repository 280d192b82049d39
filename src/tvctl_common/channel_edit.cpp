// Changes of a service list's channels: their network bits, identifiers, numbers and names.
#include <string.h>

#include "tv_ctrl_util/text.h"
#include "tvctl_common/channel_lock.h"
#include "tvctl_common/channel_record.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

// The caller holds the list.
static bool read_channel(const RecordRequest& request, UINT32 channel_id, SVL_REC_T& ret_svl) {
  ret_svl = {};
  const INT32 ret =
      a_vextvapi_channellist_get_svl_rec_by_channel_id(tvc_channel_parameters(request).svl_id, channel_id, &ret_svl);
  return !tvc_failed(ret, request.operation);
}

// Returns the platform's result. The caller holds the list.
static INT32 write_channel(const RecordRequest& request, const ChannelLock& lock, const SVL_REC_T& svl) {
  const TSL_REC_T unchanged = {};
  const INT32 ret = a_vextvapi_channellist_set_svl_tsl_rec_info(
      lock.h_svl, lock.h_tsl, tvc_channel_parameters(request).svl_id, 1, &svl, &unchanged);
  tvc_failed(ret, request.operation);
  return ret;
}

// --- Network bits ---

template <typename Change>
static INT32 change_mask(const RecordRequest& request, Change change) {
  const ChannelLock lock(request.operation, tvc_channel_parameters(request).svl_id);
  SVL_REC_T svl;
  if (!lock.held || !read_channel(request, tvc_channel_parameters(request).ch_id, svl)) return VEXTVCTRLR_FAIL;
  svl.t_rec_hdr.ui4_nw_mask = change(svl.t_rec_hdr.ui4_nw_mask);
  return write_channel(request, lock, svl);
}

INT32 tvc_channel_set_mask(const RecordRequest& request) {
  return change_mask(request, [&](UINT32) { return tvc_channel_parameters(request).nw_mask; });
}

INT32 tvc_channel_skip(const RecordRequest& request) {
  return change_mask(request, [](UINT32 mask) { return mask & ~UINT32{SVL_NW_MASK_VISIBLE}; });
}

INT32 tvc_channel_cancel_skip(const RecordRequest& request) {
  return change_mask(request, [](UINT32 mask) { return mask | SVL_NW_MASK_VISIBLE; });
}

INT32 tvc_channel_block(const RecordRequest& request) {
  return change_mask(request, [](UINT32 mask) { return mask | SVL_NW_MASK_BLOCKED; });
}

INT32 tvc_channel_cancel_block(const RecordRequest& request) {
  return change_mask(request, [](UINT32 mask) { return mask & ~UINT32{SVL_NW_MASK_BLOCKED}; });
}

// --- Identifiers, numbers and names ---

static void give_identifier(SVL_REC_T& svl, UINT32 channel_id) {
  svl.t_rec_hdr.ui4_channel_id = channel_id;
  svl.t_rec_hdr.ui4_option_mask |= SVL_OPT_MASK_NUMBER_EDITED;
}

INT32 tvc_channel_swap(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  const ChannelLock lock(request.operation, wanted.svl_id);
  SVL_REC_T from, to;
  if (!lock.held || !read_channel(request, wanted.ch_id_from, from) || !read_channel(request, wanted.ch_id_to, to))
    return VEXTVCTRLR_FAIL;
  give_identifier(from, wanted.ch_id_to);
  give_identifier(to, wanted.ch_id_from);
  const INT32 ret = write_channel(request, lock, from);
  return ret != 0 ? ret : write_channel(request, lock, to);
}

static UINT32 viewers_identifier(UINT32 channel_id, UINT32 number) {
  return (channel_id & SVL_CHANNEL_ID_KEPT) | SVL_CHANNEL_ID_VIEWERS_NUMBER | number << 18;
}

INT32 tvc_channel_edit(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  ChannelLock lock(request.operation, wanted.svl_id);
  SVL_REC_T svl;
  if (!lock.held || !read_channel(request, wanted.ch_id, svl)) return VEXTVCTRLR_FAIL;
  SVL_REC_HDR_T& header = svl.t_rec_hdr;
  if (wanted.is_edit_ch_number) {
    const INT32 taken = a_vextvapi_channellist_is_exist_by_channel_number(wanted.svl_id, wanted.ch_edit_number);
    if (tvc_failed(taken, request.operation)) return VEXTVCTRLR_FAIL;
    if (taken > 0) {
      lock.leave_locked();  // on this path alone
      return VEXTVCTRLR_DUPLICATE;
    }
    give_identifier(svl, viewers_identifier(header.ui4_channel_id, wanted.ch_edit_number));
  }
  if (wanted.is_edit_ch_name) {
    memset(header.ac_name, 0, sizeof header.ac_name);
    tvc_copy_text(header.ac_name, wanted.ch_edit_name);
    header.ui4_option_mask |= SVL_OPT_MASK_NAME_EDITED;
  }
  return write_channel(request, lock, svl);
}
