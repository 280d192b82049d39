#include "broadcast/service_stream.h"

#include <gtest/gtest.h>

#include "broadcast/sections.h"
#include "broadcast/stream_bytes.h"

namespace bytes = stream_bytes;
using bytes::Bytes;
using bytes::join;
using std::chrono::milliseconds;

static constexpr std::uint16_t kService = 101;
static constexpr std::uint16_t kPmtPid = 0x1000;
static constexpr std::uint16_t kVideo = 0x0100;
static constexpr std::uint16_t kAudio = 0x0101;
static constexpr std::uint16_t kOther = 0x0200;  // of another service
static constexpr std::int64_t kSecond = 90'000;
static constexpr std::int64_t kRange = std::int64_t{1} << 33U;

namespace {

// A multiplex of two services whose PMTs are on one PID.
struct Multiplex {
  std::uint8_t pat_counter = 0;
  std::uint8_t pmt_counter = 0;
  std::uint8_t video_counter = 3;
  std::uint8_t audio_counter = 9;

  Bytes tables(std::uint8_t version = 0, const std::vector<bytes::Elementary>& more = {}) {
    std::vector<bytes::Elementary> streams = {{0x02, kVideo}, {0x04, kAudio}};
    streams.insert(streams.end(), more.begin(), more.end());
    const Bytes others = bytes::pmt(102, kOther, {{0x02, kOther}});
    return join(
        {bytes::packets(0, pat_counter, bytes::pat(7, {{kService, kPmtPid}, {102, kPmtPid}})),
         bytes::packets(kPmtPid, pmt_counter, join({others, bytes::pmt(kService, kVideo, streams, {}, version)}))});
  }
  // A packet with a PCR (90 kHz) and a PES header.
  Bytes video(std::int64_t pcr, std::int64_t pts, std::int64_t dts) {
    return bytes::packet({.pid = kVideo, .counter = video_counter++, .start = true, .pcr = pcr * 300 + 123},
                         bytes::pes(static_cast<std::uint64_t>(pts), static_cast<std::uint64_t>(dts)));
  }
  Bytes more_video() { return bytes::packet({.pid = kVideo, .counter = video_counter++}, Bytes(184, 0x55)); }
  Bytes audio() { return bytes::packet({.pid = kAudio, .counter = audio_counter++}, Bytes(184, 0x66)); }
};

struct Player {
  ServiceStreamHandle stream = service_stream_start(kService);
  Bytes out = {};

  // Returns what comes out for these packets.
  Bytes take(const Bytes& packets, std::uint64_t round = 0, std::chrono::microseconds due = {}) {
    Bytes taken;
    service_stream_take(*stream, {.packets = packets, .due = due, .round = round}, taken);
    out = join({out, taken});
    return taken;
  }
};

}  // namespace

static std::vector<Bytes> split(const Bytes& all) {
  EXPECT_EQ(all.size() % kPacketSize, 0u);
  std::vector<Bytes> packets;
  for (auto at = all.begin(); at != all.end(); at += kPacketSize) packets.emplace_back(at, at + kPacketSize);
  return packets;
}

static std::uint16_t pid_of(const Bytes& packet) {
  return static_cast<std::uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
}
static int counter_of(const Bytes& packet) { return packet[3] & 0x0F; }

static std::vector<Bytes> of_pid(const Bytes& all, std::uint16_t pid) {
  std::vector<Bytes> packets = split(all);
  std::erase_if(packets, [pid](const Bytes& packet) { return pid_of(packet) != pid; });
  return packets;
}

static std::vector<std::uint16_t> pids_of(const Bytes& all) {
  std::vector<std::uint16_t> pids;
  for (const Bytes& packet : split(all)) pids.push_back(pid_of(packet));
  return pids;
}

static std::int64_t pcr_of(const Bytes& packet) {
  EXPECT_EQ(packet[5] & 0x10, 0x10);
  std::int64_t base = 0;
  for (int i = 6; i < 10; ++i) base = base << 8 | packet[static_cast<std::size_t>(i)];
  EXPECT_EQ((packet[10] & 1) << 8 | packet[11], 123);  // the extension stays
  return base << 1 | packet[10] >> 7;
}

// The time stamp at this place of the PES header, which is at the packet's end.
static std::int64_t stamp_of(const Bytes& packet, std::size_t at) {
  const std::uint8_t* const stamp = packet.data() + 188 - 19 + at;
  EXPECT_EQ(stamp[0] & 1 & stamp[2] & stamp[4], 1);
  return std::int64_t{stamp[0] >> 1 & 7} << 30 | std::int64_t{stamp[1]} << 22 | std::int64_t{stamp[2] >> 1} << 15 |
         std::int64_t{stamp[3]} << 7 | stamp[4] >> 1;
}
static std::int64_t pts_of(const Bytes& packet) { return stamp_of(packet, 9); }
static std::int64_t dts_of(const Bytes& packet) { return stamp_of(packet, 14); }

TEST(ServiceStream, PassesOnOneServiceBehindItsTables) {
  Multiplex multiplex;
  Player player;
  const Bytes other = bytes::packet({.pid = kOther}, Bytes(184, 0x77));
  const Bytes null = bytes::packet({.pid = 0x1FFF}, Bytes(184, 0xFF));
  EXPECT_TRUE(player.take(join({multiplex.audio(), multiplex.more_video(), other})).empty());
  EXPECT_FALSE(service_stream_pmt(*player.stream));
  const Bytes audio = multiplex.audio();
  const Bytes video = multiplex.video(1000, 4000, 4000);
  const Bytes out = player.take(join({multiplex.tables(), other, audio, null, video}));
  EXPECT_EQ(pids_of(out), (std::vector<std::uint16_t>{0, kPmtPid, kAudio, kVideo}));
  EXPECT_EQ(split(out)[2], audio);
  EXPECT_EQ(split(out)[3], video);

  Sections sections;
  sections_want(sections, 0);
  sections_want(sections, kPmtPid);
  std::vector<Table> tables;
  sections_take(sections, out, [&](std::uint16_t, std::span<const std::uint8_t> section) {
    const auto table = table_read(section);
    ASSERT_TRUE(table);
    tables.push_back(*table);
  });
  ASSERT_EQ(tables.size(), 2u);
  const Pat& pat = std::get<Pat>(tables[0]);
  EXPECT_EQ(pat.stream, 7);
  ASSERT_EQ(pat.programs.size(), 1u);
  EXPECT_EQ(pat.programs[0].service, kService);
  EXPECT_EQ(pat.programs[0].pid, kPmtPid);
  EXPECT_EQ(std::get<Pmt>(tables[1]).service, kService);
  ASSERT_TRUE(service_stream_pmt(*player.stream));
  EXPECT_EQ(service_stream_pmt(*player.stream)->streams.size(), 2u);
}

TEST(ServiceStream, OfAServiceThatIsNotThereIsEmpty) {
  Multiplex multiplex;
  Player player;
  player.stream = service_stream_start(999);
  EXPECT_TRUE(player.take(join({multiplex.tables(), multiplex.audio()})).empty());
  EXPECT_FALSE(service_stream_pmt(*player.stream));
}

// PID 0 belongs to the PAT: a PMT there does not count, neither before nor after the PAT.
TEST(ServiceStream, IgnoresAPmtOnThePidOfThePat) {
  Multiplex multiplex;
  Player player;
  const Bytes wrong = bytes::packets(0, multiplex.pat_counter, bytes::pmt(kService, kVideo, {{0x02, kVideo}}));
  EXPECT_TRUE(player.take(join({wrong, multiplex.more_video()})).empty());
  EXPECT_FALSE(service_stream_pmt(*player.stream));
  player.take(join({multiplex.tables(), wrong, multiplex.more_video()}));
  ASSERT_TRUE(service_stream_pmt(*player.stream));
  EXPECT_EQ(service_stream_pmt(*player.stream)->streams.size(), 2u);
}

TEST(ServiceStream, RepeatsItsTablesWithThePat) {
  Multiplex multiplex;
  Player player;
  for (int i = 0; i < 20; ++i) player.take(join({multiplex.tables(), multiplex.audio()}));
  for (const std::uint16_t pid : {std::uint16_t{0}, kPmtPid}) {
    const std::vector<Bytes> tables = of_pid(player.out, pid);
    EXPECT_GE(tables.size(), 20u);
    for (std::size_t i = 0; i < tables.size(); ++i) EXPECT_EQ(counter_of(tables[i]), static_cast<int>(i % 16)) << pid;
  }
}

TEST(ServiceStream, FollowsANewPmt) {
  static constexpr std::uint16_t kNew = 0x0102;
  Multiplex multiplex;
  Player player;
  player.take(join({multiplex.tables(), multiplex.audio()}));
  const Bytes added = bytes::packet({.pid = kNew}, Bytes(184, 0x11));
  EXPECT_TRUE(player.take(added).empty());
  const Bytes out = player.take(join({multiplex.tables(1, {{0x04, kNew}}), added}));
  EXPECT_EQ(pids_of(out), (std::vector<std::uint16_t>{0, kPmtPid, kNew}));
  EXPECT_EQ(service_stream_pmt(*player.stream)->version, 1);
  EXPECT_EQ(service_stream_pmt(*player.stream)->streams.size(), 3u);
}

TEST(ServiceStream, FollowsAPmtToAnotherPid) {
  Multiplex multiplex;
  Player player;
  const Bytes before = player.take(join({multiplex.tables(), multiplex.audio()}));
  std::uint8_t counter = 0;
  const Bytes moved = join({bytes::packets(0, multiplex.pat_counter, bytes::pat(7, {{kService, 0x1001}})),
                            bytes::packets(0x1001, counter, bytes::pmt(kService, kVideo, {{0x02, kVideo}}, {}, 1))});
  const Bytes after = player.take(join({moved, multiplex.more_video()}));
  const std::vector<Bytes> pmts = of_pid(after, 0x1001);
  EXPECT_FALSE(pmts.empty());
  // The PAT differs, so its version does.
  EXPECT_NE(of_pid(before, 0)[0][10], of_pid(after, 0).back()[10]);
}

TEST(ServiceStream, DoesNotPassOnThePidsOfTables) {
  Multiplex multiplex;
  Player player;
  const Bytes tables = multiplex.tables(0, {{0x02, 0x0012}, {0x02, 0x1FFF}, {0x02, kPmtPid}});
  const Bytes out = player.take(
      join({tables, bytes::packet({.pid = 0x0012}, Bytes(184, 1)), bytes::packet({.pid = 0x1FFF}, Bytes(184, 1)),
            bytes::packet({.pid = kPmtPid, .counter = 5}, Bytes(184, 1))}));
  EXPECT_EQ(pids_of(out), (std::vector<std::uint16_t>{0, kPmtPid}));
}

TEST(ServiceStream, KeepsLostAndDoubledPacketsAsTheyAre) {
  Multiplex multiplex;
  Player player;
  const Bytes one = multiplex.audio();
  multiplex.audio();  // lost
  const Bytes three = multiplex.audio();
  const Bytes without_payload = bytes::packet({.pid = kAudio, .counter = 11, .pcr = 5}, {});
  player.take(join({multiplex.tables(), one, three, three, without_payload, multiplex.audio()}));
  std::vector<int> counters;
  for (const Bytes& packet : of_pid(player.out, kAudio)) counters.push_back(counter_of(packet));
  EXPECT_EQ(counters, (std::vector<int>{9, 11, 11, 11, 12}));
}

TEST(ServiceStream, DropsPacketsWithErrors) {
  Multiplex multiplex;
  Player player;
  player.take(multiplex.tables());
  EXPECT_TRUE(player.take(bytes::packet({.pid = kAudio, .error = true}, Bytes(184, 1))).empty());
}

// Plays a file of 20 packets, 0.1 s from PCR to PCR, again and again.
static Bytes round_of(std::int64_t origin) {
  Multiplex multiplex;
  Bytes all = multiplex.tables();
  for (std::int64_t i = 0; i < 10; ++i) {
    const std::int64_t pcr = (origin + i * kSecond / 10) % kRange;
    all = join({all, multiplex.video(pcr, (pcr + 3600) % kRange, (pcr + 1800) % kRange), multiplex.audio()});
  }
  return all;
}

static void expect_endless(const Bytes& out, std::size_t rounds, std::int64_t origin, std::int64_t gap) {
  const std::vector<Bytes> video = of_pid(out, kVideo);
  ASSERT_EQ(video.size(), rounds * 10);
  std::int64_t expected = origin;
  for (std::size_t i = 0; i < video.size(); ++i) {
    if (i > 0) expected = (expected + (i % 10 == 0 ? gap : kSecond / 10)) % kRange;
    EXPECT_EQ(pcr_of(video[i]), expected) << i;
    EXPECT_EQ(pts_of(video[i]), (expected + 3600) % kRange) << i;
    EXPECT_EQ(dts_of(video[i]), (expected + 1800) % kRange) << i;
    EXPECT_EQ(counter_of(video[i]), static_cast<int>((3 + i) % 16)) << i;
  }
  const std::vector<Bytes> audio = of_pid(out, kAudio);
  for (std::size_t i = 0; i < audio.size(); ++i) EXPECT_EQ(counter_of(audio[i]), static_cast<int>((9 + i) % 16)) << i;
}

TEST(ServiceStream, GoesOnWhenThePlayoutBeginsAgain) {
  Player player;
  for (std::uint64_t round = 0; round < 5; ++round) player.take(round_of(12345), round);
  expect_endless(player.out, 5, 12345, kSecond / 10);
}

TEST(ServiceStream, GoesOnAcrossTheWrapOfItsTimeStamps) {
  Player player;
  for (std::uint64_t round = 0; round < 3; ++round) player.take(round_of(kRange - kSecond / 2), round);
  expect_endless(player.out, 3, kRange - kSecond / 2, kSecond / 10);
}

// In pace, the next round's time stamps are as far from the first ones as it is due; each round here takes 1.02 s.
TEST(ServiceStream, KeepsPaceOverRounds) {
  Player player;
  for (std::uint64_t round = 0; round < 50; ++round) player.take(round_of(12345), round, milliseconds{1020 * round});
  expect_endless(player.out, 50, 12345, kSecond * 12 / 100);
}

TEST(ServiceStream, DropsWhatPrecedesTheNewRoundsFirstPcr) {
  Multiplex multiplex;
  Player player;
  player.take(round_of(1000));
  EXPECT_TRUE(of_pid(player.take(join({multiplex.audio(), multiplex.audio()}), 1), kAudio).empty());
  const Bytes out = player.take(join({multiplex.video(1000, 2000, 2000), multiplex.audio()}), 1);
  EXPECT_EQ(of_pid(out, kAudio).size(), 1u);
  EXPECT_EQ(pcr_of(of_pid(out, kVideo)[0]), 1000 + kSecond);
}

TEST(ServiceStream, WaitsForTheNewRoundsPcrWithABound) {
  Multiplex multiplex;
  Player player;
  player.take(round_of(1000));
  std::size_t waited = 0;
  while (waited < 10000 && of_pid(player.take(multiplex.audio(), 1), kAudio).empty()) ++waited;
  EXPECT_EQ(waited, 5000u);
}

// Without PCRs the time stamps of the first stream lead.
TEST(ServiceStream, GoesOnWithoutPcr) {
  Player player;
  std::vector<std::int64_t> stamps;
  for (std::uint64_t round = 0; round < 3; ++round) {
    Multiplex multiplex;
    Bytes all = multiplex.tables();
    for (int i = 0; i < 4; ++i) {
      const auto dts = 5000 + static_cast<std::uint64_t>(i) * 3600;
      all = join({all, bytes::packet({.pid = kVideo, .counter = multiplex.video_counter++, .start = true},
                                     bytes::pes(dts + 3600, dts))});
    }
    player.take(all, round);
  }
  for (const Bytes& packet : of_pid(player.out, kVideo)) stamps.push_back(dts_of(packet));
  ASSERT_EQ(stamps.size(), 12u);
  for (std::size_t i = 0; i < stamps.size(); ++i) EXPECT_EQ(stamps[i], 5000 + static_cast<std::int64_t>(i) * 3600) << i;
}

// What looks like a PES header but has no time stamps, or is no header, is not changed.
TEST(ServiceStream, ChangesNothingButTimeStamps) {
  const Bytes padding = join({{0x00, 0x00, 0x01, 0xBE, 0x00, 0x00, 0x80, 0xC0, 0x0A}, Bytes(10, 0x21)});
  const Bytes too_short = join({{0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0xC0, 0x04}, Bytes(10, 0x21)});
  const Bytes no_markers = join({{0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0xC0, 0x0A}, Bytes(10, 0x00)});
  const Bytes no_start = join({{0x00, 0x00, 0x02}, Bytes(16, 0x21)});
  const Bytes cut_off = {0x00, 0x00, 0x01, 0xE0, 0x00, 0x00, 0x80, 0xC0, 0x0A, 0x31};
  for (const Bytes& payload : {padding, too_short, no_markers, no_start, cut_off}) {
    Multiplex multiplex;
    Player player;
    player.take(round_of(1000));
    player.take(multiplex.video(1000, 1000, 1000), 1);
    const Bytes out = player.take(bytes::packet({.pid = kAudio, .start = true}, payload), 1);
    ASSERT_EQ(pids_of(out), std::vector<std::uint16_t>{kAudio});
    EXPECT_EQ(Bytes(out.end() - static_cast<std::ptrdiff_t>(payload.size()), out.end()), payload);
  }
}

TEST(ServiceStream, SaysWhetherItIsScrambled) {
  Multiplex multiplex;
  Player player;
  player.take(join({multiplex.tables(), multiplex.audio()}));
  EXPECT_FALSE(service_stream_scrambled(*player.stream));
  player.take(bytes::packet({.pid = kOther, .scrambled = true}, Bytes(184, 1)));
  EXPECT_FALSE(service_stream_scrambled(*player.stream));
  player.take(bytes::packet({.pid = kVideo, .scrambled = true}, Bytes(184, 1)));
  EXPECT_TRUE(service_stream_scrambled(*player.stream));
  player.take(multiplex.audio());
  EXPECT_TRUE(service_stream_scrambled(*player.stream));
  player.take(multiplex.more_video());
  EXPECT_FALSE(service_stream_scrambled(*player.stream));
}

// A multiplex of tables alone cannot make much more of itself.
TEST(ServiceStream, RepeatsItsTablesOnceAChunkAtMost) {
  Multiplex multiplex;
  Player player;
  player.take(multiplex.tables());
  Bytes pats;
  for (int i = 0; i < 64; ++i)
    pats = join({pats, bytes::packets(0, multiplex.pat_counter, bytes::pat(7, {{kService, kPmtPid}}))});
  EXPECT_EQ(split(player.take(pats)).size(), 2u);
}
