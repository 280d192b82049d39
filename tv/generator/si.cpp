#include "generator/si.h"

#include <bitstream/dvb/si.h>
#include <bitstream/mpeg/psi.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "generator/events.h"
#include "generator/programmes.h"
#include "generator/si_parts.h"

namespace {

constexpr std::size_t kLongestNetworkSection = 1024;  // NIT and SDT
constexpr std::size_t kLongestEventSection = 4096;
constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kSegment = 3 * 3600;
constexpr int kSegmentsPerTable = 32;
constexpr int kSectionsPerSegment = 8;
constexpr int kDaysPerTable = 4;
constexpr std::uint32_t kNumbersSpecifier = 0x28;     // private data specifier of the logical channel numbers
constexpr std::uint16_t kConditionalAccess = 0x4A80;  // CA system id
constexpr std::uint16_t kEcmPid = 0x1F00;
// running_status. The schedule leaves it undefined, so that it stays the same all day, like its version.
constexpr std::uint8_t kUndefined = 0;
constexpr std::uint8_t kNotRunning = 1;
constexpr std::uint8_t kRunning = 4;

// Appends a loop with its length in front: 12 bits, below four reserved ones.
void append_loop(Section& section, const std::vector<std::uint8_t>& loop) {
  section.push_back(static_cast<std::uint8_t>(0xF0 | loop.size() >> 8));
  section.push_back(static_cast<std::uint8_t>(loop.size()));
  section.insert(section.end(), loop.begin(), loop.end());
}

// Writes length, version, numbers and CRC of a section whose other bytes are complete.
void close_section(Section& section, std::size_t longest, std::uint8_t version, int number, int last) {
  if (section.size() + PSI_CRC_SIZE > longest) throw std::length_error("a section of a multiplex is too long");
  section.resize(section.size() + PSI_CRC_SIZE);
  psi_set_length(section.data(), static_cast<std::uint16_t>(section.size() - PSI_HEADER_SIZE));
  psi_set_version(section.data(), version);
  psi_set_current(section.data());
  psi_set_section(section.data(), static_cast<std::uint8_t>(number));
  psi_set_lastsection(section.data(), static_cast<std::uint8_t>(last));
  psi_set_crc(section.data());
}

template <typename Each>
void for_each_service(std::uint16_t stream, const Each& each) {
  for (const ServiceRow& service : kServices)
    if (service.stream == stream) each(service);
}

// BCD, as the satellite's descriptor has its numbers.
std::uint32_t bcd(std::uint32_t number) {
  std::uint32_t digits = 0;
  for (int shift = 0; number > 0; shift += 4, number /= 10) digits |= number % 10 << shift;
  return digits;
}

void append_delivery(std::vector<std::uint8_t>& loop, const MultiplexRow& multiplex) {
  append_descriptor(loop, [&](std::uint8_t* descriptor) {
    if (multiplex.medium == Medium::kSatellite) {
      desc43_init(descriptor);
      desc43_set_frequency_bcd(descriptor, bcd(multiplex.frequency * 100));  // in steps of 10 kHz
      desc43_set_position_bcd(descriptor, static_cast<std::uint16_t>(bcd(static_cast<std::uint32_t>(multiplex.orbit))));
      desc43_set_east(descriptor, true);
      desc43_set_polarization(descriptor, 0);  // horizontal
      desc43_set_modulation(descriptor, 1);    // QPSK
      desc43_set_symbolrate_bcd(descriptor, bcd(multiplex.symbol_rate / 100));
      desc43_set_fecinner(descriptor, 3);  // 3/4
      return;
    }
    desc5a_init(descriptor);
    desc5a_set_frequency(descriptor, multiplex.frequency / 10);
    desc5a_set_bandwidth(descriptor, 0);  // 8 MHz
    desc5a_set_priority(descriptor, true);
    desc5a_set_timeslicing(descriptor, true);  // 1: not used; so is the next
    desc5a_set_mpefec(descriptor, true);
    desc5a_set_constellation(descriptor, 2);  // 64-QAM
    desc5a_set_hierarchy(descriptor, 0);
    desc5a_set_coderatehp(descriptor, 1);  // 2/3
    desc5a_set_coderatelp(descriptor, 0);
    desc5a_set_guard(descriptor, 1);         // 1/16
    desc5a_set_transmission(descriptor, 1);  // 8k
    desc5a_set_otherfrequency(descriptor, 0);
  });
}

void append_numbers(std::vector<std::uint8_t>& loop, std::uint16_t stream) {
  append_descriptor(loop, [](std::uint8_t* descriptor) {
    desc5f_init(descriptor);
    desc5f_set_specifier(descriptor, kNumbersSpecifier);
  });
  append_descriptor(loop, [stream](std::uint8_t* descriptor) {
    desc83p28_init(descriptor);
    std::uint8_t length = 0;
    for_each_service(stream, [&](const ServiceRow& service) {
      std::uint8_t* entry = descriptor + DESC_HEADER_SIZE + length;
      entry[0] = static_cast<std::uint8_t>(service.id >> 8);
      entry[1] = static_cast<std::uint8_t>(service.id);
      entry[2] = static_cast<std::uint8_t>((service.visible ? 0xFC : 0x7C) | service.number >> 8);
      entry[3] = static_cast<std::uint8_t>(service.number);
      length += DESC83P28_SERVICE_SIZE;
    });
    desc_set_length(descriptor, length);
  });
}

void append_service_list(std::vector<std::uint8_t>& loop, std::uint16_t stream) {
  append_descriptor(loop, [stream](std::uint8_t* descriptor) {
    desc41_init(descriptor);
    std::uint8_t length = 0;
    for_each_service(stream, [&](const ServiceRow& service) {
      std::uint8_t* entry = descriptor + DESC41_HEADER_SIZE + length;
      desc41n_set_sid(entry, service.id);
      desc41n_set_type(entry, service.type);
      length += DESC41_SERVICE_SIZE;
    });
    desc_set_length(descriptor, length);
  });
}

Section nit(std::uint16_t network_id, bool actual) {
  std::vector<std::uint8_t> network;
  std::vector<std::uint8_t> streams;
  for (const MultiplexRow& multiplex : kMultiplexes) {
    if (multiplex.network_id != network_id) continue;
    if (network.empty())
      append_descriptor(network, [&](std::uint8_t* descriptor) {
        const std::string name = encoded(multiplex.network_name, "UTF-8");
        desc40_init(descriptor);
        desc40_set_networkname(descriptor, bytes_of(name), length_of(name));
      });
    std::vector<std::uint8_t> loop;
    append_service_list(loop, multiplex.stream);
    append_delivery(loop, multiplex);
    append_numbers(loop, multiplex.stream);
    std::array<std::uint8_t, NIT_TS_SIZE> header = {};
    nitn_init(header.data());
    nitn_set_tsid(header.data(), multiplex.stream);
    nitn_set_onid(header.data(), multiplex.network);
    streams.insert(streams.end(), header.begin(), header.end() - 2);  // append_loop writes the length
    append_loop(streams, loop);
  }
  Section section(NIT_HEADER_SIZE);
  nit_init(section.data(), actual);
  nit_set_nid(section.data(), network_id);
  section.resize(NIT_HEADER_SIZE - 2);
  append_loop(section, network);
  append_loop(section, streams);
  close_section(section, kLongestNetworkSection, 1, 0, 0);
  return section;
}

void append_service(Section& section, const ServiceRow& service, bool actual) {
  std::array<std::uint8_t, SDT_SERVICE_SIZE> header = {};
  sdtn_init(header.data());
  sdtn_set_sid(header.data(), service.id);
  sdtn_set_eitpresent(header.data());
  if (actual) sdtn_set_eitschedule(header.data());
  sdtn_set_running(header.data(), 4);
  if (service.scrambled) sdtn_set_ca(header.data());
  std::vector<std::uint8_t> loop;
  append_descriptor(loop, [&](std::uint8_t* descriptor) {
    const std::string provider = encoded(service.provider, "ISO6937");
    std::string name = encoded(service.name, service.character_set);
    if (!service.short_name.empty()) {
      name.insert(service.short_name.size(), "\x87");
      name.insert(0, "\x86");
    }
    desc48_init(descriptor);
    desc48_set_type(descriptor, service.type);
    desc48_set_provider(descriptor, bytes_of(provider), length_of(provider));
    desc48_set_service(descriptor, bytes_of(name), length_of(name));
    desc48_set_length(descriptor);
  });
  sdtn_set_desclength(header.data(), static_cast<std::uint16_t>(loop.size()));
  section.insert(section.end(), header.begin(), header.end());
  section.insert(section.end(), loop.begin(), loop.end());
}

Section sdt(const MultiplexRow& multiplex, bool actual) {
  Section section(SDT_HEADER_SIZE);
  sdt_init(section.data(), actual);
  sdt_set_tsid(section.data(), multiplex.stream);
  sdt_set_onid(section.data(), multiplex.network);
  section.back() = 0xFF;
  for_each_service(multiplex.stream, [&](const ServiceRow& service) { append_service(section, service, actual); });
  close_section(section, kLongestNetworkSection, 1, 0, 0);
  return section;
}

// A section of events that is not closed yet, since its numbers are known only when all are there.
Section open_eit(const MultiplexRow& multiplex, std::uint16_t service, int table) {
  Section section(EIT_HEADER_SIZE);
  eit_init(section.data(), true);
  psi_set_tableid(section.data(), static_cast<std::uint8_t>(table));
  eit_set_sid(section.data(), service);
  eit_set_tsid(section.data(), multiplex.stream);
  eit_set_onid(section.data(), multiplex.network);
  return section;
}

void close_eit(Section& section, std::uint8_t version, int number, int last, int segment_last, int last_table) {
  eit_set_segment_last_sec_number(section.data(), static_cast<std::uint8_t>(segment_last));
  eit_set_last_table_id(section.data(), static_cast<std::uint8_t>(last_table));
  close_section(section, kLongestEventSection, version, number, last);
}

void append_present_following(const MultiplexRow& multiplex, const ServiceRow& service, std::int64_t utc, bool actual,
                              std::vector<Section>& ret_sections) {
  const std::vector<Programme> programmes = programmes_between(service.id, utc, utc + 3 * kSegment);
  const int table = actual ? EIT_TABLE_ID_PF_ACTUAL : EIT_TABLE_ID_PF_OTHER;
  // Programmes begin at whole five minutes, so that another version means other programmes.
  const auto version = static_cast<std::uint8_t>(utc / 300 % 32);
  for (std::size_t number = 0; number < 2; ++number) {
    Section section = open_eit(multiplex, service.id, table);
    if (number < programmes.size()) {
      const std::vector<std::uint8_t> event =
          event_bytes(service, programmes[number], number == 0 ? kRunning : kNotRunning);
      section.insert(section.end(), event.begin(), event.end());
    }
    close_eit(section, version, static_cast<int>(number), 1, 1, table);
    ret_sections.push_back(std::move(section));
  }
}

// One segment: at least one section, an empty one if nothing begins within these three hours.
std::vector<Section> segment_sections(const MultiplexRow& multiplex, const ServiceRow& service, int table,
                                      std::int64_t begin) {
  std::vector<Section> sections = {open_eit(multiplex, service.id, table)};
  for (const Programme& programme : programmes_between(service.id, begin, begin + kSegment)) {
    if (programme.start < begin) continue;
    const std::vector<std::uint8_t> event = event_bytes(service, programme, kUndefined);
    if (sections.back().size() + event.size() + PSI_CRC_SIZE > kLongestEventSection)
      sections.push_back(open_eit(multiplex, service.id, table));
    sections.back().insert(sections.back().end(), event.begin(), event.end());
  }
  if (sections.size() > kSectionsPerSegment) throw std::length_error("a segment of the guide is too long");
  return sections;
}

void append_schedule(const MultiplexRow& multiplex, const ServiceRow& service, const Stamp& stamp,
                     std::vector<Section>& ret_sections) {
  const std::int64_t midnight = stamp.utc - stamp.utc % kDay;
  const int tables = (stamp.days + kDaysPerTable - 1) / kDaysPerTable;
  const int last_table = EIT_TABLE_ID_SCHED_ACTUAL_FIRST + tables - 1;
  const auto version = static_cast<std::uint8_t>(stamp.utc / kDay % 32);
  for (int index = 0; index < tables; ++index) {
    const int days = std::min(kDaysPerTable, stamp.days - index * kDaysPerTable);
    const int segments = kSegmentsPerTable * days / kDaysPerTable;
    std::vector<std::vector<Section>> table;
    for (int segment = 0; segment < segments; ++segment)
      table.push_back(segment_sections(multiplex, service, EIT_TABLE_ID_SCHED_ACTUAL_FIRST + index,
                                       midnight + (index * kSegmentsPerTable + segment) * kSegment));
    const int last = (segments - 1) * kSectionsPerSegment + static_cast<int>(table.back().size()) - 1;
    for (int segment = 0; segment < segments; ++segment) {
      std::vector<Section>& sections = table[static_cast<std::size_t>(segment)];
      const int first = segment * kSectionsPerSegment;
      const int segment_last = first + static_cast<int>(sections.size()) - 1;
      for (int number = first; number <= segment_last; ++number) {
        Section& section = sections[static_cast<std::size_t>(number - first)];
        close_eit(section, version, number, last, segment_last, last_table);
        ret_sections.push_back(std::move(section));
      }
    }
  }
}

}  // namespace

std::vector<Carousel> si_carousels(const MultiplexRow& multiplex, const Stamp& stamp) {
  const auto within_file = [&](double period) { return std::min(period, stamp.seconds * 0.5); };
  Carousel nits = {.pid = NIT_PID, .period = within_file(5), .sections = {nit(multiplex.network_id, true)}};
  Carousel own_sdt = {.pid = SDT_PID, .period = within_file(1.5), .sections = {sdt(multiplex, true)}};
  Carousel other_sdts = {.pid = SDT_PID, .period = within_file(8), .sections = {}};
  Carousel own_events = {.pid = EIT_PID, .period = within_file(2), .sections = {}};
  Carousel other_events = {.pid = EIT_PID, .period = within_file(10), .sections = {}};
  Carousel schedule = {.pid = EIT_PID, .period = stamp.seconds * 0.8, .sections = {}};
  std::uint16_t network_id = multiplex.network_id;
  for (const MultiplexRow& other : kMultiplexes) {
    const bool actual = other.stream == multiplex.stream;
    if (other.network_id != network_id && other.network_id != multiplex.network_id) {
      network_id = other.network_id;
      nits.sections.push_back(nit(network_id, false));
    }
    if (!actual) other_sdts.sections.push_back(sdt(other, false));
    for_each_service(other.stream, [&](const ServiceRow& service) {
      append_present_following(other, service, stamp.utc, actual, (actual ? own_events : other_events).sections);
      if (actual) append_schedule(other, service, stamp, schedule.sections);
    });
  }
  return {nits, own_sdt, other_sdts, own_events, other_events, schedule};
}

Section si_tdt(std::int64_t utc) {
  Section section(TDT_HEADER_SIZE);
  tdt_init(section.data());
  tdt_set_utc(section.data(), dvb_time_encode_UTC(utc));
  return section;
}

Section si_tot(std::int64_t utc) {
  const ZoneOffset zone = programmes_zone(utc);
  const auto digits = [](std::int32_t seconds) {
    const auto minutes = static_cast<std::uint32_t>(std::abs(seconds)) / 60;
    return static_cast<std::uint16_t>(bcd(minutes / 60) << 8 | bcd(minutes % 60));
  };
  std::vector<std::uint8_t> loop;
  append_descriptor(loop, [&](std::uint8_t* descriptor) {
    desc58_init(descriptor);
    desc_set_length(descriptor, DESC58_LTO_SIZE);
    std::uint8_t* entry = desc58_get_lto(descriptor, 0);
    desc58n_set_country_code(entry, bytes_of(kCountry));
    entry[3] = 0x02;  // region 0, a reserved bit
    desc58n_set_lto_polarity(entry, zone.seconds < 0);
    desc58n_set_lt_offset(entry, digits(zone.seconds));
    desc58n_set_time_of_change(entry, dvb_time_encode_UTC(zone.next_change));
    desc58n_set_next_offset(entry, digits(zone.next_seconds));
  });
  Section section(TOT_HEADER_SIZE);
  tot_init(section.data());
  tot_set_utc(section.data(), dvb_time_encode_UTC(utc));
  section.resize(TOT_HEADER_SIZE - 2);
  append_loop(section, loop);
  section.resize(section.size() + PSI_CRC_SIZE);
  psi_set_length(section.data(), static_cast<std::uint16_t>(section.size() - PSI_HEADER_SIZE));
  psi_set_crc(section.data());
  return section;
}

Section si_scrambled_pmt(const std::uint8_t* pmt) {
  const std::size_t size = psi_get_length(pmt) + PSI_HEADER_SIZE - PSI_CRC_SIZE;
  const std::size_t loop_end = PMT_HEADER_SIZE + pmt_get_desclength(pmt);
  Section section(pmt, pmt + size);
  std::vector<std::uint8_t> access;
  append_descriptor(access, [](std::uint8_t* descriptor) {
    desc09_init(descriptor);
    desc_set_length(descriptor, DESC09_HEADER_SIZE - DESC_HEADER_SIZE);
    desc09_set_sysid(descriptor, kConditionalAccess);
    desc09_set_pid(descriptor, kEcmPid);
  });
  section.insert(section.begin() + static_cast<std::ptrdiff_t>(loop_end), access.begin(), access.end());
  pmt_set_desclength(section.data(), static_cast<std::uint16_t>(pmt_get_desclength(pmt) + access.size()));
  section.resize(section.size() + PSI_CRC_SIZE);
  psi_set_length(section.data(), static_cast<std::uint16_t>(section.size() - PSI_HEADER_SIZE));
  psi_set_crc(section.data());
  return section;
}
