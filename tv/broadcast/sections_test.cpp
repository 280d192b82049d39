#include "broadcast/sections.h"

#include <gtest/gtest.h>

#include "broadcast/stream_bytes.h"

namespace bytes = stream_bytes;
using bytes::Bytes;

static constexpr std::uint16_t kPid = 0x0100;

// A long section of this size with its CRC.
static Bytes section_of(std::size_t size, std::uint8_t fill, std::uint8_t number = 0) {
  return bytes::section({.table = 0x42, .extension = 1, .number = number, .last = 255}, Bytes(size - 12, fill));
}

namespace {

struct Collected {
  Sections sections = {};
  std::vector<Bytes> found = {};
};

}  // namespace

static Collected wanting(std::uint16_t pid) {
  Collected collected;
  sections_want(collected.sections, pid);
  return collected;
}

static void take(Collected& collected, const Bytes& packets) {
  sections_take(collected.sections, packets, [&](std::uint16_t, std::span<const std::uint8_t> section) {
    collected.found.emplace_back(section.begin(), section.end());
  });
}

static Bytes packet_at(const Bytes& packets, std::size_t index) {
  const auto begin = packets.begin() + static_cast<std::ptrdiff_t>(index * 188);
  return {begin, begin + 188};
}

TEST(Sections, AreFoundInOnePacketAndOverMany) {
  for (const std::size_t size : std::initializer_list<std::size_t>{12, 100, 183, 184, 185, 366, 367, 368, 1024, 4096}) {
    Collected collected = wanting(kPid);
    std::uint8_t counter = 5;
    take(collected, bytes::packets(kPid, counter, section_of(size, 0x11)));
    ASSERT_EQ(collected.found.size(), 1u) << size;
    EXPECT_EQ(collected.found[0], section_of(size, 0x11)) << size;
  }
}

TEST(Sections, OfOtherPidsAreLeftAlone) {
  Collected collected = wanting(kPid);
  std::uint8_t counter = 0;
  take(collected, bytes::packets(kPid + 1, counter, section_of(50, 1)));
  EXPECT_TRUE(collected.found.empty());
  sections_ignore(collected.sections, kPid);
  take(collected, bytes::packets(kPid, counter, section_of(50, 1)));
  EXPECT_TRUE(collected.found.empty());
}

TEST(Sections, MayShareAPacket) {
  Collected collected = wanting(kPid);
  std::uint8_t counter = 0;
  const Bytes all = bytes::join({section_of(30, 1, 0), section_of(40, 2, 1), section_of(50, 3, 2)});
  take(collected, bytes::packets(kPid, counter, all));
  ASSERT_EQ(collected.found.size(), 3u);
  EXPECT_EQ(collected.found[2], section_of(50, 3, 2));
}

// The second section begins behind the first one's end, where pointer_field points.
TEST(Sections, BeginWherePointerFieldPoints) {
  Collected collected = wanting(kPid);
  const Bytes one = section_of(200, 1, 0);
  const Bytes other = section_of(60, 2, 1);
  const Bytes head(one.begin(), one.begin() + 183);
  const Bytes tail(one.begin() + 183, one.end());
  Bytes second = bytes::join({{bytes::byte(tail.size())}, tail, other});
  second.resize(184, 0xFF);
  take(collected, bytes::packet({.pid = kPid, .counter = 0, .start = true}, bytes::join({{0}, head})));
  take(collected, bytes::packet({.pid = kPid, .counter = 1, .start = true}, second));
  ASSERT_EQ(collected.found.size(), 2u);
  EXPECT_EQ(collected.found[0], one);
  EXPECT_EQ(collected.found[1], other);
}

TEST(Sections, HeaderMayBeSplit) {
  for (const std::size_t split : std::initializer_list<std::size_t>{1, 2, 3, 4}) {
    Collected collected = wanting(kPid);
    const Bytes first = section_of(183 - split, 1, 0);
    const Bytes second = section_of(40, 2, 1);
    const auto middle = second.begin() + static_cast<std::ptrdiff_t>(split);
    take(collected, bytes::packet({.pid = kPid, .counter = 0, .start = true},
                                  bytes::join({{0}, first, {second.begin(), middle}})));
    Bytes rest(middle, second.end());
    rest.resize(184, 0xFF);
    take(collected, bytes::packet({.pid = kPid, .counter = 1}, rest));
    ASSERT_EQ(collected.found.size(), 2u) << split;
    EXPECT_EQ(collected.found[1], second) << split;
  }
}

TEST(Sections, StandBehindAdaptationFields) {
  Collected collected = wanting(kPid);
  const Bytes section = section_of(100, 1);
  take(collected,
       bytes::packet({.pid = kPid, .counter = 0, .start = true, .pcr = 1234567}, bytes::join({{0}, section})));
  ASSERT_EQ(collected.found.size(), 1u);
  EXPECT_EQ(collected.found[0], section);
}

// A section of three packets, of which the middle one comes in some other way.
static std::vector<Bytes> found_with_middle(const std::vector<Bytes>& middles) {
  Collected collected = wanting(kPid);
  std::uint8_t counter = 0;
  const Bytes packets = bytes::packets(kPid, counter, section_of(500, 1));
  take(collected, packet_at(packets, 0));
  for (const Bytes& middle : middles) take(collected, middle);
  take(collected, packet_at(packets, 2));
  return collected.found;
}

TEST(Sections, AreDroppedWhenAPacketIsLostOrDamaged) {
  std::uint8_t counter = 0;
  const Bytes middle = packet_at(bytes::packets(kPid, counter, section_of(500, 1)), 1);
  ASSERT_EQ(found_with_middle({middle}).size(), 1u);
  EXPECT_TRUE(found_with_middle({}).empty());
  Bytes damaged = middle;
  damaged[1] |= 0x80;  // transport_error_indicator
  EXPECT_TRUE(found_with_middle({damaged}).empty());
  Bytes scrambled = middle;
  scrambled[3] |= 0x80;
  EXPECT_TRUE(found_with_middle({scrambled}).empty());
  Bytes late = middle;
  late[3] = static_cast<std::uint8_t>((late[3] & 0xF0) | 7);
  EXPECT_TRUE(found_with_middle({late}).empty());
}

TEST(Sections, SurviveDuplicatesAndPacketsWithoutPayload) {
  std::uint8_t counter = 0;
  const Bytes middle = packet_at(bytes::packets(kPid, counter, section_of(500, 1)), 1);
  EXPECT_EQ(found_with_middle({middle, middle}), std::vector<Bytes>{section_of(500, 1)});
  // Without payload the counter stays.
  const Bytes without = bytes::packet({.pid = kPid, .counter = 1, .pcr = 0}, {});
  EXPECT_EQ(found_with_middle({middle, without}), std::vector<Bytes>{section_of(500, 1)});
  // The same counter with another payload is no duplicate but 16 lost packets.
  Bytes other = middle;
  other[100] ^= 1;
  EXPECT_TRUE(found_with_middle({middle, other}).empty());
}

TEST(Sections, GoOnAfterDamage) {
  Collected collected = wanting(kPid);
  std::uint8_t counter = 0;
  const Bytes broken = bytes::packets(kPid, counter, section_of(500, 1));
  take(collected, packet_at(broken, 0));
  take(collected, packet_at(broken, 2));
  take(collected, bytes::packets(kPid, counter, section_of(500, 2)));
  EXPECT_EQ(collected.found, std::vector<Bytes>{section_of(500, 2)});
}

TEST(Sections, LongerThanTheyMayBeAreDropped) {
  Collected collected = wanting(kPid);
  std::uint8_t counter = 0;
  take(collected, bytes::packets(kPid, counter, bytes::join({{0x50, 0xFF, 0xFE}, Bytes(0xFFE, 1)})));  // 4,094
  EXPECT_TRUE(collected.found.empty());
  take(collected, bytes::packets(kPid, counter, bytes::join({{0x70, 0x7F, 0xFD}, Bytes(0xFFD, 1)})));  // 4,093
  EXPECT_EQ(collected.found.size(), 1u);
}

TEST(Sections, WithWrongPointersAreDropped) {
  Collected collected = wanting(kPid);
  take(collected, bytes::packet({.pid = kPid, .counter = 0, .start = true}, bytes::join({{184}, Bytes(183, 0)})));
  take(collected, bytes::packet({.pid = kPid, .counter = 1, .start = true}, {0}));
  // The adaptation field is longer than the packet.
  Bytes packet = bytes::packet({.pid = kPid, .counter = 2, .start = true}, bytes::join({{0}, section_of(20, 1)}));
  packet[4] = 184;
  take(collected, packet);
  EXPECT_TRUE(collected.found.empty());
  take(collected, bytes::packet({.pid = kPid, .counter = 3, .start = true}, bytes::join({{0}, section_of(20, 1)})));
  EXPECT_EQ(collected.found.size(), 1u);
}

TEST(Sections, AreHandedOutOncePerVersion) {
  Collected collected = wanting(kPid);
  std::uint8_t counter = 0;
  for (int i = 0; i < 3; ++i) take(collected, bytes::packets(kPid, counter, section_of(60, 1)));
  EXPECT_EQ(collected.found.size(), 1u);
  take(collected, bytes::packets(kPid, counter, section_of(60, 2)));
  take(collected, bytes::packets(kPid, counter, section_of(60, 1)));
  EXPECT_EQ(collected.found.size(), 3u);
  // Wanted again, it comes again.
  sections_ignore(collected.sections, kPid);
  sections_want(collected.sections, kPid);
  take(collected, bytes::packets(kPid, counter, section_of(60, 1)));
  EXPECT_EQ(collected.found.size(), 4u);
}

// A damaged section must not count as the good one that comes after it, wherever the damage is.
TEST(Sections, AreHandedOutAfterADamagedOne) {
  const Bytes good = section_of(40, 1);
  for (std::size_t at = 3; at < good.size(); ++at) {
    Collected collected = wanting(kPid);
    std::uint8_t counter = 0;
    Bytes damaged = good;
    damaged[at] ^= 0x40;
    take(collected, bytes::packets(kPid, counter, damaged));
    take(collected, bytes::packets(kPid, counter, good));
    ASSERT_EQ(collected.found.size(), 2u) << at;
  }
}

// Sections that alternate on one PID have places of their own.
TEST(Sections, OfDifferentPlacesDoNotReplaceEachOther) {
  const auto eit = [](std::uint8_t table, std::uint16_t service, std::uint16_t stream, std::uint16_t network,
                      std::uint8_t number) {
    return bytes::section({.table = table, .extension = service, .number = number, .last = 8},
                          bytes::join({bytes::two(stream), bytes::two(network), {8, table}}));
  };
  const std::vector<Bytes> all = {eit(0x4E, 1, 1, 1, 0), eit(0x4F, 1, 1, 1, 0), eit(0x4E, 2, 1, 1, 0),
                                  eit(0x4E, 1, 2, 1, 0), eit(0x4E, 1, 1, 2, 0), eit(0x4E, 1, 1, 1, 1)};
  Collected collected = wanting(kPidEit);
  std::uint8_t counter = 0;
  for (int round = 0; round < 3; ++round)
    for (const Bytes& section : all) take(collected, bytes::packets(kPidEit, counter, section));
  EXPECT_EQ(collected.found, all);
}

TEST(Sections, MayChangeWhatIsWantedWhileTheyAreFound) {
  Sections sections;
  std::uint8_t counter = 0;
  std::uint8_t other_counter = 0;
  sections_want(sections, kPid);
  const Bytes all =
      bytes::join({bytes::packets(kPid, counter, bytes::join({section_of(20, 1, 0), section_of(20, 2, 1)})),
                   bytes::packets(kPid + 1, other_counter, section_of(20, 3))});
  std::vector<std::uint16_t> found;
  sections_take(sections, all, [&](std::uint16_t pid, std::span<const std::uint8_t>) {
    found.push_back(pid);
    if (pid != kPid) return;
    sections_ignore(sections, kPid);
    sections_want(sections, kPid + 1);
  });
  EXPECT_EQ(found, (std::vector<std::uint16_t>{kPid, kPid + 1}));
}

TEST(Sections, HaveBounds) {
  Sections sections;
  for (std::size_t pid = 0; pid < kMostSectionPids; ++pid)
    EXPECT_TRUE(sections_want(sections, static_cast<std::uint16_t>(pid)));
  EXPECT_FALSE(sections_want(sections, 0x1000));
  EXPECT_TRUE(sections_want(sections, 0));

  Collected collected = wanting(kPid);
  std::uint8_t counter = 0;
  for (std::size_t i = 0; i < kMostSeenSections + 10; ++i) {
    const Bytes section = bytes::section(
        {.table = 0x42, .extension = static_cast<std::uint16_t>(i), .number = bytes::byte(i >> 16), .last = 255}, {});
    sections_take(collected.sections, bytes::packets(kPid, counter, section), [](auto, auto) {});
  }
  EXPECT_LE(collected.sections.seen.size(), kMostSeenSections);
}

TEST(Sections, IgnoreWhatIsNoPacket) {
  Collected collected = wanting(kPid);
  std::uint8_t counter = 0;
  Bytes packets = bytes::packets(kPid, counter, section_of(60, 1));
  packets[0] = 0x48;
  take(collected, packets);
  packets[0] = 0x47;
  packets.pop_back();
  take(collected, packets);
  take(collected, {});
  EXPECT_TRUE(collected.found.empty());
}
