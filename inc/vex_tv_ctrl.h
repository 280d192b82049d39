// Identifiers, item types, content records and status codes that the plugin, its handlers and its tests share.
#ifndef VEX_TV_CTRL_H
#define VEX_TV_CTRL_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/channel.h"
#include "vex_tv_ctrl/ci.h"
#include "vex_tv_ctrl/config.h"
#include "vex_tv_ctrl/event.h"
#include "vex_tv_ctrl/generic.h"
#include "vex_tv_ctrl/media.h"
#include "vex_tv_ctrl/network.h"
#include "vex_tv_ctrl/scan.h"
#include "vex_tv_ctrl/usb.h"
#include "vex_tv_ctrl/volume.h"

// A URI's identifier: high byte the group, low byte the record within the group.
constexpr UINT16 tvc_id(int group, int record) { return static_cast<UINT16>(group << 8 | record); }
constexpr int tvc_group(UINT16 ui2_id) { return ui2_id >> 8; }
constexpr int tvc_record(UINT16 ui2_id) { return ui2_id & 0xFF; }

// TV_CTRL_GRPID_<group>: what a URI is about; it selects the handler.
enum TVC_GROUP_ID : UINT8 {
#define TVC_GROUP(group, number, enumeration) TV_CTRL_GRPID_##group = number,
#define TVC_URI(group, record, name, uri, type)
#define TVC_GROUP_END(group)
#include "vex_tv_ctrl/uris.def"
#undef TVC_GROUP
#undef TVC_URI
#undef TVC_GROUP_END
};

// TV_CTRL_RECID_<name>: one enumeration of record numbers per group.
#define TVC_GROUP(group, number, enumeration) enum enumeration : UINT8 {
#define TVC_URI(group, record, name, uri, type) TV_CTRL_RECID_##name = record,
#define TVC_NAME(group, record, name) TV_CTRL_RECID_##name = record,
#define TVC_GROUP_END(group) \
  }                          \
  ;
#include "vex_tv_ctrl/uris.def"
#undef TVC_GROUP
#undef TVC_URI
#undef TVC_GROUP_END

// What a URI carries: which record, which JSON. One unsigned byte in the registry.
enum TV_CTRL_ITEM_TYPE : UINT8 {
#define TVC_ITEM_TYPE(name, number) TYPE_##name = number,
#include "vex_tv_ctrl/item_types.def"
#undef TVC_ITEM_TYPE
};

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

// Kinds of values in configuration records.
enum VAL_TYPE : INT32 { VAL_INT = 0, VAL_INT64 = 1, VAL_STRING = 2, VAL_WSTRING = 3 };

#endif
