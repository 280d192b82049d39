#include "rooms/photos/view.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace {

// A canvas pixel that covers several pixels of the picture is the average of at most so many in each direction.
constexpr int kMostSamples = 4;

struct Colour {
  std::uint32_t blue = 0, green = 0, red = 0;
};

// The pixel of the picture that is at this position after turning.
const std::uint8_t* pixel_at(const MediaPicture& picture, int rotation, std::uint32_t x, std::uint32_t y) {
  std::uint32_t from_x = x, from_y = y;
  if (rotation == 90) {
    from_x = y;
    from_y = picture.height - 1 - x;
  } else if (rotation == 180) {
    from_x = picture.width - 1 - x;
    from_y = picture.height - 1 - y;
  } else if (rotation == 270) {
    from_x = picture.width - 1 - y;
    from_y = x;
  }
  return &picture.pixels[(std::size_t{from_y} * picture.width + from_x) * 4];
}

}  // namespace

void view_draw(const MediaPicture& picture, const PhotoView& view, Canvas& ret_canvas) {
  const bool lies = view.rotation == 90 || view.rotation == 270;
  const std::uint32_t width = lies ? picture.height : picture.width, height = lies ? picture.width : picture.height;
  const int rows = std::clamp(ret_canvas.height, 0, kScreenHeight),
            columns = std::clamp(ret_canvas.width, 0, kScreenWidth);
  if (width == 0 || height == 0 || rows == 0 || columns == 0) return;
  // Canvas pixels per picture pixel.
  const double scale =
      std::min(static_cast<double>(columns) / width, static_cast<double>(rows) / height) * view.zoom / 100;
  const double hidden_x = std::max(0.0, width * scale - columns), hidden_y = std::max(0.0, height * scale - rows);
  // Where the canvas's upper left corner is in the picture.
  const double left = width / 2.0 - (columns / 2.0 - hidden_x / 2 * view.pan_x / 100) / scale;
  const double top = height / 2.0 - (rows / 2.0 - hidden_y / 2 * view.pan_y / 100) / scale;
  const int samples = std::clamp(static_cast<int>(std::lround(1 / scale)), 1, kMostSamples);
  for (int row = 0; row < rows; ++row) {
    std::uint8_t* to = &ret_canvas.pixels[static_cast<std::size_t>(row) * kScreenStride];
    for (int column = 0; column < columns; ++column, to += 4) {
      Colour sum;
      for (int part = 0; part < samples * samples; ++part) {
        const double x = std::floor(left + (column + (part % samples + 0.5) / samples) / scale);
        const double y = std::floor(top + (row + (part / samples + 0.5) / samples) / scale);
        if (x < 0 || y < 0 || x >= width || y >= height) continue;  // black
        const std::uint8_t* const from =
            pixel_at(picture, view.rotation, static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y));
        sum.blue += from[0];
        sum.green += from[1];
        sum.red += from[2];
      }
      const auto count = static_cast<std::uint32_t>(samples * samples);
      to[0] = static_cast<std::uint8_t>(sum.blue / count);
      to[1] = static_cast<std::uint8_t>(sum.green / count);
      to[2] = static_cast<std::uint8_t>(sum.red / count);
    }
  }
}

void view_mix(const Canvas& upper, int share, Canvas& canvas) {
  const int rows = std::clamp(canvas.height, 0, kScreenHeight), columns = std::clamp(canvas.width, 0, kScreenWidth);
  for (int row = 0; row < rows; ++row) {
    const std::size_t begin = static_cast<std::size_t>(row) * kScreenStride;
    for (std::size_t i = begin; i < begin + static_cast<std::size_t>(columns) * 4; ++i)
      canvas.pixels[i] = static_cast<std::uint8_t>((upper.pixels[i] * share + canvas.pixels[i] * (256 - share)) / 256);
  }
}
