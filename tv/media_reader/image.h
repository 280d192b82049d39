// Pictures in memory: decoded, scaled and turned.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "source.h"

inline constexpr std::int64_t kMostJpegPixels = std::int64_t{128} << 20;

// Pixels of four bytes: blue, green, red, unused.
struct Image {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> pixels = {};
};

struct ImageSize {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

// The largest size of this shape within the bounds, not larger than it is.
ImageSize image_fit(ImageSize size, ImageSize bounds);

// The bounds of a picture before it is turned.
ImageSize image_unturned(ImageSize bounds, std::uint32_t orientation);

// Scaled to the bounds; transparent parts are black.
Image image_of_frame(const AVFrame& frame, ImageSize bounds);

// Decodes a JPEG to the bounds. False: it has a coding that FFmpeg has to decode. Throws a Refusal.
bool image_of_jpeg(std::span<const std::uint8_t> jpeg, ImageSize bounds, Image& ret_image);

// As EXIF's number of an orientation wants it.
Image image_turn(Image image, std::uint32_t orientation);

// Mean brightness, 0 to 255.
std::uint32_t image_brightness(const Image& image);

std::vector<std::uint8_t> image_jpeg(const Image& image);
