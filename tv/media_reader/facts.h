#pragma once

#include "image.h"
#include "media_reader/wire.h"
#include "source.h"

// What the file contains. Throws a Refusal.
void read_facts(int file, const std::string& extension, Deadline deadline, WireReply& ret_reply);

// A picture of the file within the bounds, turned as it is to be seen: of a photo; where `any` also a video's frame and
// music's cover. Throws a Refusal.
Image read_picture(int file, const std::string& extension, Deadline deadline, ImageSize bounds, bool any);
