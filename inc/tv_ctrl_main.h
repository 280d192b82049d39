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

// Receives every notification, on the thread that raises it: the URI, and the record of the URI's item type. The caller
// owns both.
using tv_ctrl_nfy_fct = void (*)(const char* uri, void* pv_content);

// Starts the core, once: playback control, then the handlers. A handler that fails does not fail the start.
// Returns 0, or -1 when playback control fails; the start may then be tried again.
TVC_EXPORT INT32 tv_ctrl_init(tv_ctrl_nfy_fct pv_func);

// Routes a get to the handler of the identifier's group, which fills the record of the URI's item type.
// Returns the handler's code; -2 for a null record; -1 or -2 for a group that no handler serves.
TVC_EXPORT INT32 tv_ctrl_get(UINT16 ui2_id, void* pv_content);

// Routes a set to the handler of the identifier's group. pv_content: record of the URI's item type, or null.
// Returns the handler's code; -2 for a null record where one is required; -1 for a group that no handler serves.
TVC_EXPORT INT32 tv_ctrl_set(UINT16 ui2_id, void* pv_content);

// Passes an event to the notification function, on the caller's thread, which may be any. The record stays the
// caller's. Returns 0; -2 for a null record; -1 when the core is not started or the identifier is unknown.
TVC_EXPORT INT32 tv_ctrl_notify_content(UINT16 ui2_id, void* pv_content);

// The notification function that a_dtv_jsp_init registers: renders the record into the URI's listener buffer.
TVC_EXPORT void tv_ctrl_api_notify_func(const char* uri, void* pv_content);

// --- URI registry ----------------------------------------------------------------------------------------------------

// One row of the registry.
struct TV_CTRL_URI_ID_MAP_T {
  char s_uri[256];
  UINT16 ui2_id;
  UINT8 ui1_type;
};

// Finds the first row with exactly this URI. Returns 0; -2 for a null argument; -5 for an unknown URI, with identifier
// 0 and type 255.
TVC_EXPORT INT32 tv_ctrl_get_info_with_uri(const char* uri, UINT16* ret_id, UINT8* ret_type);

// Returns the item type of an identifier, or TYPE_INVALID for an unknown one.
TVC_EXPORT UINT8 tv_ctrl_get_type_by_id(UINT16 ui2_id);

// Copies the URI of an identifier into a buffer of 256 bytes, terminated.
// Returns 0; -2 for a null buffer; -1 for an unknown identifier, with the buffer untouched.
TVC_EXPORT INT32 tv_ctrl_get_uri_by_id(UINT16 ui2_id, char* ret_uri);

// --- Content records -------------------------------------------------------------------------------------------------

// Allocates a zeroed buffer that has room for the record of any request. ret_size: receives its size in bytes, without
// one spare byte at its end. Returns the buffer, which the caller frees with free(); null for a null argument, or when
// memory runs out.
TVC_EXPORT void* tv_ctrl_malloc_content_max(INT32* ret_size);

// Allocates one zeroed record of an item type. Returns the record, which the caller frees with free(); null for a type
// whose records are not allocated so, or when memory runs out.
TVC_EXPORT void* tv_ctrl_malloc_content(UINT8 ui1_type);

// Fill a generic record for an item that the configuration store backs: identifier, name (cut to 31 characters), group
// 0, value 0, state 1; in a T_VALUE also limits 0 and increment 1. ps_cfg_id is ignored; ps_name may be null. Return 0,
// or -2 for a null record.
TVC_EXPORT INT32 tvc_util_fill_t_value_content_by_config_type(UINT16 ui2_id, const char* ps_cfg_id, const char* ps_name,
                                                              T_VALUE* pt_value);
TVC_EXPORT INT32 tvc_util_fill_t_option_list_content_by_config_type(UINT16 ui2_id, const char* ps_cfg_id,
                                                                    const char* ps_name, T_OPTION_LIST* pt_list);

// Does nothing. Returns 0.
TVC_EXPORT INT32 tv_util_init(void);

// --- Handlers: start, get and set of one group ----------------------------------------------------------------------
//
// A start returns 0, or -1 when the platform fails. A get and a set return 0, a code of VEX_RET_VALUE or the
// platform's; -2 for an identifier of another group. The record stays the caller's. Requests must not run at the same
// time.

TVC_EXPORT INT32 tv_ctrl_volctrl_init(void);
TVC_EXPORT INT32 tv_ctrl_get_volctrl(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_volctrl(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_misc_init(void);
TVC_EXPORT INT32 tv_ctrl_get_misc(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_misc(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_config_init(void);
TVC_EXPORT INT32 tv_ctrl_config_get(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_config_set(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_common_setting_init(void);
TVC_EXPORT INT32 tv_ctrl_common_setting_get(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_common_setting_set(UINT16 ui2_id, void* pv_content);

// Starts HDMI-CEC. The core does not call it; a host that wants CEC does, after start-up. Returns 0, or -1 when a step
// fails; the steps after it are then skipped.
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

TVC_EXPORT INT32 tv_ctrl_get_cbrowser(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_cbrowser(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_get_dlna(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_dlna(UINT16 ui2_id, void* pv_content);

// Starts the recording file playback service. The core calls it at start-up, an application again with a set.
TVC_EXPORT INT32 tv_ctrl_pus_init(void);
TVC_EXPORT INT32 tv_ctrl_get_pus(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_set_pus(UINT16 ui2_id, void* pv_content);

TVC_EXPORT INT32 tv_ctrl_key_get(UINT16 ui2_id, void* pv_content);
TVC_EXPORT INT32 tv_ctrl_key_set(UINT16 ui2_id, void* pv_content);
}

#endif
