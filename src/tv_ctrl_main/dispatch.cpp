#include "tv_ctrl_main/dispatch.h"

#include <algorithm>
#include <atomic>
#include <iterator>

#include "tv_ctrl_util/log.h"
#include "tvapi/playback.h"

// Each in a file of its own.
extern const Handler kVolctrlHandler, kCommonSettingHandler, kMiscHandler, kNotifyHandler, kKeyHandler, kCecmHandler,
    kConfigHandler;

struct Route {
  UINT8 group;
  const Handler* handler = nullptr;    // null: nothing serves the group, and a set fails
  INT32 get_answer = VEXTVCTRLR_FAIL;  // of a group that nothing serves
  bool set_needs_record = false;       // a set without a content record is refused before the handler sees it
  INT32 (*start)() = nullptr;          // of the handler
  int start_turn = 0;                  // 1: first
};

// Groups that nothing serves yet keep what is special about them, so that they answer alike before and after.
static constexpr Route kRoutes[] = {
    {.group = TV_CTRL_GRPID_VIDEO, .get_answer = VEXTVCTRLR_INV_ARG},
    {.group = TV_CTRL_GRPID_AUDIO, .get_answer = VEXTVCTRLR_INV_ARG},
    {.group = TV_CTRL_GRPID_AUD_LANG, .get_answer = VEXTVCTRLR_INV_ARG},
    {.group = TV_CTRL_GRPID_VOLUME,
     .handler = &kVolctrlHandler,
     .set_needs_record = true,
     .start = tv_ctrl_volctrl_init,
     .start_turn = 2},
    {.group = TV_CTRL_GRPID_NETWORK, .get_answer = VEXTVCTRLR_INV_ARG},
    {.group = TV_CTRL_GRPID_TIME, .get_answer = VEXTVCTRLR_INV_ARG},
    {.group = TV_CTRL_GRPID_TUNER, .get_answer = VEXTVCTRLR_INV_ARG},
    {.group = TV_CTRL_GRPID_RATING, .get_answer = VEXTVCTRLR_INV_ARG},
    {.group = TV_CTRL_GRPID_COMMON_SETTING,
     .handler = &kCommonSettingHandler,
     .set_needs_record = true,
     .start = tv_ctrl_common_setting_init,
     .start_turn = 4},
    {.group = TV_CTRL_GRPID_FACTORY_SETTING},
    {.group = TV_CTRL_GRPID_CHANNEL_INFO},
    {.group = TV_CTRL_GRPID_INPUT_SOURCE},
    {.group = TV_CTRL_GRPID_EVENT, .set_needs_record = true},
    {.group = TV_CTRL_GRPID_MISC, .handler = &kMiscHandler, .start = tv_ctrl_misc_init, .start_turn = 3},
    {.group = TV_CTRL_GRPID_SYS_INFO},
    {.group = TV_CTRL_GRPID_BRDCAST, .set_needs_record = true},
    {.group = TV_CTRL_GRPID_BANNER},
    {.group = TV_CTRL_GRPID_MULTIVIEW},
    {.group = TV_CTRL_GRPID_CBROWSER},
    {.group = TV_CTRL_GRPID_DLNA},
    {.group = TV_CTRL_GRPID_PUS},
    {.group = TV_CTRL_GRPID_WS_NFY, .handler = &kNotifyHandler},
    {.group = TV_CTRL_GRPID_KEY, .handler = &kKeyHandler, .set_needs_record = true},
    {.group = TV_CTRL_GRPID_CECM_CFG, .handler = &kCecmHandler},  // the host starts it
    {.group = TV_CTRL_GRPID_PVR},
    {.group = TV_CTRL_GRPID_CONFIG, .handler = &kConfigHandler, .start = tv_ctrl_config_init, .start_turn = 1},
};
static_assert(
    [] {
      int group = 0;
      for (const Route& route : kRoutes)
        if (route.group != ++group) return false;
      return group == TV_CTRL_GRPID_CONFIG;
    }(),
    "routes are sorted by group number, from 1 without gaps");

static constexpr int kStartTurns = std::ranges::max(kRoutes, {}, &Route::start_turn).start_turn;
static_assert(
    [] {
      for (int turn = 1; turn <= kStartTurns; ++turn)
        if (std::ranges::count(kRoutes, turn, &Route::start_turn) != 1) return false;
      return true;
    }(),
    "no two handlers start in the same turn, and no turn is left out");

// Null for a number that is no group.
static const Route* find_route(int group) {
  return group > 0 && group <= static_cast<int>(std::size(kRoutes)) ? &kRoutes[group - 1] : nullptr;
}

const Handler* tvc_handler(int group) {
  const Route* const route = find_route(group);
  return route ? route->handler : nullptr;
}

UriUse tvc_uri_use(UINT16 ui2_id) {
  UriUse use = {
      .get = Effect::kRefused, .set = Effect::kRefused, .notifies = false, .help = "", .unit = "", .values = ""};
  const Route* const route = find_route(tvc_group(ui2_id));
  if (!route || !route->handler) return use;
  const Handler& handler = *route->handler;
  const bool has_record = tv_ctrl_get_type_by_id(ui2_id) != TYPE_ACTION;  // of a set's request
  use.get = tvc_get_effect(handler, ui2_id);
  if (has_record || !route->set_needs_record) use.set = tvc_set_effect(handler, ui2_id, has_record);
  if (const StoredRecord* const row = tvc_find_record(handler, ui2_id)) {
    const char* const texts = handler.records.texts;
    use.notifies = route->group == TV_CTRL_GRPID_WS_NFY;
    use.help = texts + row->help;
    use.unit = texts + row->unit;
    use.values = texts + row->values;
  } else if (use.get == Effect::kAccepted || use.set == Effect::kAccepted) {
    use.help = "Requests are accepted, and nothing happens.";
  }
  return use;
}

static bool b_g_tvc_init;  // written by the thread that starts the core
// Written once, before the handlers start; read by platform threads.
static std::atomic<tv_ctrl_nfy_fct> pf_g_tvc_nfy_fct;

INT32 tv_ctrl_init(tv_ctrl_nfy_fct pv_func) {
  if (b_g_tvc_init) return VEXTVCTRLR_OK;
  if (IVexPb_Ctrl_Init() != 0) return VEXTVCTRLR_FAIL;
  b_g_tvc_init = true;
  pf_g_tvc_nfy_fct.store(pv_func);
  // A handler whose start fails does not keep the others from starting.
  for (int turn = 1; turn <= kStartTurns; ++turn) std::ranges::find(kRoutes, turn, &Route::start_turn)->start();
  return VEXTVCTRLR_OK;
}

INT32 tv_ctrl_get(UINT16 ui2_id, void* pv_content) {
  if (!pv_content) return VEXTVCTRLR_INV_ARG;
  const Route* const route = find_route(tvc_group(ui2_id));
  if (!route) return VEXTVCTRLR_FAIL;
  return route->handler ? tvc_handle_get(*route->handler, ui2_id, pv_content) : route->get_answer;
}

INT32 tv_ctrl_set(UINT16 ui2_id, void* pv_content) {
  const Route* const route = find_route(tvc_group(ui2_id));
  if (!route) return VEXTVCTRLR_FAIL;
  if (!pv_content && route->set_needs_record) return VEXTVCTRLR_INV_ARG;
  return route->handler ? tvc_handle_set(*route->handler, ui2_id, pv_content) : static_cast<INT32>(VEXTVCTRLR_FAIL);
}

INT32 tv_ctrl_notify_content(UINT16 ui2_id, void* pv_content) {
  if (!pv_content) return VEXTVCTRLR_INV_ARG;
  const tv_ctrl_nfy_fct notify = pf_g_tvc_nfy_fct.load();
  if (!notify) return VEXTVCTRLR_FAIL;
  char uri[256] = {};
  if (tvc_failed(tv_ctrl_get_uri_by_id(ui2_id, uri))) return VEXTVCTRLR_FAIL;
  notify(uri, pv_content);
  return VEXTVCTRLR_OK;
}
