// Volume group: master volume and mute.
#include "tv_ctrl_util/log.h"
#include "tvapi/volctrl.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

static constexpr uintptr_t kCallbackTag = 0x129CA8;

static INT32 get_volume(const RecordRequest& request) {
  tvc_fill_value_header(request, TV_CTRL_GRPID_VOLUME).value = a_vextvapi_volctrl_getVolume();
  return VEXTVCTRLR_OK;
}

static INT32 set_volume(const RecordRequest& request) {
  return a_vextvapi_volctrl_setVolume(static_cast<INT16>(tvc_content<T_VALUE>(request).value));
}

static INT32 increase_volume(const RecordRequest&) { return a_vextvapi_volctrl_incrVolume(); }

static INT32 decrease_volume(const RecordRequest&) { return a_vextvapi_volctrl_decrVolume(); }

static INT32 get_mute(const RecordRequest& request) {
  tvc_fill_value_header(request, TV_CTRL_GRPID_VOLUME).value = a_vextvapi_volctrl_getMute();
  return VEXTVCTRLR_OK;
}

static INT32 set_mute(const RecordRequest& request) {
  return a_vextvapi_volctrl_setMute(static_cast<UINT8>(tvc_content<T_VALUE>(request).value));
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_VOL,
     .type = TYPE_VALUE,
     .get = get_volume,
     .set = set_volume,
     .name = "Volume",
     .help = "The master volume, on the platform's scale.",
     .values = "-32768..32767\0"},
    {.record = TV_CTRL_RECID_VOL_INCREASE,
     .type = TYPE_ACTION,
     .set = increase_volume,
     .help = "Raises the volume by one step, but only in a native call of tv_ctrl_set with a record: requests to this "
             "URI are refused."},
    {.record = TV_CTRL_RECID_VOL_DECREASE,
     .type = TYPE_ACTION,
     .set = decrease_volume,
     .help = "Lowers the volume by one step, but only in a native call of tv_ctrl_set with a record: requests to this "
             "URI are refused."},
    {.record = TV_CTRL_RECID_VOL_MUTE,
     .type = TYPE_VALUE,
     .get = get_mute,
     .set = set_mute,
     .name = "Mute",
     .help = "Whether the sound is muted.",
     .values = "0=not muted\0"
               "1=muted\0"},
};

constinit const Handler handler_VOLUME = {.group = TV_CTRL_GRPID_VOLUME,
                                          .records = tvc_records<kRows>(),
                                          .get_default = VEXTVCTRLR_INV_ARG,
                                          .set_without_record = WithoutRecord::kRefused,
                                          .set_needs_record = true,
                                          .start = tv_ctrl_volctrl_init,
                                          .start_turn = 2};

INT32 tv_ctrl_get_volctrl(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_get(handler_VOLUME, ui2_id, pv_content);
}

INT32 tv_ctrl_set_volctrl(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_set(handler_VOLUME, ui2_id, pv_content);
}

// Callback, on the platform's thread. Notifies every call, whatever its callback type is.
static INT32 _tv_ctrl_volctrl_nfy_fct(INT32, void*, void* pv_arg1, void* pv_arg2, void*, void*) {
  T_VOL_CTRL_NOTIFY notify = {
      .vol_value = tvc_number_of(pv_arg1),
      .mute_status = tvc_number_of(pv_arg2),
  };
  tvc_notify(TV_CTRL_RECID_WS_NFY_VOL_CTRL, &notify);
  return 0;
}

INT32 tv_ctrl_volctrl_init(void) {
  const INT32 ret = a_vextvapi_volctrl_reg_callback(_tv_ctrl_volctrl_nfy_fct, reinterpret_cast<void*>(kCallbackTag));
  return tvc_failed(ret) ? VEXTVCTRLR_FAIL : VEXTVCTRLR_OK;
}
