// A picture that another room draws in place of the main one: a media player's video, a photo.
#pragma once

#include <cstdint>

#include "core/contract.h"
#include "rooms/screen/player/jpeg.h"

struct Drawer {
  // Number of the newest picture; it grows with each one. 0: there is none yet. Called often while somebody looks, with
  // the size of the main picture's place; asking counts as looking (see show.h). It must not wait. Who draws a picture
  // calls show_wake() when there is a newer one, with no lock that comes after the screen's.
  std::uint64_t (*newest)(int width, int height);
  // Draws that picture into the upper left corner, in the canvas's size, with bars where its shape is another one.
  // False: it cannot be drawn.
  bool (*draw)(Canvas& ret_canvas);
  // Where it stands on the panel (rooms/multiview/multiview.h). Null or false: in the main picture's place.
  bool (*place)(VEXTVAPI_REGION_T& ret_region) = nullptr;
};
