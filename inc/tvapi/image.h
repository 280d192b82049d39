/* The image player. There is one: it shows one picture at a time. */
#include "tvapi/begin.h"

/* All return 0, anything else on failure. Rotations, zooms and effects are in the platform's numbers. */

/* Prepare and release what the image player needs. */
TVAPI_FN(INT32, a_vextvapi_img_playback_initRes)
TVAPI_FN(INT32, a_vextvapi_img_playback_deinitRes)

/* Opens a picture file. The plugin passes 0 as mode and flags. */
TVAPI_FN(INT32, a_vextvapi_img_playback_open, IN_TEXT(path), IN(INT32, mode), IN(INT32, flags))
TVAPI_FN(INT32, a_vextvapi_img_playback_close)

/* Decode and show the picture that is open. */
TVAPI_FN(INT32, a_vextvapi_img_playback_decode)
TVAPI_FN(INT32, a_vextvapi_img_playback_display)

TVAPI_FN(INT32, a_vextvapi_img_playback_rotate, IN(INT32, rotation))
TVAPI_FN(INT32, a_vextvapi_img_playback_zoom, IN(UINT16, factor))

/* Start and stop a transition effect. */
TVAPI_FN(INT32, a_vextvapi_img_playback_tfxPlay, IN(INT32, effect))
TVAPI_FN(INT32, a_vextvapi_img_playback_tfxStop)

/* Makes a thumbnail of a picture file, at most so many pixels wide and high, and tells the path of its file. */
TVAPI_FN(INT32, a_vextvapi_img_playback_getThumbnail_path, IN_TEXT(path), IN(INT32, width), IN(INT32, height),
         OUT_TEXT(thumbnail_path, 256))

#include "tvapi/end.h"
