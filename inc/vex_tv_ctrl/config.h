// Configuration values, language strings and configuration changes.
#ifndef VEX_TV_CTRL_CONFIG_H
#define VEX_TV_CTRL_CONFIG_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

struct T_CONFIG {
  char cfg_id[128];   // the key; empty: the item is named by cfg_item
  UINT32 cfg_item;    // numeric item id
  INT32 input_group;  // not used
  INT32 update_flag;  // not used
  INT32 valuemin;     // limits, when a range is read; 0 and 0: not told
  INT32 valuemax;
  INT32 valueint;  // an integer, or a boolean as 0 and 1
  char valuestring[1024];
};
TVC_RECORD(T_CONFIG, cfg_id, cfg_item, input_group, update_flag, valuemin, valuemax, valueint, valuestring)

struct T_LANG_STRING {
  char lang_id[256];       // of the text asked for
  char lang_string[1024];  // the text in the menu's language; empty: the language has none
};
TVC_RECORD(T_LANG_STRING, lang_id, lang_string)

struct T_CONFIG_NOTIFY {
  INT32 id;  // the platform's notify id
  INT32 tag;
  INT32 arg1;
  char arg2[65];  // the changed key
};
TVC_RECORD(T_CONFIG_NOTIFY, id, tag, arg1, arg2)

#endif
