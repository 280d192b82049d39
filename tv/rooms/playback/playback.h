// A recording that a viewer watches, for the other rooms.
//
// The room keeps the time of the playback itself, so that it goes on while nobody looks at the screen. While somebody
// does, the screen's player plays the file, and its position is the playback's.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct PlaybackShown {
  std::uint32_t instance = 0;  // another number for each playback
  int recording = 0;
  std::string title = {};
  std::string path = {};    // of the file
  bool grows = false;       // the recording still runs
  double position = 0;      // s
  double duration = 0;      // s; of a running recording: so far
  std::uint64_t jumps = 0;  // incremented with each seek
  bool paused = false;
  double speed = 1;
  int audio = 0;  // number of the sound track; 0: unknown
};

// What is played instead of a channel or a source; nothing: none is. The caller may hold its room's lock.
std::optional<PlaybackShown> playback_shown();

// Plays the recording in place of what has been played. from: s from the beginning; nothing: where it was left. Returns
// why not; empty: it plays. The caller of this and of the next two holds no lock.
std::string playback_start(int recording, std::optional<double> from);

// What keys do. False: nothing is played, so that they have another meaning.
bool playback_press_stop();
bool playback_press_pause();          // and resumes
bool playback_press_skip(double by);  // s

// Ends the playback: a channel or a source was chosen, or the set goes to standby. The timer thread does the rest. The
// caller may hold any lock that comes before the timers'.
void playback_leave();

// Ends the playback of a recording that was deleted. As above.
void playback_leave_recording(int recording);

// Ends the playback and saves its position before it returns. The caller holds no lock.
void playback_end();

// What the screen's player reports: its position after the given number of jumps, and that it has come to the end of
// the file after so many jumps, or cannot play it. why: empty at the end. A later jump plays the file again.
void playback_follow(std::uint32_t instance, std::uint64_t jumps, double position);
void playback_player_ended(std::uint32_t instance, std::uint64_t jumps, const std::string& why);
