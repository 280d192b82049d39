// Notification group: the events that handlers raise. They can be neither read nor set.
#include "tv_ctrl_util/log.h"
#include "tvctl_common/handler.h"

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_WS_NFY_USB_DETECT,
     .type = TYPE_USB_DETECT_NOTIFY,
     .help = "USB storage was mounted or unmounted."},
    {.record = TV_CTRL_RECID_WS_NFY_CEC_DETECT,
     .type = TYPE_CEC_DETECT_NOTIFY,
     .help = "A message was received on the HDMI-CEC bus, or the set's CEC manager reported an event."},
    {.record = TV_CTRL_RECID_WS_NFY_NETWORK,
     .type = TYPE_NW_NOTIFY,
     .help = "The network cable was unplugged, an address changed, or Wi-Fi was switched off."},
    {.record = TV_CTRL_RECID_WS_NFY_CONFIG_UPDATE,
     .type = TYPE_CONFIG_UPDATE_NOTIFY,
     .help = "A watched value in the configuration store changed."},
    {.record = TV_CTRL_RECID_WS_NFY_VOL_CTRL,
     .type = TYPE_VOL_CTRL_NOTIFY,
     .help = "The volume or the mute state changed, for whatever reason."},
};

constinit const Handler handler_WS_NFY = {.group = TV_CTRL_GRPID_WS_NFY,
                                          .records = tvc_records<kRows>(),
                                          .get_default = VEXTVCTRLR_FAIL,
                                          .set_default = VEXTVCTRLR_FAIL};

void tvc_notify(TVC_GROUP_WS_NFY record, void* pv_content, const char* operation, int line) {
  tvc_failed(tv_ctrl_notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, record), pv_content), operation, line);
}
