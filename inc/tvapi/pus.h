/* The recording file playback service: it tells the plugin which recording to play, and how. */
#ifndef TVAPI_PUS_TYPES_H
#define TVAPI_PUS_TYPES_H

#include "tvapi/types.h"

typedef enum {
  TVAPI_PUS_PLAY_CMD_NONE = 0,
  TVAPI_PUS_PLAY_CMD_START = 1, /* its value is the address of the file's path */
  TVAPI_PUS_PLAY_CMD_STOP = 2,
  TVAPI_PUS_PLAY_CMD_PAUSE = 3,
  TVAPI_PUS_PLAY_CMD_RESUME = 4,
  TVAPI_PUS_PLAY_CMD_PREPARE = 5,
  TVAPI_PUS_PLAY_CMD_SEEK = 6
} TVAPI_PUS_PLAY_CMD_T;

/* A recording. */
typedef struct {
  char url[256];
  char channelName[256];
  INT32 eventId;
  char eventName[256];
  INT32 startDateTime; /* s since 1970, UTC */
  INT32 endDateTime;   /* s since 1970, UTC */
  INT32 duration;      /* s */
  INT32 sizeInMB;
  UINT32 fileType; /* in the platform's numbers */
} T_PUS_FILE_INFO_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(T_PUS_FILE_INFO_T, url, channelName, eventId, eventName, startDateTime, endDateTime, duration, sizeInMB,
             fileType)

/* Called by the service, on a thread of its own, to control a playback. instance: the playback; command: a
 * TVAPI_PUS_PLAY_CMD_T; value: its argument, a number or the address of a text. The plugin returns 0. */
TVAPI_CALLBACK(INT32, a_vextvapi_pus_play_nfy_fct, IN(UINT32, instance), IN(INT32, command),
               IN_ADDRESS(char, value, command == TVAPI_PUS_PLAY_CMD_START), IN(INT32, second_value))

/* All return 0, negative on failure, where they do not say otherwise. */

/* Start and stop the service. */
TVAPI_FN(INT32, a_vextvapi_pus_init)
TVAPI_FN(INT32, a_vextvapi_pus_deinit)

/* Registers the callback that receives the service's commands. */
TVAPI_FN(INT32, a_vextvapi_pus_reg_callback, CALLBACK(a_vextvapi_pus_play_nfy_fct, callback))

/* Describes the recording of a playback. */
TVAPI_FN(INT32, a_vextvapi_pus_get_file_info, IN(UINT32, instance), OUT(T_PUS_FILE_INFO_T, info))

/* Tells the service the state of a playback, in the service's numbers. Returns 0, anything else on failure. */
TVAPI_FN(INT32, a_vextvapi_pus_submit_status, IN(UINT32, instance), IN(INT32, state), IN(INT32, value),
         IN(INT32, second_value))

#include "tvapi/end.h"
