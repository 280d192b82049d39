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

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(VEXTVAPI_REGION_T, x, y, width, height)

/* All return 0, negative on failure. */

/* Which picture is heard: "main" or "sub". */
TVAPI_FN(INT32, a_vextvapi_multiview_setAudioFocus, IN_TEXT(focus))

TVAPI_FN(INT32, a_vextvapi_multiview_setNewTvMode, IN(UINT8, mode))
TVAPI_FN(INT32, a_vextvapi_multiview_setChgSource, IN(UINT8, source))
TVAPI_FN(INT32, a_vextvapi_multiview_startMainVideo, IN(UINT8, value), IN_RECORD(VEXTVAPI_REGION_T, region))
TVAPI_FN(INT32, a_vextvapi_multiview_startSubVideo, IN(UINT8, value), IN_RECORD(VEXTVAPI_REGION_T, region))
TVAPI_FN(INT32, a_vextvapi_multiview_stopMainVideo)
TVAPI_FN(INT32, a_vextvapi_multiview_stopSubVideo)

/* Where on the screen a picture is shown. */
TVAPI_FN(INT32, a_vextvapi_highlevel_set_displayregion, IN(INT32, value), IN(UINT32, x), IN(UINT32, y),
         IN(UINT32, width), IN(UINT32, height))

#include "tvapi/end.h"
