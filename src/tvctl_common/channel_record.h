// A channel as requests show it, made of the platform's records.
#pragma once

#include "tvapi/channel.h"
#include "tvctl_common/record.h"

// What a request says of channels, and where its counts and indexes go. The name in it has an end.
inline T_CHANNEL_PARAM& tvc_channel_parameters(const RecordRequest& request) {
  T_CHANNEL_PARAM& parameters = tvc_content<T_CHANNEL_INFO>(request).t_ch_param;
  tvc_end_text(parameters.ch_edit_name);
  return parameters;
}

// The network bits that count in a request: without any, that a channel is in the list.
inline UINT32 tvc_mask_or_active(UINT32 nw_mask) { return nw_mask != 0 ? nw_mask : UINT32{SVL_NW_MASK_ACTIVE}; }

// Fills the record's facts of a channel. tsl is null where the transport stream is not known; the frequency and the
// medium are then 0. Returns VEXTVCTRLR_OK.
INT32 tvc_format_channel(UINT16 svl_id, const SVL_REC_T& svl, const TSL_REC_T* tsl, T_CHANNEL_INFO& ret_channel);
