#include "rooms/channels/import.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>

#include "base/text.h"
#include "core/text.h"

namespace {

struct Delivery {
  std::string_view name;
  Medium medium;
  std::uint8_t broadcast;
};

// DELIVERY_SYSTEM
constexpr Delivery kDeliveries[] = {
    {"DVBT", Medium::kAir, SVL_BRDCST_TYPE_DVB},
    {"DVBT2", Medium::kAir, SVL_BRDCST_TYPE_DVB},
    {"DVBC", Medium::kCable, SVL_BRDCST_TYPE_DVB},
    {"DVBC/ANNEX_A", Medium::kCable, SVL_BRDCST_TYPE_DVB},
    {"DVBC/ANNEX_B", Medium::kCable, SVL_BRDCST_TYPE_ATSC},
    {"DVBC/ANNEX_C", Medium::kCable, SVL_BRDCST_TYPE_DVB},
    {"DVBC2", Medium::kCable, SVL_BRDCST_TYPE_DVB},
    {"DVBS", Medium::kSatellite, SVL_BRDCST_TYPE_DVB},
    {"DVBS2", Medium::kSatellite, SVL_BRDCST_TYPE_DVB},
    {"ATSC", Medium::kAir, SVL_BRDCST_TYPE_ATSC},
    {"ISDBT", Medium::kAir, SVL_BRDCST_TYPE_ISDB},
    {"ISDBS", Medium::kSatellite, SVL_BRDCST_TYPE_ISDB},
};

constexpr std::uint8_t kTelevision = 1, kRadio = 2, kData = 0x0C;  // service_type of the SDT

struct Section {
  std::size_t line = 0;  // of its head; 0: no section has begun
  std::string name;
  std::optional<std::uint16_t> service = {}, network = {}, stream = {};
  std::optional<std::uint64_t> frequency = {};  // as the file has it
  std::uint32_t symbol_rate = 0;
  const Delivery* delivery = nullptr;
  std::optional<std::uint16_t> major = {};
  std::uint16_t minor = 0;
  bool horizontal = false;
  bool video = false, audio = false;
  bool bad = false;  // a line that it needs is bad, and was reported
};

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kSpace = " \t\r";
  const std::size_t begin = std::min(text.find_first_not_of(kSpace), text.size());
  const std::size_t end = text.find_last_not_of(kSpace);
  return text.substr(begin, end == std::string_view::npos ? 0 : end + 1 - begin);
}

void report(Imported& imported, std::size_t line, std::string why) {
  ++imported.bad_lines;
  if (imported.bad.size() < kMostBadLines) imported.bad.push_back({line, std::move(why)});
}

// The text, cut, for a message.
std::string shown(std::string_view text) { return '"' + clean_text(text, kLongestName) + '"'; }

// A file is in UTF-8 or, where it is not, in ISO 8859-1.
std::string in_utf8(std::string_view text) {
  if (is_utf8(text)) return std::string(text);
  std::string converted;
  for (const char each : text) {
    const auto byte = static_cast<unsigned char>(each);
    if (byte >= 0x80) converted += static_cast<char>(0xC0 | byte >> 6);
    converted += byte < 0x80 ? each : static_cast<char>(0x80 | (byte & 0x3F));
  }
  return converted;
}

// ---- Lines ----

template <typename Number>
std::string read_number(std::string_view text, std::optional<Number>& ret_number) {
  const std::optional<Number> number = parse_number<Number>(text);
  if (!number) return shown(text) + " is not a number from 0 to " + std::to_string(std::numeric_limits<Number>::max());
  ret_number = number;
  return "";
}

// "7", or "7.1" and "7-1" with a minor number
std::string read_channel(std::string_view text, Section& section) {
  const std::size_t point = text.find_first_of(".-");
  const auto major = parse_number_within<std::uint16_t>(text.substr(0, point), 1, kLastNumber);
  const auto minor = point == std::string_view::npos
                         ? std::optional<std::uint16_t>(0)
                         : parse_number_within<std::uint16_t>(text.substr(point + 1), 0, 0x3FF);
  if (!major || !minor)
    return shown(text) + " is not a channel number: 1 to " + std::to_string(kLastNumber) + ", or 7.1";
  section.major = *major;
  section.minor = *minor;
  return "";
}

std::string read_delivery(std::string_view text, Section& section) {
  const auto* const found =
      std::ranges::find_if(kDeliveries, [&](const Delivery& each) { return equal_ignoring_case(each.name, text); });
  if (found == std::end(kDeliveries)) return shown(text) + " is not a delivery system that the set has";
  section.delivery = found;
  return "";
}

std::string read_symbol_rate(std::string_view text, Section& section) {
  std::optional<std::uint32_t> rate;
  std::string why = read_number(text, rate);
  section.symbol_rate = rate.value_or(0);
  return why;
}

std::string read_polarization(std::string_view text, Section& section) {
  section.horizontal = equal_ignoring_case(text, "HORIZONTAL") || equal_ignoring_case(text, "LEFT");
  return "";
}

struct Key {
  std::string_view name;
  std::string (*read)(std::string_view value, Section& section);
};

// Every other key is left out: the set needs no modulation to play a file.
constexpr Key kKeys[] = {
    {"SERVICE_ID", [](std::string_view text, Section& section) { return read_number(text, section.service); }},
    {"NETWORK_ID", [](std::string_view text, Section& section) { return read_number(text, section.network); }},
    {"TRANSPORT_ID", [](std::string_view text, Section& section) { return read_number(text, section.stream); }},
    {"FREQUENCY", [](std::string_view text, Section& section) { return read_number(text, section.frequency); }},
    {"VCHANNEL", read_channel},
    {"DELIVERY_SYSTEM", read_delivery},
    {"SYMBOL_RATE", read_symbol_rate},
    {"POLARIZATION", read_polarization},
    {"VIDEO_PID",
     [](std::string_view, Section& section) {
       section.video = true;
       return std::string();
     }},
    {"AUDIO_PID",
     [](std::string_view, Section& section) {
       section.audio = true;
       return std::string();
     }},
};

// ---- Sections ----

// In the unit of TSL_REC_T; the files have kHz of a satellite, and Hz otherwise.
std::optional<std::uint32_t> frequency_of(const Section& section) {
  const std::uint64_t frequency =
      section.delivery->medium == Medium::kSatellite ? *section.frequency / 1000 : *section.frequency;
  return frequency <= UINT32_MAX ? std::optional(static_cast<std::uint32_t>(frequency)) : std::nullopt;
}

std::string missing_of(const Section& section) {
  const bool numbered = section.delivery == nullptr || section.delivery->broadcast == SVL_BRDCST_TYPE_DVB;
  if (!section.frequency) return "FREQUENCY";
  if (section.delivery == nullptr) return "DELIVERY_SYSTEM";
  if (!section.service) return "";
  if (!section.network) return "NETWORK_ID";
  if (!section.stream) return "TRANSPORT_ID";
  return numbered || section.major ? "" : "VCHANNEL";
}

void end_section(Imported& imported, const Section& section, std::string_view table) {
  if (section.line == 0 || section.bad) return;
  if (const std::string missing = missing_of(section); !missing.empty())
    return report(imported, section.line, "the section [" + section.name + "] has no " + missing);
  const std::optional<std::uint32_t> frequency = frequency_of(section);
  if (!frequency) return report(imported, section.line, "the frequency of [" + section.name + "] is too high");
  const bool is_isdb = section.delivery->broadcast == SVL_BRDCST_TYPE_ISDB;
  if (section.service && is_isdb && (section.major.value_or(0) > 0xFF || section.minor > 0xFF))
    return report(imported, section.line, "the numbers of [" + section.name + "] are not 1 to 255");
  const Medium medium = section.delivery->medium;
  const std::int16_t orbit = medium == Medium::kSatellite ? imported.orbit.value_or(0) : std::int16_t{0};
  if (!section.service) {
    if (imported.multiplexes.size() >= kMostMultiplexes)
      return report(imported, section.line,
                    "the set knows " + std::to_string(kMostMultiplexes) + " multiplexes at most");
    imported.multiplexes.push_back({.table = std::string(table),
                                    .medium = medium,
                                    .frequency = *frequency,
                                    .symbol_rate = section.symbol_rate,
                                    .orbit = orbit,
                                    .horizontal = section.horizontal});
    return;
  }
  if (imported.services.size() >= kMostChannels)
    return report(imported, section.line, "the lists hold " + std::to_string(kMostChannels) + " channels");
  const std::uint8_t without_video = section.audio ? kRadio : kData;
  imported.services.push_back(
      {.found = {.key = {*section.network, *section.stream, *section.service},
                 .name = section.name,
                 .type = section.video ? kTelevision : without_video,
                 .number = section.major,
                 .medium = medium,
                 .frequency = *frequency,
                 .symbol_rate = section.symbol_rate,
                 .orbit = orbit,
                 .horizontal = section.horizontal},
       .broadcast = section.delivery->broadcast,
       .minor = section.delivery->broadcast == SVL_BRDCST_TYPE_DVB ? std::uint16_t{0} : section.minor});
}

// "Astra-19.2E", "Eutelsat5_5.0W"
void read_name(std::string_view name, Imported& ret_imported) {
  if (name.empty()) return;
  const char side = name.back();
  const std::size_t begin = name.find_last_not_of("0123456789.", name.size() - 2);
  if ((side != 'E' && side != 'W') || name.size() < 2 || begin == std::string_view::npos || begin + 2 >= name.size())
    return;
  const std::string_view digits = name.substr(begin + 1, name.size() - begin - 2);
  const std::size_t point = digits.find('.');
  const auto degrees = parse_number_within<std::int16_t>(digits.substr(0, point), 0, 180);
  const auto tenths = point == std::string_view::npos
                          ? std::optional<std::int16_t>(0)
                          : parse_number_within<std::int16_t>(digits.substr(point + 1), 0, 9);
  if (!degrees || !tenths) return;
  const int orbit = *degrees * 10 + *tenths;
  if (orbit > kFurthestOrbit) return;
  ret_imported.orbit = static_cast<std::int16_t>(side == 'W' ? -orbit : orbit);
  ret_imported.satellite =
      clean_text(in_utf8(name.substr(0, begin)), kLongestSatelliteName - 8) + " " + orbit_text(*ret_imported.orbit);
}

// Reads a line that is not the head of a section.
std::string read_line(std::string_view line, Section& section) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return shown(line) + " is neither [NAME] nor KEY = VALUE";
  if (section.line == 0) return shown(line) + " comes before the first [NAME]";
  const std::string_view name = trimmed(line.substr(0, equals));
  const auto* const key = std::ranges::find(kKeys, name, &Key::name);
  if (key == std::end(kKeys)) return "";
  std::string why = key->read(trimmed(line.substr(equals + 1)), section);
  section.bad = section.bad || !why.empty();
  return why.empty() ? why : std::string(name) + ": " + why;
}

}  // namespace

Imported import_text(std::string_view content, std::string_view name) {
  Imported imported;
  read_name(name, imported);
  const std::string table = clean_text(in_utf8(name), kLongestName);
  Section section;
  for (std::size_t line = 1; !content.empty(); ++line) {
    const std::size_t end = content.find('\n');
    const std::string_view text = trimmed(content.substr(0, end));
    content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
    if (text.empty() || text[0] == '#') continue;
    if (text[0] == '[' && text.back() == ']') {
      end_section(imported, section, table);
      section = {.line = line, .name = clean_text(in_utf8(text.substr(1, text.size() - 2)), kLongestName)};
    } else if (std::string why = read_line(text, section); !why.empty()) {
      report(imported, line, std::move(why));
    }
  }
  end_section(imported, section, table);
  return imported;
}

std::string import_read(const std::string& path, std::string& ret_content, std::size_t longest) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return std::system_category().message(errno);
  struct stat info {};
  std::string why, content;
  if (fstat(file, &info) != 0)
    why = std::system_category().message(errno);
  else if (!S_ISREG(info.st_mode))
    why = "it is not a regular file";
  // One byte more than the limit shows that the file is longer, even if it grows meanwhile.
  content.resize(why.empty() ? longest + 1 : 0);
  std::size_t length = 0;
  while (why.empty() && length < content.size()) {
    const ssize_t got = read(file, content.data() + length, content.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) why = std::system_category().message(errno);
    if (got <= 0) break;
    length += static_cast<std::size_t>(got);
  }
  close(file);
  if (why.empty() && length > longest) why = "it has more than " + std::to_string(longest >> 10) + " KiB";
  if (!why.empty()) return why;
  content.resize(length);
  ret_content = std::move(content);
  return "";
}
