#include "broadcast/text.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <map>
#include <optional>

// The character sets of EN 300 468 annex A, by iconv's names. glibc lacks DVB's euro in ISO 6937.
struct CharacterSet {
  const char* name;
  std::array<std::uint8_t, 3> lead;
  std::uint8_t lead_size;
  std::uint8_t unit;  // bytes that are skipped for a character that the set does not have
  bool has_controls;  // single bytes 0x80 to 0x9F are control codes
};

static constexpr CharacterSet kSets[] = {
    {"ISO6937", {}, 0, 1, true},
    {"ISO-8859-5", {0x01}, 1, 1, true},
    {"ISO-8859-6", {0x02}, 1, 1, true},
    {"ISO-8859-7", {0x03}, 1, 1, true},
    {"ISO-8859-8", {0x04}, 1, 1, true},
    {"ISO-8859-9", {0x05}, 1, 1, true},
    {"ISO-8859-10", {0x06}, 1, 1, true},
    {"ISO-8859-11", {0x07}, 1, 1, true},
    {"ISO-8859-13", {0x09}, 1, 1, true},
    {"ISO-8859-14", {0x0A}, 1, 1, true},
    {"ISO-8859-15", {0x0B}, 1, 1, true},
    {"ISO-8859-1", {0x10, 0x00, 0x01}, 3, 1, true},
    {"ISO-8859-2", {0x10, 0x00, 0x02}, 3, 1, true},
    {"ISO-8859-3", {0x10, 0x00, 0x03}, 3, 1, true},
    {"ISO-8859-4", {0x10, 0x00, 0x04}, 3, 1, true},
    {"ISO-8859-5", {0x10, 0x00, 0x05}, 3, 1, true},
    {"ISO-8859-6", {0x10, 0x00, 0x06}, 3, 1, true},
    {"ISO-8859-7", {0x10, 0x00, 0x07}, 3, 1, true},
    {"ISO-8859-8", {0x10, 0x00, 0x08}, 3, 1, true},
    {"ISO-8859-9", {0x10, 0x00, 0x09}, 3, 1, true},
    {"ISO-8859-10", {0x10, 0x00, 0x0A}, 3, 1, true},
    {"ISO-8859-11", {0x10, 0x00, 0x0B}, 3, 1, true},
    {"ISO-8859-13", {0x10, 0x00, 0x0D}, 3, 1, true},
    {"ISO-8859-14", {0x10, 0x00, 0x0E}, 3, 1, true},
    {"ISO-8859-15", {0x10, 0x00, 0x0F}, 3, 1, true},
    {"UCS-2BE", {0x11}, 1, 2, false},
    {"EUC-KR", {0x12}, 1, 1, false},
    {"GB2312", {0x13}, 1, 1, false},
    {"UCS-2BE", {0x14}, 1, 2, false},
    {"UTF-8", {0x15}, 1, 1, false},
};
static constexpr const CharacterSet& kDefaultSet = kSets[0];
static constexpr std::uint8_t kForeignEncoding = 0x1F;  // its texts cannot be read
static constexpr std::uint8_t kFirstCharacter = 0x20;   // below: lead bytes

// The control codes as single bytes. In wider sets they are also characters from U+E080 on.
static constexpr std::uint32_t kEmphasisOn = 0x86;
static constexpr std::uint32_t kEmphasisOff = 0x87;
static constexpr std::uint32_t kLineBreak = 0x8A;
static constexpr std::uint32_t kWideControls = 0xE000;
static constexpr std::uint32_t kFirstSurrogate = 0xD800;
static constexpr std::uint32_t kLastSurrogate = 0xDFFF;
static constexpr std::uint32_t kLastCharacter = 0x10FFFF;
static constexpr std::uint8_t kEuro = 0xA4;  // in ISO 6937
static constexpr const char* kReplacement = "\xEF\xBF\xBD";
static constexpr const char* kEuroText = "\xE2\x82\xAC";

using Bytes = std::span<const std::uint8_t>;

struct Converter {
  iconv_t handle;
  Converter(const char* to, const char* from) : handle(iconv_open(to, from)) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (is_open()) iconv_close(handle);
  }
  bool is_open() const { return handle != reinterpret_cast<iconv_t>(-1); }
};

// A thread keeps its converters: opening one loads a library. A converter that cannot be opened is not in the map.
static iconv_t converter(const char* to, const char* from) {
  thread_local std::map<std::pair<std::string, std::string>, Converter> converters;
  const auto found = converters.try_emplace({to, from}, to, from).first;
  return found->second.handle;
}

struct Writing {
  std::string text = {};
  std::size_t longest;
  bool only_emphasized;
  bool emphasized = false;
  bool full = false;
};

static void write(Writing& writing, std::string_view character) {
  if (writing.only_emphasized && !writing.emphasized) return;
  if (writing.text.size() + character.size() > writing.longest) writing.full = true;
  if (!writing.full) writing.text += character;
}

static void write_control(Writing& writing, std::uint32_t code) {
  if (code == kEmphasisOn) writing.emphasized = true;
  if (code == kEmphasisOff) writing.emphasized = false;
  if (code == kLineBreak) write(writing, "\n");
}

// The characters of what iconv gives, which may have codes beyond Unicode; control codes take effect or are dropped.
static void write_characters(Writing& writing, std::string_view utf8) {
  while (!utf8.empty()) {
    const auto lead = static_cast<std::uint8_t>(utf8[0]);
    // glibc takes the old forms of five and six bytes as well.
    const std::size_t size = lead < 0x80   ? 1
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF8 ? 4
                             : lead < 0xFC ? 5
                                           : 6;
    const std::string_view character = utf8.substr(0, size);
    utf8.remove_prefix(character.size());
    std::uint32_t code = lead;
    if (size > 1) code = lead & (0xFFU >> (size + 1));
    for (const char c : character.substr(1)) code = code << 6U | (static_cast<std::uint8_t>(c) & 0x3FU);
    const std::uint32_t control = code >= kWideControls ? code - kWideControls : code;
    if (control >= 0x80 && control < 0xA0)
      write_control(writing, control);
    else if (code > kLastCharacter || (code >= kFirstSurrogate && code <= kLastSurrogate))
      write(writing, kReplacement);
    else if (code >= kFirstCharacter && code != 0x7F)
      write(writing, character);
  }
}

static void write_converted(Writing& writing, const CharacterSet& set, Bytes bytes) {
  const iconv_t handle = converter("UTF-8", set.name);
  iconv(handle, nullptr, nullptr, nullptr, nullptr);
  // iconv does not write to its input.
  char* from = const_cast<char*>(reinterpret_cast<const char*>(bytes.data()));
  std::size_t left = bytes.size();
  bool flushed = false;
  while (!flushed && !writing.full) {
    std::array<char, 512> output;
    char* to = output.data();
    std::size_t room = output.size();
    // A last call without input gives out an accent that waits for its letter.
    flushed = left == 0;
    const std::size_t result =
        flushed ? iconv(handle, nullptr, nullptr, &to, &room) : iconv(handle, &from, &left, &to, &room);
    const int error = result == static_cast<std::size_t>(-1) ? errno : 0;
    write_characters(writing, {output.data(), output.size() - room});
    if (error == 0 || error == E2BIG) continue;
    write(writing, kReplacement);
    const std::size_t skipped = std::min<std::size_t>(left, set.unit);
    from += skipped;
    left -= skipped;
  }
}

// Single-byte sets: control codes, and the euro, stand between what is converted.
static void write_with_controls(Writing& writing, const CharacterSet& set, Bytes bytes) {
  const auto is_special = [&](std::uint8_t byte) {
    return (byte >= 0x80 && byte < 0xA0) || (byte == kEuro && &set == &kDefaultSet);
  };
  while (!bytes.empty() && !writing.full) {
    std::size_t plain = 0;
    while (plain < bytes.size() && !is_special(bytes[plain])) ++plain;
    if (plain > 0) write_converted(writing, set, bytes.first(plain));
    bytes = bytes.subspan(plain);
    if (bytes.empty()) return;
    if (bytes[0] == kEuro)
      write(writing, kEuroText);
    else
      write_control(writing, bytes[0]);
    bytes = bytes.subspan(1);
  }
}

static std::string read_text(Bytes bytes, std::size_t longest, bool only_emphasized) {
  if (bytes.empty() || bytes[0] == kForeignEncoding) return {};
  const CharacterSet* set = &kDefaultSet;
  std::size_t lead = bytes[0] < kFirstCharacter ? 1 : 0;  // a reserved one says nothing
  for (const CharacterSet& other : kSets) {
    if (other.lead_size == 0 || bytes.size() < other.lead_size) continue;
    if (!std::equal(other.lead.begin(), other.lead.begin() + other.lead_size, bytes.begin())) continue;
    set = &other;
    lead = other.lead_size;
  }
  Writing writing{.longest = longest, .only_emphasized = only_emphasized};
  bytes = bytes.subspan(lead);
  if (set->has_controls)
    write_with_controls(writing, *set, bytes);
  else
    write_converted(writing, *set, bytes);
  return writing.text;
}

std::string text_from_broadcast(Bytes bytes, std::size_t longest) { return read_text(bytes, longest, false); }

std::string text_emphasized(Bytes bytes, std::size_t longest) { return read_text(bytes, longest, true); }

// The bytes of one character in the set; nothing if the set does not have it.
static std::optional<std::string> said_in(const CharacterSet& set, std::string_view character) {
  if (character == "\n") {
    if (set.has_controls) return std::string(1, static_cast<char>(kLineBreak));
    character = "\xEE\x82\x8A";  // U+E08A
  }
  if (&set == &kDefaultSet && character == kEuroText) return std::string(1, static_cast<char>(kEuro));
  // Line breaks are the only control codes that a text has.
  const auto lead = static_cast<std::uint8_t>(character[0]);
  if (lead < kFirstCharacter || lead == 0x7F || (character >= "\xC2\x80" && character < "\xC2\xA0"))
    return std::nullopt;
  const iconv_t handle = converter(set.name, "UTF-8");
  iconv(handle, nullptr, nullptr, nullptr, nullptr);
  char* from = const_cast<char*>(character.data());
  std::size_t left = character.size();
  std::array<char, 16> output;
  char* to = output.data();
  std::size_t room = output.size();
  // A number above 0 counts characters that were replaced by similar ones.
  if (iconv(handle, &from, &left, &to, &room) != 0 || iconv(handle, nullptr, nullptr, &to, &room) != 0)
    return std::nullopt;
  return std::string(output.data(), output.size() - room);
}

std::string text_for_broadcast(std::string_view utf8, std::string_view character_set) {
  if (utf8.empty()) return {};
  for (const CharacterSet& set : kSets) {
    if (character_set != set.name) continue;
    std::string text(reinterpret_cast<const char*>(set.lead.data()), set.lead_size);
    while (!utf8.empty()) {
      std::size_t size = 1;
      while (size < utf8.size() && (static_cast<std::uint8_t>(utf8[size]) & 0xC0) == 0x80) ++size;
      const auto said = said_in(set, utf8.substr(0, size));
      if (!said) return {};
      text += *said;
      utf8.remove_prefix(size);
    }
    return text;
  }
  return {};
}
