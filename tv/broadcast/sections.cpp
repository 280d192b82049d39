#include "broadcast/sections.h"

#include <string_view>
#include <utility>

#include "broadcast/packet.h"

static constexpr std::size_t kHeaderSize = 3;      // table_id and section_length
static constexpr std::size_t kLongHeaderSize = 8;  // with extension, version and numbers
static constexpr std::size_t kEitHeaderSize = 12;  // with the ids of the stream and of the network
static constexpr std::size_t kMostSectionLength = 4093;
static constexpr std::uint8_t kStuffing = 0xFF;
static constexpr int kPlaceBits = 51;  // of a key of Sections::seen; the PID is in the other 13

using Bytes = std::span<const std::uint8_t>;
using Found = std::function<void(std::uint16_t pid, Bytes section)>;

bool sections_want(Sections& sections, std::uint16_t pid) {
  if (!sections.pids.contains(pid) && sections.pids.size() >= kMostSectionPids) return false;
  sections.pids.try_emplace(pid);
  return true;
}

void sections_ignore(Sections& sections, std::uint16_t pid) {
  if (sections.pids.erase(pid) > 0)
    std::erase_if(sections.seen, [pid](auto& seen) { return seen.first >> kPlaceBits == pid; });
}

static std::size_t fingerprint(Bytes bytes) {
  return std::hash<std::string_view>{}({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// Sections of the same place replace each other. Two places that get the same key by chance only cost a repetition.
static std::uint64_t place_of(std::uint16_t pid, Bytes section) {
  const bool has_extension = section.size() >= kLongHeaderSize && (section[1] & 0x80) != 0;
  const bool is_eit = section[0] >= 0x4E && section[0] <= 0x6F && section.size() >= kEitHeaderSize;
  std::uint64_t place = section[0];
  if (has_extension) place = place << 24 | section[3] << 16 | section[4] << 8 | section[6];
  if (has_extension && is_eit) {
    for (std::size_t i = kLongHeaderSize; i < kEitHeaderSize; ++i) place = place << 8 | section[i];
    place = (place * 0x9E3779B97F4A7C15U) >> (64 - kPlaceBits);
  }
  return std::uint64_t{pid} << kPlaceBits | place;
}

// Whether the section is not the latest one of its place; it is now. The fingerprint covers the CRC as well as what it
// protects, so that a damaged section does not hide the good one that follows.
static bool is_new(Sections& sections, std::uint16_t pid, Bytes section) {
  const std::uint64_t place = place_of(pid, section);
  const auto print = static_cast<std::uint32_t>(fingerprint(section));
  const auto seen = sections.seen.find(place);
  if (seen == sections.seen.end()) {
    if (sections.seen.size() >= kMostSeenSections) sections.seen.clear();
    sections.seen.emplace(place, print);
    return true;
  }
  return std::exchange(seen->second, print) != print;
}

// Moves from the bytes into the PID's unfinished section what belongs to it, and hands the section out when it is
// complete. False when there is nothing to continue with in these bytes.
static bool advance(Sections& sections, std::uint16_t pid, Bytes& bytes, const Found& found) {
  const auto wanted = sections.pids.find(pid);
  if (wanted == sections.pids.end()) return false;
  std::vector<std::uint8_t>& section = wanted->second.section;
  const auto take_up_to = [&](std::size_t size) {
    const std::size_t count = std::min(size - std::min(size, section.size()), bytes.size());
    section.insert(section.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
    bytes = bytes.subspan(count);
    return section.size() >= size;
  };
  if (!take_up_to(kHeaderSize)) return false;
  const std::size_t length = static_cast<std::size_t>(section[1] & 0x0F) << 8 | section[2];
  if (length > kMostSectionLength) {
    section.clear();
    return false;
  }
  if (!take_up_to(kHeaderSize + length)) return false;
  // Out of the map first: found may ignore this PID.
  const std::vector<std::uint8_t> complete = std::exchange(section, {});
  if (is_new(sections, pid, complete)) found(pid, complete);
  return true;
}

static void take_packet(Sections& sections, const std::uint8_t* packet, const Found& found) {
  const std::uint16_t pid = ts_get_pid(packet);
  const auto wanted = sections.pids.find(pid);
  if (wanted == sections.pids.end()) return;
  SectionPid& state = wanted->second;
  if (ts_get_transporterror(packet)) {
    state = {};
    return;
  }
  if (ts_get_scrambling(packet) != 0 || !ts_has_payload(packet)) return;
  Bytes payload = packet_payload(packet);
  const int counter = ts_get_cc(packet);
  const std::size_t print = fingerprint(payload);
  if (counter == state.counter && print == state.payload) return;  // a duplicate
  if (state.counter >= 0 && counter != (state.counter + 1) % 16) state.section.clear();
  state.counter = counter;
  state.payload = print;
  if (payload.empty()) {
    state.section.clear();
    return;
  }
  if (!ts_get_unitstart(packet)) {
    if (!state.section.empty()) advance(sections, pid, payload, found);
    return;
  }
  const std::size_t pointer = payload[0];
  payload = payload.subspan(1);
  if (pointer > payload.size()) {
    state.section.clear();
    return;
  }
  if (!state.section.empty()) {
    Bytes end = payload.first(pointer);
    advance(sections, pid, end, found);
  }
  if (const auto still = sections.pids.find(pid); still != sections.pids.end()) still->second.section.clear();
  payload = payload.subspan(pointer);
  while (!payload.empty() && payload[0] != kStuffing && advance(sections, pid, payload, found)) {
  }
}

void sections_take(Sections& sections, Bytes packets, const Found& found) {
  for (; packets.size() >= TS_SIZE; packets = packets.subspan(TS_SIZE))
    if (ts_validate(packets.data())) take_packet(sections, packets.data(), found);
}
