#include "rooms/screen/player/ring.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr std::uint8_t kSync = 0x47;
constexpr std::chrono::milliseconds kMarkDistance{100};

using Packet = std::span<const std::uint8_t, kPacketSize>;

int pid_of(Packet packet) { return (packet[1] & 0x1F) << 8 | packet[2]; }
bool begins_section(Packet packet) { return (packet[1] & 0x40) != 0; }

// Whether both packets have the same bytes, but for the continuity counter.
bool same_but_counter(Packet packet, const std::vector<std::uint8_t>& other) {
  return other.size() == packet.size() && std::equal(packet.begin(), packet.begin() + 3, other.begin()) &&
         std::equal(packet.begin() + 4, packet.end(), other.begin() + 4);
}

// The PID of the first program's map; -1: the packet does not hold a program association section with one.
int map_pid_of(Packet pat) {
  const bool has_field = (pat[3] & 0x20) != 0;
  const std::size_t payload = has_field ? std::size_t{5} + pat[4] : 4;
  if (payload >= kPacketSize) return -1;
  const std::size_t section = payload + 1 + pat[payload];  // behind the pointer field
  constexpr std::size_t kHead = 8, kProgram = 4;
  for (std::size_t at = section + kHead; at + kProgram <= kPacketSize; at += kProgram) {
    const int program = pat[at] << 8 | pat[at + 1];
    if (program != 0) return (pat[at + 2] & 0x1F) << 8 | pat[at + 3];
  }
  return -1;
}

// The caller of the functions below holds the ring's lock.

void begin_stream(PacketRing& ring, Packet pat) {
  ring.pat.assign(pat.begin(), pat.end());
  ring.map.clear();
  ring.map_pid = map_pid_of(pat);
  ring.first = ring.end;
  ring.marks.assign(1, {std::chrono::steady_clock::now(), ring.end});
  ++ring.stream;
}

void keep_map(PacketRing& ring, Packet packet) {
  if (begins_section(packet)) ring.map.clear();
  const bool continues = begins_section(packet) || !ring.map.empty();
  if (continues && ring.map.size() < kRingMapPackets * kPacketSize)
    ring.map.insert(ring.map.end(), packet.begin(), packet.end());
}

std::size_t place_of(const PacketRing& ring, std::uint64_t packet) {
  return ((packet - ring.base) % kRingPackets) * kPacketSize;
}

void append(PacketRing& ring, Packet packet) {
  const std::size_t place = place_of(ring, ring.end);
  if (ring.bytes.size() < place + kPacketSize) ring.bytes.resize(place + kPacketSize);
  std::ranges::copy(packet, ring.bytes.begin() + static_cast<std::ptrdiff_t>(place));
  ++ring.end;
  if (ring.end - ring.first > kRingPackets) ring.first = ring.end - kRingPackets;
}

void mark(PacketRing& ring) {
  const auto now = std::chrono::steady_clock::now();
  if (ring.marks.empty() || now - ring.marks.back().time >= kMarkDistance) ring.marks.push_back({now, ring.end});
  // The first of two marks that are both old enough is of no use.
  while (ring.marks.size() > 1 && now - ring.marks[1].time >= kRingLead) ring.marks.pop_front();
}

}  // namespace

void ring_put(PacketRing& ring, std::span<const std::uint8_t> packets) {
  const std::lock_guard guard(ring.lock);
  mark(ring);
  for (; packets.size() >= kPacketSize; packets = packets.subspan(kPacketSize)) {
    const Packet packet = packets.first<kPacketSize>();
    if (packet[0] != kSync) continue;
    const int pid = pid_of(packet);
    if (pid == 0 && begins_section(packet) && !same_but_counter(packet, ring.pat)) begin_stream(ring, packet);
    if (pid == ring.map_pid) keep_map(ring, packet);
    append(ring, packet);
  }
  ring.changed.notify_all();
}

void ring_forget(PacketRing& ring) {
  const std::lock_guard guard(ring.lock);
  ring.pat.clear();
  ring.map.clear();
  ring.map_pid = -1;
  ring.first = ring.base = ring.end;
  ring.marks.clear();
  std::vector<std::uint8_t>().swap(ring.bytes);
}

std::uint64_t ring_stream(PacketRing& ring) {
  const std::lock_guard guard(ring.lock);
  return ring.pat.empty() ? 0 : ring.stream;
}

std::unique_ptr<RingReader> ring_read_from_lead(std::shared_ptr<PacketRing> ring) {
  auto reader = std::make_unique<RingReader>();
  const std::lock_guard guard(ring->lock);
  reader->pieces = ring->pat;
  reader->pieces.insert(reader->pieces.end(), ring->map.begin(), ring->map.end());
  reader->next = ring->marks.empty() ? ring->first : ring->marks.front().packet;
  reader->ring = std::move(ring);
  return reader;
}

std::size_t ring_read(RingReader& reader, std::span<char> room) {
  PacketRing& ring = *reader.ring;
  std::unique_lock guard(ring.lock);
  ring.changed.wait(guard, [&] {
    return reader.cancelled || reader.handed_out < reader.pieces.size() || std::max(reader.next, ring.first) < ring.end;
  });
  if (reader.cancelled) return 0;
  std::size_t copied = 0;
  while (copied < room.size()) {
    if (reader.handed_out == reader.pieces.size()) {
      reader.next = std::max(reader.next, ring.first);  // packets that the ring has lost meanwhile are skipped whole
      if (reader.next == ring.end) break;
      const auto place = ring.bytes.begin() + static_cast<std::ptrdiff_t>(place_of(ring, reader.next));
      reader.pieces.assign(place, place + kPacketSize);
      reader.handed_out = 0;
      ++reader.next;
    }
    const std::size_t piece = std::min(room.size() - copied, reader.pieces.size() - reader.handed_out);
    std::memcpy(room.data() + copied, reader.pieces.data() + reader.handed_out, piece);
    reader.handed_out += piece;
    copied += piece;
  }
  return copied;
}

void ring_cancel(RingReader& reader) {
  const std::lock_guard guard(reader.ring->lock);
  reader.cancelled = true;
  reader.ring->changed.notify_all();
}
