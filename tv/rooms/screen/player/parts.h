// The player's parts: its state, and what its files call of each other.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "rooms/screen/player/file.h"
#include "rooms/screen/player/http.h"
#include "rooms/screen/player/library.h"
#include "rooms/screen/player/player.h"

// A stream that libmpv has open, of what is played or of a subtitle file. One of the three handles is set.
struct Reader {
  std::unique_ptr<RingReader> ring = {};
  std::unique_ptr<FileReader> file = {};
  HttpReaderHandle http = {};
  std::atomic<bool> closed = false;
};

struct Player {
  static constexpr std::chrono::steady_clock::time_point kNever = std::chrono::steady_clock::time_point::max();

  std::shared_ptr<PacketRing> ring = {};  // one of the three is played
  std::shared_ptr<FileSource> file = {};
  std::shared_ptr<HttpSource> http = {};
  bool media = false;  // a media file, not a broadcast: all of PlayerFacts is filled in
  std::vector<std::shared_ptr<FileSource>> subtitles = {};  // of subtitle_files, in the same order
  std::vector<PlayerSubtitle> subtitle_files = {};
  std::mutex readers_lock = {};  // guards the readers
  // The newest is last. libmpv may cancel a stream that it has closed already, so a reader outlives its stream.
  std::deque<std::shared_ptr<Reader>> readers = {};
  bool readers_end = false;  // no further reader is opened
  mpv_handle* handle = nullptr;
  mpv_render_context* renderer = nullptr;
  std::chrono::steady_clock::time_point next_frame = {};  // earlier pictures are skipped
  bool skipped = false;                                   // the newest picture was skipped; it may be the last one
  std::chrono::steady_clock::time_point opened = {};      // when it began to play the stream
  std::chrono::steady_clock::time_point reopen = kNever;  // when the broken stream is played again
  std::vector<std::string> complained = {};               // the player's modules that have reported an error

  // For a ring only: the PIDs of the chosen streams, and the numbers of the tracks that were requested from libmpv.
  static constexpr int kUnknown = -1;
  int audio = kUnknown;
  int subtitle = 0;
  int asked_audio = kUnknown;
  int asked_subtitle = 0;

  // For a file only: when libmpv began to play it, and how many subtitle files it has not refused. The file counts as
  // open when libmpv lists the tracks of all of these.
  std::chrono::steady_clock::time_point begun = kNever;
  std::size_t subtitles_expected = 0;

  PlayerFacts facts = {};
  // The properties that player_set_look has set, and their values.
  std::map<std::string, std::string, std::less<>> look = {};
  std::optional<double> sought = {};  // position that libmpv has reported since the latest seek began
  std::uint64_t seek = 0;             // number of the latest seek
  bool seek_taken = false;            // the latest seek has begun
  bool plays_again = false;           // a seek has come at the file's end, and the file is being opened again
  bool draws_again = false;           // subtitles have changed since
  std::chrono::steady_clock::time_point seek_until = kNever;  // then its position counts in any case
};

// ---- streams.cpp ----

inline constexpr const char* kStreamAddress = "dtv://";

inline constexpr const char* kSubtitleAddress = "dtv://subtitle/";  // followed by its index in Player::subtitles

// Makes libmpv read kStreamAddress from the ring, the file or the server. Returns libmpv's result.
int streams_offer(Player& player);

// Ends all readers; none can be opened afterwards. Any thread.
void streams_end(Player& player);

// Why the latest reader ended before the end of what is played; empty: it did not.
std::string stream_trouble(Player& player);

// ---- facts.cpp ----

// Asks for the events that facts_take reads. Returns the library's result.
int facts_observe(Player& player);

// Reads an event of a file's player, or a property of a ring's.
void facts_take(Player& player, const mpv_event& event);

// Marks the file as open once libmpv plays it and lists its subtitle files, or after kSubtitlesTime.
void facts_settle(Player& player);

// Of a ring: has the library play the chosen streams that are there.
void facts_follow_choice(Player& player);
