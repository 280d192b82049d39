// A made-up contract (demo_*) for the tests of the tap and of the fuzzer's platform: every kind of parameter, in the
// combinations that the TV API has.
#ifndef TAP_CONTRACT_TYPES
#define TAP_CONTRACT_TYPES

#include "tvapi/types.h"

enum DEMO_COLOUR : INT32 { DEMO_RED = 0, DEMO_GREEN = 7 };

enum { DEMO_TOLD_WORD = 19, DEMO_TOLD_POINT = -1 };

struct DEMO_POINT {
  INT16 x;
  INT16 y;
};

struct DEMO_BOX {
  DEMO_POINT corner;
  char name[8];
  UINT16 wide_name[4];
  UINT8 bytes[3];
  INT64 size;
  DEMO_COLOUR colour;
  DEMO_POINT marks[2];
  const char* comment;
  void* link;
};

struct DEMO_PARCEL {
  UINT8 number;
  double weight;
};

union DEMO_CODE {
  UINT8 opcode;
  UINT16 reason;
};

struct DEMO_EVENT {
  INT32 type;
  DEMO_CODE u_code;
  UINT32 u_data[2];
};

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(DEMO_POINT, x, y)
TVAPI_RECORD(DEMO_BOX, corner, name, wide_name, bytes, size, colour, marks, comment, link)
TVAPI_RECORD(DEMO_PARCEL, number, weight)
TVAPI_UNION(DEMO_CODE, opcode, reason)
TVAPI_RECORD(DEMO_EVENT, type, u_code, u_data)
TVAPI_ITEM(0x5EED01, DEMO_POINT)
TVAPI_ITEM(0x5EED02, DEMO_BOX)

TVAPI_CALLBACK(INT32, demo_changed_fct, IN(INT32, callback_type), TAG(void*, pv_tag), IN(void*, pv_arg1),
               IN(void*, pv_arg2))
TVAPI_CALLBACK(INT32, demo_item_fct, TAG(UINT32, tag), IN_TEXT(name), IN_RECORD(DEMO_BOX, box),
               IN_ARRAY(INT16, values, count), IN(INT32, count))
TVAPI_CALLBACK(void, demo_done_fct, IN(INT64, number), TAG(UINT32, tag))
TVAPI_CALLBACK(INT32, demo_told_fct, IN(INT32, type), IN_ADDRESS(char, word, type, DEMO_TOLD_WORD),
               IN_ADDRESS(DEMO_POINT, point, later_type, DEMO_TOLD_POINT), IN(INT16, later_type), IN(double, weight))

TVAPI_FN(INT32, demo_set, IN(INT16, value), IN(UINT8, flag))
TVAPI_FN(INT64, demo_wide, IN(UINT64, value))
TVAPI_FN(INT32, demo_colour, IN(DEMO_COLOUR, e_colour))
TVAPI_FN(UINT32, demo_open, IN_TEXT(path))
TVAPI_FN(void, demo_nothing)
TVAPI_FN(const char*, demo_title, IN(UINT32, handle))
TVAPI_FN(INT32, demo_get_text, IN_TEXT(key), OUT_TEXT(text, length), INOUT(UINT32, length))
TVAPI_FN(INT32, demo_get_short_text, OUT_TEXT(text, 8))
TVAPI_FN(INT32, demo_look_up, INOUT(UINT32, length), INOUT_TEXT(text, length))
TVAPI_FN(INT32, demo_get_box, IN(UINT32, id), OUT(DEMO_BOX, box))
TVAPI_FN(INT32, demo_put_box, IN_RECORD(DEMO_BOX, box))
TVAPI_FN(INT32, demo_get_number, OUT(INT32, number))
TVAPI_FN(INT32, demo_count, INOUT(INT32, number))
TVAPI_FN(INT32, demo_list, OUT_ARRAY(DEMO_POINT, points, count), INOUT(INT32, count))
TVAPI_FN(INT32, demo_wide_text, OUT_ARRAY(UINT16, text, size), IN(INT32, size))
TVAPI_FN(INT32, demo_sum, IN_ARRAY(INT32, values, count), IN(INT32, count))
TVAPI_FN(INT32, demo_event, OUT(DEMO_EVENT, event))
TVAPI_FN(INT32, demo_ask_item, IN(UINT32, item_id), INOUT_ITEM(value, item_id))
TVAPI_FN(INT32, demo_put_item, IN(UINT32, item_id), IN_ITEM(value, item_id))
TVAPI_FN(INT32, demo_weigh, IN(double, weight), OUT(double, total))
TVAPI_FN(INT32, demo_send_parcel, IN_RECORD(DEMO_PARCEL, parcel))
TVAPI_FN(INT32, demo_get_parcel, OUT(DEMO_PARCEL, parcel))
TVAPI_FN(INT32, demo_register, CALLBACK(demo_changed_fct, callback), TAG(void*, tag))
TVAPI_FN(INT32, demo_register_item, IN(INT32, id), CALLBACK(demo_item_fct, callback), TAG(UINT32, tag))
TVAPI_FN(INT32, demo_register_done, CALLBACK(demo_done_fct, callback), TAG(UINT32, tag))
TVAPI_FN(INT32, demo_register_told, CALLBACK(demo_told_fct, callback))

#include "tvapi/end.h"
