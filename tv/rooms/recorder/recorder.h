// The recorder, for the other rooms.
//
// Its lock for changes comes before the remote control's and those of all rooms after it, and before the lock under
// which the sub picture works (rooms/tuner/picture.h). Its lock for readers comes after all of these; only the
// locks of the writers and the timers' come after it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The message of the latest reminder; empty: its time on the screen is over. Takes only the lock for readers, so the
// caller may hold its own room's lock.
std::string recorder_message();

// What a recording's file is, for those who play it.
struct PlayableRecording {
  int id = 0;
  std::string path = {};
  std::string url = {};  // as the list of recordings has it
  std::string title = {};
  std::string channel = {};
  int event = -1;
  std::int64_t start = 0;      // s since 1970, UTC
  std::uint32_t duration = 0;  // s; of one that runs: so far
  std::uint64_t bytes = 0;
  std::uint32_t resume = 0;  // s from the beginning
  bool runs = false;
};

// Nothing with ret_why: there is no such recording, or nothing of it to play. Takes only the lock for readers.
std::optional<PlayableRecording> recorder_playable(int id, std::string& ret_why);

// Notes what is done with the recording (PVR_FILE_READY, PLAYING or PAUSED), and where it is to be resumed. Without
// such a recording it does nothing. The caller holds none of the recorder's locks.
void recorder_note_playing(int id, std::int32_t status, std::uint32_t resume);
