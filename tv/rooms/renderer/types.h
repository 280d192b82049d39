// The media types that the renderer accepts.
#pragma once

#include <string>
#include <string_view>

struct MediaType {
  std::string_view name;
  std::string_view extension;
  bool photo = false;  // only an application shows these
};

// Null: the renderer does not accept it.
const MediaType* media_type_row(std::string_view name);

// The protocol informations of all accepted types, with commas between them.
std::string media_types_listed(bool photos);
