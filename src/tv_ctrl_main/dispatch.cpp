#include "tv_ctrl_main/dispatch.h"

#include <atomic>
#include <iterator>

#include "tv_ctrl_util/log.h"
#include "tvapi/playback.h"

// Seven groups are routed to the miscellaneous handler, which refuses them: they cannot be read. Nor can keys.
static constexpr GroupRoute routes[] = {
    {.group = 0, .get = nullptr, .set = nullptr, .set_needs_record = false},
    {TV_CTRL_GRPID_VIDEO, tv_ctrl_get_misc, nullptr, false, true},
    {TV_CTRL_GRPID_AUDIO, tv_ctrl_get_misc, nullptr, false, true},
    {TV_CTRL_GRPID_AUD_LANG, tv_ctrl_get_misc, nullptr, false, true},
    {TV_CTRL_GRPID_VOLUME, tv_ctrl_get_volctrl, tv_ctrl_set_volctrl, true},
    {TV_CTRL_GRPID_NETWORK, tv_ctrl_get_misc, nullptr, false, true},
    {TV_CTRL_GRPID_TIME, tv_ctrl_get_misc, nullptr, false, true},
    {TV_CTRL_GRPID_TUNER, tv_ctrl_get_misc, nullptr, false, true},
    {TV_CTRL_GRPID_RATING, tv_ctrl_get_misc, nullptr, false, true},
    {TV_CTRL_GRPID_COMMON_SETTING, tv_ctrl_common_setting_get, tv_ctrl_common_setting_set, true},
    {TV_CTRL_GRPID_FACTORY_SETTING, nullptr, nullptr, false},
    {TV_CTRL_GRPID_CHANNEL_INFO, nullptr, nullptr, false},
    {TV_CTRL_GRPID_INPUT_SOURCE, nullptr, nullptr, false},
    {TV_CTRL_GRPID_EVENT, nullptr, nullptr, true},
    {TV_CTRL_GRPID_MISC, tv_ctrl_get_misc, tv_ctrl_set_misc, false},
    {TV_CTRL_GRPID_SYS_INFO, nullptr, nullptr, false},
    {TV_CTRL_GRPID_BRDCAST, nullptr, nullptr, true},
    {TV_CTRL_GRPID_BANNER, nullptr, nullptr, false},
    {TV_CTRL_GRPID_MULTIVIEW, nullptr, nullptr, false},
    {TV_CTRL_GRPID_CBROWSER, nullptr, nullptr, false},
    {TV_CTRL_GRPID_DLNA, nullptr, nullptr, false},
    {TV_CTRL_GRPID_PUS, nullptr, nullptr, false},
    {TV_CTRL_GRPID_WS_NFY, nullptr, nullptr, false},  // notifications only
    {TV_CTRL_GRPID_KEY, tv_ctrl_key_get, tv_ctrl_key_set, true, true},
    {TV_CTRL_GRPID_CECM_CFG, tv_ctrl_cecm_get, tv_ctrl_cecm_set, false},
    {TV_CTRL_GRPID_PVR, nullptr, nullptr, false},
    {TV_CTRL_GRPID_CONFIG, tv_ctrl_config_get, tv_ctrl_config_set, false},
};
static_assert(
    [] {
      for (std::size_t group = 0; group < std::size(routes); ++group)
        if (routes[group].group != group) return false;
      return std::size(routes) == TV_CTRL_GRPID_CONFIG + 1;
    }(),
    "a route stands at its group's number");

// Started in this order; a handler whose start fails does not keep the others from starting.
static constexpr INT32 (*starts[])() = {tv_ctrl_config_init, tv_ctrl_volctrl_init, tv_ctrl_misc_init,
                                        tv_ctrl_common_setting_init};

static constexpr int kFirstSettableGroup = TV_CTRL_GRPID_VOLUME;

static bool b_g_tvc_init;  // written by the thread that starts the core
// Written once, before the handlers start; read by platform threads.
static std::atomic<tv_ctrl_nfy_fct> pf_g_tvc_nfy_fct;

const GroupRoute* tvc_route(int group) {
  return group > 0 && group < static_cast<int>(std::size(routes)) ? &routes[group] : nullptr;
}

INT32 tv_ctrl_init(tv_ctrl_nfy_fct pv_func) {
  if (b_g_tvc_init) return VEXTVCTRLR_OK;
  if (IVexPb_Ctrl_Init() != 0) return VEXTVCTRLR_FAIL;
  b_g_tvc_init = true;
  pf_g_tvc_nfy_fct.store(pv_func);
  for (auto* const start : starts) start();
  return VEXTVCTRLR_OK;
}

INT32 tv_ctrl_get(UINT16 ui2_id, void* pv_content) {
  if (!pv_content) return VEXTVCTRLR_INV_ARG;
  const GroupRoute* const route = tvc_route(tvc_group(ui2_id));
  return route && route->get ? route->get(ui2_id, pv_content) : static_cast<INT32>(VEXTVCTRLR_FAIL);
}

INT32 tv_ctrl_set(UINT16 ui2_id, void* pv_content) {
  const GroupRoute* const route = tvc_route(tvc_group(ui2_id));
  if (!route || route->group < kFirstSettableGroup) return VEXTVCTRLR_FAIL;
  if (!pv_content && route->set_needs_record) return VEXTVCTRLR_INV_ARG;
  return route->set ? route->set(ui2_id, pv_content) : static_cast<INT32>(VEXTVCTRLR_FAIL);
}

INT32 tv_ctrl_notify_content(UINT16 ui2_id, void* pv_content) {
  if (!pv_content) return VEXTVCTRLR_INV_ARG;
  const tv_ctrl_nfy_fct notify = pf_g_tvc_nfy_fct.load();
  if (!notify) return VEXTVCTRLR_FAIL;
  char uri[256] = {};
  if (const INT32 ret = tv_ctrl_get_uri_by_id(ui2_id, uri); ret != VEXTVCTRLR_OK) {
    TVC_LOG_FAIL(ret);
    return VEXTVCTRLR_FAIL;
  }
  notify(uri, pv_content);
  return VEXTVCTRLR_OK;
}
