#include "broadcast/text.h"

std::string text_from_broadcast(std::span<const std::uint8_t>, std::size_t) { return ""; }
