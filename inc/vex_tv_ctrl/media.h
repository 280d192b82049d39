// Media playback, home network and recording file events.
#ifndef VEX_TV_CTRL_MEDIA_H
#define VEX_TV_CTRL_MEDIA_H

#include "tvapi/types.h"

// Callback type of the player whose first argument is a text: a thumbnail has been made.
inline constexpr INT32 PLAYER_EVENT_THUMBNAIL = 19;

// The player callback's arguments, unchanged.
struct T_CBROWSER_PB_NOTIFY {
  INT32 type;     // the player's callback type
  UINT32 tag;     // registered at initialisation
  intptr_t arg1;  // for PLAYER_EVENT_THUMBNAIL the address of the picture's path, owned by the caller
  UINT32 arg2;
  UINT32 arg3;
  UINT32 arg4;
};

struct T_DLNA_DMS_NOTIFY {
  INT32 type;
  INT32 tag;
  char server_name[128];
  INT32 dev_id;
  UINT32 arg1;
  UINT32 arg2;
};

struct T_DLNA_DMR_NOTIFY {
  INT32 type;
  INT32 tag;
  char uri[256];
  char protocolinfo[256];
  UINT32 arg1;
  INT32 arg2;
};

enum TVAPI_PUS_PLAY_CMD_T : INT32 { TVAPI_PUS_PLAY_CMD_START = 1 };

struct T_PUS_NOTIFY {
  UINT32 instance;
  INT32 play_cmd;  // a TVAPI_PUS_PLAY_CMD_T
  intptr_t value;  // for TVAPI_PUS_PLAY_CMD_START the address of the file's path, owned by the caller
};

#endif
