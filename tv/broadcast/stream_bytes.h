// Builds sections and packets byte by byte, for tests and for the fuzzer's seeds. It shares no code with the readers:
// the numbers are those of ISO/IEC 13818-1 and EN 300 468.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

namespace stream_bytes {

using Bytes = std::vector<std::uint8_t>;

// The characters of a text; its bytes may have any value.
inline Bytes text(std::string_view characters) { return {characters.begin(), characters.end()}; }

inline Bytes join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

inline std::uint8_t byte(std::size_t number) { return static_cast<std::uint8_t>(number & 0xFF); }

inline Bytes two(std::size_t number) { return {byte(number >> 8), byte(number)}; }

// A length in eight bits, and in the lower twelve of sixteen, before what it counts.
inline Bytes counted(const Bytes& bytes) { return join({{byte(bytes.size())}, bytes}); }
inline Bytes loop(const Bytes& bytes, std::uint8_t flags = 0xF0) {
  return join({{static_cast<std::uint8_t>(flags | bytes.size() >> 8), byte(bytes.size())}, bytes});
}

inline Bytes descriptor(std::uint8_t tag, const Bytes& body) { return join({{tag}, counted(body)}); }

// CRC_32 of annex A, bit by bit.
inline std::uint32_t crc(std::span<const std::uint8_t> bytes) {
  std::uint32_t sum = 0xFFFFFFFF;
  for (const std::uint8_t one : bytes) {
    sum ^= static_cast<std::uint32_t>(one) << 24;
    for (int bit = 0; bit < 8; ++bit) sum = (sum & 0x80000000) != 0 ? sum << 1 ^ 0x04C11DB7 : sum << 1;
  }
  return sum;
}

inline Bytes with_crc(Bytes section) {
  const std::uint32_t sum = crc(section);
  for (const int shift : {24, 16, 8, 0}) section.push_back(byte(sum >> shift));
  return section;
}

struct Head {
  std::uint8_t table;
  std::uint16_t extension;
  std::uint8_t version = 0;
  bool current = true;
  std::uint8_t number = 0;
  std::uint8_t last = 0;
};

// With the long header and a CRC.
inline Bytes section(const Head& head, const Bytes& body) {
  const std::size_t length = 5 + body.size() + 4;
  const auto version = static_cast<std::uint8_t>(0xC0 | head.version << 1 | (head.current ? 1 : 0));
  return with_crc(join({{head.table, static_cast<std::uint8_t>(0xB0 | length >> 8), byte(length)},
                        two(head.extension),
                        {version, head.number, head.last},
                        body}));
}

// A packet with this payload behind an adaptation field that fills it up; a payload of 184 bytes has none.
struct PacketHead {
  std::uint16_t pid;
  std::uint8_t counter = 0;
  bool start = false;     // payload_unit_start_indicator
  std::int64_t pcr = -1;  // 27 MHz; -1: none
  bool scrambled = false;
  bool error = false;  // transport_error_indicator
};

inline Bytes packet(const PacketHead& head, const Bytes& payload) {
  const std::size_t room = 188 - 4 - payload.size();
  const std::uint8_t flags = (head.error ? 0x80 : 0) | (head.start ? 0x40 : 0);
  const std::uint8_t control =
      (head.scrambled ? 0x80 : 0) | (room > 0 ? 0x20 : 0) | (payload.empty() ? 0 : 0x10) | (head.counter & 0x0F);
  Bytes bytes = {0x47, static_cast<std::uint8_t>(flags | head.pid >> 8), byte(head.pid), control};
  if (room > 0) bytes.push_back(byte(room - 1));
  if (room > 1) bytes.push_back(head.pcr >= 0 ? 0x10 : 0x00);
  if (head.pcr >= 0) {
    const auto base = static_cast<std::uint64_t>(head.pcr / 300);
    const auto extension = static_cast<std::uint64_t>(head.pcr % 300);
    for (const int shift : {25, 17, 9, 1}) bytes.push_back(byte(base >> shift));
    bytes.push_back(byte((base & 1) << 7 | 0x7E | extension >> 8));
    bytes.push_back(byte(extension));
  }
  bytes.resize(188 - payload.size(), 0xFF);
  return join({bytes, payload});
}

// The packets of sections one after the other, stuffed with 0xFF; each packet's counter is one higher.
inline Bytes packets(std::uint16_t pid, std::uint8_t& counter, const Bytes& section) {
  Bytes payload = join({{0}, section});
  payload.resize((payload.size() + 183) / 184 * 184, 0xFF);
  Bytes all;
  for (std::size_t i = 0; i < payload.size(); i += 184) {
    const auto begin = payload.begin() + static_cast<std::ptrdiff_t>(i);
    all = join({all, packet({.pid = pid, .counter = counter, .start = i == 0}, {begin, begin + 184})});
    counter = static_cast<std::uint8_t>((counter + 1) % 16);
  }
  return all;
}

inline Bytes pat(std::uint16_t stream, const std::vector<std::pair<std::uint16_t, std::uint16_t>>& programs) {
  Bytes body;
  for (const auto& [service, pid] : programs) body = join({body, two(service), two(0xE000U | pid)});
  return section({.table = 0x00, .extension = stream}, body);
}

struct Elementary {
  std::uint8_t type;
  std::uint16_t pid;
  Bytes descriptors = {};
};

inline Bytes pmt(std::uint16_t service, std::uint16_t pcr_pid, const std::vector<Elementary>& streams,
                 const Bytes& descriptors = {}, std::uint8_t version = 0) {
  Bytes body = join({two(0xE000U | pcr_pid), loop(descriptors)});
  for (const Elementary& stream : streams)
    body = join({body, {stream.type}, two(0xE000U | stream.pid), loop(stream.descriptors)});
  return section({.table = 0x02, .extension = service, .version = version}, body);
}

// A time stamp of a PES header; `mark` is its first four bits.
inline Bytes stamp(std::uint64_t mark, std::uint64_t value) {
  return {byte(mark << 4 | (value >> 29 & 0x0E) | 1), byte(value >> 22), byte((value >> 14 & 0xFE) | 1),
          byte(value >> 7), byte((value << 1 & 0xFE) | 1)};
}

inline Bytes pes(std::uint64_t pts, std::uint64_t dts) {
  return join({{0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0xC0, 0x0A}, stamp(3, pts), stamp(1, dts)});
}

}  // namespace stream_bytes
