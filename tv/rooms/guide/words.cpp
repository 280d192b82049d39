#include "rooms/guide/words.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"
#include "rooms/guide/rows.h"

namespace {

struct Category {
  std::string_view name;
  std::uint8_t content;
};

// Content bytes of EN 300 468, table 29, by the names that guides use.
constexpr Category kCategories[] = {
    {"movie", 0x10},
    {"film", 0x10},
    {"drama", 0x10},
    {"detective", 0x11},
    {"crime", 0x11},
    {"thriller", 0x11},
    {"mystery", 0x11},
    {"adventure", 0x12},
    {"western", 0x12},
    {"war", 0x12},
    {"action", 0x12},
    {"science fiction", 0x13},
    {"sci-fi", 0x13},
    {"fantasy", 0x13},
    {"horror", 0x13},
    {"comedy", 0x14},
    {"sitcom", 0x14},
    {"soap", 0x15},
    {"soap opera", 0x15},
    {"melodrama", 0x15},
    {"romance", 0x16},
    {"history", 0x17},
    {"historical", 0x17},
    {"classical drama", 0x17},
    {"adult", 0x18},
    {"news", 0x20},
    {"current affairs", 0x20},
    {"weather", 0x21},
    {"news magazine", 0x22},
    {"documentary", 0x23},
    {"discussion", 0x24},
    {"interview", 0x24},
    {"debate", 0x24},
    {"show", 0x30},
    {"entertainment", 0x30},
    {"game show", 0x31},
    {"quiz", 0x31},
    {"variety", 0x32},
    {"reality", 0x32},
    {"talk show", 0x33},
    {"talk", 0x33},
    {"sports", 0x40},
    {"sport", 0x40},
    {"sports event", 0x41},
    {"sports magazine", 0x42},
    {"football", 0x43},
    {"soccer", 0x43},
    {"tennis", 0x44},
    {"team sports", 0x45},
    {"basketball", 0x45},
    {"ice hockey", 0x45},
    {"athletics", 0x46},
    {"motor sport", 0x47},
    {"motorsport", 0x47},
    {"formula 1", 0x47},
    {"water sport", 0x48},
    {"swimming", 0x48},
    {"winter sports", 0x49},
    {"skiing", 0x49},
    {"equestrian", 0x4A},
    {"boxing", 0x4B},
    {"martial arts", 0x4B},
    {"children", 0x50},
    {"children's", 0x50},
    {"kids", 0x50},
    {"youth", 0x50},
    {"preschool", 0x51},
    {"cartoon", 0x55},
    {"animation", 0x55},
    {"animated", 0x55},
    {"music", 0x60},
    {"rock", 0x61},
    {"pop", 0x61},
    {"classical music", 0x62},
    {"folk", 0x63},
    {"jazz", 0x64},
    {"musical", 0x65},
    {"opera", 0x65},
    {"ballet", 0x66},
    {"dance", 0x66},
    {"arts", 0x70},
    {"culture", 0x70},
    {"theatre", 0x71},
    {"performing arts", 0x71},
    {"fine arts", 0x72},
    {"religion", 0x73},
    {"religious", 0x73},
    {"literature", 0x75},
    {"cinema", 0x76},
    {"fashion", 0x7B},
    {"politics", 0x80},
    {"society", 0x80},
    {"magazine", 0x81},
    {"report", 0x81},
    {"economics", 0x82},
    {"business", 0x82},
    {"biography", 0x83},
    {"education", 0x90},
    {"educational", 0x90},
    {"science", 0x90},
    {"nature", 0x91},
    {"animals", 0x91},
    {"environment", 0x91},
    {"technology", 0x92},
    {"medicine", 0x93},
    {"health", 0x93},
    {"languages", 0x97},
    {"leisure", 0xA0},
    {"hobbies", 0xA0},
    {"lifestyle", 0xA0},
    {"travel", 0xA1},
    {"handicraft", 0xA2},
    {"motoring", 0xA3},
    {"fitness", 0xA4},
    {"cooking", 0xA5},
    {"shopping", 0xA6},
    {"gardening", 0xA7},
};

// A language by its codes in ISO 639-1, 639-2/T and 639-2/B, where these differ.
struct Language {
  std::string_view codes[3];
};

constexpr Language kLanguages[] = {
    {{"ar", "ara", "ara"}}, {{"bg", "bul", "bul"}}, {{"cs", "ces", "cze"}}, {{"cy", "cym", "wel"}},
    {{"da", "dan", "dan"}}, {{"de", "deu", "ger"}}, {{"el", "ell", "gre"}}, {{"en", "eng", "eng"}},
    {{"es", "spa", "spa"}}, {{"et", "est", "est"}}, {{"eu", "eus", "baq"}}, {{"fi", "fin", "fin"}},
    {{"fr", "fra", "fre"}}, {{"ga", "gle", "gle"}}, {{"gl", "glg", "glg"}}, {{"he", "heb", "heb"}},
    {{"hr", "hrv", "hrv"}}, {{"hu", "hun", "hun"}}, {{"is", "isl", "ice"}}, {{"it", "ita", "ita"}},
    {{"ja", "jpn", "jpn"}}, {{"ko", "kor", "kor"}}, {{"lt", "lit", "lit"}}, {{"lv", "lav", "lav"}},
    {{"nl", "nld", "dut"}}, {{"no", "nor", "nor"}}, {{"pl", "pol", "pol"}}, {{"pt", "por", "por"}},
    {{"ro", "ron", "rum"}}, {{"ru", "rus", "rus"}}, {{"sk", "slk", "slo"}}, {{"sl", "slv", "slv"}},
    {{"sq", "sqi", "alb"}}, {{"sr", "srp", "srp"}}, {{"sv", "swe", "swe"}}, {{"tr", "tur", "tur"}},
    {{"uk", "ukr", "ukr"}}, {{"zh", "zho", "chi"}},
};

std::uint8_t content_at(std::uint64_t packed, std::size_t place) {
  return static_cast<std::uint8_t>(packed >> (8 * place));
}

}  // namespace

std::uint8_t category_of(std::string_view name) {
  const auto* const found =
      std::ranges::find_if(kCategories, [&](const Category& each) { return equal_ignoring_case(each.name, name); });
  return found == std::end(kCategories) ? 0 : found->content;
}

std::uint64_t pack_categories(const std::vector<std::uint8_t>& categories) {
  std::uint64_t packed = 0;
  std::size_t count = 0;
  for (const std::uint8_t category : categories) {
    bool known = category == 0;
    for (std::size_t i = 0; i < count; ++i) known = known || content_at(packed, i) == category;
    if (!known && count < kMostEventCategories) packed |= std::uint64_t{category} << (8 * count++);
  }
  return packed;
}

std::vector<std::uint8_t> unpack_categories(std::uint64_t packed) {
  std::vector<std::uint8_t> categories;
  for (; packed != 0; packed >>= 8) categories.push_back(static_cast<std::uint8_t>(packed));
  return categories;
}

bool has_category(std::uint64_t packed, const std::vector<std::uint8_t>& wanted) {
  for (; packed != 0; packed >>= 8) {
    const auto category = static_cast<std::uint8_t>(packed);
    for (const std::uint8_t each : wanted)
      if (each == category || ((each & 0x0F) == 0 && each == (category & 0xF0))) return true;
  }
  return false;
}

bool same_language(std::string_view left, std::string_view right) {
  left = left.substr(0, left.find_first_of("-_"));
  right = right.substr(0, right.find_first_of("-_"));
  if (left.empty() || right.empty()) return false;
  if (equal_ignoring_case(left, right)) return true;
  const auto is = [](std::string_view code) {
    return [code](std::string_view each) { return equal_ignoring_case(each, code); };
  };
  return std::ranges::any_of(kLanguages, [&](const Language& each) {
    return std::ranges::any_of(each.codes, is(left)) && std::ranges::any_of(each.codes, is(right));
  });
}

std::uint8_t age_of(std::string_view rating) {
  constexpr unsigned kOldest = 21;
  rating.remove_prefix(std::min(rating.find_first_of("0123456789"), rating.size()));
  rating = rating.substr(0, rating.find_first_not_of("0123456789"));
  return static_cast<std::uint8_t>(parse_number_within<unsigned>(rating, 1, kOldest).value_or(0));
}
