// The generic content records: one value, text, list or time with a name.
#ifndef VEX_TV_CTRL_GENERIC_H
#define VEX_TV_CTRL_GENERIC_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

// The fields that every generic record begins with.
#define TVC_HEADER                                                   \
  int id;        /* the item's identifier, as the handler sets it */ \
  int size;      /* size of the record in bytes, or 0 */             \
  void* pt_next; /* unused, null */                                  \
  char name[32]; /* display name, NUL-terminated */                  \
  int group;     /* group number */                                  \
  int state;     /* 1: available */

#define TVC_HEADER_MEMBERS id, size, pt_next, name, group, state

struct T_ACTION {
  TVC_HEADER
};
TVC_RECORD(T_ACTION, TVC_HEADER_MEMBERS)

struct T_VALUE {
  TVC_HEADER
  int min_value;
  int max_value;
  int increment;
  int value;
};
TVC_RECORD(T_VALUE, TVC_HEADER_MEMBERS, min_value, max_value, increment, value)

struct T_INTEGER {
  TVC_HEADER
  int value;
};
TVC_RECORD(T_INTEGER, TVC_HEADER_MEMBERS, value)

struct T_TINT {
  TVC_HEADER
  int min_value;
  int max_value;
  int increment;
  int center;
  int value;
};
TVC_RECORD(T_TINT, TVC_HEADER_MEMBERS, min_value, max_value, increment, center, value)

struct T_TEXT {
  TVC_HEADER
  char value[1024];
};
TVC_RECORD(T_TEXT, TVC_HEADER_MEMBERS, value)

struct T_TEXT_16 {
  TVC_HEADER
  UINT16 value[1024];
};
TVC_RECORD(T_TEXT_16, TVC_HEADER_MEMBERS, value)

struct T_OPTION_LIST {
  TVC_HEADER
  char element[1024];  // the option texts
  int value;           // index of the selected option
};
TVC_RECORD(T_OPTION_LIST, TVC_HEADER_MEMBERS, element, value)

struct T_TIME_DTG {
  UINT16 ui2_yr;
  UINT8 ui1_mo;
  UINT8 ui1_day;
  UINT8 ui1_dow;  // day of week
  UINT8 ui1_hr;
  UINT8 ui1_min;
  UINT8 ui1_sec;
  int b_gmt;  // flag
  int b_dst;  // flag
};
TVC_RECORD(T_TIME_DTG, ui2_yr, ui1_mo, ui1_day, ui1_dow, ui1_hr, ui1_min, ui1_sec, b_gmt, b_dst)

struct T_TIME {
  TVC_HEADER
  INT64 value;  // in seconds, or in the platform's unit of the item
  T_TIME_DTG dtg;
};
TVC_RECORD(T_TIME, TVC_HEADER_MEMBERS, value, dtg)

struct T_BANNER_ITEM {
  TVC_HEADER
  int item_id;
  int item_state;
  char item_content[1024];
};
TVC_RECORD(T_BANNER_ITEM, TVC_HEADER_MEMBERS, item_id, item_state, item_content)

#endif
