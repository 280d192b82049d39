#include "rooms/renderer/identifier.h"

#include <array>
#include <random>

std::string new_identifier() {
  std::random_device random;
  std::array<unsigned char, 16> bytes{};
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4, at random
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text = "uuid:";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}
