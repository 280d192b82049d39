// A picture in memory, and its JPEG.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

inline constexpr int kScreenWidth = 640, kScreenHeight = 360;
inline constexpr std::size_t kScreenStride = std::size_t{4} * kScreenWidth;  // a multiple of 64, for fast rendering

// Pixels of four bytes: blue, green, red and one that is not used. The picture is in the upper left corner; what is
// beside it is not defined.
struct alignas(64) Canvas {
  std::array<std::uint8_t, kScreenStride * kScreenHeight> pixels{};
  int width = kScreenWidth;
  int height = kScreenHeight;
};

// The JPEG of the whole canvas. False with ret_error if the picture cannot be compressed.
bool jpeg_write(const Canvas& canvas, std::vector<std::uint8_t>& ret_jpeg, std::string& ret_error);
