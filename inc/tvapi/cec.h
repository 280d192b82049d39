/* HDMI-CEC: the devices on the HDMI inputs, and their messages. */
#ifndef TVAPI_CEC_TYPES_H
#define TVAPI_CEC_TYPES_H

#include "tvapi/types.h"

/* Logical addresses of the bus. It has more than these. */
enum { CECM_LOG_ADDR_TV = 0, CECM_LOG_ADDR_REC_DEV_1 = 1, CECM_LOG_ADDR_FREE_USE = 14 };

typedef struct {
  UINT8 b_enable;
  UINT8 ui1_hdmi_port_num; /* HDMI inputs of the set */
} CECM_SET_CEC_FCT_PARAMS_T;

/* Which logical addresses are polled, and how. */
typedef struct {
  INT32 e_start_la;
  INT32 e_stop_la;
  UINT32 ui4_itvl;       /* ms between two polls; 0: as close as the bus takes them */
  UINT8 b_batch_polling; /* 1: asks the devices that answer only when all addresses have been polled */
} CECM_DEV_DISCOVERY_T;

/* e_nfy_type: the origin of an event. */
enum {
  CECM_NFY_TYPE_OPCODE = 0, /* a message on the bus; u_code.e_opcode is its opcode */
  CECM_NFY_TYPE_MSGCODE = 1 /* the CEC manager's own; u_code.e_msgcode is one of those below */
};

/* e_brdcst_type: the receiver of a message. */
enum { CECM_BRDCST_TYPE_DIRECT = 0 /* to the set */, CECM_BRDCST_TYPE_BROADCAST = 1 /* to everybody */ };

/* u_code.e_msgcode */
enum {
  CECM_MSGCODE_DEV_LST = 1, /* a discovery has ended; ui4_attr has a bit for each logical address with a device */
  CECM_MSGCODE_5V_PWR = 2   /* a device was plugged in or pulled out, by the 5 V that an input carries */
};

/* Whether a list of devices differs from the previous list. */
enum { CECM_DEV_LST_UNCHANGED = 0, CECM_DEV_LST_CHANGED = 1 };

/* What a device wants with one touch play: its picture in place of everything, or with text left over it. */
enum { CECM_ONE_TOUCH_IMAGE_VIEW = 1, CECM_ONE_TOUCH_TEXT_VIEW = 2 };

/* A physical address is 16 bits of four digits, 0x1200 for 1.2.0.0. Its input is its first digit: 0 the set itself, n
 * for HDMI n. HDMI n is component n; the set itself and what is unknown are component 0. */
enum { CECM_PHY_ADDR_UNKNOWN = 0xFFFF, CECM_INPUT_UNKNOWN = 0xF, CECM_COMP_ID_NONE = 0 };

typedef union {
  INT32 e_msgcode; /* of the CEC manager's own events */
  INT32 e_opcode;  /* of a message on the bus, as HDMI-CEC numbers it */
} CECM_NFY_CODE_T;

/* An event. What the data words hold depends on the event. */
typedef struct {
  INT32 e_sent_la;     /* logical address of the sender; the set's for the CEC manager's own events */
  INT32 e_sent_opcode; /* opcode of the set's message that this one answers; 0 when it answers none */
  INT32 e_nfy_type;
  INT32 e_brdcst_type;
  UINT32 ui4_attr; /* of a message: its number of operand bytes */
  CECM_NFY_CODE_T u_code;
  UINT32 u_data[10];
} CECM_NFY_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(CECM_SET_CEC_FCT_PARAMS_T, b_enable, ui1_hdmi_port_num)
TVAPI_RECORD(CECM_DEV_DISCOVERY_T, e_start_la, e_stop_la, ui4_itvl, b_batch_polling)
TVAPI_UNION(CECM_NFY_CODE_T, e_msgcode, e_opcode)
TVAPI_RECORD(CECM_NFY_T, e_sent_la, e_sent_opcode, e_nfy_type, e_brdcst_type, ui4_attr, u_code, u_data)

/* Called by the platform, on a thread of its own, after an event. */
TVAPI_CALLBACK(INT32, a_vextvapi_cec_nfy_fct, IN(INT32, nfy_tag), IN_RECORD(CECM_NFY_T, nfy), TAG(void*, pv_tag),
               IN(UINT32, data))

/* All return 0, negative on failure. */

/* Subscribes to every event. There is one subscriber: a later call replaces the earlier one. */
TVAPI_FN(INT32, a_vextvapi_cec_mw_reg_callback, CALLBACK(a_vextvapi_cec_nfy_fct, callback), TAG(void*, tag))

/* Get and set whether CEC is on (1) or off (0), as the viewer wants it. */
TVAPI_FN(INT32, a_vextvapi_cec_get_cec_func, OUT(UINT8, func))
TVAPI_FN(INT32, a_vextvapi_cec_set_cec_func, IN(UINT8, func))

/* Gets the number of HDMI inputs of the set. */
TVAPI_FN(INT32, a_vextvapi_cec_get_hdmi_port_num, OUT(UINT8, port_num))

/* Switches the CEC manager on or off. */
TVAPI_FN(INT32, a_vextvapi_cec_set_cec_fct, IN(CECM_SET_CEC_FCT_PARAMS_T, params))

/* Signals to the CEC manager that its subscriber is ready (1). */
TVAPI_FN(INT32, a_vextvapi_cec_signal_cec_ready, IN(UINT8, ready))

/* Starts the discovery of devices. The platform reports those that it finds as events. */
TVAPI_FN(INT32, a_vextvapi_cec_start_dev_discovery_ex, IN_RECORD(CECM_DEV_DISCOVERY_T, request))

#include "tvapi/end.h"
