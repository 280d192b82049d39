// HDMI-CEC group: switches HDMI-CEC on and off, and notifies the events of the bus.
#include <string.h>

#include "tv_ctrl_util/log.h"
#include "tvapi/cec.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

// The parameters passed to the CEC manager. Written at start-up and under the request lock.
static CECM_SET_CEC_FCT_PARAMS_T t_cec_param;

static INT32 start_discovery() {
  const CECM_DEV_DISCOVERY_T request = {
      .e_start_la = CECM_LOG_ADDR_REC_DEV_1, .e_stop_la = CECM_LOG_ADDR_FREE_USE, .ui4_itvl = 0, .b_batch_polling = 0};
  return a_vextvapi_cec_start_dev_discovery_ex(&request);
}

// Logs a failure, leaves the record's state as it is, and succeeds all the same.
static INT32 get_function(const RecordRequest& request) {
  UINT8 state = 0;
  if (!tvc_failed(a_vextvapi_cec_get_cec_func(&state), request.operation))
    tvc_content<T_CECM_CFG>(request).ui1_cec_func = state;
  return VEXTVCTRLR_OK;
}

// Stops at the first step that fails, logs its failure, and succeeds all the same.
static INT32 set_function(const RecordRequest& request) {
  const UINT8 wanted = tvc_content<T_CECM_CFG>(request).ui1_cec_func_set;
  INT32 ret = a_vextvapi_cec_set_cec_func(wanted);
  if (ret >= 0) {
    t_cec_param.b_enable = wanted;
    ret = a_vextvapi_cec_set_cec_fct(t_cec_param);
  }
  if (ret >= 0 && wanted == 1) ret = start_discovery();
  tvc_failed(ret, request.operation);
  return VEXTVCTRLR_OK;
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_CECM_CFG_GET,
     .type = TYPE_CECM_CFG,
     .get = get_function,
     .get_operation = "tv_ctrl_cecm_get",
     .help = "Whether HDMI-CEC is switched on."},
    {.record = TV_CTRL_RECID_CECM_CFG_SET,
     .type = TYPE_CECM_CFG,
     .set = set_function,
     .set_operation = "_tvc_set_cecm_cfg_func",
     .set_needs = "CECMFUNC",
     .help = "Switches HDMI-CEC on or off; after switching it on, the set looks for devices."},
};

// The host starts it.
constinit const Handler handler_CECM_CFG = {.group = TV_CTRL_GRPID_CECM_CFG,
                                            .records = tvc_records<kRows>(),
                                            .set_without_record = WithoutRecord::kRefused,
                                            .framed_get = "tv_ctrl_cecm_get"};

INT32 tv_ctrl_cecm_get(UINT16 ui2_id, void* pv_content) { return tvc_handle_get(handler_CECM_CFG, ui2_id, pv_content); }

INT32 tv_ctrl_cecm_set(UINT16 ui2_id, void* pv_content) { return tvc_handle_set(handler_CECM_CFG, ui2_id, pv_content); }

// Callback, on the CEC manager's thread.
static INT32 _tv_ctrl_cec_detect_nfy_fct(INT32, const CECM_NFY_T* pt_nfy, void*, UINT32) {
  if (!pt_nfy) return 0;
  T_CECM_NFY notify;
  static_assert(sizeof notify == sizeof *pt_nfy);
  memcpy(&notify, pt_nfy, sizeof notify);
  tvc_notify(TV_CTRL_RECID_WS_NFY_CEC_DETECT, &notify);
  return 0;
}

// Switches HDMI-CEC on unless it is on already.
static INT32 switch_on() {
  UINT8 state = 0;
  const INT32 ret = a_vextvapi_cec_get_cec_func(&state);
  return ret < 0 || state != 0 ? ret : a_vextvapi_cec_set_cec_func(1);
}

// Enables the CEC manager for all HDMI ports of the set.
static INT32 start_manager() {
  t_cec_param.b_enable = 1;
  const INT32 ret = a_vextvapi_cec_get_hdmi_port_num(&t_cec_param.ui1_hdmi_port_num);
  return ret < 0 ? ret : a_vextvapi_cec_set_cec_fct(t_cec_param);
}

INT32 tvc_ctrl_cec_detect_init(void) {
  tvc_log_progress("[TVC_MAIN][%s][%d] enter.\n", __func__, __LINE__);
  INT32 ret = a_vextvapi_cec_mw_reg_callback(_tv_ctrl_cec_detect_nfy_fct, nullptr);
  if (ret >= 0) ret = switch_on();
  if (ret >= 0) ret = start_manager();
  if (ret >= 0) ret = a_vextvapi_cec_signal_cec_ready(1);
  if (ret >= 0) ret = start_discovery();
  if (tvc_failed(ret)) return VEXTVCTRLR_FAIL;
  tvc_log_progress("[TVC_MAIN][%s][%d] exit.\n", __func__, __LINE__);
  return VEXTVCTRLR_OK;
}
