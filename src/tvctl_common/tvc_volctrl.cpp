// Volume group: master volume and mute.
#include "tv_ctrl_main.h"
#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/text.h"
#include "tvapi/volctrl.h"
#include "tvctl_common/record.h"

static constexpr uintptr_t kCallbackTag = 0x129CA8;

// Runs on the platform's thread; every callback, of whatever type, is passed on.
static INT32 _tv_ctrl_volctrl_nfy_fct(INT32, void*, void* pv_arg1, void* pv_arg2, void*, void*) {
  T_VOL_CTRL_NOTIFY notify = {
      .vol_value = static_cast<INT32>(reinterpret_cast<intptr_t>(pv_arg1)),
      .mute_status = static_cast<INT32>(reinterpret_cast<intptr_t>(pv_arg2)),
  };
  const INT32 ret = tv_ctrl_notify_content(tvc_id(TV_CTRL_GRPID_WS_NFY, TV_CTRL_RECID_WS_NFY_VOL_CTRL), &notify);
  if (ret < 0) TVC_LOG_FAIL(ret);
  return 0;
}

INT32 tv_ctrl_volctrl_init(void) {
  const INT32 ret = a_vextvapi_volctrl_reg_callback(_tv_ctrl_volctrl_nfy_fct, reinterpret_cast<void*>(kCallbackTag));
  if (ret >= 0) return VEXTVCTRLR_OK;
  TVC_LOG_FAIL(ret);
  return VEXTVCTRLR_FAIL;
}

INT32 tv_ctrl_get_volctrl(UINT16 ui2_id, void* pv_content) {
  if (!pv_content || tvc_group(ui2_id) != TV_CTRL_GRPID_VOLUME) return VEXTVCTRLR_INV_ARG;
  if (tv_ctrl_get_type_by_id(ui2_id) != TYPE_VALUE) return VEXTVCTRLR_INV_ARG;
  T_VALUE& value = tvc_fill_header<T_VALUE>(pv_content, ui2_id, "", TV_CTRL_GRPID_VOLUME);
  // The range is not reported: its limits are the platform's own.
  value.min_value = 0;
  value.max_value = 0;
  value.increment = 1;
  switch (tvc_record(ui2_id)) {
    case TV_CTRL_RECID_VOL:
      tvc_copy_text(value.name, "Volume");
      value.value = a_vextvapi_volctrl_getVolume();
      return VEXTVCTRLR_OK;
    case TV_CTRL_RECID_VOL_MUTE:
      tvc_copy_text(value.name, "Mute");
      value.value = a_vextvapi_volctrl_getMute();
      return VEXTVCTRLR_OK;
    default:
      TVC_LOG_FAIL(VEXTVCTRLR_INV_ARG);
      return VEXTVCTRLR_FAIL;
  }
}

INT32 tv_ctrl_set_volctrl(UINT16 ui2_id, void* pv_content) {
  if (!pv_content || tvc_group(ui2_id) != TV_CTRL_GRPID_VOLUME) return VEXTVCTRLR_INV_ARG;
  const T_VALUE& value = *static_cast<const T_VALUE*>(pv_content);
  switch (tvc_record(ui2_id)) {
    case TV_CTRL_RECID_VOL:
      return a_vextvapi_volctrl_setVolume(static_cast<INT16>(value.value));
    case TV_CTRL_RECID_VOL_INCREASE:
      return a_vextvapi_volctrl_incrVolume();
    case TV_CTRL_RECID_VOL_DECREASE:
      return a_vextvapi_volctrl_decrVolume();
    case TV_CTRL_RECID_VOL_MUTE:
      return a_vextvapi_volctrl_setMute(static_cast<UINT8>(value.value));
    default:
      return VEXTVCTRLR_OK;
  }
}
