// The newest packets of a picture, on their way from the reception's thread to the player's. The writer never
// waits: when the ring is full, its oldest packets are lost. Each function takes the ring's own lock, under which no
// other lock is taken.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "broadcast/playout.h"

inline constexpr std::size_t kRingPackets = (std::size_t{4} << 20) / kPacketSize;  // 4 MiB
// How old the packets are with which a new reader begins: enough for a picture at once, without waiting for the
// broadcast's next one.
inline constexpr std::chrono::milliseconds kRingLead{1500};
// Packets of a program map that a reader gets first. A longer map is left out: the broadcast repeats it.
inline constexpr std::size_t kRingMapPackets = 4;

struct PacketRing {
  struct Mark {
    std::chrono::steady_clock::time_point time;
    std::uint64_t packet;
  };
  std::mutex lock;  // guards all members
  std::condition_variable changed;
  std::vector<std::uint8_t> bytes;  // grows up to the ring's size
  std::uint64_t base = 0;           // packet n is at ((n - base) % kRingPackets) * kPacketSize
  std::uint64_t first = 0;          // the oldest packet that is still there
  std::uint64_t end = 0;            // one beyond the newest
  std::deque<Mark> marks;           // when packets arrived: one per tenth of a second within kRingLead
  std::uint64_t stream = 0;         // incremented when another program begins
  std::vector<std::uint8_t> pat;    // newest packet of PID 0
  std::vector<std::uint8_t> map;    // newest program map, in whole packets
  int map_pid = -1;                 // as the PAT says
};

// Appends packets of 188 bytes. Bytes after the last whole packet, and packets that do not begin with the sync byte,
// are dropped. A PAT with another content begins another stream: what is in the ring is dropped.
void ring_put(PacketRing& ring, std::span<const std::uint8_t> packets);

// Drops what is in the ring, and its tables, and returns the memory: another program is to follow.
void ring_forget(PacketRing& ring);

// The number of the program that is in the ring; 0: no PAT has come.
std::uint64_t ring_stream(PacketRing& ring);

// One reading of the ring: the PAT and the program map, then the packets. Guarded by the ring's lock.
struct RingReader {
  std::shared_ptr<PacketRing> ring;
  std::uint64_t next = 0;            // packet
  std::vector<std::uint8_t> pieces;  // bytes to hand out before the next packet
  std::size_t handed_out = 0;        // of the pieces
  bool cancelled = false;
};

std::unique_ptr<RingReader> ring_read_from_lead(std::shared_ptr<PacketRing> ring);

// Copies bytes, at most the room's, and waits while there are none. Returns their number; 0 once cancelled.
std::size_t ring_read(RingReader& reader, std::span<char> room);

// Ends all reading by this reader, also a call that waits. Any thread.
void ring_cancel(RingReader& reader);
