// Configuration values, language strings and configuration changes.
#ifndef VEX_TV_CTRL_CONFIG_H
#define VEX_TV_CTRL_CONFIG_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_CONFIG {
  char cfg_id[128];   // the key; empty: cfg_item names the item
  UINT32 cfg_item;    // numeric item id
  INT32 input_group;  // not used
  INT32 update_flag;  // not used
  INT32 valuemin;     // smallest value, when a range is read; both limits 0: unknown
  INT32 valuemax;     // largest value
  INT32 valueint;     // an integer, or a boolean as 0 and 1
  char valuestring[1024];
};
TVC_RECORD(T_CONFIG, cfg_id, cfg_item, input_group, update_flag, valuemin, valuemax, valueint, valuestring)

struct T_LANG_STRING {
  char lang_id[256];       // identifier of the requested text
  char lang_string[1024];  // the text in the menu language; empty: the language does not have it
};
TVC_RECORD(T_LANG_STRING, lang_id, lang_string)

struct T_CONFIG_NOTIFY {
  INT32 id;  // the platform's notify id
  INT32 tag;
  INT32 arg1;     // argument of another event; 0 for a changed value
  char arg2[65];  // key of the changed value
};
TVC_RECORD(T_CONFIG_NOTIFY, id, tag, arg1, arg2)

#endif
