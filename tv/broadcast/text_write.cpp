#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "broadcast/text.h"

namespace {

struct CharacterSet {
  std::string_view name;
  std::string_view lead;
  int bytes;         // of a control character: 1 in single-byte sets, 2 in two-byte sets, 3 in UTF-8
  const char* euro;  // where the C library's table differs; null: it does not
};

using std::string_view_literals::operator""sv;

constexpr CharacterSet kCharacterSets[] = {
    {"ISO6937", "", 1, "\xA4"},
    {"ISO-8859-1", "\x10\x00\x01"sv, 1, nullptr},
    {"ISO-8859-2", "\x10\x00\x02"sv, 1, nullptr},
    {"ISO-8859-3", "\x10\x00\x03"sv, 1, nullptr},
    {"ISO-8859-4", "\x10\x00\x04"sv, 1, nullptr},
    {"ISO-8859-5", "\x01", 1, nullptr},
    {"ISO-8859-6", "\x02", 1, nullptr},
    {"ISO-8859-7", "\x03", 1, nullptr},
    {"ISO-8859-8", "\x04", 1, nullptr},
    {"ISO-8859-9", "\x05", 1, nullptr},
    {"ISO-8859-10", "\x06", 1, nullptr},
    {"ISO-8859-11", "\x07", 1, nullptr},
    {"ISO-8859-13", "\x09", 1, nullptr},
    {"ISO-8859-14", "\x0A", 1, nullptr},
    {"ISO-8859-15", "\x0B", 1, nullptr},
    {"UCS-2BE", "\x11", 2, nullptr},
    {"EUC-KR", "\x12", 2, nullptr},
    {"GB2312", "\x13", 2, nullptr},
    {"UTF-8", "\x15", 3, nullptr},
};

// The line break, by the bytes of a control character: 0x8A, 0xE08A, and U+E08A.
constexpr std::string_view kLineBreaks[] = {"", "\x8A", "\xE0\x8A", "\xEE\x82\x8A"};
constexpr std::string_view kEuro = "\xE2\x82\xAC";

struct ConversionEnd {
  void operator()(void* conversion) const { iconv_close(conversion); }
};
using Conversion = std::unique_ptr<void, ConversionEnd>;

// Appends the piece in the character set. False if the set cannot say it, or if it is not valid UTF-8.
bool append_converted(std::string_view piece, const Conversion& conversion, std::string& ret_text) {
  iconv(conversion.get(), nullptr, nullptr, nullptr, nullptr);
  std::string input(piece);
  char* from = input.data();
  std::size_t left = input.size();
  std::string converted;
  while (left > 0) {
    char room[256];
    char* to = room;
    std::size_t free = sizeof room;
    const std::size_t replaced = iconv(conversion.get(), &from, &left, &to, &free);
    converted.append(room, to);
    if (replaced == static_cast<std::size_t>(-1) ? errno != E2BIG : replaced > 0) return false;
  }
  ret_text += converted;
  return true;
}

// C0, DEL and C1, which mean something else in a broadcast.
bool has_control(std::string_view utf8) {
  for (std::size_t at = 0; at < utf8.size(); ++at) {
    const auto byte = static_cast<unsigned char>(utf8[at]);
    if ((byte < 0x20 && byte != '\n') || byte == 0x7F) return true;
    if (byte == 0xC2 && at + 1 < utf8.size() && static_cast<unsigned char>(utf8[at + 1]) < 0xA0) return true;
  }
  return false;
}

}  // namespace

std::string text_for_broadcast(std::string_view utf8, std::string_view character_set) {
  const auto* const set = std::ranges::find(kCharacterSets, character_set, &CharacterSet::name);
  if (set == std::end(kCharacterSets) || utf8.empty() || has_control(utf8)) return "";
  iconv_t opened = iconv_open(std::string(set->name).c_str(), "UTF-8");
  if (opened == reinterpret_cast<iconv_t>(-1)) return "";  // NOLINT(performance-no-int-to-ptr): POSIX says so
  const Conversion conversion(opened);
  std::string text(set->lead);
  while (!utf8.empty()) {
    // Up to the next character that is written by hand.
    const std::size_t end =
        std::min({utf8.find('\n'), set->euro == nullptr ? utf8.npos : utf8.find(kEuro), utf8.size()});
    if (end > 0) {
      if (!append_converted(utf8.substr(0, end), conversion, text)) return "";
      utf8.remove_prefix(end);
    } else if (utf8.front() == '\n') {
      text += kLineBreaks[set->bytes];
      utf8.remove_prefix(1);
    } else {
      text += set->euro;
      utf8.remove_prefix(kEuro.size());
    }
  }
  return text;
}
