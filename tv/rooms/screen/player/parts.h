// The player's parts: its state, and what its files call of each other.
#pragma once

#include <deque>
#include <mutex>

#include "rooms/screen/player/file.h"
#include "rooms/screen/player/library.h"
#include "rooms/screen/player/player.h"

struct Player {
  std::shared_ptr<PacketRing> ring = {};  // this or the file is played
  std::shared_ptr<FileSource> file = {};
  std::mutex readers_lock = {};  // guards the readers
  // Ring or file readers; the newest is last. libmpv may cancel a stream that it has closed already, so a reader
  // outlives its stream.
  std::deque<std::shared_ptr<void>> readers = {};
  mpv_handle* handle = nullptr;
  mpv_render_context* renderer = nullptr;
  std::chrono::steady_clock::time_point next_frame = {};  // earlier pictures are skipped
  std::chrono::steady_clock::time_point opened = {};      // when it began to play the stream
  std::chrono::steady_clock::time_point reopen = kNever;  // when the broken stream is played again
  std::vector<std::string> complained = {};               // the player's modules that have reported an error

  // Of a ring: the PIDs to play, and the tracks that the library was told to play.
  static constexpr int kUnknown = -1;
  int audio = kUnknown;
  int subtitle = 0;
  int asked_audio = kUnknown;
  int asked_subtitle = 0;

  PlayerFacts facts = {};
  std::uint64_t seek = 0;                                     // number of the latest seek
  bool seek_taken = false;                                    // the latest seek has begun
  std::chrono::steady_clock::time_point seek_until = kNever;  // then its position counts in any case

  static constexpr std::chrono::steady_clock::time_point kNever = std::chrono::steady_clock::time_point::max();
};

// ---- streams.cpp ----

inline constexpr const char* kStreamAddress = "dtv://";

// Makes kStreamAddress lead to the ring or the file. Returns the library's result.
int streams_offer(Player& player);

// ---- facts.cpp ----

// Asks for the events that facts_take reads. Returns the library's result.
int facts_observe(Player& player);

// Reads an event of a file's player, or a property of a ring's.
void facts_take(Player& player, const mpv_event& event);

// Of a ring: has the library play the chosen streams that are there.
void facts_follow_choice(Player& player);
