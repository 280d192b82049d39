// Checks of what dtv-media-reader says. A hostile file may have taken it over, so a reply may have any contents.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "media_reader/wire.h"
#include "rooms/library/reader.h"

inline constexpr std::size_t kLongestFact = 127;  // bytes of a text of a file

// Fills the facts with what of the reply is plausible: a number that is not becomes 0, and a text is cleaned.
// False: it is no reply about facts.
bool check_facts(const WireReply& reply, MediaFacts& ret_facts);

// Why the file is refused, on one line.
std::string check_why(const WireReply& reply);

// Whether the bytes are a JPEG's from the first marker to the last, with a picture of at most this size.
bool check_jpeg(std::span<const std::uint8_t> jpeg, std::uint32_t width, std::uint32_t height);
