// A picture that another room draws in place of the main one: a media player's video, a photo.
#pragma once

#include <cstdint>

#include "core/contract.h"
#include "rooms/screen/player/jpeg.h"

struct Drawer {
  // Returns the number of the newest picture, which grows with each one; 0: there is none yet. Called often while
  // somebody looks at the screen (see show.h), with the size of the main picture's place in pixels. Must not wait. The
  // room calls show_wake() when it has a newer picture, and holds no lock then that comes after the screen's.
  std::uint64_t (*newest)(int width, int height);
  // Draws the newest picture into the canvas, at its width and height, with black bars where the shapes differ. False:
  // it cannot be drawn.
  bool (*draw)(Canvas& ret_canvas);
  // Gives the picture's region of the panel (rooms/multiview/multiview.h). Null, or false: it is drawn in the main
  // picture's place.
  bool (*place)(VEXTVAPI_REGION_T& ret_region) = nullptr;
};
