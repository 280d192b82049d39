#include "broadcast/playout.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include "broadcast/packet.h"

// A run of packets, by which packets are found, is this many sync bytes in a row at the distance of the packets.
static constexpr std::size_t kRun = 5;
static constexpr std::size_t kDistances[] = {188, 192,
                                             204};  // plain, with a time stamp before, with a check sum behind
static constexpr std::size_t kTimeStamp = 4;
// Where so many bytes hold no run of packets, the file is no transport stream, or ends here.
static constexpr std::size_t kMostDamage = 1U << 20U;
static constexpr std::size_t kReadSize = 65536;  // while searching

// The pace. Rates that no broadcast has are bounded, so that a file can neither spin the reader nor stop it.
static constexpr std::int64_t ticks_at(std::int64_t bits_per_second) {
  return std::int64_t{kPacketSize} * 8 * kPcrPerSecond / bits_per_second;
}
static constexpr std::int64_t kTicksWithoutPcr = ticks_at(5'000'000);  // of a packet, in a file without PCR
static constexpr std::int64_t kLeastTicks = ticks_at(200'000'000);
static constexpr std::int64_t kMostTicks = ticks_at(10'000);
static constexpr std::int64_t kMostPcrStep = 10 * kPcrPerSecond;  // a longer one is a jump
static constexpr std::int64_t kPacketsWithoutPcr = 4000;          // until the file is taken for one without PCR

struct Pace {
  int pid = -1;              // whose PCRs count; -1: the next PCR's
  std::int64_t pcr = 0;      // the latest
  std::int64_t due = 0;      // of the packet that had it
  std::int64_t packets = 0;  // since then, that one included
  std::int64_t ticks = 0;    // of a packet, by the latest two PCRs; 0: not known yet
  std::int64_t unpaced = 0;  // packets that were handed out before anything about the rate was known
  std::int64_t latest = 0;   // due of the latest chunk
};

struct Playout {
  int file = -1;
  std::string path = {};
  std::size_t distance = 0;  // from packet to packet
  std::uint64_t first = 0;   // offset of the file's first packet
  std::uint64_t offset = 0;  // of the buffer's end in the file
  std::vector<std::uint8_t> buffer = {};
  std::size_t used = 0;      // of the buffer
  bool synchronized = true;  // a packet is expected at `used`
  std::vector<std::uint8_t> packets = {};
  std::uint64_t round = 0;
  bool round_has_packets = false;
  Pace pace = {};
};

void PlayoutEnd::operator()(Playout* playout) const {
  if (playout->file >= 0) close(playout->file);
  delete playout;
}

// Appends up to `most` bytes of the file; none at its end. False with ret_error when it cannot be read.
static bool read_more(Playout& playout, std::size_t most, std::string& ret_error) {
  playout.buffer.erase(playout.buffer.begin(), playout.buffer.begin() + static_cast<std::ptrdiff_t>(playout.used));
  playout.used = 0;
  const std::size_t before = playout.buffer.size();
  playout.buffer.resize(before + most);
  ssize_t count = 0;
  do {
    count = pread(playout.file, playout.buffer.data() + before, most, static_cast<off_t>(playout.offset));
  } while (count < 0 && errno == EINTR);
  playout.buffer.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  if (count < 0) {
    ret_error = playout.path + ": " + std::system_category().message(errno);
    return false;
  }
  playout.offset += static_cast<std::uint64_t>(count);
  return true;
}

static std::size_t left(const Playout& playout) { return playout.buffer.size() - playout.used; }

static bool is_run(const std::vector<std::uint8_t>& bytes, std::size_t begin, std::size_t distance, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    if (bytes[begin + i * distance] != kSync) return false;
  return true;
}

// A file too short for a run: packets from its very beginning to its end.
static bool is_short_file(const std::vector<std::uint8_t>& bytes, std::size_t begin, std::size_t distance) {
  if (bytes.size() < begin + kPacketSize) return false;
  return is_run(bytes, begin, distance, (bytes.size() - begin - kPacketSize) / distance + 1);
}

// Finds the first packet and the distance of the packets.
static bool find_packets(Playout& playout, std::string& ret_error) {
  static constexpr std::size_t kLongestRun = (kRun - 1) * kDistances[std::size(kDistances) - 1] + 1;
  std::size_t begin = 0;
  while (playout.buffer.size() < kMostDamage) {
    const std::size_t before = playout.buffer.size();
    if (!read_more(playout, kReadSize, ret_error)) return false;
    for (; begin + kLongestRun <= playout.buffer.size(); ++begin) {
      for (const std::size_t distance : kDistances) {
        if (!is_run(playout.buffer, begin, distance, kRun)) continue;
        playout.first = begin;
        playout.distance = distance;
        return true;
      }
    }
    if (playout.buffer.size() != before) continue;
    for (const std::size_t distance : kDistances) {
      const std::size_t start = distance == kPacketSize + kTimeStamp ? kTimeStamp : 0;
      if (!is_short_file(playout.buffer, start, distance)) continue;
      playout.first = start;
      playout.distance = distance;
      return true;
    }
    break;
  }
  ret_error = playout.path + ": not a transport stream: no packets of 188, 192 or 204 bytes in its first MiB";
  return false;
}

PlayoutHandle playout_open(const std::string& path, std::string& ret_error) {
  PlayoutHandle playout(new Playout{.path = path});
  // O_NONBLOCK: a FIFO without a writer would wait for one.
  playout->file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (playout->file < 0 || fstat(playout->file, &status) != 0) {
    ret_error = path + ": " + std::system_category().message(errno);
    return nullptr;
  }
  if (!S_ISREG(status.st_mode)) {
    ret_error = path + ": not a regular file, as a file with a transport stream is";
    return nullptr;
  }
  if (!find_packets(*playout, ret_error)) return nullptr;
  playout->buffer = {};  // up to 1 MiB
  playout->offset = playout->first;
  return playout;
}

// Skips to the next run of packets. False at the end of the file, or what counts as its end; ret_error only if the file
// cannot be read.
static bool synchronize(Playout& playout, std::string& ret_error) {
  const std::size_t run = (kRun - 1) * playout.distance + 1;
  for (std::size_t skipped = 0; skipped < kMostDamage;) {
    while (left(playout) < run) {
      const std::uint64_t before = playout.offset;
      if (!read_more(playout, kReadSize, ret_error) || playout.offset == before) return false;
    }
    for (; left(playout) >= run && skipped < kMostDamage; ++playout.used, ++skipped) {
      if (!is_run(playout.buffer, playout.used, playout.distance, kRun)) continue;
      playout.synchronized = true;
      return true;
    }
  }
  return false;
}

static bool fill(Playout& playout, std::string& ret_error) {
  const std::size_t wanted = kPlayoutChunk * playout.distance;
  while (left(playout) < wanted) {
    const std::uint64_t before = playout.offset;
    if (!read_more(playout, wanted - left(playout), ret_error)) return false;
    if (playout.offset == before) break;
  }
  return true;
}

// When a packet that comes next would be due, in ticks since the playout's begin.
static std::int64_t due_now(const Pace& pace) {
  if (pace.ticks > 0) return pace.due + pace.packets * pace.ticks;
  return pace.due +
         std::max<std::int64_t>(0, std::min(pace.packets, pace.unpaced - kPacketsWithoutPcr)) * kTicksWithoutPcr;
}

static void count_packet(Pace& pace) {
  ++pace.packets;
  if (pace.ticks == 0) ++pace.unpaced;
  // The service with the PCRs may have ended: the next one's count.
  if (pace.packets > kPacketsWithoutPcr) pace.pid = -1;
}

static bool paces(const Pace& pace, const std::uint8_t* packet) {
  return packet_has_pcr(packet) && (pace.pid < 0 || pace.pid == ts_get_pid(packet));
}

static void take_pcr(Pace& pace, const std::uint8_t* packet) {
  const std::int64_t pcr = packet_pcr(packet);
  const std::int64_t step = pcr_since(pcr, pace.pcr);
  const bool goes_on = pace.pid >= 0 && !tsaf_has_discontinuity(packet) && step > 0 && step <= kMostPcrStep;
  if (goes_on) {
    const std::int64_t packets = std::max<std::int64_t>(pace.packets, 1);
    pace.due += std::max(step, packets * kLeastTicks);
    pace.ticks = std::clamp(step / packets, kLeastTicks, kMostTicks);
  } else {
    pace.due = due_now(pace);
  }
  pace.pid = ts_get_pid(packet);
  pace.pcr = pcr;
  pace.packets = 0;
}

// Moves packets from the buffer into the chunk; if the chunk is paced, it ends before a packet whose PCR sets the pace.
static void take_packets(Playout& playout, bool paced) {
  playout.packets.clear();
  while (playout.packets.size() < kPlayoutChunk * kPacketSize && left(playout) >= kPacketSize) {
    const std::uint8_t* const packet = playout.buffer.data() + playout.used;
    if (!ts_validate(packet)) {
      playout.synchronized = false;
      return;
    }
    if (paced) {
      if (paces(playout.pace, packet)) {
        if (!playout.packets.empty()) return;
        take_pcr(playout.pace, packet);
      }
      if (playout.packets.empty()) playout.pace.latest = std::max(playout.pace.latest, due_now(playout.pace));
      count_packet(playout.pace);
    }
    playout.packets.insert(playout.packets.end(), packet, packet + kPacketSize);
    playout.used += std::min(playout.distance, left(playout));
  }
}

// False with ret_error if the file is gone or had no packets.
static bool begin_again(Playout& playout, std::string& ret_error) {
  struct stat status {};
  if (fstat(playout.file, &status) != 0 || status.st_nlink == 0) {
    ret_error = playout.path + ": the file was removed";
    return false;
  }
  if (!std::exchange(playout.round_has_packets, false)) {
    ret_error = playout.path + ": the file has no packets any more";
    return false;
  }
  playout.pace.due = due_now(playout.pace);
  playout.pace.packets = 0;
  playout.pace.pid = -1;
  playout.buffer.clear();
  playout.used = 0;
  playout.offset = playout.first;
  playout.synchronized = true;
  ++playout.round;
  return true;
}

std::optional<PlayoutChunk> playout_next(Playout& playout, bool paced, std::string& ret_error) {
  std::string error;
  for (;;) {
    bool at_end = !playout.synchronized && !synchronize(playout, error);
    if (error.empty() && !at_end && fill(playout, error)) {
      take_packets(playout, paced);
      if (!playout.packets.empty()) {
        playout.round_has_packets = true;
        const std::chrono::microseconds due{paced ? playout.pace.latest / (kPcrPerSecond / 1'000'000) : 0};
        return PlayoutChunk{.packets = playout.packets, .due = due, .round = playout.round};
      }
      at_end = playout.synchronized;
    }
    if (!error.empty()) {
      ret_error = error;
      return std::nullopt;
    }
    if (!at_end) continue;
    if (!paced) {
      ret_error.clear();
      return std::nullopt;
    }
    if (!begin_again(playout, ret_error)) return std::nullopt;
  }
}
