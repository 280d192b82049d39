#include "core/text.h"

std::string clean_text(std::string_view text, std::size_t longest, Lines lines) {
  std::string clean;
  clean.reserve(std::min(text.size(), longest));
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const std::string_view character = length == 0 ? "?" : text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
    const auto lead = static_cast<unsigned char>(character[0]);
    const bool control =
        lead < 0x20 || lead == 0x7F || (lead == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
    if (control && (lines == Lines::kOne || lead != '\n')) continue;
    if (clean.size() + character.size() > longest) break;
    clean += character;
  }
  return clean;
}
