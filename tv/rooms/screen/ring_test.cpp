// The ring between the reception and the player: whole packets in their order, the oldest lost first.
#include "rooms/screen/player/ring.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int kMapPid = 0x100;

Bytes packet(int pid, bool begins, std::uint8_t filler) {
  Bytes bytes(kPacketSize, filler);
  bytes[0] = 0x47;
  bytes[1] = static_cast<std::uint8_t>((begins ? 0x40 : 0) | pid >> 8);
  bytes[2] = static_cast<std::uint8_t>(pid);
  bytes[3] = 0x10;
  return bytes;
}

// A PAT with one program, whose map is at kMapPid.
Bytes pat(std::uint8_t program, std::uint8_t counter = 0) {
  Bytes bytes = packet(0, true, 0xFF);
  const Bytes section = {
      0, 0x00, 0xB0, 0x0D, 0x00, 0x01, 0xC1, 0x00, 0x00, 0x00, program, 0xE0 | kMapPid >> 8, kMapPid & 0xFF};
  std::ranges::copy(section, bytes.begin() + 4);
  bytes[3] = static_cast<std::uint8_t>(0x10 | counter);
  return bytes;
}

void put(PacketRing& ring, const Bytes& bytes) { ring_put(ring, bytes); }

// Reads as much as there is, at most `most` bytes.
Bytes read(RingReader& reader, std::size_t most) {
  std::vector<char> room(most);
  room.resize(ring_read(reader, room));
  return {room.begin(), room.end()};
}

struct ScreenRing : testing::Test {
  std::shared_ptr<PacketRing> ring = std::make_shared<PacketRing>();
};

TEST_F(ScreenRing, HandsOutPacketsInTheirOrder) {
  const auto reader = ring_read_from_lead(ring);
  Bytes sent = packet(0x200, false, 1);
  const Bytes second = packet(0x200, false, 2);
  sent.insert(sent.end(), second.begin(), second.end());
  put(*ring, sent);
  EXPECT_EQ(read(*reader, 2 * kPacketSize), sent);
}

TEST_F(ScreenRing, APacketCanBeReadInPieces) {
  const auto reader = ring_read_from_lead(ring);
  const Bytes sent = packet(0x200, false, 7);
  put(*ring, sent);
  Bytes got;
  while (got.size() < kPacketSize) {
    const Bytes piece = read(*reader, 50);
    ASSERT_FALSE(piece.empty());
    got.insert(got.end(), piece.begin(), piece.end());
  }
  EXPECT_EQ(got, sent);
}

TEST_F(ScreenRing, LosesTheOldestPacketsWhole) {
  const auto reader = ring_read_from_lead(ring);
  put(*ring, packet(0x200, false, 1));
  const Bytes begun = read(*reader, 100);  // in the middle of a packet when the ring overflows
  constexpr std::size_t kMore = 5;
  for (std::size_t i = 0; i < kRingPackets + kMore; ++i) put(*ring, packet(0x200, false, static_cast<std::uint8_t>(i)));
  EXPECT_EQ(ring->bytes.size(), kRingPackets * kPacketSize);
  const Bytes rest = read(*reader, kPacketSize - begun.size());
  EXPECT_EQ(rest, Bytes(rest.size(), 1));
  EXPECT_EQ(read(*reader, kPacketSize), packet(0x200, false, kMore));
}

TEST_F(ScreenRing, DropsWhatIsNoPacket) {
  const auto reader = ring_read_from_lead(ring);
  put(*ring, Bytes(kPacketSize, 0x11));
  put(*ring, Bytes(kPacketSize - 1, 0x47));
  put(*ring, {});
  EXPECT_EQ(ring->end, 0U);
  put(*ring, packet(0x1FFF, false, 3));
  EXPECT_EQ(read(*reader, 1000), packet(0x1FFF, false, 3));
}

TEST_F(ScreenRing, AReaderGetsTheTablesFirst) {
  const Bytes map = packet(kMapPid, true, 9);
  put(*ring, pat(5));
  put(*ring, map);
  for (std::size_t i = 0; i < kRingPackets; ++i) put(*ring, packet(0x200, false, 1));
  const auto reader = ring_read_from_lead(ring);
  EXPECT_EQ(read(*reader, kPacketSize), pat(5));
  EXPECT_EQ(read(*reader, kPacketSize), map);
  EXPECT_EQ(read(*reader, kPacketSize), packet(0x200, false, 1));
}

TEST_F(ScreenRing, AnotherProgramDropsTheOldOne) {
  put(*ring, pat(5));
  put(*ring, packet(kMapPid, true, 9));
  put(*ring, packet(0x200, false, 1));
  const std::uint64_t stream = ring_stream(*ring);
  put(*ring, pat(5, 1));  // the same table again
  EXPECT_EQ(ring_stream(*ring), stream);
  put(*ring, pat(6));
  put(*ring, packet(0x200, false, 2));
  EXPECT_EQ(ring_stream(*ring), stream + 1);
  const auto reader = ring_read_from_lead(ring);
  EXPECT_EQ(read(*reader, kPacketSize), pat(6));  // as the first table, and once more in its place
  EXPECT_EQ(read(*reader, kPacketSize), pat(6));
  EXPECT_EQ(read(*reader, kPacketSize), packet(0x200, false, 2));
}

TEST_F(ScreenRing, AForgottenRingIsEmptyUntilTheNextPat) {
  EXPECT_EQ(ring_stream(*ring), 0U);
  put(*ring, pat(5));
  put(*ring, packet(0x200, false, 1));
  const std::uint64_t before = ring_stream(*ring);
  EXPECT_NE(before, 0U);
  const auto old = ring_read_from_lead(ring);
  ring_forget(*ring);
  EXPECT_EQ(ring_stream(*ring), 0U);
  EXPECT_EQ(ring->bytes.capacity(), 0U);
  put(*ring, packet(0x200, false, 2));
  EXPECT_EQ(ring_stream(*ring), 0U);
  put(*ring, pat(5));  // the same program again is another stream
  EXPECT_GT(ring_stream(*ring), before);
  put(*ring, packet(0x200, false, 3));
  const auto reader = ring_read_from_lead(ring);
  EXPECT_EQ(read(*reader, kPacketSize), pat(5));
  EXPECT_EQ(read(*reader, kPacketSize), pat(5));
  EXPECT_EQ(read(*reader, kPacketSize), packet(0x200, false, 3));
  EXPECT_EQ(read(*old, kPacketSize), pat(5));  // what it had begun with
  EXPECT_EQ(read(*old, kPacketSize), pat(5));
  EXPECT_EQ(read(*old, kPacketSize), packet(0x200, false, 3));
}

TEST_F(ScreenRing, KeepsAtMostFourPacketsOfAProgramMap) {
  put(*ring, pat(5));
  put(*ring, packet(kMapPid, true, 0));
  for (std::uint8_t i = 1; i < 100; ++i) put(*ring, packet(kMapPid, false, i));
  EXPECT_EQ(ring->map.size(), kRingMapPackets * kPacketSize);
}

TEST_F(ScreenRing, DamagedTablesAreHarmless) {
  for (int field = 0; field < 256; ++field) {
    Bytes bytes = pat(static_cast<std::uint8_t>(field));
    bytes[3] = 0x30;  // with an adaptation field of any length
    bytes[4] = static_cast<std::uint8_t>(field);
    put(*ring, bytes);
    bytes[3] = 0x10;  // a pointer to anywhere
    put(*ring, bytes);
  }
  const auto reader = ring_read_from_lead(ring);
  EXPECT_GE(read(*reader, 10 * kPacketSize).size(), kPacketSize);
}

TEST_F(ScreenRing, CancellingEndsAReadThatWaits) {
  const auto reader = ring_read_from_lead(ring);
  auto waiting = std::async(std::launch::async, [&] { return read(*reader, 100).size(); });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  ring_cancel(*reader);
  EXPECT_EQ(waiting.get(), 0U);
  put(*ring, packet(0x200, false, 1));
  EXPECT_TRUE(read(*reader, 100).empty());
}

}  // namespace
