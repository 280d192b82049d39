// What a player gets of a service: packets that were held while a change was under way, and then all others.
#include "rooms/tuner/receiver.h"

#include <algorithm>

#include "rooms/tuner/streams_test.h"

using namespace tuner_test;

namespace {

ReceptionUser tuner;  // the receiver, as its tuner sees it

ReceptionHandle start(const ServiceKey&, const ReceptionUser& user, ReceptionRefusal&) {
  tuner = user;
  return nullptr;
}

struct ReceiverPackets : testing::Test {
  Bytes stream = multiplex_10();
  std::size_t at = 0;  // of the stream, which is fed over and over
  std::chrono::microseconds due{0};
  Bytes got;
  int news = 0;
  ReceiverHandle receiver;

  void begin(ReceiverOutput output) {
    receiver = receiver_start({1, 10, 101},
                              {.news = [](void* context) { ++static_cast<ReceiverPackets*>(context)->news; },
                               .packets =
                                   [](void* context, std::span<const std::uint8_t> packets) {
                                     Bytes& got = static_cast<ReceiverPackets*>(context)->got;
                                     got.insert(got.end(), packets.begin(), packets.end());
                                   },
                               .context = this},
                              output, start);
  }

  // Hands the receiver these packets of the multiplex.
  void feed(std::size_t packets) {
    for (; packets > 0; --packets) {
      const std::span<const std::uint8_t> packet = std::span(stream).subspan(at, 188);
      tuner.packets(tuner.context, {.packets = packet, .due = due, .round = 0});
      at = (at + 188) % stream.size();
      due += std::chrono::microseconds(100);
    }
  }

  int first_pid() const { return got.size() < 188 ? -1 : (got[1] & 0x1F) << 8 | got[2]; }
  std::size_t count(int pid) const {
    std::size_t found = 0;
    for (std::size_t i = 0; i < got.size(); i += 188) found += ((got[i + 1] & 0x1F) << 8 | got[i + 2]) == pid ? 1 : 0;
    return found;
  }
};

constexpr int kVideo = 0x101;

TEST_F(ReceiverPackets, HeldPacketsComeBeforeTheOthersAndNoneIsLost) {
  begin(ReceiverOutput::kHold);
  feed(200);
  EXPECT_TRUE(got.empty());
  EXPECT_TRUE(receiver_facts(*receiver).pmt);
  EXPECT_GE(news, 1);
  const std::size_t fed = at;
  receiver_set_output(*receiver, ReceiverOutput::kPass);
  EXPECT_TRUE(got.empty()) << "they come with the next packets, on the reception's thread";
  feed(100);
  EXPECT_EQ(first_pid(), 0) << "a PAT of the service alone";
  std::size_t sent = 0;  // video packets since the service's PMT
  bool known = false;
  for (std::size_t i = 0; i < fed + std::size_t{100} * 188; i += 188) {
    const int pid = (stream[i + 1] & 0x1F) << 8 | stream[i + 2];
    known = known || pid == 0x40;
    sent += known && pid == kVideo ? 1 : 0;
  }
  EXPECT_GT(sent, 0u);
  EXPECT_EQ(count(kVideo), sent);
  EXPECT_EQ(count(0x111), 0u) << "another service's";
}

TEST_F(ReceiverPackets, NothingIsKeptWithoutAPlayer) {
  begin(ReceiverOutput::kOff);
  feed(300);
  receiver_set_output(*receiver, ReceiverOutput::kPass);
  EXPECT_TRUE(got.empty());
  feed(300);
  EXPECT_EQ(first_pid(), 0) << "a player that comes later gets a PAT first";
  const std::size_t passed = got.size();
  receiver_set_output(*receiver, ReceiverOutput::kOff);
  feed(300);
  EXPECT_EQ(got.size(), passed);
}

TEST_F(ReceiverPackets, BeyondTheLimitTheHeldPacketsAreDropped) {
  begin(ReceiverOutput::kHold);
  const std::size_t rounds = kMostHeldPackets / stream.size() + 2;
  std::size_t of_service = 0;  // of a round, at least
  for (std::size_t i = 0; i < stream.size(); i += 188) {
    const int pid = (stream[i + 1] & 0x1F) << 8 | stream[i + 2];
    of_service += pid >= 0x100 && pid < 0x108 ? 188 : 0;
  }
  const std::size_t enough = kMostHeldPackets / of_service + 2;
  for (std::size_t i = 0; i < std::max(rounds, enough); ++i) feed(stream.size() / 188);
  receiver_set_output(*receiver, ReceiverOutput::kPass);
  feed(200);
  EXPECT_FALSE(got.empty());
  EXPECT_LE(got.size(), kMostHeldPackets + std::size_t{200} * 188);
  EXPECT_EQ(first_pid(), 0) << "the stream has begun again, with its PAT";
}

}  // namespace
