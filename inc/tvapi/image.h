/* The image player. There is one: it shows one picture at a time. */
#ifndef TVAPI_IMAGE_TYPES_H
#define TVAPI_IMAGE_TYPES_H

/* Rotations: degrees clockwise from the picture's upright position by its EXIF data, not from its present one. */
enum {
  VEXTVAPI_IMAGE_ROTATION_NONE = 0,
  VEXTVAPI_IMAGE_ROTATION_RIGHT = 90,
  VEXTVAPI_IMAGE_ROTATION_HALF = 180,
  VEXTVAPI_IMAGE_ROTATION_LEFT = 270
};

/* Zooms: percent of the size that fits the screen. */
enum { VEXTVAPI_IMAGE_ZOOM_LEAST = 25, VEXTVAPI_IMAGE_ZOOM_FIT = 100, VEXTVAPI_IMAGE_ZOOM_MOST = 800 };

/* Effects: how a picture takes the place of the one before, while the effect is started. */
enum { VEXTVAPI_IMAGE_EFFECT_FADE = 1 };

/* How the file contains a picture in three dimensions: the mode of a_vextvapi_img_playback_open. */
enum { VEXTVAPI_IMAGE_MODE_FLAT = 0, VEXTVAPI_IMAGE_MODE_SIDE_BY_SIDE = 1, VEXTVAPI_IMAGE_MODE_TOP_AND_BOTTOM = 2 };

#endif

#include "tvapi/begin.h"

/* All return 0, anything else on failure. */

/* Prepare and release what the image player needs. */
TVAPI_FN(INT32, a_vextvapi_img_playback_initRes)
TVAPI_FN(INT32, a_vextvapi_img_playback_deinitRes)

/* Opens a picture file of an inserted stick. The plugin passes 0 as mode and flags. */
TVAPI_FN(INT32, a_vextvapi_img_playback_open, IN_TEXT(path), IN(INT32, mode), IN(INT32, flags))
TVAPI_FN(INT32, a_vextvapi_img_playback_close)

/* Decode and show the picture that is open. A picture can be turned and zoomed once it is decoded. */
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
