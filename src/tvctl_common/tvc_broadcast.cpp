// Broadcast group: changing the channel, and what became of it.
#include <stdlib.h>

#include "tv_ctrl_util/log.h"
#include "tvapi/broadcast.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

static constexpr const char* kMainPicture = "main";

static INT32 change_channel(const RecordRequest& request) {
  return a_vextvapi_broadcast_select_channel_by_chan_id(tvc_content<T_CHANNEL_INFO>(request).t_ch_param.ch_id, 0);
}

static INT32 fine_tune(const RecordRequest& request, UINT8 finished) {
  return a_vextvapi_broadcast_ana_channel_fine_tune(kMainPicture,
                                                    tvc_content<T_CHANNEL_INFO>(request).t_ch_param.ch_freq, finished);
}

static INT32 set_frequency(const RecordRequest& request) { return fine_tune(request, 0); }

static INT32 keep_frequency(const RecordRequest& request) { return fine_tune(request, 1); }

static INT32 select_channel(const RecordRequest& request) {
  const T_CHANNEL_SELECT& channel = tvc_content<T_CHANNEL_SELECT>(request);
  return a_vextvapi_broadcast_select_channel(channel.ui2_svl_id, channel.ui2_svl_rec_id, channel.ui4_channel_id,
                                             channel.b_check_barker_channel);
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_CHG_CHANNEL,
     .type = TYPE_CHANNEL_INFO,
     .set = change_channel,
     .set_needs = "CH_ID",
     .help = "Tunes the main picture to the channel CH_ID; the result comes as a notification."},
    {.record = TV_CTRL_RECID_SET_FINE_TUNE_FREQ,
     .type = TYPE_CHANNEL_INFO,
     .set = set_frequency,
     .set_needs = "CH_FREQ",
     .help = "Shifts the analogue channel of the main picture to the frequency CH_FREQ, for a try."},
    {.record = TV_CTRL_RECID_FINE_TUNE_DONE,
     .type = TYPE_CHANNEL_INFO,
     .set = keep_frequency,
     .set_needs = "CH_FREQ",
     .help = "Ends the fine tuning and keeps the frequency CH_FREQ."},
    {.record = TV_CTRL_RECID_SEL_CHANNEL,
     .type = TYPE_CHANNEL_SELECT,
     .set = select_channel,
     .set_needs = "CHANNEL_ID|SVL_REC_ID",
     .help = "Tunes the main picture to a channel of a service list."},
};

constinit const Handler handler_BRDCAST = {.group = TV_CTRL_GRPID_BRDCAST,
                                           .records = tvc_records<kRows>(),
                                           .get_default = VEXTVCTRLR_FAIL,
                                           .set_without_record = WithoutRecord::kRefused,
                                           .set_needs_record = true};

// Unlike a get by URI, which fails: the group cannot be read.
INT32 tv_ctrl_broadcast_get(UINT16, void*) { return VEXTVCTRLR_OK; }

INT32 tv_ctrl_broadcast_set(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_set(handler_BRDCAST, ui2_id, pv_content);
}

// Runs on the platform's thread.
static INT32 _tv_ctrl_broadcast_nfy_fct(INT32 callback_type, void*, void*, void* pv_arg2, void*, void*) {
  if (callback_type != VEXTVAPI_BROADCAST_CHANNEL_CHANGED) return 0;
  constexpr UINT16 kResult = tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_CHG_CHANNEL_RES);
  auto* const value = static_cast<T_VALUE*>(tv_ctrl_malloc_content(tv_ctrl_get_type_by_id(kResult)));
  if (value) {
    tvc_copy_text(value->name, "chg_channel_res");
    value->state = 1;
    value->value = tvc_number_of(pv_arg2);
  }
  tvc_notify(TV_CTRL_RECID_WS_NFY_CHG_CHANNEL_RES, value);  // without memory there is no record, which is a failure
  free(value);
  return 0;
}

INT32 tv_ctrl_broadcast_init(void) {
  return a_vextvapi_broadcast_register_callback(_tv_ctrl_broadcast_nfy_fct, nullptr);
}

void g_get_broadcast_string(char* str) {
  static constexpr char kText[] = "broad cast!\n";
  if (str) memcpy(str, kText, sizeof kText);
}
