// Texts of a broadcast, in the character sets of EN 300 468 annex A.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// The text in UTF-8, at most `longest` bytes of it, cut between characters. A byte that its character set does not
// have becomes U+FFFD; emphasis marks are dropped; a line break (0x8A) becomes "\n"; other control characters are
// dropped. Any input is accepted.
std::string text_from_broadcast(std::span<const std::uint8_t> bytes, std::size_t longest = 4096);

// The text's bytes for a table, with the lead bytes of the character set: "ISO6937", "ISO-8859-5", "UCS-2BE", "EUC-KR",
// "GB2312", "UTF-8" and the like. Empty if the character set cannot say the text.
std::string text_for_broadcast(std::string_view utf8, std::string_view character_set);

// The same for the part of the text between emphasis marks, which is a service's short name; empty if there is none.
std::string text_emphasized(std::span<const std::uint8_t> bytes, std::size_t longest = 4096);
