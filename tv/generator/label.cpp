#include "generator/label.h"

#include <algorithm>

namespace {

// Seven rows of five dots each, the leftmost dot in the highest of five bits.
constexpr std::string_view kCharacters = "0123456789:ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::uint8_t kGlyphs[][kGlyphHeight] = {
    {14, 17, 19, 21, 25, 17, 14}, {4, 12, 4, 4, 4, 4, 14},      {14, 17, 1, 2, 4, 8, 31},
    {31, 2, 4, 2, 1, 17, 14},     {2, 6, 10, 18, 31, 2, 2},     {31, 16, 30, 1, 1, 17, 14},
    {6, 8, 16, 30, 17, 17, 14},   {31, 1, 2, 4, 8, 8, 8},       {14, 17, 17, 14, 17, 17, 14},
    {14, 17, 17, 15, 1, 2, 12},   {0, 4, 4, 0, 4, 4, 0},        {14, 17, 17, 31, 17, 17, 17},
    {30, 17, 17, 30, 17, 17, 30}, {14, 17, 16, 16, 16, 17, 14}, {28, 18, 17, 17, 17, 18, 28},
    {31, 16, 16, 30, 16, 16, 31}, {31, 16, 16, 30, 16, 16, 16}, {14, 17, 16, 23, 17, 17, 15},
    {17, 17, 17, 31, 17, 17, 17}, {14, 4, 4, 4, 4, 4, 14},      {7, 2, 2, 2, 2, 18, 12},
    {17, 18, 20, 24, 20, 18, 17}, {16, 16, 16, 16, 16, 16, 31}, {17, 27, 21, 21, 17, 17, 17},
    {17, 17, 25, 21, 19, 17, 17}, {14, 17, 17, 17, 17, 17, 14}, {30, 17, 17, 30, 16, 16, 16},
    {14, 17, 17, 17, 21, 18, 13}, {30, 17, 17, 30, 20, 18, 17}, {15, 16, 16, 14, 1, 1, 30},
    {31, 4, 4, 4, 4, 4, 4},       {17, 17, 17, 17, 17, 17, 14}, {17, 17, 17, 17, 17, 10, 4},
    {17, 17, 17, 21, 21, 27, 17}, {17, 17, 10, 4, 10, 17, 17},  {17, 17, 17, 10, 4, 4, 4},
    {31, 1, 2, 4, 8, 16, 31},
};

constexpr int kScale = 2;
constexpr int kMargin = 4;  // pixels round a text
constexpr std::uint8_t kPaper = 1;
constexpr std::uint8_t kInk = 2;

// Presentation Graphic Stream: "PG", two times in 1/90000 s, kind, length, contents.
enum SegmentKind : std::uint8_t { kPalette = 0x14, kObject = 0x15, kComposition = 0x16, kWindow = 0x17, kEnd = 0x80 };
constexpr std::uint32_t kTicks = 90000;

void append_number(std::vector<std::uint8_t>& ret_bytes, std::size_t number, int bytes) {
  for (int byte = bytes - 1; byte >= 0; --byte) ret_bytes.push_back(static_cast<std::uint8_t>(number >> 8 * byte));
}

void append_segment(std::vector<std::uint8_t>& ret_stream, double time, SegmentKind kind,
                    const std::vector<std::uint8_t>& contents) {
  ret_stream.insert(ret_stream.end(), {'P', 'G'});
  append_number(ret_stream, static_cast<std::uint32_t>(time * kTicks), 4);
  append_number(ret_stream, 0, 4);
  ret_stream.push_back(kind);
  append_number(ret_stream, contents.size(), 2);
  ret_stream.insert(ret_stream.end(), contents.begin(), contents.end());
}

// Runs of at most 63 pixels of one colour: 0, 0x80 + length, colour; each row ends with two zeros.
std::vector<std::uint8_t> run_lengths(const Bitmap& bitmap) {
  std::vector<std::uint8_t> runs;
  for (auto row = bitmap.pixels.begin(); row != bitmap.pixels.end(); row += bitmap.width) {
    for (auto pixel = row; pixel != row + bitmap.width;) {
      const auto most = std::min<std::ptrdiff_t>(63, row + bitmap.width - pixel);
      const auto end = std::find_if(pixel, pixel + most, [pixel](std::uint8_t each) { return each != *pixel; });
      runs.insert(runs.end(), {0, static_cast<std::uint8_t>(0x80 | (end - pixel)), *pixel});
      pixel = end;
    }
    runs.insert(runs.end(), {0, 0});
  }
  return runs;
}

struct Place {
  int left, top, width, height;
};

void append_composition(std::vector<std::uint8_t>& ret_stream, double time, int width, int height, int number,
                        const Place& place, bool shown) {
  std::vector<std::uint8_t> contents;
  append_number(contents, static_cast<std::size_t>(width), 2);
  append_number(contents, static_cast<std::size_t>(height), 2);
  contents.push_back(0x10);  // frame rate, which nobody uses
  append_number(contents, static_cast<std::size_t>(number), 2);
  contents.insert(contents.end(),
                  {static_cast<std::uint8_t>(shown ? 0x80 : 0), 0, 0, static_cast<std::uint8_t>(shown)});
  if (shown) {
    append_number(contents, 0, 4);  // object, window, flags
    append_number(contents, static_cast<std::size_t>(place.left), 2);
    append_number(contents, static_cast<std::size_t>(place.top), 2);
  }
  append_segment(ret_stream, time, kComposition, contents);
  std::vector<std::uint8_t> window = {1, 0};
  for (const int each : {place.left, place.top, place.width, place.height})
    append_number(window, static_cast<std::size_t>(each), 2);
  append_segment(ret_stream, time, kWindow, window);
}

void append_subtitle(std::vector<std::uint8_t>& ret_stream, double time, int width, int height, int number,
                     const Bitmap& bitmap) {
  const Place place = {(width - bitmap.width) / 2, height - 60, bitmap.width, bitmap.height};
  append_composition(ret_stream, time, width, height, number, place, true);
  // Number, luminance, colour differences, opacity: paper is dark and half transparent, ink is yellow.
  append_segment(ret_stream, time, kPalette, {0, 0, kPaper, 16, 128, 128, 160, kInk, 210, 146, 16, 255});
  const std::vector<std::uint8_t> runs = run_lengths(bitmap);
  std::vector<std::uint8_t> object = {0, 0, 0, 0xC0};  // the first and the last piece of it
  append_number(object, runs.size() + 4, 3);
  append_number(object, static_cast<std::size_t>(bitmap.width), 2);
  append_number(object, static_cast<std::size_t>(bitmap.height), 2);
  object.insert(object.end(), runs.begin(), runs.end());
  append_segment(ret_stream, time, kObject, object);
  append_segment(ret_stream, time, kEnd, {});
  append_composition(ret_stream, time + 1.5, width, height, number + 1, place, false);
  append_segment(ret_stream, time + 1.5, kEnd, {});
}

Bitmap blank(int width, int height, std::uint8_t value) {
  return {width, height, std::vector<std::uint8_t>(static_cast<std::size_t>(width * height), value)};
}

}  // namespace

void draw_text(Bitmap& ret_bitmap, int left, int top, int scale, std::string_view text, std::uint8_t ink) {
  for (std::size_t index = 0; index < text.size(); ++index) {
    const std::size_t glyph = kCharacters.find(text[index]);
    const int begin = left + static_cast<int>(index) * kGlyphWidth * scale;
    if (glyph == std::string_view::npos) continue;
    for (int y = 0; y < kGlyphHeight * scale; ++y) {
      for (int x = 0; x < kGlyphWidth * scale; ++x) {
        const bool dot = kGlyphs[glyph][y / scale] << (x / scale) & 0x10;
        if (dot && begin + x < ret_bitmap.width && top + y < ret_bitmap.height)
          ret_bitmap.pixels.begin()[(top + y) * ret_bitmap.width + begin + x] = ink;
      }
    }
  }
}

std::string clock_text(int seconds) {
  const auto two = [](int number) { return (number < 10 ? "0" : "") + std::to_string(number); };
  return two(seconds / 60) + ":" + two(seconds % 60);
}

std::vector<std::uint8_t> strip_frames(std::string_view label, int seconds) {
  std::vector<std::uint8_t> frames;
  for (int second = 0; second < seconds; ++second) {
    Bitmap frame = blank(kStripWidth, kStripHeight, 16);
    const std::string clock = clock_text(second);
    draw_text(frame, kMargin, kMargin, kScale, label, 235);
    draw_text(frame, kStripWidth - static_cast<int>(clock.size()) * kGlyphWidth * kScale, kMargin, kScale, clock, 235);
    frames.insert(frames.end(), frame.pixels.begin(), frame.pixels.end());
  }
  return frames;
}

std::vector<std::uint8_t> subtitle_stream(int width, int height, int seconds) {
  std::vector<std::uint8_t> stream;
  for (int second = 0; second < seconds; second += 2) {
    const std::string text = "SUBTITLE " + clock_text(second);
    Bitmap bitmap = blank(static_cast<int>(text.size()) * kGlyphWidth * kScale + 2 * kMargin,
                          kGlyphHeight * kScale + 2 * kMargin, kPaper);
    draw_text(bitmap, kMargin, kMargin, kScale, text, kInk);
    append_subtitle(stream, second, width, height, second, bitmap);
  }
  return stream;
}
