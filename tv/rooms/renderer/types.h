// The media types that the renderer accepts.
#pragma once

#include <string>
#include <string_view>

struct MediaType {
  std::string_view name;
  std::string_view extension;
  bool photo = false;  // accepted only while an application plays
};

// The row of a media type such as "video/mp4"; null: the renderer does not accept it.
const MediaType* media_type_row(std::string_view name);

// The protocol informations of all accepted types, separated by commas. photos: with those of photos.
std::string media_types_listed(bool photos);
