// The antenna, a folder of transport streams, and the tuners that receive it, for the other rooms. The room's locks
// come after the tuner's. One serializes changes of the setting and is held while the path is looked up and stored. The
// others are not held while a file is read, a listener or a user's function runs, or another room is called.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "broadcast/playout.h"
#include "broadcast/tables.h"

inline constexpr int kTuners = 2;

struct Multiplex {
  std::string path;
  Medium medium = Medium::kAir;
  std::uint32_t frequency = 0;  // as in TSL_REC_T; of the stream's NIT, else a free one
  std::uint16_t network = 0;    // original network id
  std::uint16_t stream = 0;
  int strength = 0;  // percent
  int quality = 0;
};

// The multiplexes in the folder, in the order of their media and frequencies. Does not access the disk: a thread of the
// room reads the folder, which can take seconds after the set's start.
std::vector<Multiplex> antenna_multiplexes();

// The listener runs on a thread of the room, without a lock, after each reading of the folder: from then on
// antenna_multiplexes and reception_start know what was found. It stays registered until the process ends; registering
// it again changes nothing. At most kMostAntennaListeners.
inline constexpr std::size_t kMostAntennaListeners = 8;
void antenna_listen(void (*listener)());

// What a reception reports. The functions run on the reception's thread, without a lock, and must not end the
// reception.
struct ReceptionUser {
  // Packets of the multiplex, at the time when they are due.
  void (*packets)(void* context, const PlayoutChunk& chunk) = nullptr;
  // The stream ended for good: the file is gone or has no packets any more.
  void (*lost)(void* context, const std::string& why) = nullptr;
  void* context = nullptr;
};

// A multiplex being received by a tuner. Users of the same multiplex share the tuner and its thread. Destroying it ends
// it: no function of its user runs after that. Destroying waits for a function of its user that runs, so the caller
// holds no lock that these functions take. It may be destroyed after the set was switched off.
struct Reception;
struct ReceptionEnd {
  void operator()(Reception* reception) const;
};
using ReceptionHandle = std::unique_ptr<Reception, ReceptionEnd>;

enum class ReceptionRefusal { kNone, kNoSignal, kNoTuner };

// Starts to receive the multiplex of this service. Null: no multiplex of the antenna carries it (kNoSignal), or all
// tuners receive others (kNoTuner). The caller holds no lock that the user's functions take.
ReceptionHandle reception_start(const ServiceKey& key, const ReceptionUser& user, ReceptionRefusal& ret_refusal);

// Every tuner that receives something hands the tables of its multiplex to the rooms that keep them: the guide's
// guide_take. Times of a stream are shifted by whole minutes so that the stream's own clock, when the antenna was
// loaded, was the set's. A stream whose clock was less than 26 hours away from the set's is not shifted.
std::int64_t antenna_time_shift(std::uint16_t network, std::uint16_t stream);

// The visits that fill the guide of the channels that nobody watches (visits.h). They happen by themselves; these
// functions start a round of all multiplexes now. The caller holds no lock.
struct VisitsReport {
  std::string state = "none";  // running, done, cancelled, failed
  std::string error = {};
  std::size_t multiplex = 0;  // visits that are over, of multiplexes
  std::size_t multiplexes = 0;
  std::size_t skipped = 0;   // without a tuner for them, or cut short because a viewer or a recording needed it
  std::uint64_t events = 0;  // in the sections that the guide was given
  std::int64_t seconds = 0;
};
std::string visits_start();  // why it does not start; empty: it runs
bool visits_cancel();        // ends the round soon; false: none runs
VisitsReport visits_report();
