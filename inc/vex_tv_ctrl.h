// Identifiers, item types, content records and status codes that the plugin, its handlers and its tests share.
#ifndef VEX_TV_CTRL_H
#define VEX_TV_CTRL_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/apps.h"
#include "vex_tv_ctrl/cec.h"
#include "vex_tv_ctrl/channel.h"
#include "vex_tv_ctrl/ci.h"
#include "vex_tv_ctrl/config.h"
#include "vex_tv_ctrl/dlna.h"
#include "vex_tv_ctrl/event.h"
#include "vex_tv_ctrl/generic.h"
#include "vex_tv_ctrl/input.h"
#include "vex_tv_ctrl/media.h"
#include "vex_tv_ctrl/multiview.h"
#include "vex_tv_ctrl/network.h"
#include "vex_tv_ctrl/playback.h"
#include "vex_tv_ctrl/pus.h"
#include "vex_tv_ctrl/pvr.h"
#include "vex_tv_ctrl/scan.h"
#include "vex_tv_ctrl/status.h"
#include "vex_tv_ctrl/usb.h"
#include "vex_tv_ctrl/volume.h"

// A URI's identifier: high byte the group, low byte the record within the group.
constexpr UINT16 tvc_id(int group, int record) { return static_cast<UINT16>(group << 8 | record); }
constexpr int tvc_group(UINT16 ui2_id) { return ui2_id >> 8; }
constexpr int tvc_record(UINT16 ui2_id) { return ui2_id & 0xFF; }

// TV_CTRL_GRPID_<group>: the group of a URI, which selects the handler.
enum TVC_GROUP_ID : UINT8 {
#define TVC_GROUP(group, number, enumeration) TV_CTRL_GRPID_##group = number,
#include "vex_tv_ctrl/uris.def"
};

// TV_CTRL_RECID_<name>: one enumeration of record numbers per group.
#define TVC_GROUP(group, number, enumeration) enum enumeration : UINT8 {
#define TVC_URI(group, record, name, uri, type) TV_CTRL_RECID_##name = record,
#define TVC_NAME(group, record, name) TV_CTRL_RECID_##name = record,
#define TVC_GROUP_END(group) \
  }                          \
  ;
#include "vex_tv_ctrl/uris.def"

// The item type of a URI, which selects the content record and its JSON. One unsigned byte in the registry.
enum TV_CTRL_ITEM_TYPE : UINT8 {
#define TVC_ITEM_TYPE(name, number) TYPE_##name = number,
#include "vex_tv_ctrl/uris.def"
};

// Kinds of values in configuration records.
enum VAL_TYPE : INT32 { VAL_INT = 0, VAL_INT64 = 1, VAL_STRING = 2, VAL_WSTRING = 3 };

#endif
