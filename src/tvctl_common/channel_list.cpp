// Channels of a service list: found by direction, index, mask or name, and counted.
#include "tvctl_common/channel_lock.h"
#include "tvctl_common/channel_record.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

// --- By direction ---

INT32 tvc_channel_current(const RecordRequest& request) {
  UINT16 svl_id = 0;
  SVL_REC_T svl = {};
  TSL_REC_T tsl = {};
  if (tvc_checked(request, a_vextvapi_channellist_get_current_channel(&svl_id, &svl, &tsl))) return VEXTVCTRLR_FAIL;
  return tvc_format_channel(svl_id, svl, &tsl, tvc_content<T_CHANNEL_INFO>(request));
}

// The platform's walk over the channels whose network bits, satellite and category fit.
static INT32 find_by_mask(const RecordRequest& request, INT32 direction) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  SVL_REC_T svl = {};
  TSL_REC_T tsl = {};
  {
    const ChannelLock lock(request.operation, wanted.svl_id);
    if (!lock.held) return VEXTVCTRLR_FAIL;
    const INT32 found = a_vextvapi_channellist_get_svl_tsl_recs_by_mask(
        lock.h_svl, lock.h_tsl, wanted.nw_mask, wanted.nw_value, wanted.satl_id, wanted.satl_rec_id,
        wanted.category_mask, direction, wanted.ch_id, 1, &svl, &tsl);
    tvc_failed(found, request.operation);
    if (found < 1) return VEXTVCTRLR_FAIL;
  }
  return tvc_format_channel(wanted.svl_id, svl, &tsl, tvc_content<T_CHANNEL_INFO>(request));
}

// The neighbour of the channel among those whose network bits fit: `before` and `after` are 1 and 0, or 0 and 1.
static INT32 find_neighbour(const RecordRequest& request, UINT32 before, UINT32 after) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  SVL_REC_T svl = {};
  TSL_REC_T tsl = {};
  {
    const ChannelLock lock(request.operation, wanted.svl_id);
    if (!lock.held) return VEXTVCTRLR_FAIL;
    UINT32 before_found = 0, after_found = 0;
    const INT32 ret =
        a_vextvapi_channellist_get_svl_tsl_recs_by_filter(lock.h_svl, lock.h_tsl, wanted.nw_mask, 0, wanted.ch_id,
                                                          before, after, &svl, &tsl, &before_found, &after_found);
    if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  }
  return tvc_format_channel(wanted.svl_id, svl, &tsl, tvc_content<T_CHANNEL_INFO>(request));
}

static bool has_value(const T_CHANNEL_PARAM& wanted) { return wanted.is_nw_value_empty == 0; }

INT32 tvc_channel_previous(const RecordRequest& request) {
  return has_value(tvc_channel_parameters(request)) ? find_by_mask(request, VEXTVAPI_CHANNEL_ITERATE_PREV)
                                                    : find_neighbour(request, 1, 0);
}

INT32 tvc_channel_next(const RecordRequest& request) {
  return has_value(tvc_channel_parameters(request)) ? find_by_mask(request, VEXTVAPI_CHANNEL_ITERATE_NEXT)
                                                    : find_neighbour(request, 0, 1);
}

INT32 tvc_channel_find(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  if (has_value(wanted)) return find_by_mask(request, wanted.direction);
  if (wanted.direction == 0) return tvc_channel_current(request);
  return wanted.direction > 0 ? find_neighbour(request, 0, 1) : find_neighbour(request, 1, 0);
}

// --- By index and name ---

INT32 tvc_channel_by_index(const RecordRequest& request) {
  const T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  SVL_REC_T svl = {};
  {
    const ChannelLock lock(request.operation, wanted.svl_id);
    if (!lock.held) return VEXTVCTRLR_FAIL;
    const INT32 ret = wanted.is_edit_ch_name == 1
                          ? a_vextvapi_channellist_get_svl_rec_by_index_and_name(
                                lock.h_svl, wanted.nw_mask, wanted.nw_value, wanted.ch_edit_name, wanted.index, &svl)
                          : a_vextvapi_channellist_get_svl_rec_by_index(lock.h_svl, wanted.nw_mask, wanted.nw_value,
                                                                        wanted.index, &svl);
    if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  }
  return tvc_format_channel(wanted.svl_id, svl, nullptr, tvc_content<T_CHANNEL_INFO>(request));
}

INT32 tvc_channel_index(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  const ChannelLock lock(request.operation, wanted.svl_id);
  if (!lock.held) return VEXTVCTRLR_FAIL;
  const UINT32 mask = tvc_mask_or_active(wanted.nw_mask);
  INT32 index = 0;
  const INT32 ret =
      a_vextvapi_channellist_get_index_by_channel(lock.h_svl, mask, wanted.nw_value, wanted.ch_id, &index);
  if (tvc_checked(request, ret)) return VEXTVCTRLR_FAIL;
  wanted.index = index;
  return VEXTVCTRLR_OK;
}

INT32 tvc_channel_count(const RecordRequest& request) {
  T_CHANNEL_PARAM& wanted = tvc_channel_parameters(request);
  const ChannelLock lock(request.operation, wanted.svl_id);
  if (!lock.held) return VEXTVCTRLR_FAIL;
  INT32 number = 0;
  if (wanted.is_edit_ch_name == 1)
    number =
        a_vextvapi_channellist_get_number_by_name(lock.h_svl, wanted.nw_mask, wanted.nw_value, wanted.ch_edit_name);
  else if (has_value(wanted))
    number = a_vextvapi_channellist_get_number_by_mask(lock.h_svl, wanted.nw_mask, wanted.nw_value, wanted.satl_id,
                                                       wanted.satl_rec_id, wanted.category_mask);
  else
    number = a_vextvapi_channellist_get_number_by_filter(lock.h_svl, wanted.nw_mask);
  if (tvc_checked(request, number)) return VEXTVCTRLR_FAIL;
  wanted.ch_num = number;
  return VEXTVCTRLR_OK;
}
