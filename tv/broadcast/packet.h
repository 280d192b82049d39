// Parts of a transport stream packet (ISO/IEC 13818-1, 2.4.3), for the files that read packets. All functions take a
// whole packet of 188 bytes that begins with its sync byte.
#pragma once

#include <bitstream/mpeg/ts.h>

#include <cstdint>
#include <span>

inline constexpr std::uint8_t kSync = 0x47;
inline constexpr std::uint16_t kPidNull = 0x1FFF;
inline constexpr std::int64_t kPcrPerSecond = 27'000'000;
inline constexpr std::int64_t kPcrRange = (std::int64_t{1} << 33) * 300;  // a PCR is below this

// The adaptation field without its length byte; empty if there is none or if its length is wrong.
inline std::span<const std::uint8_t> packet_adaptation(const std::uint8_t* packet) {
  if (!ts_has_adaptation(packet)) return {};
  const std::size_t length = packet[TS_HEADER_SIZE];
  const std::size_t most = TS_SIZE - TS_HEADER_SIZE - 1;
  return length > most ? std::span<const std::uint8_t>{} : std::span{packet + TS_HEADER_SIZE + 1, length};
}

// Empty if the packet has none or if the length of its adaptation field is wrong.
inline std::span<const std::uint8_t> packet_payload(const std::uint8_t* packet) {
  if (!ts_has_payload(packet)) return {};
  const std::size_t begin = ts_has_adaptation(packet) ? TS_HEADER_SIZE + 1U + packet[TS_HEADER_SIZE] : TS_HEADER_SIZE;
  if (begin >= TS_SIZE) return {};
  return {packet + begin, TS_SIZE - begin};
}

inline bool packet_has_pcr(const std::uint8_t* packet) {
  return packet_adaptation(packet).size() >= TS_HEADER_SIZE_PCR - TS_HEADER_SIZE - 1 && tsaf_has_pcr(packet);
}

// In 27 MHz; only if packet_has_pcr.
inline std::int64_t packet_pcr(const std::uint8_t* packet) {
  const std::uint64_t base = std::uint64_t{packet[6]} << 25 | std::uint64_t{packet[7]} << 17 |
                             std::uint64_t{packet[8]} << 9 | std::uint64_t{packet[9]} << 1 | packet[10] >> 7;
  return (static_cast<std::int64_t>(base) * 300 + static_cast<std::int64_t>(tsaf_get_pcrext(packet))) % kPcrRange;
}

// The time from one PCR to a later one, across the wrap.
inline std::int64_t pcr_since(std::int64_t later, std::int64_t earlier) {
  return (later - earlier + kPcrRange) % kPcrRange;
}
