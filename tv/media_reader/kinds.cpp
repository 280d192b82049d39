#include "kinds.h"

extern "C" {
#include <libavutil/display.h>
}

#include <cmath>
#include <cstring>
#include <span>
#include <string_view>

namespace {

std::span<AVStream* const> streams_of(const Source& source) {
  return {source.format->streams, source.format->nb_streams};
}

bool is_cover(const AVStream& stream) { return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0; }

bool is_photo(std::string_view format) { return format.ends_with("_pipe") || format == "gif" || format == "apng"; }

}  // namespace

const AVStream* kind_video(const Source& source) {
  for (const AVStream* const stream : streams_of(source))
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !is_cover(*stream)) return stream;
  return nullptr;
}

const AVStream* kind_cover(const Source& source) {
  for (const AVStream* const stream : streams_of(source))
    if (is_cover(*stream) && stream->attached_pic.size > 0) return stream;
  return nullptr;
}

E_MEDIA_TYPE kind_of(const Source& source) {
  if (kind_video(source) != nullptr) return is_photo(source.kind->name) ? MEDIA_TYPE_PHOTO : MEDIA_TYPE_VIDEO;
  for (const AVStream* const stream : streams_of(source))
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) return MEDIA_TYPE_MUSIC;
  return MEDIA_TYPE_NULL;
}

std::uint32_t kind_turn(const AVStream& stream) {
  std::size_t size = 0;
  const std::uint8_t* const bytes = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  std::int32_t matrix[9];
  if (bytes == nullptr || size < sizeof matrix) return 1;
  std::memcpy(matrix, bytes, sizeof matrix);
  const double anticlockwise = av_display_rotation_get(matrix);
  if (std::isnan(anticlockwise)) return 1;
  switch (((std::lround(-anticlockwise / 90) % 4) + 4) % 4) {  // quarters clockwise
    case 1:
      return 6;
    case 2:
      return 3;
    case 3:
      return 8;
    default:
      return 1;
  }
}
