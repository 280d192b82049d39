#include "broadcast/playout.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "broadcast/stream_bytes.h"

namespace bytes = stream_bytes;
using bytes::Bytes;

static constexpr std::int64_t kSecond = 27'000'000;  // of PCR
static constexpr std::uint16_t kPid = 0x0100;

namespace {

struct BroadcastPlayout : testing::Test {
  std::string folder;
  std::string path;
  std::string error;

  BroadcastPlayout() {
    std::string name = (std::filesystem::temp_directory_path() / "playout_test_XXXXXX").string();
    folder = mkdtemp(name.data());
    path = folder + "/a.ts";
  }
  ~BroadcastPlayout() override { std::filesystem::remove_all(folder); }
  BroadcastPlayout(const BroadcastPlayout&) = delete;
  BroadcastPlayout& operator=(const BroadcastPlayout&) = delete;

  void write(const Bytes& content, std::ios::openmode mode = std::ios::trunc) const {
    std::ofstream file(path, std::ios::binary | mode);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
  }

  PlayoutHandle open() {
    PlayoutHandle playout = playout_open(path, error);
    EXPECT_TRUE(playout) << error;
    return playout;
  }
};

}  // namespace

// A packet that says its number, with or without a PCR.
static Bytes numbered(std::size_t number, std::int64_t pcr = -1, std::uint16_t pid = kPid) {
  return bytes::packet({.pid = pid, .counter = bytes::byte(number % 16), .pcr = pcr},
                       {bytes::byte(number >> 8), bytes::byte(number)});
}

static std::size_t number_of(std::span<const std::uint8_t> packet) { return packet[186] * 256U + packet[187]; }

static Bytes numbered_packets(std::size_t count) {
  Bytes all;
  for (std::size_t i = 0; i < count; ++i) {
    const Bytes packet = numbered(i);
    all.insert(all.end(), packet.begin(), packet.end());
  }
  return all;
}

static std::vector<std::size_t> read_all(Playout& playout) {
  std::vector<std::size_t> numbers;
  std::string error = "before";
  while (const auto chunk = playout_next(playout, false, error)) {
    EXPECT_EQ(chunk->packets.size() % kPacketSize, 0u);
    EXPECT_GT(chunk->packets.size(), 0u);
    EXPECT_LE(chunk->packets.size(), kPlayoutChunk * kPacketSize);
    EXPECT_EQ(chunk->due.count(), 0);
    for (std::size_t at = 0; at < chunk->packets.size(); at += kPacketSize)
      numbers.push_back(number_of(chunk->packets.subspan(at, kPacketSize)));
  }
  EXPECT_EQ(error, "");
  return numbers;
}

static std::vector<std::size_t> range(std::size_t begin, std::size_t end) {
  std::vector<std::size_t> numbers;
  for (std::size_t i = begin; i < end; ++i) numbers.push_back(i);
  return numbers;
}

TEST_F(BroadcastPlayout, ReadsEveryPacketSize) {
  for (const std::size_t before : std::initializer_list<std::size_t>{0, 4}) {
    for (const std::size_t behind : std::initializer_list<std::size_t>{0, 16}) {
      if (before > 0 && behind > 0) continue;
      Bytes all;
      for (std::size_t i = 0; i < 200; ++i)
        all = bytes::join({all, Bytes(before, 0x11), numbered(i), Bytes(behind, 0x22)});
      write(all);
      EXPECT_EQ(read_all(*open()), range(0, 200)) << before << " " << behind;
    }
  }
}

TEST_F(BroadcastPlayout, ReadsShortFiles) {
  for (const std::size_t count : std::initializer_list<std::size_t>{1, 2, 4, 5, 6}) {
    write(numbered_packets(count));
    EXPECT_EQ(read_all(*open()), range(0, count));
    write(Bytes(4, 0x11));
    for (std::size_t i = 0; i < count; ++i)
      write(bytes::join({numbered(i), Bytes(i + 1 < count ? 4 : 0, 0x11)}), std::ios::app);
    EXPECT_EQ(read_all(*open()), range(0, count));
  }
}

TEST_F(BroadcastPlayout, FindsPacketsBehindOtherBytesAndAfterDamage) {
  const Bytes all = numbered_packets(100);
  const auto middle = all.begin() + 50 * 188;
  for (const std::size_t noise : std::initializer_list<std::size_t>{1, 100, 187, 189, 5000, 200000}) {
    write(bytes::join({Bytes(noise, 0x47), {0x00}, all}));
    EXPECT_EQ(read_all(*open()).back(), 99u) << noise;
    write(bytes::join({{all.begin(), middle}, Bytes(noise, 0x55), {middle, all.end()}}));
    EXPECT_EQ(read_all(*open()), range(0, 100)) << noise;
  }
  // A packet without its sync byte is lost alone; one that lacks bytes is handed out with bytes of the next.
  Bytes damaged = all;
  damaged[20 * 188] = 0x46;
  write(damaged);
  std::vector<std::size_t> expected = range(0, 100);
  expected.erase(expected.begin() + 20);
  EXPECT_EQ(read_all(*open()), expected);
}

TEST_F(BroadcastPlayout, EndsAtDamageWithoutBound) {
  write(bytes::join({numbered_packets(10), Bytes(2U << 20U, 0x00), numbered_packets(10)}));
  EXPECT_EQ(read_all(*open()), range(0, 10));
}

TEST_F(BroadcastPlayout, RefusesWhatIsNoTransportStream) {
  EXPECT_FALSE(playout_open(folder + "/missing.ts", error));
  EXPECT_NE(error.find("missing.ts"), std::string::npos);
  EXPECT_FALSE(playout_open(folder, error));
  EXPECT_NE(error.find("regular file"), std::string::npos) << error;
  ASSERT_EQ(mkfifo((folder + "/fifo").c_str(), 0600), 0);
  EXPECT_FALSE(playout_open(folder + "/fifo", error));
  EXPECT_NE(error.find("regular file"), std::string::npos) << error;
  for (const Bytes& content :
       {Bytes{}, bytes::text("Hello"), Bytes(187, 0x47), Bytes(100000, 0x00), bytes::text(std::string(5000, 'x'))}) {
    write(content);
    error.clear();
    EXPECT_FALSE(playout_open(path, error)) << content.size();
    EXPECT_NE(error.find("not a transport stream"), std::string::npos) << error;
  }
  // Packets behind the first MiB do not count.
  write(bytes::join({Bytes((1U << 20U) + 1, 0), numbered_packets(100)}));
  EXPECT_FALSE(playout_open(path, error));
}

TEST_F(BroadcastPlayout, RefusesAHugeFileOfZerosQuickly) {
  write({});
  std::filesystem::resize_file(path, std::uintmax_t{1} << 30U);
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_FALSE(playout_open(path, error));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
}

// The second half lasts as long as the first but has a third of its packets.
TEST_F(BroadcastPlayout, PacesByPcr) {
  Bytes all;
  for (std::size_t i = 0; i < 300; ++i)
    all = bytes::join({all, numbered(i, i % 30 == 0 ? static_cast<std::int64_t>(i) * kSecond / 300 : -1)});
  for (std::size_t i = 300; i < 400; ++i)
    all = bytes::join(
        {all, numbered(i, i % 10 == 0 ? kSecond + static_cast<std::int64_t>(i - 300) * kSecond / 100 : -1)});
  write(all);
  const PlayoutHandle playout = open();
  std::chrono::microseconds latest{0};
  std::size_t compared = 0;
  while (const auto chunk = playout_next(*playout, true, error)) {
    if (chunk->round > 0) {
      // Ten packets behind the last PCR, at its rate.
      EXPECT_EQ(chunk->due.count(), 2'000'000);
      break;
    }
    EXPECT_GE(chunk->due, latest);
    latest = chunk->due;
    const std::size_t number = number_of(chunk->packets);
    const bool has_pcr = number % 30 == 0 || (number >= 300 && number % 10 == 0);
    if (!has_pcr) continue;
    ++compared;
    const std::size_t expected = number < 300 ? number * 1'000'000 / 300 : 1'000'000 + (number - 300) * 10'000;
    EXPECT_NEAR(static_cast<double>(chunk->due.count()), static_cast<double>(expected), 1.0) << number;
  }
  EXPECT_EQ(compared, 20u);
}

// The due of the chunk that begins with the packet of this number, in the first round.
static std::int64_t due_of(Playout& playout, std::size_t number) {
  std::string error;
  while (const auto chunk = playout_next(playout, true, error))
    if (number_of(chunk->packets) == number) return chunk->due.count();
  ADD_FAILURE() << "no chunk begins with " << number;
  return -1;
}

// Each of these PCRs is 100 packets behind the one before.
static Bytes with_pcrs(const std::vector<std::int64_t>& pcrs) {
  Bytes all;
  for (std::size_t i = 0; i < pcrs.size() * 100; ++i) {
    const Bytes packet = numbered(i, i % 100 == 0 ? pcrs[i / 100] : -1);
    all.insert(all.end(), packet.begin(), packet.end());
  }
  return all;
}

TEST_F(BroadcastPlayout, PacesAcrossTheWrapOfThePcr) {
  static constexpr std::int64_t kRange = (std::int64_t{1} << 33U) * 300;
  write(with_pcrs({kRange - kSecond / 10, kRange - 1, kSecond / 10 - 1}));
  EXPECT_NEAR(static_cast<double>(due_of(*open(), 200)), 200'000, 1);
}

// The time goes on at the rate before.
TEST_F(BroadcastPlayout, GoesOnAfterJumpsOfThePcr) {
  for (const std::int64_t jump : {11 * kSecond, -kSecond, std::int64_t{0}}) {
    const std::int64_t begin = 20 * kSecond;
    const std::int64_t after = begin + kSecond / 10 + jump;
    write(with_pcrs({begin, begin + kSecond / 10, after, after + kSecond / 10}));
    EXPECT_NEAR(static_cast<double>(due_of(*open(), 300)), 300'000, 2) << jump;
  }
}

// Hostile rates are bounded by 200 Mbit/s and 10 kbit/s.
TEST_F(BroadcastPlayout, BoundsTheRate) {
  write(with_pcrs({0, 1, 2, 3}));
  EXPECT_NEAR(static_cast<double>(due_of(*open(), 300)), 300 * 188 * 8 / 200.0, 2);
  write(with_pcrs({0, 9 * kSecond, 18 * kSecond}));
  EXPECT_NEAR(static_cast<double>(due_of(*open(), 200)), 18'000'000, 1);
}

TEST_F(BroadcastPlayout, PacesFilesWithoutPcrAtFiveMegabits) {
  for (const std::size_t count : std::initializer_list<std::size_t>{1, 100, 3000}) {
    write(numbered_packets(count));
    const PlayoutHandle playout = open();
    std::size_t packets = 0;
    std::chrono::microseconds latest{0};
    while (packets < 10000) {
      const auto chunk = playout_next(*playout, true, error);
      ASSERT_TRUE(chunk) << error;
      EXPECT_GE(chunk->due, latest);
      latest = chunk->due;
      packets += chunk->packets.size() / kPacketSize;
    }
    // The first 4,000 packets come at once.
    EXPECT_NEAR(static_cast<double>(latest.count()), 6000 * 188 * 8 / 5.0, 64 * 188 * 8 / 5.0) << count;
  }
}

// One PCR in a file says nothing about its rate.
TEST_F(BroadcastPlayout, PacesFilesWithOnePcr) {
  write(bytes::join({numbered(0, kSecond), numbered_packets(99)}));
  const PlayoutHandle playout = open();
  std::chrono::microseconds latest{0};
  for (int i = 0; i < 300; ++i) latest = playout_next(*playout, true, error)->due;
  EXPECT_GT(latest.count(), 0);
}

// The PCRs of the first service end; those of another have a different origin.
TEST_F(BroadcastPlayout, FollowsAnotherServiceWhenThePcrsEnd) {
  Bytes all = with_pcrs({0, kSecond / 10});
  for (std::size_t i = 200; i < 9200; ++i) {
    const std::int64_t pcr = i % 100 == 0 ? static_cast<std::int64_t>(i) * kSecond / 500 + 500 * kSecond : -1;
    const Bytes packet = numbered(i, pcr, kPid + 1);
    all.insert(all.end(), packet.begin(), packet.end());
  }
  write(all);
  const PlayoutHandle playout = open();
  const std::int64_t before = due_of(*playout, 8000);
  EXPECT_NEAR(static_cast<double>(due_of(*playout, 9000) - before), 2'000'000, 1'000);
}

TEST_F(BroadcastPlayout, BeginsAgainWithoutEnd) {
  write(bytes::join({with_pcrs({0, kSecond / 10}), Bytes(100, 0x00)}));
  const PlayoutHandle playout = open();
  std::size_t packets = 0;
  for (std::uint64_t round = 0; round < 5;) {
    const auto chunk = playout_next(*playout, true, error);
    ASSERT_TRUE(chunk) << error;
    round = chunk->round;
    if (round < 5) packets += chunk->packets.size() / kPacketSize;
    EXPECT_NEAR(static_cast<double>(chunk->due.count()), static_cast<double>(round) * 200'000, 200'000);
  }
  EXPECT_EQ(packets, 5u * 200);
}

TEST_F(BroadcastPlayout, SurvivesFilesThatGrowAndShrink) {
  write(with_pcrs({0, kSecond / 10}));
  const PlayoutHandle playout = open();
  ASSERT_TRUE(playout_next(*playout, true, error));
  write(numbered_packets(500), std::ios::app);
  std::size_t packets = 0;
  std::optional<PlayoutChunk> chunk;
  while ((chunk = playout_next(*playout, true, error)) && chunk->round == 0)
    packets += chunk->packets.size() / kPacketSize;
  ASSERT_TRUE(chunk) << error;
  EXPECT_EQ(packets + 64, 700u);
  std::filesystem::resize_file(path, 10 * kPacketSize + 50);
  while ((chunk = playout_next(*playout, true, error)) && chunk->round < 2) {
  }
  ASSERT_TRUE(chunk) << error;
  EXPECT_EQ(chunk->packets.size(), 10 * kPacketSize);
  std::filesystem::resize_file(path, 0);
  for (int i = 0; i < 3 && chunk; ++i) chunk = playout_next(*playout, true, error);
  EXPECT_FALSE(chunk);
  EXPECT_NE(error.find("no packets"), std::string::npos) << error;
}

TEST_F(BroadcastPlayout, EndsWhenTheFileIsRemovedAtTheLatestAfterItsRound) {
  write(numbered_packets(100));
  const PlayoutHandle playout = open();
  ASSERT_TRUE(playout_next(*playout, true, error));
  std::filesystem::remove(path);
  std::optional<PlayoutChunk> chunk;
  for (int i = 0; i < 3; ++i)
    if (!(chunk = playout_next(*playout, true, error))) break;
  EXPECT_FALSE(chunk);
  EXPECT_NE(error.find("removed"), std::string::npos) << error;
}

TEST_F(BroadcastPlayout, ReadsOnFromAScanInPace) {
  write(with_pcrs({0, kSecond / 10}));
  const PlayoutHandle playout = open();
  EXPECT_EQ(read_all(*playout).size(), 200u);
  const auto chunk = playout_next(*playout, true, error);
  ASSERT_TRUE(chunk) << error;
  EXPECT_EQ(chunk->round, 1u);
  EXPECT_EQ(number_of(chunk->packets), 0u);
}
