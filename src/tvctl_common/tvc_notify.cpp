// Notification group: the events that handlers raise. They can be neither read nor set.
#include "tv_ctrl_util/log.h"
#include "tvctl_common/handler.h"

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_WS_NFY_CHG_CHANNEL_RES,
     .type = TYPE_VALUE,
     .help = "A change of channel has ended; the value is the platform's result."},
    {.record = TV_CTRL_RECID_WS_NFY_CHANNEL_INFO, .type = TYPE_CHANNEL_INFO_NOTIFY, .help = "A channel list changed."},
    {.record = TV_CTRL_RECID_WS_NFY_ACTIVE_WINDOW_INFO,
     .type = TYPE_ACTIVE_WINDOW_INFO_NOTIFY,
     .help = "Events of the programme guide, or its active window, changed."},
    {.record = TV_CTRL_RECID_WS_NFY_ACTIVE_WINDOW_TIME,
     .type = TYPE_ACTIVE_WINDOW_TIME_NOTIFY,
     .help = "The date or the time changed, as the programme guide sees it."},
    {.record = TV_CTRL_RECID_WS_NFY_CBROWSER_PLAYBACK,
     .type = TYPE_CBROWSER_PB_NOTIFY,
     .help = "Something happened to a media player."},
    {.record = TV_CTRL_RECID_WS_NFY_DLNA_DMS,
     .type = TYPE_DLNA_DMS_NOTIFY,
     .help = "A server of the home network was found or lost."},
    {.record = TV_CTRL_RECID_WS_NFY_DLNA_DMR,
     .type = TYPE_DLNA_DMR_NOTIFY,
     .help = "A controller of the home network asks something of the renderer."},
    {.record = TV_CTRL_RECID_WS_NFY_CBROWSER_PUS,
     .type = TYPE_PUS_NOTIFY,
     .help = "The recording file playback service commands a playback."},
    {.record = TV_CTRL_RECID_WS_NFY_USB_DETECT,
     .type = TYPE_USB_DETECT_NOTIFY,
     .help = "USB storage was mounted or unmounted, or the status of a media scan changed."},
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
