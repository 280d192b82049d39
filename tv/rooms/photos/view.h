// How a photo is turned, zoomed and moved on the screen.
#pragma once

#include "rooms/library/reader.h"
#include "rooms/screen/player/jpeg.h"

inline constexpr int kLeastZoom = 25, kFitZoom = 100, kMostZoom = 800;  // percent of the size that fits the screen

struct PhotoView {
  int rotation = 0;  // degrees clockwise: 0, 90, 180, 270
  int zoom = kFitZoom;
  int pan_x = 0;  // percent: -100 shows the picture's left edge, 0 its middle, 100 its right edge
  int pan_y = 0;  // percent: -100 shows its upper edge, 100 its lower edge
  bool operator==(const PhotoView&) const = default;
};

// Draws the picture on black into the canvas, whose width and height are set.
void view_draw(const MediaPicture& picture, const PhotoView& view, Canvas& ret_canvas);

// Blends `upper` over the canvas, which has the same size. share: how much of `upper`, from 0 (nothing) to 256 (only
// it).
void view_mix(const Canvas& upper, int share, Canvas& canvas);
