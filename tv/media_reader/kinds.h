// What an open file is, by its streams.
#pragma once

#include "source.h"
#include "tvapi/cbrowser.h"

// Photo, music or video; MEDIA_TYPE_NULL: none of them.
E_MEDIA_TYPE kind_of(const Source& source);

// The stream with the video's pictures; null: there is none.
const AVStream* kind_video(const Source& source);

// The stream with the cover of music; null: there is none.
const AVStream* kind_cover(const Source& source);

// How the video is turned for display, as EXIF's orientation: 1, 3, 6 or 8.
std::uint32_t kind_turn(const AVStream& stream);
