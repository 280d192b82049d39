// Visits to the antenna's multiplexes, for the guide of the channels that nobody watches. A thread, which exists only
// during a round of visits, reads one multiplex after the other as fast as it can and hands the event tables to the
// guide. It uses a tuner that is idle, or that receives the multiplex anyway. Whoever needs the tuner gets it at once:
// the visit then ends, and is made up for later.
//
// The lock guards the round's progress. It is not held while a file is read or another part is called.
#pragma once

#include <chrono>
#include <cstdint>

#include "rooms/antenna/receptions.h"

// The bounds of one visit. It ends at the first that it meets.
inline constexpr std::uint64_t kVisitBytes = std::uint64_t{1} << 30;  // read from the file
inline constexpr std::chrono::seconds kVisitTime{60};                 // spent, also waiting for the guide to write
inline constexpr std::chrono::seconds kVisitNews{
    60};  // of the stream without a new section; a schedule repeats within 30

// How often the set looks whether a multiplex is due, by its timers. The first look is one pause after the start.
inline constexpr std::chrono::minutes kVisitLook{1};
// How long a visited multiplex is not due: while the set is on, and in standby.
inline constexpr std::chrono::hours kVisitPause{4};
inline constexpr std::chrono::hours kVisitPauseInStandby{1};

void visits_open(EventTaker taker);
void visits_close();  // cancels a round, and returns when its thread has ended
