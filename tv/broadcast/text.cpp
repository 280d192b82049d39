#include "broadcast/text.h"

std::string text_from_broadcast(std::span<const std::uint8_t>, std::size_t) { return ""; }
std::string text_for_broadcast(std::string_view, std::string_view) { return ""; }
