// Checks the replies of dtv-media-reader. A hostile file may have taken control of the process, so a reply may have any
// contents.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "media_reader/wire.h"
#include "rooms/library/reader.h"

inline constexpr std::size_t kLongestFact = 127;  // bytes of a text of a file

// Copies the plausible values of the reply: a number that is out of its range becomes 0, and texts are cleaned. False:
// the reply is not about facts.
bool check_facts(const WireReply& reply, MediaFacts& ret_facts);

// The reply's reason for refusing the file, cleaned, on one line.
std::string check_why(const WireReply& reply);

// Whether the bytes are a complete JPEG, from the first marker to the last, whose picture has at most this size in
// pixels.
bool check_jpeg(std::span<const std::uint8_t> jpeg, std::uint32_t width, std::uint32_t height);
