/* HDMI-CEC: the devices on the HDMI inputs and what they say. */
#ifndef TVAPI_CEC_TYPES_H
#define TVAPI_CEC_TYPES_H

#include "tvapi/types.h"

/* Logical addresses of the bus that somebody here needs by name. */
enum { CECM_LOG_ADDR_TV = 0, CECM_LOG_ADDR_REC_DEV_1 = 1, CECM_LOG_ADDR_FREE_USE = 14 };

typedef struct {
  UINT8 b_enable;
  UINT8 ui1_hdmi_port_num; /* HDMI inputs of the set */
} CECM_SET_CEC_FCT_PARAMS_T;

/* Which logical addresses are polled, and how. */
typedef struct {
  INT32 e_start_la;
  INT32 e_stop_la;
  UINT32 ui4_itvl; /* between two polls; 0: the platform's own */
  UINT8 b_batch_polling;
} CECM_DEV_DISCOVERY_T;

typedef union {
  INT32 e_msgcode; /* of the CEC manager's own events */
  INT32 e_opcode;  /* of a message on the bus */
} CECM_NFY_CODE_T;

/* An event. What the data words hold depends on the event. */
typedef struct {
  INT32 e_sent_la;     /* logical address of the sender */
  INT32 e_sent_opcode; /* what the event answers */
  INT32 e_nfy_type;
  INT32 e_brdcst_type;
  UINT32 ui4_attr;
  CECM_NFY_CODE_T u_code;
  UINT32 u_data[10];
} CECM_NFY_T;

#endif

#include "tvapi/begin.h"

/* Called by the platform, on a thread of its own, after an event. */
TVAPI_CALLBACK(INT32, a_vextvapi_cec_nfy_fct, IN(INT32, nfy_tag), IN_RECORD(CECM_NFY_T, nfy), TAG(void*, pv_tag),
               IN(UINT32, data))

/* All return 0, negative on failure. */

/* Asks to be told of every event. One subscriber; a later call replaces the earlier. */
TVAPI_FN(INT32, a_vextvapi_cec_mw_reg_callback, CALLBACK(a_vextvapi_cec_nfy_fct, callback), TAG(void*, tag))

/* Whether CEC is on (1) or off (0), as the viewer set it. */
TVAPI_FN(INT32, a_vextvapi_cec_get_cec_func, OUT(UINT8, func))
TVAPI_FN(INT32, a_vextvapi_cec_set_cec_func, IN(UINT8, func))

/* How many HDMI inputs the set has. */
TVAPI_FN(INT32, a_vextvapi_cec_get_hdmi_port_num, OUT(UINT8, port_num))

/* Switches the CEC manager on or off. */
TVAPI_FN(INT32, a_vextvapi_cec_set_cec_fct, IN(CECM_SET_CEC_FCT_PARAMS_T, params))

/* Tells the CEC manager that its subscriber is ready (1). */
TVAPI_FN(INT32, a_vextvapi_cec_signal_cec_ready, IN(UINT8, ready))

/* Starts looking for devices; what is found comes as events. */
TVAPI_FN(INT32, a_vextvapi_cec_start_dev_discovery_ex, IN_RECORD(CECM_DEV_DISCOVERY_T, request))

#include "tvapi/end.h"
