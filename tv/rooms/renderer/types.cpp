#include "rooms/renderer/types.h"

#include <algorithm>

namespace {

constexpr MediaType kTypes[] = {
    {"video/mp4", "mp4"},
    {"video/x-m4v", "m4v"},
    {"video/mpeg", "mpg"},
    {"video/mp2t", "ts"},
    {"video/vnd.dlna.mpeg-tts", "ts"},
    {"video/x-matroska", "mkv"},
    {"video/x-mkv", "mkv"},
    {"video/webm", "webm"},
    {"video/quicktime", "mov"},
    {"video/x-msvideo", "avi"},
    {"video/avi", "avi"},
    {"video/x-ms-wmv", "wmv"},
    {"video/x-flv", "flv"},
    {"video/3gpp", "3gp"},
    {"video/ogg", "ogv"},
    {"audio/mpeg", "mp3"},
    {"audio/mp3", "mp3"},
    {"audio/mp4", "m4a"},
    {"audio/x-m4a", "m4a"},
    {"audio/aac", "aac"},
    {"audio/vnd.dlna.adts", "aac"},
    {"audio/flac", "flac"},
    {"audio/x-flac", "flac"},
    {"audio/ogg", "ogg"},
    {"audio/x-ogg", "ogg"},
    {"application/ogg", "ogg"},
    {"audio/opus", "opus"},
    {"audio/wav", "wav"},
    {"audio/x-wav", "wav"},
    {"audio/x-ms-wma", "wma"},
    {"audio/ac3", "ac3"},
    {"audio/webm", "webm"},
    {"image/jpeg", "jpg", true},
    {"image/png", "png", true},
};

}  // namespace

const MediaType* media_type_row(std::string_view name) {
  const auto* const found = std::ranges::find(kTypes, name, &MediaType::name);
  return found == std::end(kTypes) ? nullptr : found;
}

std::string media_types_listed(bool photos) {
  std::string list;
  for (const MediaType& type : kTypes) {
    if (type.photo && !photos) continue;
    if (!list.empty()) list += ',';
    list += "http-get:*:" + std::string(type.name) + ":*";
  }
  return list;
}
