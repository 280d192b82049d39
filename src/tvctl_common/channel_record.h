// A channel as requests show it, made of the platform's records.
#pragma once

#include "tvapi/channel.h"
#include "tvctl_common/handler.h"

// Fills the record's facts of a channel. tsl is null where the transport stream is not known; the frequency and the
// medium are then 0. Returns VEXTVCTRLR_OK.
INT32 tvc_format_channel(UINT16 svl_id, const SVL_REC_T& svl, const TSL_REC_T* tsl, T_CHANNEL_INFO& ret_channel);
