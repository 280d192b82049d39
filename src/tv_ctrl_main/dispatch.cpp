#include "tv_ctrl_main/dispatch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>

#include "tv_ctrl_main/registry.h"
#include "tv_ctrl_util/log.h"
#include "tvapi/playback.h"

// The handler of each group number; null for a group that no handler serves.
static constexpr auto kHandlers = [] {
  std::array<const Handler*, kLastGroup + 1> handlers{};
#define TVC_GROUP(group, number, enumeration) handlers[number] = &handler_##group;
#define TVC_GROUP_WITHOUT_HANDLER(group, number, enumeration)
#include "vex_tv_ctrl/uris.def"
  return handlers;
}();

// The groups without a handler whose gets are refused with VEXTVCTRLR_INV_ARG. Everything else of a group without a
// handler is refused with VEXTVCTRLR_FAIL, as is a number that is no group.
static constexpr UINT8 kGetsAreBadArguments[] = {
    TV_CTRL_GRPID_VIDEO, TV_CTRL_GRPID_AUDIO, TV_CTRL_GRPID_AUD_LANG, TV_CTRL_GRPID_NETWORK,
    TV_CTRL_GRPID_TIME,  TV_CTRL_GRPID_TUNER, TV_CTRL_GRPID_RATING,
};
static_assert(std::ranges::none_of(kGetsAreBadArguments, [](UINT8 group) { return kHandlers[group]; }),
              "a group that has a handler has no place here");

const Handler* tvc_handler(int group) {
  return group > 0 && group <= kLastGroup ? kHandlers[static_cast<std::size_t>(group)] : nullptr;
}

static INT32 unserved_get(int group) {
  const bool listed = std::ranges::find(kGetsAreBadArguments, group) != std::end(kGetsAreBadArguments);
  return listed ? VEXTVCTRLR_INV_ARG : VEXTVCTRLR_FAIL;
}

UriUse tvc_uri_use(UINT16 ui2_id) {
  UriUse use = {.get = Effect::kRefused,
                .set = Effect::kRefused,
                .notifies = false,
                .get_needs = "",
                .set_needs = "",
                .help = "",
                .unit = "",
                .limit = 0,
                .values = ""};
  const Handler* const handler = tvc_handler(tvc_group(ui2_id));
  if (!handler) return use;
  const bool has_record = tv_ctrl_get_type_by_id(ui2_id) != TYPE_ACTION;  // a set brings one, except for an action
  use.get = tvc_get_effect(*handler, ui2_id);
  if (has_record || !handler->set_needs_record) use.set = tvc_set_effect(*handler, ui2_id, has_record);
  if (const StoredRecord* const row = tvc_find_record(*handler, ui2_id)) {
    const char* const texts = handler->records.texts;
    use.notifies = handler->group == TV_CTRL_GRPID_WS_NFY;
    use.get_needs = texts + row->get_needs;
    use.set_needs = texts + row->set_needs;
    use.help = texts + row->help;
    use.unit = texts + row->unit;
    use.limit = row->limit;
    use.values = texts + row->values;
  } else if (use.get == Effect::kAccepted || use.set == Effect::kAccepted) {
    use.help = "Requests succeed without effect.";
  }
  return use;
}

static bool b_g_tvc_init;  // true once the core has started; only the thread that starts it uses it
// The notification function. Written once, before the handlers start; read by the platform's threads.
static std::atomic<tv_ctrl_nfy_fct> pf_g_tvc_nfy_fct;

// Returns the handler that starts in a turn; null after the last turn.
static const Handler* starting_in(UINT8 turn) {
  for (const Handler* const handler : kHandlers)
    if (handler && handler->start_turn == turn) return handler;
  return nullptr;
}

INT32 tv_ctrl_init(tv_ctrl_nfy_fct pv_func) {
  if (b_g_tvc_init) return VEXTVCTRLR_OK;
  if (IVexPb_Ctrl_Init() != 0) return VEXTVCTRLR_FAIL;
  b_g_tvc_init = true;
  pf_g_tvc_nfy_fct.store(pv_func);
  // When a handler fails to start, the others start all the same.
  for (UINT8 turn = 1; const Handler* const handler = starting_in(turn); ++turn) handler->start();
  return VEXTVCTRLR_OK;
}

INT32 tv_ctrl_get(UINT16 ui2_id, void* pv_content) {
  if (!pv_content) return VEXTVCTRLR_INV_ARG;
  const int group = tvc_group(ui2_id);
  const Handler* const handler = tvc_handler(group);
  return handler ? tvc_handle_get(*handler, ui2_id, pv_content) : unserved_get(group);
}

INT32 tv_ctrl_set(UINT16 ui2_id, void* pv_content) {
  const Handler* const handler = tvc_handler(tvc_group(ui2_id));
  if (!handler) return VEXTVCTRLR_FAIL;
  if (!pv_content && handler->set_needs_record) return VEXTVCTRLR_INV_ARG;
  return tvc_handle_set(*handler, ui2_id, pv_content);
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
