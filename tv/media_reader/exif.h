// What a camera writes into a JPEG beside the picture.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "source.h"

struct JpegHeader {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> exif = {};  // the segment's contents; empty: there is none
};

// The header of a file that begins like a JPEG; nothing: the file does not. Throws a Refusal for a broken one.
std::optional<JpegHeader> jpeg_header(Source& source);

struct Exif {
  std::uint32_t orientation = 1;
  std::array<std::uint32_t, 6> date = {};    // as in the reply
  std::vector<std::uint8_t> thumbnail = {};  // the camera's own, a JPEG
};
Exif exif_read(std::span<const std::uint8_t> exif);

// "2026:03:29 10:30:00" or "2026-03-29T10:30:00" as six numbers. False: the text is no date.
bool date_read(const char* text, std::array<std::uint32_t, 6>& ret_date);
