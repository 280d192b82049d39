// Status codes of handlers and requests.
#ifndef VEX_TV_CTRL_STATUS_H
#define VEX_TV_CTRL_STATUS_H

#include "tvapi/types.h"

// Two families of status codes in one enumeration: what handlers return, and what becomes of a request.
enum VEX_RET_VALUE : INT32 {
  VEXTVCTRLR_OK = 0,
  VEXTVCTRLR_FAIL = -1,           // the platform failed, or nothing serves the request
  VEXTVCTRLR_INV_ARG = -2,        // bad argument, wrong group or missing record
  VEXTVCTRLR_NOT_IMPLEMENT = -3,  // not supported
  VEXTVCTRLR_OUT_OF_MEMORY = -4,
  VEXTVCTRLR_INV_URI = -5,
  VEXTVCTRLR_DUPLICATE = -6,
  VEXTVCTRLR_NOT_SUPPORT = -7,  // not readable

  VEX_OK = 0,
  VEX_INVALID_METHOD = 1,
  VEX_INVALID_PARAM = 2,
  VEX_INVALID_URI = 3,
  VEX_GET_FAIL = 4,
  VEX_MODIFY_ERR_OLD_VALUE = 5,
  VEX_MODIFY_FAIL = 6,
  VEX_MODIFIED = 7,
  VEX_ASSOCIATE_BEGIN = 8,
  VEX_ACTION_FAIL = 9,
  VEX_DUPLICATE = 10,
  VEX_REQ_TYPE_NOT_MATCH = 11,
  VEX_ASSOCIATE_FAIL = 12,
  VEX_USB_SCANNING = 13,
  VEX_USB_DISABLE_AUTO_JUMP = 14,
  VEX_SET_FAIL = 15,
};

#endif
