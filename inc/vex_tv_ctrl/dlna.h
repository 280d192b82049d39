// The home network: items of servers, the set as a renderer, and the events of both.
#ifndef VEX_TV_CTRL_DLNA_H
#define VEX_TV_CTRL_DLNA_H

#include "tvapi/dlna.h"
#include "vex_tv_ctrl/media.h"
#include "vex_tv_ctrl/record.h"

struct T_DMP_SUB_ITEM {
  int subItemNum;
  T_DMP_INST_CONTAINER container[DMP_LIST_MAX];
};
TVC_RECORD(T_DMP_SUB_ITEM, subItemNum, container)

struct T_DMP_META_DATA {
  INT32 mediaType;
  char mediaName[128];
  char mediaExtension[8];
  char mediaArtist[128];
  char mediaAlbum[128];
  int mediaSize;
  T_DATE_TIME mediaDate;
  char mediaResolution[32];
  char mediaDuration[21];
};
TVC_RECORD(T_DMP_META_DATA, mediaType, mediaName, mediaExtension, mediaArtist, mediaAlbum, mediaSize, mediaDate,
           mediaResolution, mediaDuration)

struct T_DMP_INST_INFO {
  int obj_id;       // object of the server
  UINT32 obj_inst;  // handle of the item; 0: none
  char file_obj_id[256];
  int parent_dev_id;
  char parent_id[256];
  char thumbnail_local_path[256];
  char local_path[256];
  int media_type;  // in the platform's numbers, such as DLNA_MEDIA_CONTAINER
  // The number of a container's children shares its place with mediaType, so that a container has a name as well.
  union {
    T_DMP_SUB_ITEM subItem;
    T_DMP_META_DATA mediaMetaData;
  } u;
};
TVC_UNION(decltype(T_DMP_INST_INFO::u), subItem, mediaMetaData)
TVC_RECORD(T_DMP_INST_INFO, obj_id, obj_inst, file_obj_id, parent_dev_id, parent_id, thumbnail_local_path, local_path,
           media_type, u)

// A request about a server or one of its items.
struct T_DLNA_DMP {
  int dev_id;  // device of the server
  int real_dev_id;
  int dmsType;  // in the platform's numbers
  int isWakable;
  int startIdx;    // first child to list, from 0
  int requestNum;  // children to list, at most DMP_LIST_MAX
  T_DMP_INST_INFO mediaInfo;
};
TVC_RECORD(T_DLNA_DMP, dev_id, real_dev_id, dmsType, isWakable, startIdx, requestNum, mediaInfo)

struct T_DMR_META_DATA {
  INT32 mediaType;
  char mediaName[128];
  char mediaExtension[8];
  char mediaArtist[128];
  char mediaAuthor[128];
  char mediaAlbum[128];
  int mediaSize;
  T_DATE_TIME mediaDate;
  char mediaResolution[32];
  char mediaDuration[21];
};
TVC_RECORD(T_DMR_META_DATA, mediaType, mediaName, mediaExtension, mediaArtist, mediaAuthor, mediaAlbum, mediaSize,
           mediaDate, mediaResolution, mediaDuration)

// A request to the renderer.
struct T_DLNA_DMR {
  UINT32 dmr_inst;  // handle of the renderer; 0: none
  char path[256];   // of the downloaded file
  char uri[256];
  char protocolinfo[256];
  int position;
  int duration;
  int playState;  // in the platform's numbers
  int value;
  T_DMR_META_DATA mediaMetaData;
};
TVC_RECORD(T_DLNA_DMR, dmr_inst, path, uri, protocolinfo, position, duration, playState, value, mediaMetaData)

struct T_DLNA_DMS_NOTIFY {
  INT32 type;
  INT32 tag;
  char server_name[128];
  INT32 dev_id;
  UINT32 arg1;
  UINT32 arg2;
};
TVC_RECORD(T_DLNA_DMS_NOTIFY, type, tag, server_name, dev_id, arg1, arg2)

struct T_DLNA_DMR_NOTIFY {
  INT32 type;
  INT32 tag;
  char uri[256];
  char protocolinfo[256];
  UINT32 arg1;
  INT32 arg2;
};
TVC_RECORD(T_DLNA_DMR_NOTIFY, type, tag, uri, protocolinfo, arg1, arg2)

#endif
