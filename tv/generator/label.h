// Letters in pictures, from a font of its own: no font file is needed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct Bitmap {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;  // 0: background
};

inline constexpr int kGlyphWidth = 6;  // with the space behind it
inline constexpr int kGlyphHeight = 7;

// Draws capital letters, digits and ":" with pixels of value `ink`; other characters are blank. What does not fit is
// left out.
void draw_text(Bitmap& ret_bitmap, int left, int top, int scale, std::string_view text, std::uint8_t ink);

// "00:07"
std::string clock_text(int seconds);

// Frames of one second each, grey values: the service's name, and how long the file has been playing.
inline constexpr int kStripWidth = 352;
inline constexpr int kStripHeight = 22;
std::vector<std::uint8_t> strip_frames(std::string_view label, int seconds);

// A subtitle every two seconds, in the Presentation Graphic Stream format, which ffmpeg converts to DVB subtitles.
std::vector<std::uint8_t> subtitle_stream(int width, int height, int seconds);
