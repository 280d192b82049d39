// Collects the sections of chosen PIDs out of transport stream packets. Bounded: at most kMostSectionPids PIDs at once,
// one unfinished section of at most 4,096 bytes per PID, and a memory of at most kMostSeenSections sections, so that a
// repeated section is handed out once per version.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <unordered_map>
#include <vector>

inline constexpr std::size_t kMostSectionPids = 128;
inline constexpr std::size_t kMostSeenSections = 65536;

inline constexpr std::uint16_t kPidPat = 0x0000;
inline constexpr std::uint16_t kPidNit = 0x0010;
inline constexpr std::uint16_t kPidSdt = 0x0011;
inline constexpr std::uint16_t kPidEit = 0x0012;
inline constexpr std::uint16_t kPidTdt = 0x0014;

struct SectionPid {
  std::vector<std::uint8_t> section;  // what has arrived of the unfinished section
  int counter = -1;                   // the latest packet's continuity counter
  std::size_t payload = 0;            // a hash of its payload: a packet that repeats both is a duplicate
};

struct Sections {
  std::map<std::uint16_t, SectionPid> pids;  // the wanted ones
  // A hash of the latest section by PID, table, extension, (for EIT: network and stream,) number. Cleared when it is
  // full: each section is then handed out once more.
  std::unordered_map<std::uint64_t, std::uint32_t> seen;
};

// False when kMostSectionPids are wanted already.
bool sections_want(Sections& sections, std::uint16_t pid);
// Forgets the PID's sections as well: when the PID is wanted again, they are handed out again.
void sections_ignore(Sections& sections, std::uint16_t pid);

// Calls found for each section that the packets complete and that differs from the latest one in its place. The section
// is complete by its length only: table_read checks its CRC. found may call sections_want and sections_ignore.
void sections_take(Sections& sections, std::span<const std::uint8_t> packets,
                   const std::function<void(std::uint16_t pid, std::span<const std::uint8_t> section)>& found);
