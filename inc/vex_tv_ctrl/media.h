// The media library and the image viewer. Requests about the library carry the platform's own record.
#ifndef VEX_TV_CTRL_MEDIA_H
#define VEX_TV_CTRL_MEDIA_H

#include "tvapi/cbrowser.h"
#include "vex_tv_ctrl/record.h"

enum CBROWSER_IMG_OPERATOR : INT32 {
  CBROWSER_IMG_OPERATOR_DISPLAY = 1,
  CBROWSER_IMG_OPERATOR_TFX_EFFECT_PLAY = 2,
  CBROWSER_IMG_OPERATOR_TFX_EFFECT_STOP = 3,
  CBROWSER_IMG_OPERATOR_ROTATE = 10,
  CBROWSER_IMG_OPERATOR_ZOOM = 11
};

// An operation on a picture. Rotation, zoom and effect are in the platform's numbers.
struct T_CBROWSER_IMG {
  INT32 img_operator;  // a CBROWSER_IMG_OPERATOR; 0: none
  char path[256];      // of the picture's file
  int rotate;
  int zoom;
  int effect;
  int width;                // of the thumbnail, in pixels
  int height;               // of the thumbnail, in pixels
  char thumbnailPath[256];  // result
};
TVC_RECORD(T_CBROWSER_IMG, img_operator, path, rotate, zoom, effect, width, height, thumbnailPath)

#endif
