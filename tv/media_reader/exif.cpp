#include "exif.h"

#include <libexif/exif-data.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "image.h"

namespace {

constexpr int kMostSegments = 1000;  // of a JPEG before its picture
constexpr std::size_t kMostThumbnail = std::size_t{64} << 10;

struct ExifEnd {
  void operator()(ExifData* data) const { exif_data_unref(data); }
};
using Data = std::unique_ptr<ExifData, ExifEnd>;

std::uint32_t number(std::span<const std::uint8_t> bytes) {
  return static_cast<std::uint32_t>(bytes[0] << 8 | bytes[1]);
}

bool has_size(unsigned marker) {  // whether it starts a frame, of whatever coding
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

bool is_exif(std::span<const std::uint8_t> segment) {
  return segment.size() > 8 && std::memcmp(segment.data(), "Exif\0", 6) == 0;
}

bool take_date(ExifData& data, ExifIfd part, ExifTag tag, std::array<std::uint32_t, 6>& ret_date) {
  const ExifEntry* const entry = exif_content_get_entry(data.ifd[part], tag);
  if (entry == nullptr || entry->format != EXIF_FORMAT_ASCII || entry->data == nullptr) return false;
  const std::string text(reinterpret_cast<const char*>(entry->data), entry->size);
  return date_read(text.c_str(), ret_date);
}

}  // namespace

std::optional<JpegHeader> jpeg_header(Source& source) {
  const std::vector<std::uint8_t> start = source_bytes(source, 0, 3);
  if (start.size() < 3 || start[0] != 0xFF || start[1] != 0xD8 || start[2] != 0xFF) return std::nullopt;
  JpegHeader header;
  std::int64_t at = 2;
  for (int segments = 0; segments < kMostSegments; ++segments) {
    // Marker, length, and the first fields of a frame.
    const std::vector<std::uint8_t> head = source_bytes(source, at, 9);
    if (head.size() < 4 || head[0] != 0xFF || head[1] == 0xDA || head[1] == 0xD9) break;
    if (head[1] == 0xFF) {  // a fill byte
      ++at;
      continue;
    }
    if (head[1] == 0x01 || (head[1] >= 0xD0 && head[1] <= 0xD8)) {  // no contents
      at += 2;
      continue;
    }
    const std::uint32_t length = number(std::span(head).subspan(2));
    if (length < 2) break;
    if (has_size(head[1])) {
      if (head.size() < 9) break;
      header.height = number(std::span(head).subspan(5));
      header.width = number(std::span(head).subspan(7));
      if (header.width == 0 || header.height == 0) break;
      if (std::int64_t{header.width} * header.height > kMostJpegPixels)
        throw Refusal("the photo has more than " + std::to_string(kMostJpegPixels >> 20) + " million pixels");
      return header;
    }
    if (head[1] == 0xE1 && header.exif.empty()) {
      std::vector<std::uint8_t> segment = source_bytes(source, at + 4, length - 2);
      if (is_exif(segment)) header.exif = std::move(segment);
    }
    at += 2 + std::int64_t{length};
  }
  throw Refusal("the photo is broken: no size is found in it");
}

Exif exif_read(std::span<const std::uint8_t> exif) {
  Exif result;
  if (exif.empty()) return result;
  const Data data(exif_data_new_from_data(exif.data(), static_cast<unsigned>(exif.size())));
  if (data == nullptr) return result;
  const ExifEntry* const turned = exif_content_get_entry(data->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
  if (turned != nullptr && turned->format == EXIF_FORMAT_SHORT && turned->size >= 2) {
    const unsigned value = exif_get_short(turned->data, exif_data_get_byte_order(data.get()));
    if (value >= 1 && value <= 8) result.orientation = value;
  }
  if (!take_date(*data, EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL, result.date) &&
      !take_date(*data, EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_DIGITIZED, result.date))
    take_date(*data, EXIF_IFD_0, EXIF_TAG_DATE_TIME, result.date);
  if (data->data != nullptr && data->size > 0 && data->size <= kMostThumbnail)
    result.thumbnail.assign(data->data, data->data + data->size);
  return result;
}

bool date_read(const char* text, std::array<std::uint32_t, 6>& ret_date) {
  std::array<std::uint32_t, 6> date{};
  auto& [year, month, day, hour, minute, second] = date;
  const int parts =
      // NOLINTNEXTLINE(cert-err34-c): no number of at most four digits is out of range
      std::sscanf(text, "%4u%*1[:-]%2u%*1[:-]%2u%*1[ T]%2u:%2u:%2u", &year, &month, &day, &hour, &minute, &second);
  const bool complete = parts == 3 || parts == 6;
  if (!complete || year < 1800 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 ||
      minute > 59 || second > 60)
    return false;
  ret_date = date;
  return true;
}
