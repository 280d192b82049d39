// Reads what a camera writes into a JPEG beside the picture.
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
  std::vector<std::uint8_t> exif = {};  // contents of the EXIF segment; empty: there is none
};

// The header of a JPEG; nothing: the file does not begin like a JPEG. Throws a Refusal if the JPEG is broken.
std::optional<JpegHeader> jpeg_header(const Source& source);

struct Exif {
  std::uint32_t orientation = 1;             // EXIF's number, 1 to 8
  std::array<std::uint32_t, 6> date = {};    // as in WireReply
  std::vector<std::uint8_t> thumbnail = {};  // a JPEG that the camera made; empty: none
};
// Reads the segment's contents. What is missing or broken keeps its default.
Exif exif_read(std::span<const std::uint8_t> exif);

// Reads "2026:03:29 10:30:00" or "2026-03-29T10:30:00" as six numbers, as in WireReply. False: the text is no date.
bool date_read(const char* text, std::array<std::uint32_t, 6>& ret_date);
