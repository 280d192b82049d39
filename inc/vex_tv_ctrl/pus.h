// Recordings that the recording file playback service asks to play.
#ifndef VEX_TV_CTRL_PUS_H
#define VEX_TV_CTRL_PUS_H

#include "tvapi/pus.h"
#include "vex_tv_ctrl/record.h"

// A request about a playback.
struct T_PUS {
  UINT32 instance;  // the playback
  int state;        // in the service's numbers, as is the value
  int value;
  T_PUS_FILE_INFO_T file_info;
};
TVC_RECORD(T_PUS, instance, state, value, file_info)

struct T_PUS_NOTIFY {
  UINT32 instance;
  INT32 play_cmd;  // a TVAPI_PUS_PLAY_CMD_T
  intptr_t value;  // for TVAPI_PUS_PLAY_CMD_START the address of the file's path, owned by the caller
};
TVC_RECORD(T_PUS_NOTIFY, instance, play_cmd, value)

#endif
