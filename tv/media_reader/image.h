// Decodes, scales and turns pictures in memory.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "source.h"

inline constexpr std::int64_t kMostJpegPixels = std::int64_t{128} << 20;

// Pixels of four bytes (blue, green, red, unused), row by row.
struct Image {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> pixels = {};
};

struct ImageSize {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

// The largest size of the same shape that fits into the bounds and is not larger than `size`.
ImageSize image_fit(ImageSize size, ImageSize bounds);

// The bounds for a picture before it is turned by EXIF's orientation: width and height are exchanged if that turns it
// by a quarter.
ImageSize image_unturned(ImageSize bounds, std::uint32_t orientation);

// The frame as a picture, scaled down to the bounds. Transparent parts become black.
Image image_of_frame(const AVFrame& frame, ImageSize bounds);

// Decodes a JPEG, scaled down to the bounds. False: the JPEG has a coding that only FFmpeg decodes. Throws a Refusal.
bool image_of_jpeg(std::span<const std::uint8_t> jpeg, ImageSize bounds, Image& ret_image);

// Turns the picture by EXIF's orientation, 1 to 8.
Image image_turn(Image image, std::uint32_t orientation);

// Mean brightness, 0 to 255.
std::uint32_t image_brightness(const Image& image);

// The picture as a JPEG. Throws a Refusal.
std::vector<std::uint8_t> image_jpeg(const Image& image);
