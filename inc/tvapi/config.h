/* The configuration store: values by key ("g_gui_lang__gui_language") or by numeric item id. Keys, ids, ranges and what
 * they mean are the platform's. */
#ifndef TVAPI_CONFIG_TYPES_H
#define TVAPI_CONFIG_TYPES_H

#include "tvapi/types.h"

/* A value has changed. */
typedef struct {
  char s_cfg[51]; /* its key */
} VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T;

#endif

#include "tvapi/begin.h"

/* Called by the platform, on a thread of its own, about the keys that were asked for. notify_id: -1 when a value has
 * changed, with the address of a VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T or null in pv_arg2; the platform's own otherwise, with
 * an integer in pv_arg1. The others are reserved. Returns 0. */
TVAPI_CALLBACK(INT32, a_vextvapi_config_nfy_fct, IN(INT32, notify_id), TAG(void*, pv_tag), IN(void*, pv_arg1),
               IN_ADDRESS(VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T, pv_arg2), IN(void*, pv_arg3), IN(void*, pv_arg4))

/* Reads an integer. input_group: input whose own value is meant, -1 for the set's. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_get_value, IN(INT32, input_group), IN_TEXT(key), OUT(INT32, value))

/* Writes an integer. update_flag: what the platform does besides keeping the value. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_set_value, IN(INT32, input_group), IN_TEXT(key), IN(INT32, value),
         IN(INT32, update_flag))

/* Reads a text. length: room in characters going in, the text's length coming out. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_get_str_value, IN_TEXT(key), OUT_TEXT(value, length), INOUT(UINT32, length))

/* Writes a text. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_set_str_value, IN_TEXT(key), IN_TEXT(value))

/* Reads the limits of an integer: the low 16 bits are the smallest value, the high 16 bits the largest, both signed.
 * Returns 0; anything else for a key without limits. */
TVAPI_FN(INT32, a_vextvapi_config_get_minmaxvalue, IN(INT32, input_group), IN_TEXT(key), OUT(INT32, limits))

/* Asks to be told of changes of one key, by the registered callback. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_add_value_changed_callback, IN_TEXT(key))

/* Registers the callback. One subscriber; a later call replaces the earlier. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_reg_callback, CALLBACK(a_vextvapi_config_nfy_fct, callback), TAG(void*, tag))

/* Read by item id. Return 0, negative on failure. */
TVAPI_FN(INT32, getConfigValueBool, IN(UINT32, item_id), OUT(UINT8, value))
TVAPI_FN(INT32, getConfigValueInt32, IN(UINT32, item_id), OUT(INT32, value))

/* Reads a text by item id. length as above. Item 0x07240005 is a look-up: the buffer holds what is looked up.
 * Returns 0, negative on failure. */
TVAPI_FN(INT32, getConfigValueString, IN(UINT32, item_id), INOUT(UINT32, length), INOUT_TEXT(value, length))

/* Triggers an action item. Returns 0, negative on failure. */
TVAPI_FN(INT32, setConfigValue, IN(UINT32, item_id))

/* Write by item id. Return 0, negative on failure. */
TVAPI_FN(INT32, setConfigValueBool, IN(UINT32, item_id), IN(UINT8, value))
TVAPI_FN(INT32, setConfigValueInt32, IN(UINT32, item_id), IN(INT32, value))
TVAPI_FN(INT32, setConfigValueString, IN(UINT32, item_id), IN_TEXT(value))

#include "tvapi/end.h"
