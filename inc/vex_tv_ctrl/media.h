// Media playback, home network and recording file events.
#ifndef VEX_TV_CTRL_MEDIA_H
#define VEX_TV_CTRL_MEDIA_H

#include "tvapi/types.h"
#include "vex_tv_ctrl/record.h"

enum E_MEDIA_TYPE : INT32 {
  MEDIA_TYPE_NULL = 0,
  MEDIA_TYPE_PHOTO = 1,
  MEDIA_TYPE_MUSIC = 2,
  MEDIA_TYPE_VIDEO = 3,
  MEDIA_TYPE_FOLDER = 4,
  MEDIA_TYPE_PLAYLIST = 5,
  MEDIA_TYPE_SUPPER_SHOP_MODE = 6
};

struct T_DATE_TIME {
  UINT16 iyear;
  UINT8 imonth;
  UINT8 iday;
  UINT8 ihour;
  UINT8 iminute;
  UINT8 isecond;
};

// One entry of a list.
struct T_MEDIA_INFO {
  INT32 media_type;  // an E_MEDIA_TYPE
  char media_path[256];
  UINT32 recid;
  int favourite;
  T_DATE_TIME date;
  union {
    struct {
      char track[128];
      char title[128];
      char artist[128];
      char album[128];
      char genre[128];
      UINT32 duration;
    } music_info;
    struct {
      char title[128];
      char year[10];
      UINT32 duration;
      double size;
    } video_info;
    struct {
      UINT32 width;
      UINT32 height;
      UINT32 size;
    } photo_info;
    struct {
      UINT32 duration;
      char title[128];
      char artist[32];
    } playlist_info;
  } u;
};

// A query about a folder or a file, and its result.
struct T_CBROWSER {
  char path[256];
  int count;   // number of entries
  int index;   // index of the first entry, from 0
  int sort;    // order, in the platform's numbers
  INT32 type;  // an E_MEDIA_TYPE
  T_MEDIA_INFO media_info[24];
  char reserved[256];
};
// Without the entries, which nothing fills yet.
TVC_UNION(T_CBROWSER, path, count, index, sort, type, reserved)

// The player's event that a thumbnail has been made: the only one whose first argument is an address.
inline constexpr INT32 PLAYER_EVENT_THUMBNAIL = 19;

// The unchanged arguments of the player's callback.
struct T_CBROWSER_PB_NOTIFY {
  INT32 type;     // the player's callback type
  UINT32 tag;     // registered at initialisation
  intptr_t arg1;  // for PLAYER_EVENT_THUMBNAIL the address of the picture's path, owned by the caller
  UINT32 arg2;
  UINT32 arg3;
  UINT32 arg4;
};
TVC_RECORD(T_CBROWSER_PB_NOTIFY, type, tag, arg1, arg2, arg3, arg4)

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

enum TVAPI_PUS_PLAY_CMD_T : INT32 { TVAPI_PUS_PLAY_CMD_START = 1 };

struct T_PUS_NOTIFY {
  UINT32 instance;
  INT32 play_cmd;  // a TVAPI_PUS_PLAY_CMD_T
  intptr_t value;  // for TVAPI_PUS_PLAY_CMD_START the address of the file's path, owned by the caller
};
TVC_RECORD(T_PUS_NOTIFY, instance, play_cmd, value)

#endif
