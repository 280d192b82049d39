/* Applications of the set: HbbTV, the internet portal, its own menus, shop demonstrations. */
#ifndef TVAPI_APPS_TYPES_H
#define TVAPI_APPS_TYPES_H

#include "tvapi/types.h"

/* ui4_func_type of a message to the HbbTV engine. The platform has more functions than these. */
enum {
  VEXTVAPI_HBBTV_FUNC_ENABLE = 1,     /* ui4_value: 1 switches HbbTV on, 0 off */
  VEXTVAPI_HBBTV_FUNC_APPLICATION = 4 /* ui4_value: the application's type; s_uri: its address */
};

/* ui4_length of a message about an application, and of any other message. */
enum { VEXTVAPI_HBBTV_LENGTH_APPLICATION = 260, VEXTVAPI_HBBTV_LENGTH = 392 };

/* A message to the HbbTV engine, and its answer. */
typedef struct {
  UINT32 ui4_length;    /* bytes of the message that follow the first two words */
  UINT32 ui4_func_type; /* which function */
  UINT32 ui4_value;     /* its argument: the application's type, or whether HbbTV is enabled */
  char s_uri[256];      /* the application's address */
  UINT32 ui4_reserved[33];
} VEXTVAPI_HBBTV_DATA_T;

/* A mode that a_net_get_app_mode may return beside those that the portal can be started in. */
enum { VEXTVAPI_APP_MODE_VIDEO = 9 /* the video application */ };

/* The arguments of a_vextvapi_util_set that reset the set to its factory state. */
enum {
  VEXTVAPI_UTIL_CLEAN_ALL_TYPE = 0,
  VEXTVAPI_UTIL_CLEAN_ALL_ID = 2,
  VEXTVAPI_UTIL_CLEAN_ALL_VALUE = 1,
  VEXTVAPI_UTIL_CLEAN_ALL_FLAG = 0
};

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(VEXTVAPI_HBBTV_DATA_T, ui4_length, ui4_func_type, ui4_value, s_uri, ui4_reserved)

/* Exchanges one message with the HbbTV engine. words: size of the block, in 32-bit words. Returns 0, negative on
 * failure. */
TVAPI_FN(INT32, a_vextvapi_hbbtv_exchange_data, INOUT(VEXTVAPI_HBBTV_DATA_T, block), IN(UINT32, words))

/* Starts the portal in a mode. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_portal_start_ex, IN(UINT8, mode))

/* Leaves the portal for a reason. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_portal_pause_ex, IN(UINT8, reason))

/* Sets the address that the portal opens in its mode EDFU (7). Returns 0, negative on failure. */
TVAPI_FN(INT32, a_set_edfu_url, IN_TEXT(url))

/* Returns the current mode of the portal. */
TVAPI_FN(INT32, a_net_get_app_mode)

/* Starts one of the set's own applications. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_util_start_native_app, IN(INT32, index))

/* Runs a maintenance job. All arguments together name the job: see VEXTVAPI_UTIL_CLEAN_ALL_... above. Returns 0,
 * negative on failure. */
TVAPI_FN(INT32, a_vextvapi_util_set, IN(INT32, type), IN(INT32, id), IN(INT32, value), IN(INT32, flag))

/* Look whether a USB path has a demonstration for the shop, or an e-banner. flag: 0 if it has none. Return 0, negative
 * on failure. */
TVAPI_FN(INT32, a_vextvapi_util_is_jump_super_shop_demo, IN_TEXT(path), OUT(UINT8, flag))
TVAPI_FN(INT32, a_vextvapi_util_is_jump_ebanner, IN_TEXT(path), OUT(UINT8, flag))

#include "tvapi/end.h"
