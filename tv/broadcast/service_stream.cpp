#include "broadcast/service_stream.h"

#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/psi.h>

#include <algorithm>
#include <array>
#include <map>

#include "broadcast/packet.h"
#include "broadcast/sections.h"

// Time stamps here are in 90 kHz and wrap at 33 bits.
static constexpr std::int64_t kStampRange = std::int64_t{1} << 33;
static constexpr std::int64_t kStampsPerSecond = 90'000;
static constexpr std::int64_t kMostStep = 10 * kStampsPerSecond;  // a longer one is a jump in the broadcast
static constexpr std::int64_t kUsualStep = kStampsPerSecond / 25;
// Packets of the service in a new round until its first time stamp; after them the time stamps are left as they are.
static constexpr int kMostWithoutStamp = 5000;
static constexpr std::uint16_t kFirstStreamPid = 0x0020;  // below are the broadcast's tables

using Packet = std::array<std::uint8_t, TS_SIZE>;

// How the time goes on from round to round: `shift` is added to the time stamps of the multiplex.
struct Timeline {
  std::int64_t shift = 0;
  bool has_pcr = false;                     // a PCR has come: time stamps of streams do not count
  bool waiting = false;                     // for the new round's first time stamp
  int waited = 0;                           // packets
  std::optional<std::int64_t> latest = {};  // time stamp that was passed on
  std::int64_t step = kUsualStep;           // between the latest two
  std::int64_t anchor = 0;                  // a time stamp that was passed on
  std::chrono::microseconds anchor_due{0};  // when it was due
};

struct StreamPid {
  bool is_media = false;   // video or audio
  bool scrambled = false;  // the latest packet
  bool continues = false;  // not the first packet in this round: counter_shift holds
  int counter = -1;        // continuity counter that was passed on; -1: none yet
  int counter_shift = 0;   // added to the multiplex's counters
};

struct ServiceStream {
  std::uint16_t service = 0;
  Sections sections = {};
  std::uint16_t transport_stream = 0;
  std::uint16_t pmt_pid = kPidPat;  // that one: not known yet
  std::uint8_t pat_version = 0;
  std::uint8_t pat_counter = 0;
  std::uint8_t pmt_counter = 0;
  std::optional<Pmt> pmt = {};
  std::vector<std::uint8_t> pmt_section = {};
  bool announce = false;                         // the tables before the next packet
  std::map<std::uint16_t, StreamPid> pids = {};  // that are passed on
  std::uint64_t round = 0;
  Timeline timeline = {};
};

void ServiceStreamEnd::operator()(ServiceStream* stream) const { delete stream; }

ServiceStreamHandle service_stream_start(std::uint16_t service) {
  ServiceStreamHandle stream(new ServiceStream{.service = service});
  sections_want(stream->sections, kPidPat);
  return stream;
}

const Pmt* service_stream_pmt(const ServiceStream& stream) { return stream.pmt ? &*stream.pmt : nullptr; }

bool service_stream_scrambled(const ServiceStream& stream) {
  return std::any_of(stream.pids.begin(), stream.pids.end(),
                     [](const auto& pid) { return pid.second.is_media && pid.second.scrambled; });
}

// --- Tables ---

static void append_section(std::span<const std::uint8_t> section, std::uint16_t pid, std::uint8_t& counter,
                           std::vector<std::uint8_t>& ret_packets) {
  for (bool first = true; !section.empty(); first = false) {
    Packet packet;
    packet.fill(0xFF);
    ts_init(packet.data());
    ts_set_pid(packet.data(), pid);
    ts_set_payload(packet.data());
    ts_set_cc(packet.data(), counter++);
    std::size_t begin = TS_HEADER_SIZE;
    if (first) {
      ts_set_unitstart(packet.data());
      packet[begin++] = 0;  // pointer_field
    }
    const std::size_t count = std::min(section.size(), packet.size() - begin);
    std::copy_n(section.begin(), count, packet.begin() + static_cast<std::ptrdiff_t>(begin));
    section = section.subspan(count);
    ret_packets.insert(ret_packets.end(), packet.begin(), packet.end());
  }
}

static void append_tables(ServiceStream& stream, std::vector<std::uint8_t>& ret_packets) {
  std::array<std::uint8_t, PAT_HEADER_SIZE + PAT_PROGRAM_SIZE + PSI_CRC_SIZE> pat{};
  pat_init(pat.data());
  pat_set_length(pat.data(), PAT_PROGRAM_SIZE);
  pat_set_tsid(pat.data(), stream.transport_stream);
  psi_set_version(pat.data(), stream.pat_version);
  psi_set_current(pat.data());
  std::uint8_t* const program = pat.data() + PAT_HEADER_SIZE;
  patn_init(program);
  patn_set_program(program, stream.service);
  patn_set_pid(program, stream.pmt_pid);
  psi_set_crc(pat.data());
  append_section(pat, kPidPat, stream.pat_counter, ret_packets);
  append_section(stream.pmt_section, stream.pmt_pid, stream.pmt_counter, ret_packets);
  stream.announce = false;
}

static void take_pat(ServiceStream& stream, const Pat& pat) {
  for (const Pat::Program& program : pat.programs) {
    if (program.service != stream.service) continue;
    stream.transport_stream = pat.stream;
    if (program.pid == stream.pmt_pid) return;
    if (stream.pmt_pid != kPidPat) {
      sections_ignore(stream.sections, stream.pmt_pid);
      stream.pat_version = static_cast<std::uint8_t>((stream.pat_version + 1) % 32);
    }
    stream.pmt_pid = program.pid;
    sections_want(stream.sections, program.pid);
    return;
  }
}

static void take_pmt(ServiceStream& stream, const Pmt& pmt, std::span<const std::uint8_t> section) {
  std::map<std::uint16_t, StreamPid> pids;
  const auto add = [&](std::uint16_t pid, bool is_media) {
    if (pid < kFirstStreamPid || pid == kPidNull || pid == stream.pmt_pid) return;
    const auto before = stream.pids.find(pid);
    StreamPid& added = pids.try_emplace(pid, before == stream.pids.end() ? StreamPid{} : before->second).first->second;
    added.is_media = is_media;
  };
  add(pmt.pcr_pid, false);
  for (const Pmt::Stream& one : pmt.streams)
    add(one.pid, one.kind == StreamKind::kVideo || one.kind == StreamKind::kAudio);
  stream.pids = std::move(pids);
  stream.pmt = pmt;
  stream.pmt_section.assign(section.begin(), section.end());
  stream.announce = true;
}

static void take_section(ServiceStream& stream, std::uint16_t pid, std::span<const std::uint8_t> section) {
  const auto table = table_read(section);
  if (!table) return;
  const Pat* const pat = std::get_if<Pat>(&*table);
  const Pmt* const pmt = std::get_if<Pmt>(&*table);
  if (pid == kPidPat) {
    if (pat) take_pat(stream, *pat);
  } else if (pid == stream.pmt_pid && pmt && pmt->service == stream.service) {
    take_pmt(stream, *pmt, section);
  }
}

// --- Time stamps ---

// The header of the PES packet that begins in the packet, if its time stamps are whole in there; null otherwise. A
// header that goes on in the next packet keeps its time stamps.
static std::uint8_t* pes_with_stamps(Packet& packet) {
  const std::size_t size = packet_payload(packet.data()).size();
  std::uint8_t* const pes = packet.data() + (TS_SIZE - size);
  if (!ts_get_unitstart(packet.data()) || ts_get_scrambling(packet.data()) != 0 || size < PES_HEADER_SIZE_PTS ||
      !pes_validate(pes))
    return nullptr;
  static constexpr std::uint8_t kWithoutHeader[] = {
      PES_STREAM_ID_PSM, PES_STREAM_ID_PADDING, PES_STREAM_ID_PRIVATE_2, PES_STREAM_ID_ECM,
      PES_STREAM_ID_EMM, PES_STREAM_ID_DSMCC,   PES_STREAM_ID_H222_1_E,  PES_STREAM_ID_PSD};
  for (const std::uint8_t id : kWithoutHeader)
    if (pes_get_streamid(pes) == id) return nullptr;
  const std::size_t stamps = pes_has_dts(pes) ? PES_HEADER_SIZE_PTSDTS : PES_HEADER_SIZE_PTS;
  if (!pes_validate_header(pes) || !pes_has_pts(pes) || size < stamps ||
      pes_get_headerlength(pes) + std::size_t{PES_HEADER_SIZE_NOPTS} < stamps || !pes_validate_pts(pes) ||
      (pes_has_dts(pes) && !pes_validate_dts(pes)))
    return nullptr;
  return pes;
}

// What the timeline follows: PCRs or, in a service without any, the time stamps of its first video or audio stream.
static std::optional<std::int64_t> leading_stamp(ServiceStream& stream, std::uint16_t pid, Packet& packet) {
  if (pid == stream.pmt->pcr_pid && packet_has_pcr(packet.data())) {
    stream.timeline.has_pcr = true;
    return static_cast<std::int64_t>(tsaf_get_pcr(packet.data()) & (kStampRange - 1));
  }
  if (stream.timeline.has_pcr) return std::nullopt;
  for (const Pmt::Stream& one : stream.pmt->streams) {
    if (one.kind != StreamKind::kVideo && one.kind != StreamKind::kAudio) continue;
    const std::uint8_t* const pes = one.pid == pid ? pes_with_stamps(packet) : nullptr;
    if (!pes) return std::nullopt;
    return static_cast<std::int64_t>(pes_has_dts(pes) ? pes_get_dts(pes) : pes_get_pts(pes));
  }
  return std::nullopt;
}

static std::int64_t wrapped(std::int64_t stamp) { return ((stamp % kStampRange) + kStampRange) % kStampRange; }

// The new round's first time stamp: by when it is due, so that rounds do not add up small errors; where the playout is
// not paced, one step after the latest.
static void continue_timeline(Timeline& timeline, std::int64_t stamp, std::chrono::microseconds due) {
  std::int64_t step = timeline.step;
  if (due > timeline.anchor_due) {
    const std::int64_t elapsed = (due - timeline.anchor_due).count() * kStampsPerSecond / 1'000'000;
    const std::int64_t by_due = wrapped(timeline.anchor + elapsed - *timeline.latest);
    if (by_due > 0 && by_due <= kMostStep) step = by_due;
  }
  timeline.shift = wrapped(*timeline.latest + step - stamp);
  timeline.waiting = false;
}

static void follow_stamp(Timeline& timeline, std::int64_t stamp, std::chrono::microseconds due) {
  if (timeline.waiting) continue_timeline(timeline, stamp, due);
  const std::int64_t passed_on = wrapped(stamp + timeline.shift);
  const std::int64_t step = timeline.latest ? wrapped(passed_on - *timeline.latest) : 0;
  if (step > 0 && step <= kMostStep) {
    timeline.step = step;
  } else {
    timeline.anchor = passed_on;
    timeline.anchor_due = due;
  }
  timeline.latest = passed_on;
}

static void shift_stamps(Packet& packet, std::int64_t shift) {
  if (shift == 0) return;
  const auto shifted = [shift](std::uint64_t stamp) {
    return static_cast<std::uint64_t>(wrapped(static_cast<std::int64_t>(stamp % kStampRange) + shift));
  };
  if (packet_has_pcr(packet.data())) {
    const auto extension = static_cast<std::uint16_t>(tsaf_get_pcrext(packet.data()));
    tsaf_set_pcr(packet.data(), shifted(tsaf_get_pcr(packet.data())));
    tsaf_set_pcrext(packet.data(), extension);
  }
  std::uint8_t* const pes = pes_with_stamps(packet);
  if (!pes) return;
  pes_set_pts(pes, shifted(pes_get_pts(pes)));
  if (pes_has_dts(pes)) pes_set_dts(pes, shifted(pes_get_dts(pes)));
}

// --- Packets ---

// A lost or doubled packet of the multiplex stays one; only the rounds are joined.
static void shift_counter(StreamPid& pid, Packet& packet) {
  const int counter = ts_get_cc(packet.data());
  if (!pid.continues) {
    const int next = pid.counter < 0 ? counter : pid.counter + (ts_has_payload(packet.data()) ? 1 : 0);
    pid.counter_shift = (next - counter + 32) % 16;
    pid.continues = true;
  }
  pid.counter = (counter + pid.counter_shift) % 16;
  ts_set_cc(packet.data(), static_cast<std::uint8_t>(pid.counter));
}

static void begin_round(ServiceStream& stream, std::uint64_t round) {
  if (round == stream.round) return;
  stream.round = round;
  for (auto& [number, pid] : stream.pids) pid.continues = false;
  stream.timeline.waiting = stream.timeline.latest.has_value();
  stream.timeline.waited = 0;
}

static void take_stream_packet(ServiceStream& stream, StreamPid& pid, std::uint16_t number, Packet& packet,
                               std::chrono::microseconds due, std::vector<std::uint8_t>& ret_packets) {
  if (ts_has_payload(packet.data())) pid.scrambled = ts_get_scrambling(packet.data()) != 0;
  Timeline& timeline = stream.timeline;
  if (const auto stamp = leading_stamp(stream, number, packet)) follow_stamp(timeline, *stamp, due);
  if (timeline.waiting && ++timeline.waited > kMostWithoutStamp) timeline.waiting = false;
  if (timeline.waiting) return;
  shift_stamps(packet, timeline.shift);
  shift_counter(pid, packet);
  if (stream.announce) append_tables(stream, ret_packets);
  ret_packets.insert(ret_packets.end(), packet.begin(), packet.end());
}

void service_stream_take(ServiceStream& stream, const PlayoutChunk& chunk, std::vector<std::uint8_t>& ret_packets) {
  begin_round(stream, chunk.round);
  const auto found = [&stream](std::uint16_t pid, std::span<const std::uint8_t> section) {
    take_section(stream, pid, section);
  };
  bool has_pat = false;  // the tables are repeated as often as the PAT, at most once a chunk
  for (auto packets = chunk.packets; packets.size() >= TS_SIZE; packets = packets.subspan(TS_SIZE)) {
    Packet packet;
    std::copy_n(packets.begin(), TS_SIZE, packet.begin());
    const std::uint16_t number = ts_get_pid(packet.data());
    if (!ts_validate(packet.data()) || ts_get_transporterror(packet.data())) continue;
    if (number == kPidPat || number == stream.pmt_pid) {
      sections_take(stream.sections, packet, found);
      const bool repeats = number == kPidPat && ts_get_unitstart(packet.data()) && stream.pmt && !has_pat;
      if (repeats) stream.announce = has_pat = true;
    } else if (const auto pid = stream.pids.find(number); pid != stream.pids.end()) {
      take_stream_packet(stream, pid->second, number, packet, chunk.due, ret_packets);
    }
  }
  if (stream.announce) append_tables(stream, ret_packets);
}
