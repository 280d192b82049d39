#include "rooms/library/reader_checks.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "core/text.h"

namespace {

constexpr std::uint64_t kLongestDuration = std::uint64_t{1000} * 3600 * 1000;  // ms
constexpr std::uint32_t kLargestSide = 1U << 20;                               // pixels

template <std::size_t Size>
std::string text_of(const char (&field)[Size]) {
  const std::string_view text(field, static_cast<std::size_t>(std::find(field, field + Size, '\0') - field));
  return clean_text(text, kLongestFact);
}

std::uint32_t side(std::uint32_t pixels) { return pixels <= kLargestSide ? pixels : 0; }

bool is_date(const std::uint32_t (&date)[6]) {
  return date[0] >= 1800 && date[0] <= 9999 && date[1] >= 1 && date[1] <= 12 && date[2] >= 1 && date[2] <= 31 &&
         date[3] <= 23 && date[4] <= 59 && date[5] <= 60;
}

std::uint32_t number(std::span<const std::uint8_t> bytes) {
  return static_cast<std::uint32_t>(bytes[0] << 8 | bytes[1]);
}

}  // namespace

bool check_facts(const WireReply& reply, MediaFacts& ret_facts) {
  if (reply.refused != 0 || reply.size != 0 || reply.kind > MEDIA_TYPE_VIDEO) return false;
  const auto text = [&reply](WireText which) { return text_of(reply.texts[static_cast<std::size_t>(which)]); };
  MediaFacts facts{.kind = static_cast<E_MEDIA_TYPE>(reply.kind)};
  if (facts.kind == MEDIA_TYPE_NULL) {
    ret_facts = std::move(facts);
    return true;
  }
  facts.title = text(WireText::kTitle);
  facts.artist = text(WireText::kArtist);
  facts.album = text(WireText::kAlbum);
  facts.genre = text(WireText::kGenre);
  facts.track = text(WireText::kTrack);
  facts.year = text(WireText::kYear);
  facts.duration_ms = reply.duration_ms <= kLongestDuration ? reply.duration_ms : 0;
  facts.width = side(reply.width);
  facts.height = side(reply.height);
  facts.orientation = reply.orientation >= 1 && reply.orientation <= 8 ? reply.orientation : 1;
  if (is_date(reply.date))
    facts.date = {.iyear = static_cast<UINT16>(reply.date[0]),
                  .imonth = static_cast<UINT8>(reply.date[1]),
                  .iday = static_cast<UINT8>(reply.date[2]),
                  .ihour = static_cast<UINT8>(reply.date[3]),
                  .iminute = static_cast<UINT8>(reply.date[4]),
                  .isecond = static_cast<UINT8>(reply.date[5])};
  facts.has_cover = reply.has_cover != 0;
  ret_facts = std::move(facts);
  return true;
}

std::string check_why(const WireReply& reply) {
  std::string why = text_of(reply.why);
  return why.empty() ? "the reader does not say why" : why;
}

bool check_jpeg(std::span<const std::uint8_t> jpeg, std::uint32_t width, std::uint32_t height) {
  if (jpeg.size() < 4 || number(jpeg) != 0xFFD8 || number(jpeg.last(2)) != 0xFFD9) return false;
  // Skips segments by their lengths, up to the frame header.
  for (std::size_t at = 2; at + 9 <= jpeg.size();) {
    const std::uint32_t marker = number(jpeg.subspan(at));
    const std::uint32_t length = number(jpeg.subspan(at + 2));
    if (marker == 0xFFC0) {
      const std::uint32_t high = number(jpeg.subspan(at + 5)), wide = number(jpeg.subspan(at + 7));
      return wide > 0 && wide <= width && high > 0 && high <= height;
    }
    const bool may_come_before = (marker >= 0xFFE0 && marker <= 0xFFEF) || marker == 0xFFDB || marker == 0xFFC4;
    if (!may_come_before || length < 2) return false;
    at += 2 + std::size_t{length};
  }
  return false;
}
