// What the tables of a transport stream say, as plain records. Everything here comes from a broadcast, so nothing in it
// can be trusted: a section whose lengths do not fit is refused as a whole, texts are valid UTF-8 without control
// characters, and every list has a bound.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

// Identifies a service for good, whatever its number and name: original network, transport stream and service id.
struct ServiceKey {
  std::uint16_t network = 0;
  std::uint16_t stream = 0;
  std::uint16_t service = 0;
  auto operator<=>(const ServiceKey&) const = default;
};

// The key in one number, for databases.
constexpr std::int64_t packed(const ServiceKey& key) {
  return std::int64_t{key.network} << 32 | std::int64_t{key.stream} << 16 | key.service;
}

// Of a packed key; bits above it are ignored.
constexpr ServiceKey unpacked(std::int64_t packed) {
  return {.network = static_cast<std::uint16_t>(packed >> 32),
          .stream = static_cast<std::uint16_t>(packed >> 16),
          .service = static_cast<std::uint16_t>(packed)};
}

constexpr bool same_multiplex(const ServiceKey& left, const ServiceKey& right) {
  return left.network == right.network && left.stream == right.stream;
}

enum class Medium : std::uint8_t { kNone = 0, kAir = 1, kCable = 2, kSatellite = 3 };  // values: TSL_BRDCST_MEDIUM_*
inline constexpr Medium kMedia[] = {Medium::kAir, Medium::kCable, Medium::kSatellite};

// "air", "cable", "satellite"; "none".
constexpr std::string_view medium_name(Medium medium) {
  constexpr std::string_view kNames[] = {"none", "air", "cable", "satellite"};
  return kNames[static_cast<std::size_t>(medium)];
}

// PAT: the programs of this multiplex, and the PIDs of their PMTs.
struct Pat {
  struct Program {
    std::uint16_t service;
    std::uint16_t pid;
  };
  std::uint16_t stream = 0;
  std::uint8_t version = 0;
  std::uint8_t section = 0;  // number of this section, and of the table's last one
  std::uint8_t last_section = 0;
  std::vector<Program> programs;  // without the network's entry (program 0)
};

enum class StreamKind : std::uint8_t { kOther, kVideo, kAudio, kSubtitle, kTeletext };

// PMT: the elementary streams of a program.
struct Pmt {
  struct Stream {
    std::uint8_t type = 0;  // stream_type
    std::uint16_t pid = 0;
    StreamKind kind = StreamKind::kOther;
    // "mpeg1video", "mpeg2video", "mpeg4", "h264", "hevc", "mp2", "aac", "ac3", "eac3", "dvb_subtitle", "teletext"
    std::string codec = {};
    std::string language = {};  // three letters, lower case; empty: unknown
    bool impaired = false;      // for the hard of hearing, or with a description for the visually impaired
  };
  std::uint16_t service = 0;
  std::uint8_t version = 0;
  std::uint16_t pcr_pid = 0x1FFF;
  bool scrambled = false;  // a conditional access system is announced
  std::vector<Stream> streams;
};

// SDT: names and types of services.
struct Sdt {
  struct Service {
    std::uint16_t service = 0;
    std::uint8_t type = 0;  // service_type: 1 television, 2 radio, 0x19 HD television
    bool scrambled = false;
    std::string name = {};
    std::string short_name = {};  // the name's part in emphasis marks (0x86, 0x87); empty: there is none
    std::string provider = {};
  };
  bool actual = true;  // of the multiplex that carries the table
  std::uint16_t network = 0;
  std::uint16_t stream = 0;
  std::uint8_t version = 0;
  std::uint8_t section = 0;
  std::uint8_t last_section = 0;
  std::vector<Service> services;
};

// NIT: the multiplexes of a network, and the logical channel numbers of their services.
struct Nit {
  struct Number {
    std::uint16_t service;
    std::uint16_t number;
    bool visible;
  };
  struct Multiplex {
    std::uint16_t network = 0;  // original network id
    std::uint16_t stream = 0;
    Medium medium = Medium::kNone;  // kNone: no delivery descriptor
    std::uint32_t frequency = 0;  // Hz over the air and cable, MHz of a satellite; 0: not said, or more than that holds
    std::uint32_t symbol_rate = 0;  // symbols per second; 0 over the air
    std::int16_t orbit = 0;         // tenths of a degree, east is positive; of a satellite
    bool horizontal = false;        // polarization; of a satellite
    std::vector<Number> numbers = {};
  };
  bool actual = true;
  std::uint16_t network_id = 0;
  std::uint8_t version = 0;
  std::uint8_t section = 0;
  std::uint8_t last_section = 0;
  std::string name;
  std::vector<Multiplex> multiplexes;
};

// EIT: one section of a service's events.
struct Eit {
  struct Text {
    std::string language = {};  // three letters, lower case; empty: unknown
    std::string title = {};
    std::string summary = {};
    std::string details = {};  // of the extended descriptions, joined in order, with their items as "what: text" lines
  };
  struct Rating {
    std::string country = {};  // three letters, upper case; empty: unknown
    std::uint8_t age = 0;      // years
  };
  struct Event {
    std::uint16_t id = 0;
    std::int64_t start = 0;      // seconds since 1970, UTC; 0: not defined
    std::uint32_t duration = 0;  // s
    std::uint8_t running = 0;    // running_status: 1 not running, 4 running
    bool scrambled = false;
    bool captions = false;  // a component descriptor announces subtitles
    std::vector<Text> texts = {};
    std::vector<std::uint8_t> categories = {};  // content_nibble_level_1 and _2 in one byte
    std::vector<Rating> ratings = {};
  };
  std::uint8_t table =
      0;  // table_id: 0x4E, 0x4F present/following of this and another multiplex; 0x50 to 0x6F schedule
  ServiceKey key;
  std::uint8_t version = 0;
  std::uint8_t section = 0;  // number of this section: in present/following 0 is present, 1 following
  std::uint8_t last_section = 0;
  std::vector<Event> events;
};

// TDT or TOT.
struct Tdt {
  std::int64_t utc = 0;  // seconds since 1970
};

// What one section says. A PAT, an SDT or a NIT may have several sections: the user merges sections 0 to last_section
// of one version.
using Table = std::variant<Pat, Pmt, Sdt, Nit, Eit, Tdt>;

// Reads one complete section, its CRC included. Nothing for a table that is not above, for one that is not applicable
// yet (current_next_indicator 0), and for a section whose CRC, lengths or numbers are wrong. A descriptor whose
// contents do not fit into its own length is left out, the others of the section count.
std::optional<Table> table_read(std::span<const std::uint8_t> section);
