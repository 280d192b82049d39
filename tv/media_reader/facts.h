#pragma once

#include "image.h"
#include "media_reader/wire.h"
#include "source.h"

// Finds out what the file contains, and writes it into the reply. Throws a Refusal.
void read_facts(int file, const std::string& extension, Deadline deadline, WireReply& ret_reply);

// A picture of the file, of at most the size `bounds`, turned for display. any: accept a frame of a video and the cover
// of music, not only a photo. Throws a Refusal.
Image read_picture(int file, const std::string& extension, Deadline deadline, ImageSize bounds, bool any);
