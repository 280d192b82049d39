/* Two pictures at once: a main and a sub video, each in a region of the screen. */
#ifndef TVAPI_MULTIVIEW_TYPES_H
#define TVAPI_MULTIVIEW_TYPES_H

#include "tvapi/types.h"

/* In pixels of the screen. */
typedef struct {
  UINT32 x;
  UINT32 y;
  UINT32 width;
  UINT32 height;
} VEXTVAPI_REGION_T;

/* mode of the set. */
enum {
  VEXTVAPI_MULTIVIEW_NORMAL = 0, /* the main picture alone */
  VEXTVAPI_MULTIVIEW_PIP = 1,    /* a small sub picture in a corner of the main one */
  VEXTVAPI_MULTIVIEW_POP = 2     /* side by side */
};

/* value of a region: which picture it is for. */
enum { VEXTVAPI_MULTIVIEW_MAIN = 0, VEXTVAPI_MULTIVIEW_SUB = 1 };

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(VEXTVAPI_REGION_T, x, y, width, height)

/* All return 0, negative on failure. */

/* Which picture is heard: "main" or "sub". */
TVAPI_FN(INT32, a_vextvapi_multiview_setAudioFocus, IN_TEXT(focus))

/* Lays the pictures out for the mode, and starts or stops the sub picture. */
TVAPI_FN(INT32, a_vextvapi_multiview_setNewTvMode, IN(UINT8, mode))

/* Changes the source of the picture that is heard, by its number from 0. */
TVAPI_FN(INT32, a_vextvapi_multiview_setChgSource, IN(UINT8, source))

/* value: the number of the picture's source, from 0. */
TVAPI_FN(INT32, a_vextvapi_multiview_startMainVideo, IN(UINT8, value), IN_RECORD(VEXTVAPI_REGION_T, region))
TVAPI_FN(INT32, a_vextvapi_multiview_startSubVideo, IN(UINT8, value), IN_RECORD(VEXTVAPI_REGION_T, region))
TVAPI_FN(INT32, a_vextvapi_multiview_stopMainVideo)
TVAPI_FN(INT32, a_vextvapi_multiview_stopSubVideo)

/* Where on the screen a picture is shown. value: which picture. */
TVAPI_FN(INT32, a_vextvapi_highlevel_set_displayregion, IN(INT32, value), IN(UINT32, x), IN(UINT32, y),
         IN(UINT32, width), IN(UINT32, height))

#include "tvapi/end.h"
