// The control core's exported functions: start-up, dispatch, registry, content records, log level, and the handlers'
// entry points. For hosts that drive the core themselves, for platforms and for tests; a web host needs only
// "dtv_js_plugin.h".
#ifndef TV_CTRL_MAIN_H
#define TV_CTRL_MAIN_H

#include <stddef.h>

#include "dtv_js_plugin.h"
#include "tv_ctrl_log.h"
#include "vex_tv_ctrl.h"

extern "C" {

// --- Start-up and dispatch -------------------------------------------------------------------------------------------

// Told of every notification: the URI and the record of the URI's item type, both borrowed for the call.
using tv_ctrl_nfy_fct = void (*)(const char* uri, void* pv_content);

// Starts the core once: playback control, then the handlers. 0, or -1 when playback control fails (try again later).
TVC_EXPORT INT32 tv_ctrl_init(tv_ctrl_nfy_fct pv_func);

// Routes a get to the handler of the identifier's group, which fills the record of the URI's item type.
// The handler's code; -2 for a null record; -1 for a group that nothing serves.
TVC_EXPORT INT32 tv_ctrl_get(UINT16 ui2_id, void* pv_content);

// Routes a set. A null record is passed on where the group's handler allows it.
// The handler's code; -2 for a null record where one is required; -1 for a group that nothing serves.
TVC_EXPORT INT32 tv_ctrl_set(UINT16 ui2_id, void* pv_content);

// Passes an event on, from any thread, to the notification function, synchronously. The record stays the caller's.
// 0; -2 for a null record; -1 when the core is not started or the identifier is unknown.
TVC_EXPORT INT32 tv_ctrl_notify_content(UINT16 ui2_id, void* pv_content);

// The notification function of the plugin interface: renders the record into the URI's listener buffer.
TVC_EXPORT void tv_ctrl_api_notify_func(const char* uri, void* pv_content);

// --- URI registry ----------------------------------------------------------------------------------------------------

// One row of the registry.
struct TV_CTRL_URI_ID_MAP_T {
  char s_uri[256];
  UINT16 ui2_id;
  UINT8 ui1_type;
};

// Finds the first row with exactly this URI. 0; -2 for a null argument; -5 (identifier 0, type 255) when unknown.
TVC_EXPORT INT32 tv_ctrl_get_info_with_uri(const char* uri, UINT16* ret_id, UINT8* ret_type);

// The item type of an identifier, or TYPE_INVALID.
TVC_EXPORT UINT8 tv_ctrl_get_type_by_id(UINT16 ui2_id);

// Copies the URI of an identifier, at most 255 characters and a terminator, into a buffer of 256.
// 0; -2 for a null buffer; -1 (buffer untouched) when unknown.
TVC_EXPORT INT32 tv_ctrl_get_uri_by_id(UINT16 ui2_id, char* ret_uri);

// --- Content records -------------------------------------------------------------------------------------------------

// Allocates the zeroed buffer that every request's record lives in; its size, without one spare byte, in ret_size.
// Freed with free(). Null without memory, or for a null argument.
TVC_EXPORT void* tv_ctrl_malloc_content_max(INT32* ret_size);

// Allocates one zeroed record of an item type, freed with free(). Null for a type that is not allocated here.
TVC_EXPORT void* tv_ctrl_malloc_content(UINT8 ui1_type);

// Fill a generic record for an item that the configuration store backs: identifier, name (cut to 31 characters),
// group 0, value 0, state 1; a T_VALUE also limits 0 and increment 1. ps_cfg_id is ignored. 0, or -2 for a null record.
TVC_EXPORT INT32 tvc_util_fill_t_value_content_by_config_type(UINT16 ui2_id, const char* ps_cfg_id, const char* ps_name,
                                                              T_VALUE* pt_value);
TVC_EXPORT INT32 tvc_util_fill_t_option_list_content_by_config_type(UINT16 ui2_id, const char* ps_cfg_id,
                                                                    const char* ps_name, T_OPTION_LIST* pt_list);

// Always 0.
TVC_EXPORT INT32 tv_util_init(void);

// --- Handlers: start, get and set of one group ----------------------------------------------------------------------

TVC_EXPORT INT32 tv_ctrl_volctrl_init(void);
TVC_EXPORT INT32 tv_ctrl_get_volctrl(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_volctrl(UINT16 ui2_id, void* pv_content);

// Serves the miscellaneous group; the router also sends it the gets of groups that cannot be read, which it refuses.
TVC_EXPORT INT32 tv_ctrl_misc_init(void);
TVC_EXPORT INT32 tv_ctrl_get_misc(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_misc(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_config_init(void);
TVC_EXPORT INT32 tv_ctrl_config_get(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_config_set(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_common_setting_init(void);
TVC_EXPORT INT32 tv_ctrl_common_setting_get(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_common_setting_set(UINT16 ui2_id, void* pv_content);

// Starts HDMI-CEC. The host calls it after start-up, when it wants CEC. 0, or -1 when a step fails; the steps after it
// are then left out.
TVC_EXPORT INT32 tvc_ctrl_cec_detect_init(void);
TVC_EXPORT INT32 tv_ctrl_cecm_get(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_cecm_set(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_channel_info_init(void);
TVC_EXPORT INT32 tv_ctrl_get_channel_info(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_channel_info(UINT16 ui2_id, void* pv_content);

// Subscribes to results of channel changes. The host calls it after start-up, when it wants their notification.
// The platform's result.
TVC_EXPORT INT32 tv_ctrl_broadcast_init(void);
TVC_EXPORT INT32 tv_ctrl_broadcast_get(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_broadcast_set(UINT16 ui2_id, void* pv_content);

// Copies "broad cast!\n" with its end, 13 bytes, into the caller's buffer.
TVC_EXPORT void g_get_broadcast_string(char* str);

TVC_EXPORT INT32 tv_ctrl_event_info_init(void);
TVC_EXPORT INT32 tv_ctrl_get_event_info(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_event_info(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_get_input_source(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_input_source(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_get_multiview(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_multiview(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_get_pvr_info(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_pvr_info(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_key_get(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_key_set(UINT16 ui2_id, void* pv_content);
}

#endif
