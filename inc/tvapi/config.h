/* The configuration store: values by key ("g_gui_lang__gui_language") or by numeric item id. Keys, ids, ranges and what
 * they mean are the platform's. */
#ifndef TVAPI_CONFIG_TYPES_H
#define TVAPI_CONFIG_TYPES_H

#include "tvapi/types.h"

/* input_group: the value is the set's, and not that of one input. */
enum { VEXTVAPI_CONFIG_EVERY_INPUT = -1 };

/* update_flag: what the platform does with a value that is written. */
enum {
  VEXTVAPI_CONFIG_KEEP = 0,  /* stores it, and does nothing else */
  VEXTVAPI_CONFIG_UPDATE = 3 /* stores it, and applies the change */
};

/* Item ids. The platform has more than these. */
enum {
  VEXTVAPI_CONFIG_ITEM_LOOK_UP = 0x07240005 /* a text that is looked up; see getConfigValueString */
};

/* Longest text, in characters, that VEXTVAPI_CONFIG_ITEM_LOOK_UP looks up. */
enum { VEXTVAPI_CONFIG_LOOK_UP_LENGTH = 30 };

/* notify_id of a changed value. */
enum { VEXTVAPI_CONFIG_NFY_VALUE_CHANGED = -1 };

/* A value has changed. */
typedef struct {
  char s_cfg[51]; /* its key */
} VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T, s_cfg)

/* Called by the platform, on a thread of its own, for the subscribed keys. notify_id:
 * VEXTVAPI_CONFIG_NFY_VALUE_CHANGED, and pv_arg2 is then the address of a VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T or null; or
 * an event of the platform's own, and pv_arg1 is then an integer. The other arguments are reserved. Returns 0. */
TVAPI_CALLBACK(INT32, a_vextvapi_config_nfy_fct, IN(INT32, notify_id), TAG(void*, pv_tag), IN(void*, pv_arg1),
               IN_ADDRESS(VEXTVAPI_CFG_VAL_CHG_NFY_DATA_T, pv_arg2, notify_id == VEXTVAPI_CONFIG_NFY_VALUE_CHANGED),
               IN(void*, pv_arg3), IN(void*, pv_arg4))

/* Reads an integer. input_group: the input whose value is read, or VEXTVAPI_CONFIG_EVERY_INPUT. Returns 0, negative on
 * failure. */
TVAPI_FN(INT32, a_vextvapi_config_get_value, IN(INT32, input_group), IN_TEXT(key), OUT(INT32, value))

/* Writes an integer. update_flag: VEXTVAPI_CONFIG_KEEP or VEXTVAPI_CONFIG_UPDATE. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_set_value, IN(INT32, input_group), IN_TEXT(key), IN(INT32, value),
         IN(INT32, update_flag))

/* Reads a text. length: on input the buffer's size in characters, on output the text's length. Returns 0, negative on
 * failure. */
TVAPI_FN(INT32, a_vextvapi_config_get_str_value, IN_TEXT(key), OUT_TEXT(value, length), INOUT(UINT32, length))

/* Writes a text. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_set_str_value, IN_TEXT(key), IN_TEXT(value))

/* Reads the limits of an integer: the low 16 bits are the smallest value, the high 16 bits the largest, both signed.
 * Returns 0; anything else for a key without limits. */
TVAPI_FN(INT32, a_vextvapi_config_get_minmaxvalue, IN(INT32, input_group), IN_TEXT(key), OUT(INT32, limits))

/* Subscribes the registered callback to changes of one key. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_add_value_changed_callback, IN_TEXT(key))

/* Registers the callback. A later call replaces it. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_config_reg_callback, CALLBACK(a_vextvapi_config_nfy_fct, callback), TAG(void*, tag))

/* Read by item id. Return 0, negative on failure. */
TVAPI_FN(INT32, getConfigValueBool, IN(UINT32, item_id), OUT(UINT8, value))
TVAPI_FN(INT32, getConfigValueInt32, IN(UINT32, item_id), OUT(INT32, value))

/* Reads a text by item id. length: as above. VEXTVAPI_CONFIG_ITEM_LOOK_UP looks up a text: on input the buffer holds
 * that text, and bytes of value 1 up to its end; on output it holds the text that was found. Returns 0, negative on
 * failure. */
TVAPI_FN(INT32, getConfigValueString, IN(UINT32, item_id), INOUT(UINT32, length), INOUT_TEXT(value, length))

/* Reads the record of a structured item; what it holds going in is the question. length: its length, which is the
 * item's, going in and coming out. Returns 0, negative on failure. */
TVAPI_FN(INT32, getConfigValueStruct, IN(UINT32, item_id), INOUT(UINT32, length), INOUT_ITEM(value, item_id))

/* Triggers an action item. Returns 0, negative on failure. */
TVAPI_FN(INT32, setConfigValue, IN(UINT32, item_id))

/* Write by item id. Return 0, negative on failure. */
TVAPI_FN(INT32, setConfigValueBool, IN(UINT32, item_id), IN(UINT8, value))
TVAPI_FN(INT32, setConfigValueInt32, IN(UINT32, item_id), IN(INT32, value))
TVAPI_FN(INT32, setConfigValueString, IN(UINT32, item_id), IN_TEXT(value))
TVAPI_FN(INT32, setConfigValueStruct, IN(UINT32, item_id), IN(UINT32, length), IN_ITEM(value, item_id))

#include "tvapi/end.h"
