// A picture in memory, and its JPEG.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

inline constexpr int kScreenWidth = 640, kScreenHeight = 360;
inline constexpr std::size_t kScreenStride = std::size_t{4} * kScreenWidth;  // a multiple of 64, for fast rendering

// Pixels of four bytes: blue, green, red and one that is not used.
struct alignas(64) Canvas {
  std::array<std::uint8_t, kScreenStride * kScreenHeight> pixels{};
};

// False with ret_error if the picture cannot be compressed.
bool jpeg_write(const Canvas& canvas, std::vector<std::uint8_t>& ret_jpeg, std::string& ret_error);
