#include "generator/stamp.h"

#include <bitstream/mpeg/psi.h>
#include <bitstream/mpeg/ts.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

#include "broadcast/sections.h"
#include "generator/files.h"

namespace {

constexpr std::size_t kPackets = 4096;  // read and written at once
constexpr std::uint16_t kPidNull = 0x1FFF;
constexpr std::uint8_t kScrambledEven = 2;  // transport_scrambling_control
constexpr std::uint8_t kKey = 0x5A;
constexpr int kTotPeriod = 5;  // s; in the other seconds there is a TDT

using Packet = std::array<std::uint8_t, TS_SIZE>;

struct Turn {  // of a carousel
  double due = 0;
  std::size_t next = 0;
  std::size_t complete = 0;  // sections that are in the file with all their packets
};

struct Insertion {
  std::vector<Carousel> carousels;
  std::vector<Turn> turns;
  std::map<std::uint16_t, std::uint8_t> counters;
  std::vector<Packet> packets;  // of the section that is being sent
  std::size_t sent = 0;         // of these
  Turn* turn = nullptr;         // whose section it is; null: the time's
  int next_second = 0;          // for which the time has not been sent yet
};

std::vector<Packet> packets_of(const Section& section, std::uint16_t pid, std::uint8_t& counter) {
  std::vector<Packet> packets;
  for (std::uint16_t offset = 0; offset < section.size();) {
    Packet packet;
    std::uint8_t position = 0;
    psi_split_section(packet.data(), &position, section.data(), &offset);
    psi_split_end(packet.data(), &position);
    ts_set_pid(packet.data(), pid);
    ts_set_cc(packet.data(), counter++ & 0x0F);
    packets.push_back(packet);
  }
  return packets;
}

// Chooses the section that is sent next at this time in the file; false when nothing is due.
bool choose_section(Insertion& insertion, const Stamp& stamp, double now) {
  const auto begin = [&](const Section& section, std::uint16_t pid, Turn* turn) {
    insertion.packets = packets_of(section, pid, insertion.counters[pid]);
    insertion.sent = 0;
    insertion.turn = turn;
  };
  if (now >= insertion.next_second) {
    const int second = static_cast<int>(now);
    insertion.next_second = second + 1;
    const std::int64_t utc = stamp.utc + second;
    begin(second % kTotPeriod == 1 ? si_tot(utc) : si_tdt(utc), kPidTdt, nullptr);
    return true;
  }
  const auto first = std::ranges::min_element(insertion.turns, {}, &Turn::due);
  if (first->due > now) return false;
  const Carousel& carousel = insertion.carousels[static_cast<std::size_t>(first - insertion.turns.begin())];
  begin(carousel.sections[first->next], carousel.pid, &*first);
  first->next = (first->next + 1) % carousel.sections.size();
  first->due += carousel.period / static_cast<double>(carousel.sections.size());
  return true;
}

// Replaces the null packet by one of service information, if any is due.
void fill_null(Insertion& insertion, const Stamp& stamp, double now, std::uint8_t* packet) {
  if (insertion.sent == insertion.packets.size() && !choose_section(insertion, stamp, now)) return;
  std::memcpy(packet, insertion.packets[insertion.sent++].data(), TS_SIZE);
  if (insertion.sent == insertion.packets.size() && insertion.turn != nullptr) ++insertion.turn->complete;
}

bool is_of(const ServiceRow& service, std::uint16_t pid) {
  const int first = first_stream_pid_of(service);
  return pid >= first && pid < first + 16;
}

void scramble(std::uint8_t* packet) {
  if (!ts_has_payload(packet)) return;
  ts_set_scrambling(packet, kScrambledEven);
  for (std::uint8_t* byte = ts_payload(packet); byte < packet + TS_SIZE; ++byte) *byte ^= kKey;
}

// The pictures' PMT is one packet with one section at its begin, and room for a descriptor behind it. Any other packet,
// of a damaged file, is left as it is.
void announce_scrambling(std::uint8_t* packet) {
  const std::uint8_t* section = ts_payload(packet) + 1;
  const std::ptrdiff_t room = packet + TS_SIZE - section - (DESC09_HEADER_SIZE + PSI_HEADER_SIZE);
  if (!ts_get_unitstart(packet) || room < PMT_HEADER_SIZE || section[-1] != 0 || psi_get_length(section) > room ||
      !pmt_validate(section))
    return;
  std::uint8_t counter = ts_get_cc(packet);
  const std::uint16_t pid = ts_get_pid(packet);
  std::memcpy(packet, packets_of(si_scrambled_pmt(section), pid, counter)[0].data(), TS_SIZE);
}

void stamp_packet(Insertion& insertion, const MultiplexRow& multiplex, const Stamp& stamp, double now,
                  std::uint8_t* packet) {
  const std::uint16_t pid = ts_get_pid(packet);
  if (pid == kPidNull || pid == kPidNit || pid == kPidSdt) {
    if (pid != kPidNull) ts_pad(packet);
    fill_null(insertion, stamp, now, packet);
    return;
  }
  for (const ServiceRow& service : kServices) {
    if (service.stream != multiplex.stream || !service.scrambled) continue;
    if (pid == pmt_pid_of(service)) announce_scrambling(packet);
    if (is_of(service, pid)) scramble(packet);
  }
}

struct FileEnd {
  void operator()(FILE* file) const { fclose(file); }
};

}  // namespace

std::uint16_t pmt_pid_of(const ServiceRow& service) {
  return static_cast<std::uint16_t>(kFirstPmtPid + service.id % 100 - 1);
}

std::uint16_t first_stream_pid_of(const ServiceRow& service) {
  return static_cast<std::uint16_t>(0x200 + service.id % 100 * 16);
}

bool stamp_multiplex(const MultiplexRow& multiplex, const Stamp& stamp, const std::string& pictures,
                     const std::string& path, std::string& ret_error) {
  const std::unique_ptr<FILE, FileEnd> input(fopen(pictures.c_str(), "rbe"));
  if (input == nullptr) {
    ret_error = "cannot read " + pictures;
    return false;
  }
  fseek(input.get(), 0, SEEK_END);
  const auto packets = static_cast<double>(ftell(input.get())) / TS_SIZE;
  rewind(input.get());

  NewFile file;
  if (!file_begin(file, path, ret_error)) return false;
  Insertion insertion;
  insertion.carousels = si_carousels(multiplex, stamp);
  insertion.turns.resize(insertion.carousels.size());
  std::vector<std::uint8_t> buffer(kPackets * TS_SIZE);
  double number = 0;
  while (const std::size_t got = fread(buffer.data(), TS_SIZE, kPackets, input.get())) {
    if (interrupted()) return false;
    for (std::size_t packet = 0; packet < got; ++packet, ++number)
      stamp_packet(insertion, multiplex, stamp, number / packets * stamp.seconds, buffer.data() + packet * TS_SIZE);
    if (!file_write(file, {buffer.data(), got * TS_SIZE}, ret_error)) return false;
  }
  if (ferror(input.get()) != 0) {
    ret_error = "cannot read " + pictures;
    return false;
  }
  for (std::size_t index = 0; index < insertion.carousels.size(); ++index) {
    if (insertion.turns[index].complete >= insertion.carousels[index].sections.size()) continue;
    ret_error = pictures + " has too few null packets for the guide; remove it";
    return false;
  }
  return file_commit(file, false, ret_error);  // the next start makes it again
}
