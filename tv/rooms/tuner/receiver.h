// One service as a tuner delivers it: what is known of its streams, and its packets for a player.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "broadcast/service_stream.h"
#include "rooms/antenna/antenna.h"

// Packets that are kept for the player until the result of a change is known. A change takes about a second, in which a
// high-definition service sends about 1 MB. Beyond the limit, all are dropped.
inline constexpr std::size_t kMostHeldPackets = std::size_t{4} << 20;  // bytes

// A broadcast may change its PMT or its scrambling with every packet. The user hears of it at most this often.
inline constexpr std::chrono::milliseconds kNewsPause(100);

// How long no packet may have come scrambled for a service to be clear again.
inline constexpr std::chrono::milliseconds kClearAfter(1000);

struct ReceiverFacts {
  ReceptionRefusal refusal = ReceptionRefusal::kNone;
  std::string lost;  // why the signal was lost; empty: it was not
  std::optional<Pmt> pmt;
  bool scrambled = false;
};

enum class ReceiverOutput { kOff, kHold, kPass };  // kHold keeps the packets until kPass

// Both functions run on the reception's thread, without a lock.
struct ReceiverUser {
  void (*news)(void* context) = nullptr;  // the facts have changed
  void (*packets)(void* context, std::span<const std::uint8_t> packets) = nullptr;
  void* context = nullptr;
};

// Destroying it ends the reception: no function of the user runs after that. The caller holds no lock that the user's
// functions take.
struct Receiver;
struct ReceiverEnd {
  void operator()(Receiver* receiver) const;
};
using ReceiverHandle = std::unique_ptr<Receiver, ReceiverEnd>;

// Never null: the facts say whether the service can be received. start: what brings the multiplex's packets; a test has
// its own.
ReceiverHandle receiver_start(const ServiceKey& key, const ReceiverUser& user, ReceiverOutput output,
                              decltype(&reception_start) start = reception_start);
void receiver_set_output(Receiver& receiver, ReceiverOutput output);
ReceiverFacts receiver_facts(Receiver& receiver);
const ServiceKey& receiver_key(const Receiver& receiver);
