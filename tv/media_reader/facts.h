#pragma once

#include "image.h"
#include "media_reader/wire.h"
#include "source.h"

// What the file contains. Throws a Refusal. source: a new one, which afterwards says whether the stick was at fault.
void read_facts(Source& source, int file, const std::string& extension, Deadline deadline, WireReply& ret_reply);

// A picture of the file within the bounds, turned as it is to be seen: of a photo; where `any` also a video's frame and
// music's cover. Throws a Refusal.
Image read_picture(Source& source, int file, const std::string& extension, Deadline deadline, ImageSize bounds,
                   bool any);
