// How a photo lies on the screen.
#pragma once

#include "rooms/library/reader.h"
#include "rooms/screen/player/jpeg.h"

inline constexpr int kLeastZoom = 25, kFitZoom = 100, kMostZoom = 800;  // percent of the size that fits the screen

struct PhotoView {
  int rotation = 0;  // degrees clockwise: 0, 90, 180, 270
  int zoom = kFitZoom;
  int pan_x = 0;  // percent of what does not fit: -100 shows its left edge, 100 its right edge
  int pan_y = 0;  // -100 shows its top
  bool operator==(const PhotoView&) const = default;
};

// Draws the picture into the canvas's size, on black.
void view_draw(const MediaPicture& picture, const PhotoView& view, Canvas& ret_canvas);

// Mixes the upper one into the canvas; share: of the upper one, 0 to 256.
void view_mix(const Canvas& upper, int share, Canvas& canvas);
