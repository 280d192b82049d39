// Plays a transport stream file as an antenna delivers it: whole packets, each with the time at which it is due, again
// from the beginning after the end. Finds packets of 188, 192 and 204 bytes, and finds them again after damage. The
// file may shrink, grow or vanish while it plays. A playout has no thread and no lock; its owner calls it from one
// thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

inline constexpr std::size_t kPacketSize = 188;
inline constexpr std::size_t kPlayoutChunk = 64;  // packets at most

struct PlayoutChunk {
  std::span<const std::uint8_t> packets;  // whole packets of 188 bytes; valid until the next call
  std::chrono::microseconds due{0};       // since the playout's begin, by the first PCR found; never decreases
  std::uint64_t round = 0;                // how often the file has begun again before these packets
};

struct Playout;

struct PlayoutEnd {
  void operator()(Playout* playout) const;
};
using PlayoutHandle = std::unique_ptr<Playout, PlayoutEnd>;

// Null with ret_error if the path is not a regular file that can be read, or if the first 1 MiB have no run of packets.
PlayoutHandle playout_open(const std::string& path, std::string& ret_error);

// Nothing with ret_error when the file can no longer be read or has no packets any more. Reads from the file at most
// what the chunk needs; `paced` false leaves `due` 0, for a scan that reads as fast as it can, and ends at the end of
// the file with an empty ret_error.
std::optional<PlayoutChunk> playout_next(Playout& playout, bool paced, std::string& ret_error);
