// What an open file is.
#pragma once

#include "source.h"
#include "tvapi/cbrowser.h"

// By its streams.
E_MEDIA_TYPE kind_of(const Source& source);

// The stream of the video's pictures, or null.
const AVStream* kind_video(const Source& source);

// The stream with music's cover, or null.
const AVStream* kind_cover(const Source& source);

// A video's turn, as EXIF's number: 1, 3, 6 or 8.
std::uint32_t kind_turn(const AVStream& stream);
