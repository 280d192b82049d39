// Satellites of a list.
#include <algorithm>

#include "tvapi/channel.h"
#include "tvctl_common/channel_rows.h"
#include "tvctl_common/record.h"

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
  if (list == 0 || c_satl_read_lock(list) != 0) return VEXTVCTRLR_FAIL;
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
