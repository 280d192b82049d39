// The tuners. Each tuner in use has a thread, which reads the multiplex, hands its packets to the users at the time
// when they are due, and its event tables to the guide. A tuner without users has no thread.
//
// One lock guards the tuners. It comes after the antenna's and is not held while a user's function runs, a file is read
// or the guide takes events. Receptions use the machine's steady clock, also where a test has a manual one.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "rooms/antenna/antenna.h"

inline constexpr std::size_t kMostUsers = 32;  // of one tuner
// A tuner that is later than this drops packets until it is on time.
inline constexpr std::chrono::milliseconds kMostLate{1000};
// Of a longer delay, only this much is made up for; by the rest the whole stream is later.
inline constexpr std::chrono::milliseconds kMostDropped{10000};
inline constexpr std::size_t kMostWaitingSections = 1024;  // event sections that wait for the guide, of one tuner

// Takes the events of a section, with the seconds by which its times are moved.
using EventTaker = void (*)(const Eit& eit, std::int64_t shift);

// Returns another number when all sections are wanted again. Called on the tuners' threads, without a lock.
using EventRound = std::uint64_t (*)();

struct ReceptionSource {
  std::string path;
  std::int64_t shift = 0;
};

// From here on receptions can start.
void receptions_open(EventTaker taker, EventRound round);

// Ends all receptions, and returns when no user's function runs any more. The users' handles stay valid. No function of
// a user may call it.
void receptions_close();

ReceptionHandle receptions_add(const ReceptionSource& source, const ReceptionUser& user, ReceptionRefusal& ret_refusal);

// Ends the receptions of these files: their tuners report `why` to their users as lost.
void receptions_drop(const std::function<bool(const std::string& path)>& drops, const std::string& why);

// A visit reads the multiplex with a tuner of its own thread's, one visit at a time: with the tuner that receives it
// anyway, or with one that is idle. It has no claim to the tuner: receptions_add takes it as any other, the last of the
// idle ones, and receptions_visit_goes_on is false from then on. The reader asks that between two chunks.
bool receptions_visit_begin(const std::string& path);  // false: all tuners receive others
bool receptions_visit_goes_on();
void receptions_visit_end();  // also if none has begun

struct TunerUse {
  std::string path;  // that it receives; empty: it is idle, or only a visit uses it
  std::size_t users = 0;
  std::string visited;  // the path that a visit reads with it; empty: none does
};

std::array<TunerUse, kTuners> receptions_use();
